#!/usr/bin/env bash
# Installs the Debian packages that a build needs, only when some are missing.
#   scripts/install-deps.sh run    what building and running the sample program needs
#   scripts/install-deps.sh package   what scripts/package.sh needs (Debian packages, Windows ZIP)
#   scripts/install-deps.sh test   everything: tests, sanitizers, fuzzers, benchmarks, Windows,
#                                  packages
set -euo pipefail

run_packages=(cmake ninja-build g++ pkg-config)
# debhelper builds the Debian packages (dpkg-dev, file for their dependencies), scdoc their
# manual pages; lintian checks them.
package_packages=("${run_packages[@]}" dpkg-dev debhelper file scdoc lintian
    g++-mingw-w64-x86-64-posix)
test_packages=("${run_packages[@]}" googletest libgtest-dev libgmock-dev libbenchmark-dev
    clang libclang-rt-14-dev clang-format g++-mingw-w64-x86-64-posix wine wine64
    libexpat1-dev libpugixml-dev libssl-dev default-jdk-headless python3 curl iproute2
    dpkg-dev debhelper file scdoc lintian systemd util-linux nginx-light openssl chromium
    chromium-driver python3-selenium)

case "${1:-test}" in
    run) wanted=("${run_packages[@]}") ;;
    package) wanted=("${package_packages[@]}") ;;
    test) wanted=("${test_packages[@]}") ;;
    *) echo "usage: $0 run|package|test" >&2; exit 2 ;;
esac

missing=()
for p in "${wanted[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$p")
    fi
done
if [ ${#missing[@]} -gt 0 ]; then
    echo "installing: ${missing[*]}"
    sudo_cmd=()
    [ "$(id -u)" -eq 0 ] || sudo_cmd=(sudo)
    export DEBIAN_FRONTEND=noninteractive
    "${sudo_cmd[@]}" apt-get update -qq
    "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi
