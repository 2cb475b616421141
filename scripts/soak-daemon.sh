#!/usr/bin/env bash
# Endurance run (not a test): velmorad under wrk with keep-alive and with Connection: close
# at the same time, plus a hostile client (slow heads, over-long lines, junk bytes, abrupt
# closes, floods above the connection cap) for the given minutes. Prints the requests
# served, errors by kind, RSS and open descriptors at the start, after a minute of warm-up
# and at the end, the log's bytes and backups, and checks that /status still answers.
#   scripts/soak-daemon.sh [minutes, default 10]
# SANITIZE=address,undefined builds the daemon with those sanitizers (in build/soak-<name>)
# and fails the run on any report; VELMORAD=path runs a daemon built elsewhere.
set -euo pipefail
cd "$(dirname "$0")/.."
minutes="${1:-10}"
seconds=$((minutes * 60))
if ! command -v wrk >/dev/null; then
    DEBIAN_FRONTEND=noninteractive apt-get update -qq
    DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends wrk >/dev/null
fi
if [ -n "${VELMORAD:-}" ]; then
    daemon=$VELMORAD
elif [ -n "${SANITIZE:-}" ]; then
    dir=build/soak-${SANITIZE//,/-}
    cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVELMORA_BUILD_TESTS=OFF \
        -DVELMORA_SANITIZE="$SANITIZE" >/dev/null
    cmake --build "$dir" --target velmorad >/dev/null
    daemon=$dir/tools/velmorad/velmorad
else
    cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release -DVELMORA_BUILD_TESTS=OFF \
        >/dev/null
    cmake --build build/release --target velmorad >/dev/null
    daemon=build/release/tools/velmorad/velmorad
fi

work=$(mktemp -d)
pids=()
trap 'for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done
      kill "$daemon_pid" 2>/dev/null || true; rm -rf "$work"' EXIT
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=0}
"$daemon" --port 0 --home "$work/home" >"$work/daemon.out" 2>"$work/daemon.err" &
daemon_pid=$!
for _ in $(seq 100); do grep -q listening "$work/daemon.out" 2>/dev/null && break; sleep 0.1; done
port=$(sed -n 's|.*http://127.0.0.1:\([0-9]*\)/.*|\1|p' "$work/daemon.out" | head -n1)
[ -n "$port" ] || { echo "velmorad did not start"; cat "$work/daemon.err"; exit 1; }
url="http://127.0.0.1:$port/status"

probe() {  # label: RSS (kB) and open descriptors of the daemon
    printf '%-10s RSS %7s kB  descriptors %4s\n' "$1" \
        "$(awk '/^VmRSS:/ {print $2}' "/proc/$daemon_pid/status")" \
        "$(find "/proc/$daemon_pid/fd" -mindepth 1 -maxdepth 1 | wc -l)"
}
curl -sf "$url" >/dev/null
probe start

wrk -t1 -c8 -d"${seconds}s" --timeout 10s "$url" >"$work/wrk-keepalive.out" 2>&1 &
pids+=($!)
wrk -t1 -c4 -d"${seconds}s" --timeout 10s -H "Connection: close" "$url" >"$work/wrk-close.out" 2>&1 &
pids+=($!)
python3 scripts/soak-hostile.py "$port" "$seconds" >"$work/hostile.out" 2>&1 &
pids+=($!)
sleep $((seconds < 60 ? seconds / 2 : 60))
probe warm-up
for p in "${pids[@]}"; do wait "$p" || true; done
pids=()
sleep 3  # connections still in their time-outs end
probe end

status=0
final=$(curl -sf --max-time 10 "$url") || status=1
requests=$(sed -n 's/.*requests="\([0-9]*\)".*/\1/p' <<<"$final")
echo "requests served: ${requests:-?} in $minutes min"
for mode in keepalive close; do
    f=$work/wrk-$mode.out
    errors=$(sed -n 's/.*Socket errors: //p' "$f" | head -n1)
    bad=$(awk '/Non-2xx/ {print $NF}' "$f")
    printf 'wrk %-9s %s requests; socket errors: %s; non-2xx answers: %s\n' "$mode" \
        "$(awk '/requests in/ {print $1}' "$f")" "${errors:-none}" "${bad:-0}"
done
echo "hostile client (kind, outcome, count):"
sed 's/^/  /' "$work/hostile.out"
logs=$work/home/logs
printf 'log: %s bytes in velmorad.log, %s backups holding %s bytes\n' \
    "$(stat -c %s "$logs/velmorad.log")" \
    "$(find "$logs" -name 'velmorad.backup_*' | wc -l)" \
    "$(find "$logs" -name 'velmorad.backup_*' -printf '%s\n' | awk '{s += $1} END {print s + 0}')"
printf 'access log: %s bytes in access.log, %s backups holding %s bytes\n' \
    "$(stat -c %s "$logs/access.log")" \
    "$(find "$logs" -name 'access.log.*' | wc -l)" \
    "$(find "$logs" -name 'access.log.*' -printf '%s\n' | awk '{s += $1} END {print s + 0}')"
if [ "$status" = 0 ]; then echo "/status answered at the end"; else echo "/status did NOT answer"; fi

kill -TERM "$daemon_pid"
code=0
wait "$daemon_pid" || code=$?
echo "daemon exit code after SIGTERM: $code"
if [ -s "$work/daemon.err" ]; then
    echo "daemon stderr:"
    head -n 40 "$work/daemon.err"
fi
if grep -qE 'AddressSanitizer|runtime error|LeakSanitizer' "$work/daemon.err"; then status=1; fi
[ "$code" = 0 ] || status=1
exit $status
