#!/usr/bin/env bash
# Builds everything and passes every test: formatting, the native build (warnings as
# errors), the native build under AddressSanitizer and UndefinedBehaviorSanitizer, the
# concurrent tests under ThreadSanitizer, each fuzzer for a short while, the Windows
# build under Wine, and the packages (built, installed, used, removed: scripts/test-package.sh).
# Stops at the first failure.
#   FUZZ_SECONDS=N   how long each fuzzer runs (default 15)
#   ONLY="native asan tsan fuzz windows package format"   run only some of the stages
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh test
only=" ${ONLY:-format native asan tsan fuzz windows package} "
stage() { [[ "$only" == *" $1 "* ]]; }
banner() { printf '\n===== %s =====\n' "$*"; }

if stage format; then
    banner "format"
    scripts/check-format.sh
fi

if stage native; then
    banner "native (g++, warnings as errors)"
    cmake -S . -B build/native -G Ninja -DVELMORA_WERROR=ON -DVELMORA_BUILD_BENCHMARKS=ON >/dev/null
    cmake --build build/native
    ctest --test-dir build/native --output-on-failure -j2 --timeout 300
fi

if stage asan; then
    banner "native under AddressSanitizer and UndefinedBehaviorSanitizer"
    cmake -S . -B build/asan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DVELMORA_WERROR=ON \
        -DVELMORA_SANITIZE=address,undefined -DVELMORA_BUILD_TOOLS=OFF >/dev/null
    cmake --build build/asan
    ASAN_OPTIONS=detect_leaks=1:strict_string_checks=1 UBSAN_OPTIONS=print_stacktrace=1 \
        ctest --test-dir build/asan --output-on-failure -j2 --timeout 600 -E '^install\.'
fi

if stage tsan; then
    banner "concurrent tests under ThreadSanitizer"
    scripts/tsan.sh
fi

if stage fuzz; then
    banner "fuzzers (${FUZZ_SECONDS:-15} s each)"
    scripts/fuzz.sh "${FUZZ_SECONDS:-15}"
fi

if stage windows; then
    banner "Windows build (mingw-w64) under Wine"
    scripts/test-windows.sh
fi

if stage package; then
    banner "packages: Debian packages and the service, the Windows archive"
    scripts/test-package.sh
fi
echo "all stages passed"
