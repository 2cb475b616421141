#!/usr/bin/env bash
# Benchmark (not a test): wrk against velmorad's GET /status and against nginx (one
# worker) serving a reply of the same size, with keep-alive and with Connection: close
# (16 connections), and with keep-alive at the daemon's connection cap (64 connections),
# in the same run. Prints requests per second, p99 latency, answers other than 2xx and the
# ratio to nginx. On a small shared machine the figures move from run to run: run it a few
# times.
#   scripts/bench-daemon.sh [seconds per run, default 10]
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-10}"
need=()
for p in wrk nginx-light; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || need+=("$p")
done
if [ ${#need[@]} -gt 0 ]; then
    DEBIAN_FRONTEND=noninteractive apt-get update -qq
    DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${need[@]}" >/dev/null
fi
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release -DVELMORA_BUILD_TESTS=OFF >/dev/null
cmake --build build/release --target velmorad >/dev/null

work=$(mktemp -d)
trap 'kill $daemon_pid 2>/dev/null || true; nginx -p "$work" -c "$work/nginx.conf" -s stop 2>/dev/null || true; rm -rf "$work"' EXIT
build/release/tools/velmorad/velmorad --port 0 --home "$work/home" >"$work/daemon.out" &
daemon_pid=$!
for _ in $(seq 50); do grep -q listening "$work/daemon.out" 2>/dev/null && break; sleep 0.1; done
port=$(sed -n 's|.*http://127.0.0.1:\([0-9]*\)/.*|\1|p' "$work/daemon.out" | head -n1)
curl -s "http://127.0.0.1:$port/status" >"$work/status.xml"

# nginx serves a file of the same size as the daemon's answer.
nginx_port=$(python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
mkdir -p "$work/www" "$work/logs"
cp "$work/status.xml" "$work/www/status"
cat >"$work/nginx.conf" <<CONF
worker_processes 1;
pid $work/nginx.pid;
error_log $work/logs/error.log;
events { worker_connections 1024; }
http {
    access_log off;
    server {
        listen 127.0.0.1:$nginx_port;
        root $work/www;
        default_type text/xml;
    }
}
CONF
nginx -p "$work" -c "$work/nginx.conf"

run() {  # url, connections, extra wrk arguments...; prints "rps p99 non2xx"
    local url=$1 connections=$2; shift 2
    wrk -t2 -c"$connections" -d"${seconds}s" --latency "$@" "$url" >"$work/wrk.out"
    local rps p99 bad
    rps=$(awk '/Requests\/sec/ {print $2}' "$work/wrk.out")
    p99=$(awk '$1 == "99%" {print $2}' "$work/wrk.out")
    bad=$(awk '/Non-2xx/ {print $NF}' "$work/wrk.out")
    echo "$rps $p99 ${bad:-0}"
}
cap=$(sed -n 's/^maxConnections=//p' "$work/home/lib/velmorad.properties")
printf '%-18s %12s %9s %6s %12s %9s %7s\n' mode "velmorad rps" p99 non2xx "nginx rps" p99 ratio
for mode in keep-alive close cap; do
    extra=()
    connections=16
    [ "$mode" = close ] && extra=(-H "Connection: close")
    [ "$mode" = cap ] && connections=$cap
    read -r v_rps v_p99 v_bad < <(run "http://127.0.0.1:$port/status" "$connections" "${extra[@]}")
    read -r n_rps n_p99 _ < <(run "http://127.0.0.1:$nginx_port/status" "$connections" "${extra[@]}")
    ratio=$(awk -v a="$v_rps" -v b="$n_rps" 'BEGIN { printf "%.2f", a / b }')
    label=$mode
    [ "$mode" = cap ] && label="keep-alive c=$cap"
    printf '%-18s %12s %9s %6s %12s %9s %7s\n' "$label" "$v_rps" "$v_p99" "$v_bad" "$n_rps" "$n_p99" \
        "$ratio"
done
echo "targets: ratio >= 1.0 with keep-alive, >= 0.6 with Connection: close"
