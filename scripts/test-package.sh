#!/usr/bin/env bash
# The "package" stage: builds the packages (scripts/package.sh) and checks them the way a
# user meets them.
#   - the Debian packages' fields and file lists (dpkg-deb);
#   - installed with apt-get: a consumer builds through find_package and through pkg-config;
#   - the service unit passes `systemd-analyze verify` (offline: no running systemd needed);
#   - the installed daemon, started as the unit starts it (a user id of its own, only
#     CAP_NET_RAW, the unit's command line, a read-only system but for its state directory),
#     answers /status and pings 127.0.0.1, and the same start without the capability cannot;
#   - removed, nothing is left but the settings file; purged, not even that;
#   - the Windows archive holds what it should, and a consumer cross-built against it runs
#     under Wine, as does its velmorad.exe.
# It installs and removes the three velmora packages (as root) and nothing else: the daemon's
# home is a temporary folder, its user an id that no account has, its mounts in a namespace.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
scripts/package.sh

version=$(sed -n 's/^project(VelmoraCommon VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
arch=$(dpkg --print-architecture)
multiarch=$(dpkg-architecture -qDEB_HOST_MULTIARCH 2>/dev/null)
libdir=/usr/lib/$multiarch
packages=(libvelmora-common0 libvelmora-common-dev velmorad)
deb() { echo "$root/build/packages/${1}_${version}_${arch}.deb"; }
conffile=/etc/velmorad/velmorad.properties
unit=/usr/lib/systemd/system/velmorad.service

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
[[ "$lib_depends" == *"libc6 ("* && "$lib_depends" == *"libstdc++6 ("* ]] ||
    fail "libvelmora-common0 Depends lacks what dpkg-shlibdeps finds: $lib_depends"
[ "$(dpkg-deb -f "$(deb libvelmora-common-dev)" Depends)" = "libvelmora-common0 (= $version)" ] ||
    fail "libvelmora-common-dev must depend on exactly libvelmora-common0 $version"
daemon_depends=$(dpkg-deb -f "$(deb velmorad)" Depends)
[[ "$daemon_depends" == *"libvelmora-common0 (= $version)"* && "$daemon_depends" == *"libc6 ("* ]] ||
    fail "velmorad Depends: $daemon_depends"
[ "$(dpkg-deb -I "$(deb libvelmora-common0)" shlibs)" = "libvelmora-common 0 libvelmora-common0 (= $version)
libvelmora-vre 0 libvelmora-common0 (= $version)" ] || fail "libvelmora-common0 shlibs"
[ "$(dpkg-deb -I "$(deb velmorad)" conffiles)" = "$conffile" ] || fail "velmorad conffiles"

step "file lists"
files() { dpkg-deb -c "$1" | awk '$1 !~ /^d/ { print substr($6, 2) }' | sort; }
expect() {
    local got
    got=$(files "$(deb "$1")")
    diff <(sort) <(echo "$got") >"$work/diff" || { cat "$work/diff"; fail "$1: files differ (< expected, > packaged)"; }
}
headers=$(cd include && find velmora -type f -name '*.h' | sed 's|^|/usr/include/|')
expect libvelmora-common0 <<EOF
$libdir/libvelmora-common.so.0
$libdir/libvelmora-common.so.$version
$libdir/libvelmora-vre.so.0
$libdir/libvelmora-vre.so.$version
EOF
expect libvelmora-common-dev <<EOF
$headers
$libdir/libvelmora-common.so
$libdir/libvelmora-vre.so
$libdir/pkgconfig/velmora-common.pc
$libdir/cmake/VelmoraCommon/VelmoraCommonConfig.cmake
$libdir/cmake/VelmoraCommon/VelmoraCommonConfigVersion.cmake
$libdir/cmake/VelmoraCommon/VelmoraCommonTargets.cmake
$libdir/cmake/VelmoraCommon/VelmoraCommonTargets-release.cmake
EOF
expect velmorad <<EOF
/usr/bin/velmorad
$unit
$conffile
EOF

# ---------------------------------------------------------------------------------------
step "install"
purge_ours  # left by an interrupted run
apt-get install "${apt_options[@]}" "$(deb libvelmora-common0)" "$(deb libvelmora-common-dev)" \
    "$(deb velmorad)" >/dev/null
for p in "${packages[@]}"; do
    [ "$(installed "$p")" = installed ] || fail "$p is not installed"
done

step "consumer through find_package"
cmake -S tests/install/consumer -B "$work/cmake-consumer" -G Ninja >/dev/null
grep -q "^VelmoraCommon_DIR:PATH=$libdir/cmake/VelmoraCommon$" "$work/cmake-consumer/CMakeCache.txt" ||
    fail "find_package did not take the installed package"
cmake --build "$work/cmake-consumer" >/dev/null
[ "$("$work/cmake-consumer/consumer")" = "consumer ok" ] || fail "find_package consumer"

step "consumer through pkg-config"
[ "$(pkg-config --modversion velmora-common)" = "$version" ] || fail "pkg-config version"
# shellcheck disable=SC2046
g++ -std=c++17 tests/install/consumer/main.cpp $(pkg-config --cflags --libs velmora-common) \
    -o "$work/pc-consumer"
[ "$("$work/pc-consumer")" = "consumer ok" ] || fail "pkg-config consumer"

step "systemd-analyze verify"
# Works offline: it loads the unit and checks its settings and the program it starts.
verify=$(systemd-analyze verify --man=no "$unit" 2>&1) || fail "systemd-analyze verify: $verify"
[ -z "$verify" ] || fail "systemd-analyze verify warns: $verify"
echo "  $(systemd-analyze security --offline=yes "$unit" 2>&1 | tail -1)"

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
[[ "$answer" == *"<status version="* ]] || fail "/status answered: $answer"
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
purge_ours
[ ! -e /etc/velmorad ] || fail "/etc/velmorad is left after purge"
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
# velmorad.exe needs nothing beside it but the archive's DLLs (--help ends with 2).
rc=0
answer=$(wine "$work/win/bin/velmorad.exe" --help </dev/null | tr -d '\r') || rc=$?
[[ "$rc" -eq 2 && "$answer" == "usage: velmorad"* ]] ||
    fail "velmorad.exe --help from the archive: rc $rc, $answer"
echo "package stage passed in $SECONDS s"
