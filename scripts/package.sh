#!/usr/bin/env bash
# Builds the packages into build/packages:
#   libvelmora-vre0_V_ARCH.deb         the runtime core (libvelmora-vre.so.0)
#   libvelmora-common0_V_ARCH.deb      the common library (libvelmora-common.so.0)
#   libvelmora-common-dev_V_ARCH.deb   headers, CMake package, pkg-config file
#   velmorad_V_ARCH.deb                the daemon, its manual pages, systemd unit, settings
#   velmora-common-V-win64.zip         common.dll, vre.dll, import libraries, headers, CMake
#                                      package and velmorad.exe (mingw-w64 cross build)
# The Debian packages come from debian/ through dpkg-buildpackage (debhelper), built in a
# copy of the sources under build/package-deb; lintian then checks them. The archive comes
# from a release cross build in build/package-win through CPack.
#   scripts/package.sh [deb] [zip]     only some of them (default both)
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh package
want=" ${*:-deb zip} "
out=build/packages
mkdir -p "$out"

if [[ "$want" == *" deb "* ]]; then
    # dpkg-buildpackage works in the directory above the sources: a copy of the tracked and
    # new files (no build output) keeps the worktree clean.
    work=build/package-deb
    rm -rf "$work"
    mkdir -p "$work/src"
    if git rev-parse --git-dir >/dev/null 2>&1; then
        git ls-files -z --cached --others --exclude-standard |
            tar --null --ignore-failed-read -cf - -T - 2>/dev/null | tar -xf - -C "$work/src"
    else
        tar --exclude=./build -cf - . | tar -xf - -C "$work/src"
    fi
    (cd "$work/src" && DEB_BUILD_OPTIONS="parallel=$(nproc) ${DEB_BUILD_OPTIONS:-}" \
        dpkg-buildpackage -b -us -uc >../build.log 2>&1) ||
        { tail -40 "$work/build.log"; echo "package: dpkg-buildpackage failed ($work/build.log)" >&2; exit 1; }
    grep -E "dpkg-gensymbols: warning" "$work/build.log" || true
    rm -f "$out"/*.deb
    cp "$work"/*.deb "$out"/
    # No error and no warning; informational tags are listed for the record.
    lintian --fail-on error,warning -I --pedantic --tag-display-limit 0 "$work"/*.changes ||
        { echo "package: lintian reports errors or warnings" >&2; exit 1; }
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
