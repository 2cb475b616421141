#!/usr/bin/env bash
# The "package" stage: builds the packages (scripts/package.sh, which also runs lintian) and
# checks them the way a user meets them.
#   - the Debian packages' fields, dependencies from the symbols files, the ldconfig trigger
#     and file lists (dpkg-deb);
#   - installed with apt-get: a consumer builds through find_package and through pkg-config;
#   - the service unit passes `systemd-analyze verify` and rates 2.0 or better in
#     `systemd-analyze security` (both offline: no running systemd needed);
#   - the installed daemon, started as the unit starts it (a user id of its own, only
#     CAP_NET_RAW, the unit's command line, a read-only system but for its state directory),
#     answers /status and pings 127.0.0.1, and the same start without the capability cannot;
#   - an upgrade from the previous build keeps the operator's settings and the unit's
#     enablement; removed, nothing is left but the settings file; purged, not even that;
#   - the Windows archive holds what it should, and a consumer cross-built against it runs
#     under Wine, as does its velmorad.exe.
# It installs and removes the four velmora packages (as root) and nothing else: the daemon's
# home is a temporary folder, its user an id that no account has, its mounts in a namespace.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
scripts/package.sh

version=$(sed -n 's/^project(VelmoraCommon VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
arch=$(dpkg --print-architecture)
multiarch=$(dpkg-architecture -qDEB_HOST_MULTIARCH 2>/dev/null)
libdir=/usr/lib/$multiarch
packages=(libvelmora-vre0 libvelmora-common0 libvelmora-common-dev velmorad)
deb() { echo "$root/build/packages/${1}_${version}_${arch}.deb"; }
conffile=/etc/velmorad/velmorad.properties
unit=/lib/systemd/system/velmorad.service
state_dirs=(/var/lib/velmorad /var/lib/private/velmorad)

fail() {
    echo "package test: $*" >&2
    exit 1
}
step() { printf -- '--- %s (at %d s)\n' "$*" "$SECONDS"; }

work=$(mktemp -d)
chmod 755 "$work"  # the daemon's user must reach its home inside
daemons=()
apt_options=(-y -qq --no-install-recommends -o DPkg::Lock::Timeout=300)
export DEBIAN_FRONTEND=noninteractive
installed() { dpkg-query -W -f='${db:Status-Status}' "$1" 2>/dev/null || true; }
purge_ours() {
    local present=()
    for p in "${packages[@]}"; do
        [ "$(installed "$p")" = not-installed ] || [ -z "$(installed "$p")" ] || present+=("$p")
    done
    [ ${#present[@]} -eq 0 ] || apt-get purge "${apt_options[@]}" "${present[@]}" >/dev/null
}
cleanup() {
    for pid in "${daemons[@]}"; do kill "$pid" 2>/dev/null || true; done
    purge_ours || echo "package test: could not purge ${packages[*]}" >&2
    [ -z "${WINEPREFIX:-}" ] || wineserver -k 2>/dev/null || true
    rm -rf "$work"
}
trap cleanup EXIT

# ---------------------------------------------------------------------------------------
step "fields"
for p in "${packages[@]}"; do
    f=$(deb "$p")
    [ -f "$f" ] || fail "no $f"
    [ "$(dpkg-deb -f "$f" Package)" = "$p" ] || fail "$f: wrong Package"
    [ "$(dpkg-deb -f "$f" Version)" = "$version" ] || fail "$f: Version is not $version"
    [ "$(dpkg-deb -f "$f" Architecture)" = "$arch" ] || fail "$f: Architecture is not $arch"
done
lib_depends=$(dpkg-deb -f "$(deb libvelmora-common0)" Depends)
[[ "$lib_depends" == *"libc6 ("* && "$lib_depends" == *"libstdc++6 ("* &&
    "$lib_depends" == *"libvelmora-vre0 (>= $version)"* ]] ||
    fail "libvelmora-common0 Depends lacks what dpkg-shlibdeps finds: $lib_depends"
[ "$(dpkg-deb -f "$(deb libvelmora-common-dev)" Depends)" = "libvelmora-common0 (= $version), libvelmora-vre0 (= $version)" ] ||
    fail "libvelmora-common-dev must depend on exactly the libraries of $version"
daemon_depends=$(dpkg-deb -f "$(deb velmorad)" Depends)
[[ "$daemon_depends" == *"libvelmora-common0 (>= $version)"* && "$daemon_depends" == *"libc6 ("* ]] ||
    fail "velmorad Depends: $daemon_depends"
# Consumers depend on a minimum version taken from the symbols files, not on one exact build;
# the dynamic linker's cache is refreshed by the trigger, not by scripts of our own.
for lib in vre common; do
    p=libvelmora-${lib}0
    [ "$(dpkg-deb -I "$(deb "$p")" shlibs)" = "libvelmora-$lib 0 $p (>= $version)" ] || fail "$p shlibs"
    dpkg-deb -I "$(deb "$p")" symbols | grep -q "^libvelmora-$lib.so.0 $p #MINVER#" || fail "$p symbols"
    [ "$(dpkg-deb -I "$(deb "$p")" triggers | grep -v '^#')" = "activate-noawait ldconfig" ] ||
        fail "$p: no ldconfig trigger"
    for script in postinst postrm; do
        ! dpkg-deb -I "$(deb "$p")" "$script" >/dev/null 2>&1 || fail "$p has a $script"
    done
done
[ "$(dpkg-deb -I "$(deb velmorad)" conffiles)" = "$conffile" ] || fail "velmorad conffiles"

step "file lists"
files() { dpkg-deb -c "$1" | awk '$1 !~ /^d/ { print substr($6, 2) }' | sort; }
expect() {
    local got
    got=$(files "$(deb "$1")")
    diff <(sort) <(echo "$got") >"$work/diff" || { cat "$work/diff"; fail "$1: files differ (< expected, > packaged)"; }
}
headers=$(cd include && find velmora -type f -name '*.h' | sed 's|^|/usr/include/|')
docs() { printf '/usr/share/doc/%s/changelog.gz\n/usr/share/doc/%s/copyright\n' "$1" "$1"; }
expect libvelmora-vre0 <<EOF
$libdir/libvelmora-vre.so.0
$libdir/libvelmora-vre.so.$version
$(docs libvelmora-vre0)
EOF
expect libvelmora-common0 <<EOF
$libdir/libvelmora-common.so.0
$libdir/libvelmora-common.so.$version
$(docs libvelmora-common0)
EOF
expect libvelmora-common-dev <<EOF
$headers
$libdir/libvelmora-common.so
$libdir/libvelmora-vre.so
$libdir/pkgconfig/velmora-common.pc
$libdir/cmake/VelmoraCommon/VelmoraCommonConfig.cmake
$libdir/cmake/VelmoraCommon/VelmoraCommonConfigVersion.cmake
$libdir/cmake/VelmoraCommon/VelmoraCommonTargets.cmake
$libdir/cmake/VelmoraCommon/VelmoraCommonTargets-none.cmake
$(docs libvelmora-common-dev)
EOF
expect velmorad <<EOF
/usr/bin/velmorad
$unit
$conffile
/usr/share/man/man5/velmorad.properties.5.gz
/usr/share/man/man8/velmorad.8.gz
/usr/share/doc/velmorad/README.md.gz
$(docs velmorad)
EOF

# ---------------------------------------------------------------------------------------
step "install the previous build, then upgrade to this one"
purge_ours  # left by an interrupted run
# The previous build: these packages with a lower version (and their exact dependencies on
# one another lowered to match).
prev=$version~prev
prev_debs=()
for p in "${packages[@]}"; do
    dir=$work/prev/$p
    mkdir -p "$work/prev"
    dpkg-deb -R "$(deb "$p")" "$dir"
    sed -i -e "s/^Version: .*/Version: $prev/" -e "/^Depends:/ s/(\([>=]*\) $version)/(\1 $prev)/g" \
        "$dir/DEBIAN/control"
    dpkg-deb --root-owner-group -b "$dir" "$work/prev/${p}_prev.deb" >/dev/null
    prev_debs+=("$work/prev/${p}_prev.deb")
done
apt-get install "${apt_options[@]}" "${prev_debs[@]}" >/dev/null
[ "$(dpkg-query -W -f='${Version}' velmorad)" = "$prev" ] || fail "the previous build is not installed"
# What an operator does: edits the settings and enables the service.
echo "# edited by the operator" >>"$conffile"
systemctl enable velmorad.service >/dev/null 2>&1 || fail "systemctl enable velmorad"
wants=/etc/systemd/system/multi-user.target.wants/velmorad.service
[ -L "$wants" ] || fail "enabling made no link"
debs=()
for p in "${packages[@]}"; do debs+=("$(deb "$p")"); done
apt-get install "${apt_options[@]}" "${debs[@]}" >/dev/null
for p in "${packages[@]}"; do
    [ "$(installed "$p")" = installed ] || fail "$p is not installed"
    [ "$(dpkg-query -W -f='${Version}' "$p")" = "$version" ] || fail "$p was not upgraded"
done
[ "$(tail -1 "$conffile")" = "# edited by the operator" ] || fail "the upgrade lost the edited settings"
[ -L "$wants" ] || fail "the upgrade lost the service's enablement"
sed -i '$d' "$conffile"

step "consumer through find_package"
cmake -S tests/install/consumer -B "$work/cmake-consumer" -G Ninja >/dev/null
grep -q "^VelmoraCommon_DIR:PATH=$libdir/cmake/VelmoraCommon$" "$work/cmake-consumer/CMakeCache.txt" ||
    fail "find_package did not take the installed package"
cmake --build "$work/cmake-consumer" >/dev/null
[ "$("$work/cmake-consumer/consumer")" = "consumer ok" ] || fail "find_package consumer"

step "consumer through pkg-config"
[ "$(pkg-config --modversion velmora-common)" = "$version" ] || fail "pkg-config version"
# The package states its prefix: pkg-config leaves the system directories out of the flags.
[ "$(pkg-config --variable=prefix velmora-common)" = /usr ] || fail "pkg-config prefix"
[ "$(pkg-config --cflags --libs velmora-common | xargs)" = "-lvelmora-common -lvelmora-vre" ] ||
    fail "pkg-config flags: $(pkg-config --cflags --libs velmora-common)"
# shellcheck disable=SC2046
g++ -std=c++17 tests/install/consumer/main.cpp $(pkg-config --cflags --libs velmora-common) \
    -o "$work/pc-consumer"
[ "$("$work/pc-consumer")" = "consumer ok" ] || fail "pkg-config consumer"

step "systemd-analyze verify and security"
# Both work offline: they load the unit and check its settings and the program it starts.
verify=$(systemd-analyze verify "$unit" 2>&1) || fail "systemd-analyze verify: $verify"
[ -z "$verify" ] || fail "systemd-analyze verify warns: $verify"
security=$(systemd-analyze security --offline=yes "$unit" 2>&1 | tail -1)
echo "  $security"
exposure=$(sed -n 's/.*Overall exposure level for velmorad.service: \([0-9.]*\).*/\1/p' <<<"$security")
[ -n "$exposure" ] && awk -v e="$exposure" 'BEGIN { exit !(e <= 2.0) }' ||
    fail "systemd-analyze security rates the unit above 2.0: $security"

# ---------------------------------------------------------------------------------------
step "the daemon as the unit starts it"
unit_value() { sed -n "s/^$1=//p" "$unit"; }
[[ "$(unit_value DynamicUser)" = yes && "$(unit_value NoNewPrivileges)" = yes ]] ||
    fail "the unit must run as its own user without new privileges"
[ "$(unit_value Environment)" = "VELMORA_HOME=%S/$(unit_value StateDirectory)" ] ||
    fail "the unit's home must be its state directory"
exec_start=$(unit_value ExecStart)
# The capabilities named in the unit, in setpriv's spelling (CAP_NET_RAW -> net_raw).
caps=$(unit_value AmbientCapabilities | tr 'A-Z ' 'a-z\n' | sed 's/^cap_//' | paste -sd,)
[ "$caps" = net_raw ] || fail "the unit grants more than CAP_NET_RAW: $caps"
[ "$(unit_value CapabilityBoundingSet)" = CAP_NET_RAW ] || fail "the unit's bounding set"
# A user id that no account, group or process has, from systemd's range for dynamic users.
uid=61184
while getent passwd "$uid" >/dev/null || getent group "$uid" >/dev/null ||
    grep -qs "^Uid:[[:space:]]*${uid}[[:space:]]" /proc/[0-9]*/status; do
    uid=$((uid + 1))
done

# The file system as the unit's sandbox shows it, in a mount namespace of the daemon's own
# (the machine's mounts stay as they are): everything read-only (ProtectSystem=strict) but
# the state directory, which is the home (StateDirectory, VELMORA_HOME=%S/...), an empty
# /tmp (PrivateTmp), no /home, /root or /run/user (ProtectHome). Then runs "$@" there with
# the unit's UMask.
state=/var/lib/$(unit_value StateDirectory)
# shellcheck disable=SC2016  # expanded by the sandbox's shell
sandbox='home=$1; shift
mount -t tmpfs -o mode=755 velmorad-state /var/lib && mkdir "$STATE" &&
mount --bind "$home" "$STATE" && mount -t tmpfs -o mode=1777 velmorad-tmp /tmp &&
for d in /home /root /run/user; do
    [ ! -d "$d" ] || mount -t tmpfs -o mode=000 velmorad-hidden "$d" || exit 1
done &&
mount -o remount,bind,ro / && cd "$STATE" && umask "$UMASK" && exec "$@"'

# start NAME CAPS ARGS...: runs the daemon as $uid with only CAPS (may be empty) and the
# home $work/NAME, in the sandbox above, as systemd would with DynamicUser; sets $pid, $port.
start() {
    local name=$1 with=$2 home=$work/$1
    shift 2
    mkdir -p "$home"
    chown "$uid:$uid" "$home"
    chmod 700 "$home"
    local capsets=(--inh-caps=-all --bounding-set=-all)
    [ -z "$with" ] || capsets=(--inh-caps="-all,+$with" --ambient-caps="+$with" --bounding-set="-all,+$with")
    STATE=$state UMASK=$(unit_value UMask) unshare --mount --propagation private sh -c "$sandbox" sandbox "$home" \
        setpriv --reuid="$uid" --regid="$uid" --clear-groups "${capsets[@]}" --no-new-privs \
        env -i PATH=/usr/bin:/bin VELMORA_HOME="$state" "$@" >"$work/$name.out" 2>&1 &
    daemons+=($!)
    pid=$!
    port=""
    for _ in $(seq 100); do
        # The output file may not exist yet: the daemon's shell makes it in the background.
        port=$(sed -n 's|^velmorad listening on http://127.0.0.1:\([0-9]*\)/$|\1|p' "$work/$name.out" 2>/dev/null || true)
        [ -z "$port" ] || return 0
        kill -0 "$pid" 2>/dev/null || break
        sleep 0.1
    done
    cat "$work/$name.out"
    fail "$name: the daemon did not start"
}
stop() {
    kill -TERM "$pid"  # the unit's KillSignal
    local rc=0
    wait "$pid" || rc=$?
    [ "$rc" -eq 0 ] || fail "velmorad ended with $rc after SIGTERM"
}

# shellcheck disable=SC2086  # ExecStart is split into words as systemd splits it
start service "$caps" $exec_start --port 0
status=$(grep -E '^(Uid|CapEff|CapAmb):' "/proc/$pid/status")
echo "$status" | grep -q "^Uid:[[:space:]]*${uid}[[:space:]]" || fail "not running as $uid: $status"
echo "$status" | grep -q '^CapEff:[[:space:]]*0000000000002000$' || fail "capabilities: $status"
answer=$(curl -sS --max-time 10 "http://127.0.0.1:$port/status")
[[ "$answer" == *"<status version=\"$version\""* ]] || fail "/status answered: $answer"
[ "$(/usr/bin/velmorad --version)" = "velmorad $version" ] || fail "velmorad --version"
# A reload as the unit's ExecReload asks for it.
reload=$(unit_value ExecReload)
[ "$reload" = '/bin/kill -HUP $MAINPID' ] || fail "the unit's ExecReload: $reload"
kill -HUP "$pid"
for _ in $(seq 50); do
    grep -q "reloaded $conffile: nothing changed" "$work/service/logs/velmorad.log" && break
    sleep 0.1
done
grep -q "reloaded $conffile: nothing changed" "$work/service/logs/velmorad.log" ||
    fail "no reload logged after SIGHUP"
answer=$(curl -sS --max-time 10 "http://127.0.0.1:$port/ping?host=127.0.0.1")
[[ "$answer" == *'time="0"'* ]] || fail "/ping without root but with CAP_NET_RAW answered: $answer"
echo "  as uid $uid with $caps: /ping?host=127.0.0.1 -> $answer"
stop
grep -q "velmorad stopped" "$work/service/logs/velmorad.log" || fail "no clean stop in the log"
[ ! -e "$work/service/lib/velmorad.properties" ] || fail "settings written into the home"
dpkg --verify velmorad || fail "the installed velmorad files changed"

# Without the capability ping must fail: it is the capability, not the test's root, that
# lets the packaged daemon ping. Run with a fresh home and no --config, the daemon writes
# its embedded default settings, which must be what the package ships.
start bare "" /usr/bin/velmorad --port 0
answer=$(curl -sS --max-time 10 "http://127.0.0.1:$port/ping?host=127.0.0.1")
[[ "$answer" == *'time="-1"'* ]] || fail "/ping without CAP_NET_RAW answered: $answer"
stop
cmp "$work/bare/lib/velmorad.properties" "$conffile" ||
    fail "$conffile differs from the daemon's embedded default settings"

# ---------------------------------------------------------------------------------------
step "remove, then purge"
all_files=$(for p in "${packages[@]}"; do files "$(deb "$p")"; done)
apt-get remove "${apt_options[@]}" "${packages[@]}" >/dev/null
for f in $all_files; do
    if [ "$f" = "$conffile" ]; then
        [ -f "$f" ] || fail "removing velmorad removed its settings"
    elif [ -e "$f" ] || [ -L "$f" ]; then
        fail "$f is left after apt-get remove"
    fi
done
for d in /usr/include/velmora "$libdir/cmake/VelmoraCommon"; do
    [ ! -e "$d" ] || fail "$d is left after apt-get remove"
done
[ "$(installed velmorad)" = config-files ] || fail "velmorad should keep only its settings"
# The service's enablement stays for a reinstall (the debhelper way) until purged.
[ -L "$wants" ] || fail "removing dropped the service's enablement"
# State as the service leaves it (DynamicUser keeps it below /var/lib/private), made here
# only when the machine has none of its own.
fake_state=""
if [ ! -e /var/lib/velmorad ] && [ ! -e /var/lib/private/velmorad ]; then
    mkdir -p /var/lib/private/velmorad/logs
    echo "a line" >/var/lib/private/velmorad/logs/velmorad.log
    ln -s private/velmorad /var/lib/velmorad
    fake_state=yes
fi
purge_ours
[ ! -e /etc/velmorad ] || fail "/etc/velmorad is left after purge"
if [ -n "$fake_state" ]; then
    for d in "${state_dirs[@]}"; do
        [ ! -e "$d" ] && [ ! -L "$d" ] || fail "$d is left after purge"
    done
fi
left=$(find /etc/systemd/system -name 'velmorad*' 2>/dev/null)
[ -z "$left" ] || fail "systemd links left after purge: $left"
[ ! -e /var/lib/systemd/deb-systemd-helper-enabled/velmorad.service.dsh-also ] ||
    fail "deb-systemd-helper still tracks velmorad after purge"
for p in "${packages[@]}"; do
    case "$(installed "$p")" in not-installed | "") ;; *) fail "$p is still known to dpkg" ;; esac
done

# ---------------------------------------------------------------------------------------
step "Windows archive"
zip=$root/build/packages/velmora-common-$version-win64.zip
got=$(cmake -E tar tf "$zip" | grep -v '/$' | sort)
diff <(sort <<EOF
bin/common.dll
bin/vre.dll
bin/velmorad.exe
lib/libcommon.dll.a
lib/libvre.dll.a
lib/cmake/VelmoraCommon/VelmoraCommonConfig.cmake
lib/cmake/VelmoraCommon/VelmoraCommonConfigVersion.cmake
lib/cmake/VelmoraCommon/VelmoraCommonTargets.cmake
lib/cmake/VelmoraCommon/VelmoraCommonTargets-release.cmake
$(cd include && find velmora -type f -name '*.h' | sed 's|^|include/|')
EOF
) <(echo "$got") || fail "the Windows archive's files differ (< expected, > archived)"
mkdir "$work/win"
(cd "$work/win" && cmake -E tar xf "$zip")
cmake -S tests/install/consumer -B "$work/win-consumer" -G Ninja \
    -DCMAKE_TOOLCHAIN_FILE="$root/cmake/mingw-w64-x86_64-posix.cmake" \
    -DVelmoraCommon_DIR="$work/win/lib/cmake/VelmoraCommon" -DCMAKE_EXE_LINKER_FLAGS=-static >/dev/null
cmake --build "$work/win-consumer" >/dev/null
cp "$work/win/bin/common.dll" "$work/win/bin/vre.dll" "$work/win-consumer/"
export WINEPREFIX=$root/build/package-win/wineprefix WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
unset DISPLAY
mkdir -p "$WINEPREFIX"
wineserver -p
wine cmd /c exit 0 </dev/null >/dev/null 2>&1
answer=$(wine "$work/win-consumer/consumer.exe" </dev/null | tr -d '\r')
[ "$answer" = "consumer ok" ] || fail "the Windows consumer printed: $answer"
# velmorad.exe needs nothing beside it but the archive's DLLs, and is of the same version.
rc=0
answer=$(wine "$work/win/bin/velmorad.exe" --help </dev/null | tr -d '\r') || rc=$?
[[ "$rc" -eq 0 && "$answer" == "usage: velmorad"* ]] ||
    fail "velmorad.exe --help from the archive: rc $rc, $answer"
answer=$(wine "$work/win/bin/velmorad.exe" --version </dev/null | tr -d '\r')
[ "$answer" = "velmorad $version" ] || fail "velmorad.exe --version: $answer"
echo "package stage passed in $SECONDS s"
