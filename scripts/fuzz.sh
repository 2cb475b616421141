#!/usr/bin/env bash
# Builds the libFuzzer targets with clang (AddressSanitizer and UndefinedBehaviorSanitizer)
# and runs each from its seed corpus in fuzz/<area>/corpus/<target>/.
#   scripts/fuzz.sh [SECONDS]             every target for SECONDS (default 15): the CI run
#   scripts/fuzz.sh --runs N [TARGET...]  each target (or the named ones, e.g. read_line)
#                                         until it has tried N inputs: the long run, not in CI
# Each run prints libFuzzer's "Done <inputs> runs in <seconds> second(s)" line.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=15
runs=""
if [ "${1:-}" = "--runs" ]; then
    runs="${2:?--runs needs a count}"
    shift 2
elif [ $# -gt 0 ]; then
    seconds="$1"
    shift
fi
wanted=("$@")
CC=clang CXX=clang++ cmake -S . -B build/fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DVELMORA_BUILD_FUZZERS=ON -DVELMORA_BUILD_TESTS=OFF -DVELMORA_BUILD_TOOLS=OFF \
    -DVELMORA_SANITIZE=address,undefined >/dev/null
cmake --build build/fuzz
shopt -s nullglob
targets=(build/fuzz/fuzz/*/fuzz_*)
if [ ${#targets[@]} -eq 0 ]; then
    echo "no fuzz targets yet"
    exit 0
fi
for target in "${targets[@]}"; do
    name=$(basename "$target")
    area=$(basename "$(dirname "$target")")
    if [ ${#wanted[@]} -gt 0 ] && [[ " ${wanted[*]} " != *" ${name#fuzz_} "* ]]; then
        continue
    fi
    work="build/fuzz/corpus/$name"
    mkdir -p "$work"
    seeds="fuzz/$area/corpus/${name#fuzz_}"
    [ -d "$seeds" ] || seeds=""
    if [ -n "$runs" ]; then
        limit=(-runs="$runs")
    else
        limit=(-max_total_time="$seconds")
    fi
    echo "--- $name"
    log="build/fuzz/$name.log"
    if ! ASAN_OPTIONS=detect_leaks=1 "$target" "${limit[@]}" -print_final_stats=0 \
        -timeout=10 -rss_limit_mb=2048 -artifact_prefix="build/fuzz/$name-" "$work" $seeds \
        >"$log" 2>&1; then
        tail -n 40 "$log"
        echo "$name failed; the input is in build/fuzz/$name-*"
        exit 1
    fi
    grep -E '^Done' "$log" || tail -n 1 "$log"
done
