#!/usr/bin/env bash
# Builds with ThreadSanitizer and runs the tests whose names say they are concurrent.
set -euo pipefail
cd "$(dirname "$0")/.."
cmake -S . -B build/tsan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DVELMORA_SANITIZE=thread \
    -DVELMORA_BUILD_TOOLS=OFF >/dev/null
cmake --build build/tsan
TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1" \
    ctest --test-dir build/tsan --output-on-failure -j2 --timeout 600 -R 'Concurrent'
