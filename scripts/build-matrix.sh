#!/bin/sh
# Builds the project every way a user might: each build type with GCC and
# with clang, with the tests and without, warnings as errors. Stops at the
# first build that fails and names it.
#   BUILD_MATRIX_DIR        where the builds go (default build/matrix)
#   BUILD_MATRIX_COMPILERS  which compilers (default "gcc clang")
#   BUILD_MATRIX_TYPES      which build types (default all four)
set -eu
src=$(cd "$(dirname "$0")/.." && pwd)
out=${BUILD_MATRIX_DIR:-$src/build/matrix}
jobs=$(nproc 2>/dev/null || echo 2)
mkdir -p "$out"
for compiler in ${BUILD_MATRIX_COMPILERS:-gcc clang}; do
    if [ "$compiler" = gcc ]; then cc=gcc cxx=g++; else cc=clang cxx=clang++; fi
    for type in ${BUILD_MATRIX_TYPES:-Debug Release RelWithDebInfo MinSizeRel}; do
        for tests in ON OFF; do
            dir="$out/$compiler-$type-tests$tests"
            echo "build-matrix: $compiler $type tests=$tests"
            if ! { cmake -S "$src" -B "$dir" -DCMAKE_C_COMPILER=$cc -DCMAKE_CXX_COMPILER=$cxx \
                       -DCMAKE_BUILD_TYPE=$type -DDBFILE_TESTS=$tests -DDBFILE_WERROR=ON &&
                   cmake --build "$dir" -j "$jobs"; } >"$dir.log" 2>&1; then
                grep -E "error|Error" "$dir.log" | head -20
                echo "build-matrix: $compiler $type tests=$tests failed; see $dir.log"
                exit 1
            fi
            rm -rf "$dir"
        done
    done
done
echo "build-matrix: every build passed"
