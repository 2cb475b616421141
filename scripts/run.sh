#!/usr/bin/env bash
# Builds the library and runs the main job: velmorad, the sample platform daemon, on
# 127.0.0.1:8080 with its home in build/run-home (override with VELMORA_HOME, or pass
# --bind, --port, --home). Stop it with Ctrl-C.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh run
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release -DVELMORA_BUILD_TESTS=OFF >/dev/null
cmake --build build/release
export VELMORA_HOME="${VELMORA_HOME:-$PWD/build/run-home}"
exec build/release/tools/velmorad/velmorad "$@"
