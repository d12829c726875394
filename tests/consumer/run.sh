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
"$work/build/sqlite_consumer"
test -x "$work/prefix/bin/dbutil"
# The same program built with plain make flags from pkg-config.
PKG_CONFIG_PATH="$work/prefix/lib/pkgconfig" pkg-config --cflags --libs dbfile >"$work/pc"
# shellcheck disable=SC2046
c++ -std=c++20 $flags "$src/dbfile_consumer.cpp" -o "$work/dbfile_consumer_pc" $(cat "$work/pc")
"$work/dbfile_consumer_pc"
