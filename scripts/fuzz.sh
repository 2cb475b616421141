#!/usr/bin/env bash
# Builds the libFuzzer targets with clang (AddressSanitizer and UndefinedBehaviorSanitizer)
# and runs each for the given number of seconds (default 15), from its seed corpus in
# fuzz/<area>/corpus/<target>/ when there is one.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-15}"
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
    work="build/fuzz/corpus/$name"
    mkdir -p "$work"
    seeds="fuzz/$area/corpus/${name#fuzz_}"
    [ -d "$seeds" ] || seeds=""
    echo "--- $name"
    log="build/fuzz/$name.log"
    if ! ASAN_OPTIONS=detect_leaks=1 "$target" -max_total_time="$seconds" -print_final_stats=0 \
        -timeout=10 -rss_limit_mb=2048 -artifact_prefix="build/fuzz/$name-" "$work" $seeds \
        >"$log" 2>&1; then
        tail -n 40 "$log"
        echo "$name failed; the input is in build/fuzz/$name-*"
        exit 1
    fi
    grep -E '^Done' "$log" || tail -n 1 "$log"
done
