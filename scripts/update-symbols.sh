#!/usr/bin/env bash
# Writes debian/<library package>.symbols afresh from a package build: every symbol the
# libraries export, at the project's version. Run it after a change that adds or removes
# exported functions on purpose (the package build fails on a symbol that disappears),
# and review the diff: a symbol gone is an incompatible change.
# Template code of the C++ standard library that the compiler happens to emit and export
# (std::vector<...>::_M_realloc_insert and the like) is not part of the interface: it is
# matched by optional patterns, so that it may come and go with the code.
set -euo pipefail
cd "$(dirname "$0")/.."
DPKG_GENSYMBOLS_CHECK_LEVEL=0 scripts/package.sh deb >/dev/null
version=$(dpkg-parsechangelog -SVersion)
src=build/package-deb/src
for package in libvelmora-vre0 libvelmora-common0; do
    (cd "$src" && dpkg-gensymbols -p"$package" -P"debian/$package" -v"$version" -c0 -q \
        -O"$PWD/../$package.symbols.new")
    awk -v version="$version" '
        /^ _Z(N?K?St|St|N9__gnu_cxx|NK9__gnu_cxx|T[ISV]N?St)/ { std = 1; next }
        /^ \(regex\|optional\)/ || /^\* / { next }
        { print }
        NR == 1 { print "* Build-Depends-Package: libvelmora-common-dev" }
        END {
            if (std) {
                print " (regex|optional)\"^_ZN?K?St\" " version
                print " (regex|optional)\"^_ZNK?9__gnu_cxx\" " version
                print " (regex|optional)\"^_ZT[ISV]N?St\" " version
            }
        }' "build/package-deb/$package.symbols.new" >"debian/$package.symbols"
    echo "debian/$package.symbols: $(grep -c '^ ' "debian/$package.symbols") entries"
done
