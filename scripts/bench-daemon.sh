#!/usr/bin/env bash
# Benchmark (not a test): wrk against velmorad's GET /status and against nginx serving a
# reply of the same size, once with one worker and once with `worker_processes auto`, in
# the same run: keep-alive and Connection: close at 16 and 256 connections, and keep-alive
# at 16 connections while 10 000 idle connections are held open, keep-alive at 64
# connections paced to the same load for every server, and keep-alive at 16 connections
# from one client thread. Prints requests per
# second, p50/p99 latency, answers other than 2xx, the server's RSS after the run and its
# CPU time per 10 000 requests, and the ratio to nginx with one worker; then a slowloris
# check: /status latency for an ordinary client while 5000 connections send a head that
# never ends. The machine's core count and load average come first: on a shared machine
# the figures move with the load, so read them with it.
# Each row runs `rounds` times, the servers in turn and every other round in reverse
# order: two runs of one server in a row differ by up to 10 % here, and the machine's
# figures drift; the ratio is of the rounds' mean rates, each round's own beside it.
#   scripts/bench-daemon.sh [seconds per run, default 8] [rounds, default 2]
#   MODES="close-256 paced-64" scripts/bench-daemon.sh ...   only these rows
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-8}"
rounds="${2:-2}"
need=()
for p in wrk nginx-light; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || need+=("$p")
done
if [ ${#need[@]} -gt 0 ]; then
    DEBIAN_FRONTEND=noninteractive apt-get update -qq
    DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${need[@]}" >/dev/null
fi
launcher=()
command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release -DVELMORA_BUILD_TESTS=OFF \
    "${launcher[@]}" >/dev/null
cmake --build build/release --target velmorad >/dev/null
ulimit -n 65536 2>/dev/null || ulimit -n "$(ulimit -Hn)"

work=$(mktemp -d)
chmod 755 "$work"  # nginx workers run as another user and read the files below
holder=""
cleanup() {
    [ -n "$holder" ] && kill "$holder" 2>/dev/null || true
    kill "$daemon_pid" 2>/dev/null || true
    for conf in one auto; do
        [ -f "$work/$conf.pid" ] && nginx -p "$work" -c "$work/$conf.conf" -s stop 2>/dev/null || true
    done
    rm -rf "$work"
}
trap cleanup EXIT
mkdir -p "$work/home/lib" "$work/www" "$work/logs"
# Room for the idle connections beside wrk's, and kept-alive ones kept as long as nginx keeps
# them (75 s), not cut after the daemon's usual 10 s of silence while the row runs.
printf 'maxConnections=11000\nreadTimeoutMs=75000\n' >"$work/home/lib/velmorad.properties"
# In a session of its own, as nginx puts itself and systemd puts a service: the scheduler
# then shares the cores between wrk and the server as whole groups. Started from this
# script's session, the daemon would share one group with wrk's threads, which take the
# core from it at every answer they are woken by (three times the involuntary switches
# nginx has, and about 10 % fewer requests with `Connection: close`).
setsid build/release/tools/velmorad/velmorad --port 0 --home "$work/home" >"$work/daemon.out" &
daemon_pid=$!
for _ in $(seq 50); do grep -q listening "$work/daemon.out" 2>/dev/null && break; sleep 0.1; done
port=$(sed -n 's|.*http://127.0.0.1:\([0-9]*\)/.*|\1|p' "$work/daemon.out" | head -n1)
curl -s "http://127.0.0.1:$port/status" >"$work/www/status"

free_port() {
    python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])'
}
# nginx serves a file of the same size as the daemon's answer.
start_nginx() {  # name, workers; prints the port
    local name=$1 workers=$2 p
    p=$(free_port)
    cat >"$work/$name.conf" <<CONF
worker_processes $workers;
worker_rlimit_nofile 30000;
pid $work/$name.pid;
error_log $work/logs/$name.error.log;
events { worker_connections 12000; }
http {
    access_log off;
    server {
        listen 127.0.0.1:$p;
        root $work/www;
        default_type text/xml;
    }
}
CONF
    nginx -p "$work" -c "$work/$name.conf"
    for _ in $(seq 50); do [ -s "$work/$name.pid" ] && break; sleep 0.1; done
    echo "$p"
}
one_port=$(start_nginx one 1)
auto_port=$(start_nginx auto auto)

pids_of() {  # the server's processes: the daemon, or an nginx master and its workers
    case $1 in
        velmorad) echo "$daemon_pid" ;;
        *) local m; m=$(cat "$work/$1.pid"); echo "$m $(pgrep -P "$m" | tr '\n' ' ')" ;;
    esac
}
cpu_ticks() {  # user + system clock ticks of the processes
    local total=0 p
    for p in "$@"; do
        total=$((total + $(awk '{print $14 + $15}' "/proc/$p/stat")))
    done
    echo "$total"
}
rss_mb() {
    local total=0 p
    for p in "$@"; do
        total=$((total + $(awk '/VmRSS/ {print $2}' "/proc/$p/status")))
    done
    awk -v k="$total" 'BEGIN { printf "%.1f", k / 1024 }'
}
to_ms() {  # wrk's latency text (850.00us, 1.20ms, 2.01s) in milliseconds
    awk -v t="$1" 'BEGIN {
        v = t + 0
        if (t ~ /us$/) v /= 1000; else if (t ~ /ms$/) v = v; else if (t ~ /s$/) v *= 1000
        printf "%.2f", v }'
}
queue_wait() {  # nanoseconds the process's threads have waited for a core, summed
    cat /proc/"$1"/task/*/schedstat 2>/dev/null | awk '{ t += $2 } END { printf "%.0f", t }'
}
run() {  # server port connections [wrk arguments]; prints "rps p50 p99 non2xx rss cpu10k wait"
    local server=$1 p=$2 connections=$3; shift 3
    local pids before after rps p50 p99 bad requests client waited=- w1 w2
    pids=$(pids_of "$server")
    # shellcheck disable=SC2086
    before=$(cpu_ticks $pids)
    wrk -t"$threads" -c"$connections" -d"${seconds}s" --latency "$@" "http://127.0.0.1:$p/status" \
        >"$work/wrk.out" &
    client=$!
    # The share of wrk's time its threads were ready but waited for a core, over the run
    # less its first and last second: wrk's latency includes these waits.
    if [ "$seconds" -ge 3 ]; then
        sleep 1
        w1=$(queue_wait "$client")
        sleep $((seconds - 2))
        w2=$(queue_wait "$client")
        waited=$(awk -v w=$((w2 - w1)) -v s=$((seconds - 2)) -v t="$threads" \
            'BEGIN { printf "%.0f", w / (s * 1e9 * t) * 100 }')
    fi
    wait "$client"
    # shellcheck disable=SC2086
    after=$(cpu_ticks $pids)
    rps=$(awk '/Requests\/sec/ {print $2}' "$work/wrk.out")
    requests=$(awk '/requests in/ {print $1}' "$work/wrk.out")
    p50=$(to_ms "$(awk '$1 == "50%" {print $2}' "$work/wrk.out")")
    p99=$(to_ms "$(awk '$1 == "99%" {print $2}' "$work/wrk.out")")
    bad=$(awk '/Non-2xx/ {print $NF}' "$work/wrk.out")
    local cpu
    cpu=$(awk -v t=$((after - before)) -v hz="$(getconf CLK_TCK)" -v n="$requests" \
        'BEGIN { if (n > 0) printf "%.0f", t * 1000 / hz * 10000 / n; else print "-" }')
    # shellcheck disable=SC2086
    echo "$rps $p50 $p99 ${bad:-0} $(rss_mb $pids) $cpu $waited"
}

echo "cores: $(nproc)  load average: $(cut -d' ' -f1-3 /proc/loadavg)  seconds per run:" \
    "$seconds  rounds: $rounds"
printf '%-20s %-10s %10s %8s %8s %6s %7s %9s %8s\n' mode server rps p50ms p99ms non2xx rssMB \
    cpuMs/10k wrkWait%
# wrk pauses 1 ms between a connection's requests, so that every server is offered the same
# load, below what any of them can take: p99 compared at equal load. At full speed the
# servers that answer faster leave wrk more of the two cores, the machine runs full and
# the waits for a core make the tail.
echo 'function delay() return 1 end' >"$work/paced.lua"
# one-client-16 is keep-alive at full speed from a single wrk thread: the client and the
# server then have a core each. With two wrk threads and the server on two cores, a server
# that answers faster than wrk reads leaves wrk's threads sharing one core with work always
# waiting, and p99 becomes wrk's own wait for that core (4 ms, whichever server is faster).
for mode in ${MODES:-keep-alive-16 close-16 keep-alive-256 close-256 idle-10000 paced-64 one-client-16}; do
    extra=()
    threads=2
    connections=${mode##*-}
    case $mode in
        close-*) extra=(-H "Connection: close") ;;
        paced-*) extra=(-s "$work/paced.lua") ;;
        one-client-*) threads=1 ;;
    esac
    [ "$mode" = idle-10000 ] && connections=16
    for round in $(seq "$rounds"); do
        order="velmorad one auto"
        [ $((round % 2)) -eq 0 ] && order="auto one velmorad"
        for server in $order; do
            case $server in velmorad) p=$port ;; one) p=$one_port ;; auto) p=$auto_port ;; esac
            if [ "$mode" = idle-10000 ]; then
                python3 scripts/hold-connections.py "$p" 10000 idle >"$work/holder.out" &
                holder=$!
                for _ in $(seq 600); do grep -q opened "$work/holder.out" 2>/dev/null && break; sleep 0.1; done
            fi
            read -r rps p50 p99 bad rss cpu waited < <(run "$server" "$p" "$connections" "${extra[@]}")
            if [ -n "$holder" ]; then
                kill "$holder" 2>/dev/null || true
                wait "$holder" 2>/dev/null || true
                holder=""
                sleep 1
            fi
            label=$server
            [ "$server" = one ] && label="nginx-1"
            [ "$server" = auto ] && label="nginx-auto"
            echo "$mode $label $rps $p50 $p99 $bad $rss $cpu $round" >>"$work/rows"
            printf '%-20s %-10s %10s %8s %8s %6s %7s %9s %8s\n' "$mode" "$label" "$rps" "$p50" \
                "$p99" "$bad" "$rss" "$cpu" "$waited"
        done
    done
    awk -v m="$mode" '$1 == m && $2 == "velmorad" { v[$9] = $3; vs += $3 }
        $1 == m && $2 == "nginx-1" { n[$9] = $3; ns += $3 }
        END {
            each = ""
            for (r = 1; r in v; r++) each = each sprintf(" %.2f", v[r] / n[r])
            printf "%-20s velmorad / nginx-1 = %.2f (rounds:%s)\n", m, vs / ns, each
        }' "$work/rows"
done
echo "targets: ratio >= 1.0 (aim 1.2) with keep-alive and close, p99 not above nginx-1's," \
    "RSS under 64 MB with 10 000 idle connections; paced-64 offers every server the same load" \
    "(its ratio is 1.00 when each takes it all), so its p99 compares latency without the" \
    "machine running full, and one-client-16 compares it at full speed with a core for each side"

echo "slowloris: 5000 connections sending a head that never ends; /status for another client:"
python3 scripts/hold-connections.py "$port" 5000 slow --probe 15 | tail -n1
echo "target: the other client's /status answered within 100 ms (max)"
echo "load average after: $(cut -d' ' -f1-3 /proc/loadavg)"
