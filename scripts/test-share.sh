#!/bin/sh
# Lines of test code over lines of library code, blank lines and comment
# lines left out. Code: every source folder but tests, bench, fuzz and
# examples (the tools count, as their tests do); tests: tests/.
set -eu
cd "$(dirname "$0")/.."
count() {
    find "$@" -name '*.cpp' -o -name '*.h' | xargs cat |
        awk '/^[[:space:]]*$/ {next} /^[[:space:]]*\/\// {next} {n++} END {print n + 0}'
}
code=$(count $(ls -d */ | tr -d / | grep -vxE 'tests|bench|fuzz|examples|build|scripts|cmake|resources_unused'))
tests=$(count tests)
echo "code $code, tests $tests, share $(awk -v t="$tests" -v c="$code" 'BEGIN {printf "%.0f%%", 100 * t / c}')"
