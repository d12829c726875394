#!/bin/sh
# Runs the test suite over and over on a clean clone while two busy loops
# keep both cores loaded, then each test that sets processes or threads
# against each other many times alone under the same load. Stops at the
# first failure, leaving its output in the work folder.
#   STRESS_RUNS    runs of `make test` (default 20; 0 builds the tests and
#                  goes straight to the concurrency tests)
#   STRESS_REPEAT  runs of each concurrency test (default 200; 0 skips them)
set -eu
runs=${STRESS_RUNS:-20}
repeat=${STRESS_REPEAT:-200}
repo=$(cd "$(dirname "$0")/.." && pwd)
work=$(mktemp -d /tmp/dbfile-stress-XXXXXX)
echo "stress: working in $work"

git clone --quiet "$repo" "$work/clone"
busy=""
cleanup() {
    for p in $busy; do kill "$p" 2>/dev/null || true; done
}
trap cleanup EXIT INT TERM
for _ in 1 2; do
    sh -c 'while :; do :; done' &
    busy="$busy $!"
done

i=1
while [ "$i" -le "$runs" ]; do
    if ! make -C "$work/clone" test >"$work/test-$i.log" 2>&1; then
        echo "stress: make test failed on run $i; see $work/test-$i.log"
        exit 1
    fi
    echo "stress: make test run $i of $runs passed"
    i=$((i + 1))
done

if [ "$runs" -eq 0 ] && ! make -C "$work/clone" test-build >"$work/build.log" 2>&1; then
    echo "stress: the build failed; see $work/build.log"
    exit 1
fi

if [ "$repeat" -eq 0 ]; then
    echo "stress: all passed"
    rm -rf "$work"
    exit 0
fi

tests="$work/clone/build/test/tests"
# Tests whose outcome depends on how processes and threads interleave.
for t in \
    "recman_tests ProcessTest.*" \
    "recman_tests Load/ConcurrentWriters.*" \
    "recman_tests CrashTest.*" \
    "recman_tests EngineTest.ThreadsOfOneProcess" \
    "recman_tests EngineTest.FreedPagesAreReused" \
    "dbfile_tests RecordFileTest.LockWait*" \
    "dbfile_tests Requester.*"; do
    set -- $t
    for name in $("$tests/$1" --gtest_list_tests --gtest_filter="$2" |
                  awk '/^[^ ]/ {suite=$1} /^  / {print suite $1}'); do
        log="$work/$(echo "$name" | tr '/' '_').log"
        if ! (cd "$tests" && "./$1" --gtest_filter="$name" --gtest_repeat="$repeat" \
                --gtest_break_on_failure >"$log" 2>&1); then
            echo "stress: $name failed; see $log"
            exit 1
        fi
        echo "stress: $name passed $repeat times"
    done
done
echo "stress: all passed"
rm -rf "$work"
