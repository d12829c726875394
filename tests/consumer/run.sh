#!/bin/sh
# Installs the build tree into a scratch prefix, builds the consumer programs
# against that prefix alone and runs them.
# Usage: run.sh <build dir> <source dir of this test> <extra C++ flags>
set -eu
build=$1
src=$2
flags=${3:-}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$build" --prefix "$work/prefix" >/dev/null
cmake -S "$src" -B "$work/build" -DCMAKE_PREFIX_PATH="$work/prefix" \
      -DCMAKE_CXX_FLAGS="$flags" -DCMAKE_EXE_LINKER_FLAGS="$flags" >/dev/null
cmake --build "$work/build" -j 2 >/dev/null
"$work/build/recman_consumer"
LD_LIBRARY_PATH="$work/prefix/lib" "$work/build/recman_consumer_shared"
"$work/build/dbfile_consumer"
