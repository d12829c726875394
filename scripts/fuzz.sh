#!/bin/sh
# Runs every fuzzing target of a fuzz build over its seeds and then fuzzes
# for the given number of seconds. New inputs go to the build's own corpus;
# a failure leaves its input in the build's artifacts folder and stops.
#   fuzz.sh BUILD_DIR SECONDS [TARGET...]
set -eu
build=$1
seconds=$2
shift 2
src=$(cd "$(dirname "$0")/.." && pwd)
targets=${*:-$(cd "$build/fuzz" && ls -- *_fuzz)}
mkdir -p "$build/artifacts"
for t in $targets; do
    name=${t%_fuzz}
    seeds="$src/fuzz/corpus/$name"
    work="$build/corpus/$name"
    mkdir -p "$work" "$seeds"
    echo "fuzz: $name for ${seconds}s"
    if ! "$build/fuzz/$t" -max_total_time="$seconds" -timeout=20 -rss_limit_mb=4096 \
            -print_final_stats=0 -artifact_prefix="$build/artifacts/$name-" \
            "$work" "$seeds" >"$build/$name.log" 2>&1; then
        tail -40 "$build/$name.log"
        echo "fuzz: $name failed; its input is in $build/artifacts"
        exit 1
    fi
    tail -1 "$build/$name.log"
done
