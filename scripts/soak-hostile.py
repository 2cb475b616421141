#!/usr/bin/env python3
"""The hostile side of scripts/soak-daemon.sh: until the time is up, several threads each
pick one kind of misbehaviour after another against a running velmorad and count what
they saw. Prints one line "kind outcome count" per pair at the end.

    soak-hostile.py PORT SECONDS
"""
import collections
import os
import random
import select
import socket
import struct
import sys
import threading
import time

PORT = int(sys.argv[1])
END = time.time() + float(sys.argv[2])
counts = collections.Counter()
lock = threading.Lock()


def count(kind, outcome):
    with lock:
        counts[(kind, outcome)] += 1


def connect(timeout=15):
    return socket.create_connection(("127.0.0.1", PORT), timeout=timeout)


def read_answer(s):
    """The status of what the daemon answered: "200", "414", ..., "closed", "reset",
    "timeout"."""
    data = b""
    try:
        while True:
            chunk = s.recv(65536)
            if not chunk:
                break
            data += chunk
            if b"\r\n\r\n" in data and b"Connection: close" not in data:
                break
    except ConnectionResetError:
        return "reset" if not data else data[9:12].decode("ascii", "replace") + "+reset"
    except socket.timeout:
        return "timeout" if not data else data[9:12].decode("ascii", "replace")
    if not data:
        return "closed"
    return data[9:12].decode("ascii", "replace")


def slow_head():
    # A request a byte at a time, slower than the daemon allows for a whole head.
    s = connect(timeout=60)
    try:
        for b in b"GET /status HTTP/1.1\r\nHost: 127.0.0.1\r\nX-Slow: " + b"s" * 200:
            s.sendall(bytes([b]))
            readable, _, _ = select.select([s], [], [], 0.5)
            if readable or time.time() > END:
                break  # the daemon answered (or closed): see what
        count("slow-head", read_answer(s))
    except (BrokenPipeError, ConnectionResetError):
        count("slow-head", "cut off")
    finally:
        s.close()


def long_line():
    s = connect()
    size = random.choice([3000, 70000, 1 << 20, 4 << 20])
    try:
        s.sendall(b"GET /" + b"a" * size + b" HTTP/1.1\r\n\r\n")
        count("long-line", read_answer(s))
    except (BrokenPipeError, ConnectionResetError):
        count("long-line", "reset while sending")
    finally:
        s.close()


def junk():
    s = connect()
    try:
        s.sendall(os.urandom(random.randint(1, 8192)) + b"\r\n\r\n")
        count("junk", read_answer(s))
    except (BrokenPipeError, ConnectionResetError):
        count("junk", "reset while sending")
    finally:
        s.close()


def abrupt_close():
    s = connect()
    s.sendall(b"GET /status HTTP/1.1\r\nHost: 127.0.0.1\r\n"[: random.randint(0, 30)])
    if random.random() < 0.5:  # a reset instead of an orderly close
        s.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    s.close()
    count("abrupt-close", "done")


def flood():
    # More connections at once than the daemon serves, most of them silent at first so
    # that they hold their places: the surplus must get 503 at once.
    sockets = []
    try:
        for i in range(100):
            try:
                s = connect()
                if i % 4 == 0:
                    s.sendall(b"GET /status HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n\r\n")
                sockets.append(s)
            except OSError:
                count("flood", "connect failed")
        time.sleep(0.2)
        for i, s in enumerate(sockets):
            try:
                if i % 4 != 0:
                    s.sendall(b"GET /status HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n\r\n")
            except OSError:
                pass  # the answer (503) may be waiting still
            count("flood", read_answer(s))
    finally:
        for s in sockets:
            s.close()


KINDS = [slow_head, long_line, junk, abrupt_close, abrupt_close, flood]


def worker(kinds):
    while time.time() < END:
        kind = random.choice(kinds)
        try:
            kind()
        except OSError as e:
            count(kind.__name__.replace("_", "-"), type(e).__name__)
        time.sleep(random.uniform(0.0, 0.2))


threads = [threading.Thread(target=worker, args=([slow_head],))]
threads += [threading.Thread(target=worker, args=(KINDS,)) for _ in range(3)]
for t in threads:
    t.start()
for t in threads:
    t.join()
for (kind, outcome), n in sorted(counts.items()):
    print("%-14s %-22s %d" % (kind, outcome, n))
