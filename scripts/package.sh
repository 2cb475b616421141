#!/usr/bin/env bash
# Builds the packages into build/packages:
#   libvelmora-common0_V_ARCH.deb      the two shared libraries
#   libvelmora-common-dev_V_ARCH.deb   headers, CMake package, pkg-config file
#   velmorad_V_ARCH.deb                the daemon, its systemd unit, /etc/velmorad settings
#   velmora-common-V-win64.zip         common.dll, vre.dll, import libraries, headers, CMake
#                                      package and velmorad.exe (mingw-w64 cross build)
# from release builds without tests in build/package-deb and build/package-win.
#   scripts/package.sh [deb] [zip]     only some of them (default both)
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh package
want=" ${*:-deb zip} "
out=build/packages
mkdir -p "$out"

if [[ "$want" == *" deb "* ]]; then
    build=build/package-deb
    # The prefix /usr puts the libraries in the multiarch folder and the settings in /etc.
    cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr \
        -DVELMORA_BUILD_TESTS=OFF -DVELMORA_BUILD_TOOLS=ON >/dev/null
    cmake --build "$build"
    rm -f "$build"/*.deb "$out"/*.deb
    (cd "$build" && cpack -G DEB >/dev/null)
    cp "$build"/*.deb "$out"/
fi

if [[ "$want" == *" zip "* ]]; then
    build=build/package-win
    # The toolchain file asks for Wine, which only running the tests needs.
    wine_option=()
    command -v wine >/dev/null || wine_option=(-DWINE_EXECUTABLE=wine-is-not-needed-to-package)
    cmake -S . -B "$build" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/mingw-w64-x86_64-posix.cmake" \
        -DCMAKE_BUILD_TYPE=Release -DVELMORA_BUILD_TESTS=OFF -DVELMORA_BUILD_TOOLS=ON \
        "${wine_option[@]}" >/dev/null
    cmake --build "$build"
    rm -f "$build"/*.zip "$out"/*.zip
    (cd "$build" && cpack -G ZIP >/dev/null)
    cp "$build"/*.zip "$out"/
fi
ls -l "$out"
