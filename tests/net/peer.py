#!/usr/bin/env python3
"""A socket peer that nobody here wrote, for the networking tests (loopback only).

peer.py client PORT   connects to 127.0.0.1:PORT, sends a request line, prints the hex of
                      everything it receives until the library closes.
peer.py server        listens on a free port of 127.0.0.1, prints the port, then serves
                      one library client (see serve()).
"""
import signal
import socket
import sys
import time

signal.alarm(20)  # never outlive a stuck test


def client(port):
    with socket.create_connection(("127.0.0.1", port), timeout=10) as s:
        s.sendall(b"GET / HTTP/1.0\r\n")
        data = b""
        while True:
            chunk = s.recv(4096)
            if not chunk:
                break
            data += chunk
    print(data.hex(), flush=True)


def serve(c):
    c.sendall(b"x\ry\r\n\x00\x00\x00\x2a0123456789;")
    got = b""
    while len(got) < 2048:  # the library's client sends 2049 bytes without a flush
        chunk = c.recv(4096)
        if not chunk:
            break
        got += chunk
        c.settimeout(1)
    c.sendall(b"%d\r\n" % len(got))
    time.sleep(1.5)  # silence, for the client's time-out
    c.sendall(b"abc")  # a last line without its end, then the close


def server():
    with socket.socket() as srv:
        srv.bind(("127.0.0.1", 0))
        srv.listen(1)
        srv.settimeout(10)
        print(srv.getsockname()[1], flush=True)
        c, _ = srv.accept()
        with c:
            c.settimeout(10)
            try:
                serve(c)
            except socket.timeout:
                pass


if __name__ == "__main__":
    client(int(sys.argv[2])) if sys.argv[1] == "client" else server()
