#!/usr/bin/env bash
# Cross-builds for Windows with mingw-w64 and runs the test programs under Wine, in a
# Wine prefix of its own inside the build folder. The prefix and its services are started
# before CTest: Wine's helper processes otherwise keep CTest's output pipes open.
set -euo pipefail
cd "$(dirname "$0")/.."
build=build/windows
cmake -S . -B "$build" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/mingw-w64-x86_64-posix.cmake" \
    -DVELMORA_WERROR=ON >/dev/null
cmake --build "$build"
export WINEPREFIX="$PWD/$build/wineprefix" WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
unset DISPLAY
mkdir -p "$WINEPREFIX"
wineserver -p || true  # 2 when a server of this prefix is already up: it serves as well
wine cmd /c exit 0 </dev/null >/dev/null 2>&1
rc=0
ctest --test-dir "$build" --output-on-failure -j2 --timeout 300 || rc=$?
wineserver -k || true
exit $rc
