#!/usr/bin/env python3
"""A helper of scripts/bench-daemon.sh (not a test): opens many connections to a server
and keeps them, either idle or as a slowloris (a request head that never ends, one more
header line every few seconds), and with --probe measures how long GET /status takes for
another client meanwhile.

    hold-connections.py PORT COUNT idle|slow [--probe SECONDS]

An idle connection has made one request and read its answer, as a browser's kept-alive
connection between pages (a server may leave one that never sent a byte in the system's
queue, out of its own count). Prints "opened N" once all are open (then holds them until
killed or, with --probe, for the given seconds) and with --probe the latency figures of the
other client in ms: "probe n=.. p50=.. p99=.. max=.. failed=..".
"""
import re
import resource
import socket
import sys
import time

port, count, kind = int(sys.argv[1]), int(sys.argv[2]), sys.argv[3]
probe = float(sys.argv[5]) if len(sys.argv) > 5 and sys.argv[4] == "--probe" else 0
soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
if soft < count + 100:
    resource.setrlimit(resource.RLIMIT_NOFILE, (min(hard, count + 100), hard))


def answered(s):
    """One request on the connection, its answer read whole (it stays open)."""
    try:
        s.sendall(b"GET /status HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n")
        got = b""
        while b"\r\n\r\n" not in got:
            chunk = s.recv(65536)
            if not chunk:
                return False
            got += chunk
        head, body = got.split(b"\r\n\r\n", 1)
        length = int(re.search(rb"(?i)content-length: *(\d+)", head).group(1))
        while len(body) < length:
            chunk = s.recv(65536)
            if not chunk:
                return False
            body += chunk
        return head.startswith(b"HTTP/1.1 200")
    except (OSError, AttributeError):
        return False


held = []
for i in range(count):
    s = socket.socket()
    s.setblocking(True)
    s.settimeout(10)
    try:
        s.connect(("127.0.0.1", port))
    except OSError:
        s.close()
        continue
    if kind == "slow":
        s.send(b"GET /status HTTP/1.1\r\nHost: 127.0.0.1\r\n")
    elif not answered(s):
        s.close()
        continue
    s.setblocking(False)
    held.append(s)
print("opened %d" % len(held), flush=True)


def trickle():
    # One more header line on each slow connection, a slice of them per call.
    for s in held:
        try:
            s.send(b"X-a: b\r\n")
        except OSError:
            pass


def ask():
    started = time.perf_counter()
    try:
        c = socket.create_connection(("127.0.0.1", port), timeout=5)
        # The daemon answers only requests that name it (421 otherwise).
        c.sendall(b"GET /status HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n\r\n")
        answer = c.recv(4096)
        c.close()
        ok = answer.startswith(b"HTTP/1.1 200")
    except OSError:
        ok = False
    return (time.perf_counter() - started) * 1000, ok


if probe:
    end = time.time() + probe
    times, failed, last_trickle = [], 0, 0.0
    while time.time() < end:
        if kind == "slow" and time.time() - last_trickle > 5:
            trickle()
            last_trickle = time.time()
        ms, ok = ask()
        times.append(ms)
        failed += 0 if ok else 1
        time.sleep(0.05)
    times.sort()
    pick = lambda q: times[min(len(times) - 1, int(q * len(times)))]
    print("probe n=%d p50=%.1f p99=%.1f max=%.1f failed=%d"
          % (len(times), pick(0.5), pick(0.99), times[-1], failed), flush=True)
else:
    while True:  # holds the connections until killed
        if kind == "slow":
            trickle()
        time.sleep(5)
