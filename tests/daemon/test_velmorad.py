#!/usr/bin/env python3
"""Drives a running velmorad on an ephemeral loopback port with clients nobody here
wrote (Python's http.client and curl): every endpoint, HEAD, keep-alive, bad requests,
a slow client, a concurrent load, and a clean stop.

    test_velmorad.py [--launcher PROGRAM] PATH-TO-VELMORAD

With a launcher (Wine for the Windows build) the descriptor and memory checks are left
out, since the daemon's process is then the launcher's.
"""
import http.client
import os
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time
import unittest
import xml.etree.ElementTree as ET

DAEMON = None
LAUNCHER = []


class Daemon:
    def __init__(self, settings="", env=None):
        self.home = tempfile.mkdtemp(prefix="velmorad-test-")
        os.makedirs(os.path.join(self.home, "lib"))
        with open(os.path.join(self.home, "lib", "velmorad.properties"), "w") as f:
            f.write("maxConnections=24\nreadTimeoutMs=1500\nrequestDeadlineMs=2500\n" + settings)
        self.proc = subprocess.Popen(
            LAUNCHER + [DAEMON, "--port", "0", "--home", self.home],
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
            env=dict(os.environ, **(env or {})))
        line = self.proc.stdout.readline()
        if "listening on http://127.0.0.1:" not in line:
            self.proc.kill()
            raise RuntimeError("daemon did not start: %r %r" % (line, self.proc.stderr.read()))
        self.port = int(line.strip().rstrip("/").rsplit(":", 1)[1])
        self.log_line = self.proc.stdout.readline()
        with open(os.path.join(self.home, "lib", "velmorad.token")) as f:
            self.token = f.read().strip()

    def conn(self):
        return http.client.HTTPConnection("127.0.0.1", self.port, timeout=10)

    def get(self, path, method="GET", headers=None):
        """A request on a fresh connection; every change carries the token."""
        headers = dict(headers or {})
        if method not in ("GET", "HEAD"):
            headers.setdefault("Authorization", "Bearer " + self.token)
        c = self.conn()
        c.request(method, path, headers=headers)
        r = c.getresponse()
        body = r.read()
        c.close()
        return r, body

    def raw(self, data, wait=5.0):
        """Sends bytes on a fresh connection and returns all the daemon answered."""
        s = socket.create_connection(("127.0.0.1", self.port), timeout=wait)
        s.sendall(data)
        out = b""
        try:
            while True:
                chunk = s.recv(65536)
                if not chunk:
                    break
                out += chunk
        except socket.timeout:
            pass
        s.close()
        return out

    def fds(self):
        if LAUNCHER:
            return 0
        return len(os.listdir("/proc/%d/fd" % self.proc.pid))

    def rss_kb(self):
        if LAUNCHER:
            return 0
        with open("/proc/%d/status" % self.proc.pid) as f:
            for line in f:
                if line.startswith("VmRSS:"):
                    return int(line.split()[1])
        return 0

    def stop(self, keep_home=False):
        self.proc.send_signal(signal.SIGTERM)
        try:
            code = self.proc.wait(timeout=15)
        except subprocess.TimeoutExpired:
            self.proc.kill()
            code = None
        if not keep_home:
            shutil.rmtree(self.home, ignore_errors=True)
        return code


def run_clients(d, clients, paths):
    """Runs `clients` threads; thread n sends a GET for each path of paths(n) on one
    keep-alive connection (None: a fresh connection from there on). Returns the failures."""
    failures = []

    def client(n):
        try:
            c = d.conn()
            for path in paths(n):
                if path is None:
                    c.close()
                    c = d.conn()
                    continue
                c.request("GET", path)
                r = c.getresponse()
                r.read()
                if r.status != 200:
                    failures.append(r.status)
            c.close()
        except Exception as e:  # noqa: BLE001 - any failure counts
            failures.append(repr(e))

    threads = [threading.Thread(target=client, args=(n,)) for n in range(clients)]
    for t in threads:
        t.start()
    for t in threads:
        t.join(120)
    return failures


class VelmoradTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.d = Daemon("writeFilter.apply=true\n")

    @classmethod
    def tearDownClass(cls):
        code = cls.d.stop()
        if code != 0 and not LAUNCHER:
            raise AssertionError("daemon did not stop cleanly on SIGTERM: %r" % code)

    def test_endpoints_answer_with_their_documents(self):
        d = self.d
        self.assertIn("velmorad.log", d.log_line)
        r, body = d.get("/api")
        self.assertEqual(r.status, 200)
        self.assertIn(b"/ping-all", body)
        self.assertEqual(r.getheader("Content-Type"), "text/html; charset=utf-8")

        r, body = d.get("/status")
        self.assertEqual(r.status, 200)
        status = ET.fromstring(body)
        self.assertEqual(status.tag, "status")
        self.assertGreaterEqual(int(status.get("requests")), 1)
        self.assertGreaterEqual(int(status.get("connections")), 1)
        self.assertEqual(r.getheader("Server"), "Velmora Web Server/3.0")

        r, body = d.get("/ping?host=127.0.0.1&timeout=1")
        ping = ET.fromstring(body)
        self.assertEqual(ping.get("host"), "127.0.0.1")
        if os.geteuid() == 0:
            self.assertGreaterEqual(int(ping.get("time")), 0, body)
        else:
            self.assertEqual(ping.get("time"), "-1")
        r, body = d.get("/ping")
        self.assertEqual(r.status, 400)
        r, body = d.get("/ping-all?hosts=,")
        self.assertEqual(r.status, 400, "no host to ping")
        self.assertEqual(ET.fromstring(body).get("code"), "400")

        r, body = d.get("/ping-all?hosts=127.0.0.1,127.0.0.1")
        self.assertEqual(r.status, 200)
        self.assertIsNone(r.getheader("Content-Length"))
        log = ET.fromstring(body)
        self.assertEqual(log.tag, "log")
        self.assertEqual(len(list(log)), 2, body)

        r, body = d.get("/network")
        self.assertEqual(r.status, 200, body)
        settings = ET.fromstring(body)
        self.assertEqual(settings.tag, "tcpIpSettings")
        adapters = settings.find("adapters")
        self.assertGreater(len(adapters), 0, body)
        if LAUNCHER:  # Windows keeps gateway, domain and DNS servers per adapter
            self.assertEqual(settings.get("usesAdapterLevelSettings"), "true", body)
            for a in adapters:
                self.assertIsNotNone(a.find("dnsHosts"), body)
        r, body = d.get("/network", method="POST", headers={"Content-Type": "text/xml"})
        self.assertEqual(r.status, 403, "applying is off by default")

    def test_write_filter_without_the_filter_answers_503(self):
        for method in ("GET", "POST"):
            r, body = self.d.get("/write-filter?drive=C&command=1", method=method)
            self.assertEqual(r.status, 503, body)
            message = ET.fromstring(body).get("message")
            self.assertTrue(message.startswith("the write filter is not available on this system"),
                            message)
            # Only Windows, where the filter may exist, names the library that is missing.
            self.assertEqual("ewfapi.dll" in message, bool(LAUNCHER), message)
        r, _ = self.d.get("/write-filter?drive=CD")
        self.assertEqual(r.status, 400)

    def test_levels_read_change_and_persist(self):
        d = self.d
        r, body = d.get("/levels?name=velmorad&level=0", method="POST")
        self.assertEqual(r.status, 200, body)
        levels = {e.get("name"): e.get("level") for e in ET.fromstring(body)}
        self.assertEqual(levels.get("velmorad"), "0")
        with open(os.path.join(d.home, "logs", "levels.properties")) as f:
            self.assertIn("velmorad=0", f.read())
        r, body = d.get("/levels")
        self.assertIn(b'name="velmorad"', body)
        r, _ = d.get("/levels?name=velmorad&level=9", method="POST")
        self.assertEqual(r.status, 400)

    def test_head_wrong_method_and_unknown_path(self):
        d = self.d
        r, get_body = d.get("/")
        r, body = d.get("/", method="HEAD")
        self.assertEqual(r.status, 200)
        self.assertEqual(body, b"")
        self.assertEqual(int(r.getheader("Content-Length")), len(get_body))
        r, body = d.get("/status", method="DELETE")
        self.assertEqual(r.status, 405)
        self.assertEqual(r.getheader("Allow"), "GET, HEAD")
        r, body = d.get("/no/such/thing")
        self.assertEqual(r.status, 404)
        self.assertEqual(r.getheader("Connection"), "close")

    def test_keep_alive_reuses_the_connection(self):
        c = self.d.conn()
        c.request("GET", "/status")
        r = c.getresponse()
        r.read()
        first = c.sock
        for _ in range(5):
            c.request("GET", "/status")
            r = c.getresponse()
            r.read()
            self.assertEqual(r.status, 200)
            self.assertIs(c.sock, first, "the connection was reused")
        # Silent for a while, the connection gave its buffers back; it serves on.
        time.sleep(0.9)
        c.request("GET", "/status")
        r = c.getresponse()
        self.assertEqual((r.status, c.sock), (200, first))
        self.assertIn(b"<status", r.read())
        c.close()
        c10 = http.client.HTTPConnection("127.0.0.1", self.d.port, timeout=10)
        c10._http_vsn, c10._http_vsn_str = 10, "HTTP/1.0"
        c10.request("GET", "/status")
        r = c10.getresponse()
        r.read()
        self.assertEqual(r.getheader("Connection"), "close")

    def test_bad_requests_get_400_and_the_daemon_stays_up(self):
        d = self.d
        out = d.raw(b"GET / HTTP/1.1\r\nX-Long: " + b"v" * 3000 + b"\r\n\r\n")
        self.assertTrue(out.startswith(b"HTTP/1.1 400 "), out[:80])
        out = d.raw(b"GARBAGE\r\n\r\n")
        self.assertTrue(out.startswith(b"HTTP/1.1 400 "), out[:80])
        out = d.raw(b"GET / HTTP/1.1\rX\r\n\r\n")
        self.assertTrue(out.startswith(b"HTTP/1.1 400 "), out[:80])
        self.assertEqual(d.raw(b"", wait=3.0), b"", "a silent client is dropped")
        r, _ = d.get("/status")
        self.assertEqual(r.status, 200)

    def test_an_over_long_request_line_gets_414_that_the_client_reads(self):
        d = self.d
        # 4 MB of request line: the daemon stops reading early, answers, and reads away
        # the rest, so the client gets the whole answer and an orderly end, not a reset.
        s = socket.create_connection(("127.0.0.1", d.port), timeout=10)
        s.sendall(b"GET /" + b"a" * (4 << 20) + b" HTTP/1.1\r\nHost: x\r\n\r\n")
        out = b""
        while True:
            chunk = s.recv(65536)  # a reset raises here
            if not chunk:
                break
            out += chunk
        s.close()
        head, _, body = out.partition(b"\r\n\r\n")
        self.assertTrue(head.startswith(b"HTTP/1.1 414 "), out[:80])
        self.assertIn(b"Connection: close", head)
        self.assertEqual(ET.fromstring(body).get("code"), "414")
        self.assertEqual(len(body), int(head.split(b"Content-Length: ")[1].split(b"\r")[0]))

        # The same through a client library, with a query that is merely long.
        hosts = ",".join("10.0.%d.%d" % (i // 250, i % 250) for i in range(2000))
        r, body = d.get("/ping-all?hosts=" + hosts)
        self.assertEqual(r.status, 414)
        self.assertEqual(ET.fromstring(body).get("code"), "414")
        r, _ = d.get("/status")
        self.assertEqual(r.status, 200)

    def test_a_slow_client_is_cut_off_without_holding_others(self):
        d = self.d
        s = socket.create_connection(("127.0.0.1", d.port), timeout=10)
        started = time.time()
        answer = b""
        try:
            for b in b"GET /status HTTP/1.1\r\nHost: x\r\n\r\n":
                s.sendall(bytes([b]))
                r, _ = d.get("/status")  # others are served meanwhile
                self.assertEqual(r.status, 200)
                time.sleep(0.5)
        except (BrokenPipeError, ConnectionResetError):
            pass
        try:
            answer = s.recv(4096)
        except OSError:
            pass
        s.close()
        self.assertLess(time.time() - started, 20)
        self.assertTrue(answer == b"" or answer.startswith(b"HTTP/1.1 400"), answer[:60])

    def test_load_of_2000_requests_from_16_clients(self):
        d = self.d
        d.get("/status")
        fds_before, rss_before = d.fds(), d.rss_kb()
        def paths(n):
            for i in range(125):
                if i % 25 == 24:  # some fresh connections too
                    yield None
                yield "/status"

        failures = run_clients(d, 16, paths)
        self.assertEqual(failures, [])
        time.sleep(0.5)
        self.assertLessEqual(d.fds(), fds_before + 4)
        self.assertLess(d.rss_kb() - rss_before, 20 * 1024)

    def test_curl_reads_status_and_head(self):
        if shutil.which("curl") is None:
            self.skipTest("curl is not installed")
        url = "http://127.0.0.1:%d/status" % self.d.port
        out = subprocess.run(["curl", "-sf", "--max-time", "10", url], capture_output=True)
        self.assertEqual(out.returncode, 0)
        self.assertEqual(ET.fromstring(out.stdout).tag, "status")
        out = subprocess.run(["curl", "-sfI", "--max-time", "10", url], capture_output=True)
        self.assertEqual(out.returncode, 0)
        self.assertIn(b"Velmora-Platform: NT", out.stdout)
        out = subprocess.run(["curl", "-s", "-o", "/dev/null", "-w", "%{http_code}",
                              "--max-time", "10", url.replace("status", "missing")],
                             capture_output=True)
        self.assertEqual(out.stdout, b"404")


class EngineTest(unittest.TestCase):
    """Connections cost no thread: many idle ones leave the daemon answering; heads are
    limited; the stop lets requests in flight finish within its grace and cuts the rest."""

    _shared = None

    @classmethod
    def shared(cls):
        if cls._shared is None:
            cls._shared = Daemon()
        return cls._shared

    @classmethod
    def tearDownClass(cls):
        if cls._shared is not None:
            cls._shared.stop()

    def test_idle_connections_do_not_shut_others_out(self):
        d = Daemon("maxConnections=400\n")
        try:
            # Connections whose head is under way: on Linux, one that has sent nothing
            # yet stays with the system until its first bytes come (or a second passes).
            def opened():
                s = socket.create_connection(("127.0.0.1", d.port))
                s.sendall(b"GET /status HTTP/1.1\r\n")
                return s
            idle = [opened() for _ in range(300)]
            started = time.time()
            r, body = d.get("/status")
            self.assertEqual(r.status, 200)
            self.assertLess(time.time() - started, 2.0)
            self.assertGreaterEqual(int(ET.fromstring(body).get("connections")), 300)
            # Over the cap: the answer is 503 at once, and the client reads it whole.
            more = [opened() for _ in range(120)]
            refused = 0
            for s in more:
                s.settimeout(5)
                try:
                    if s.recv(4096).startswith(b"HTTP/1.1 503 "):
                        refused += 1
                except socket.timeout:
                    pass
            self.assertGreaterEqual(refused, 19)
            for s in idle + more:
                s.close()
            time.sleep(0.5)
            r, _ = d.get("/status")
            self.assertEqual(r.status, 200)
        finally:
            self.assertEqual(d.stop(), 0 if not LAUNCHER else d.proc.returncode)

    def test_an_idle_loop_sleeps(self):
        # The loop looks for events a little before it sleeps while the machine has idle
        # cores; once the requests stop it must go to sleep, not keep looking.
        if LAUNCHER:
            self.skipTest("the process times of a Windows program are not in /proc")
        d = self.shared()
        for _ in range(50):
            self.assertEqual(d.get("/status")[0].status, 200)
        time.sleep(0.3)

        def cpu_ticks():
            with open("/proc/%d/stat" % d.proc.pid) as f:
                fields = f.read().rsplit(")", 1)[1].split()
            return int(fields[11]) + int(fields[12])

        before = cpu_ticks()
        time.sleep(2.0)
        used = (cpu_ticks() - before) / os.sysconf("SC_CLK_TCK")
        self.assertLess(used, 0.2, "processor seconds used in 2 s without requests")

    def test_heads_beyond_the_limits_get_431_and_the_log_cannot_be_forged(self):
        d = Daemon()
        try:
            lines = b"".join(b"X-%d: v\r\n" % i for i in range(100))
            out = d.raw(b"GET /status HTTP/1.1\r\n" + lines + b"Connection: close\r\n\r\n")
            self.assertTrue(out.startswith(b"HTTP/1.1 431 "), out[:80])
            out = d.raw(b"GET /status HTTP/1.1\r\n" + lines + b"\r\n")
            self.assertTrue(out.startswith(b"HTTP/1.1 200 "), out[:80])
            # 16 KB of head in lines the parser takes one by one, sent without an end.
            s = socket.create_connection(("127.0.0.1", d.port), timeout=10)
            s.sendall(b"GET /status HTTP/1.1\r\n" + b"X-Big: " + b"v" * 1000 + b"\r\n")
            s.sendall((b"X-Big: " + b"v" * 1000 + b"\r\n") * 16)
            answer = s.recv(4096)
            s.close()
            self.assertTrue(answer.startswith(b"HTTP/1.1 431 "), answer[:80])
            self.assertIn(b"Connection: close", answer)

            # Bytes that could end a line or a field of the access log, in the target and
            # in the headers it records.
            out = d.raw(b'GET /x\x1b[31m"\x7f\\%0D%0A HTTP/1.1\r\nUser-Agent: a"b\x01\r\n'
                        b"Referer: r\x0bforged\xff\r\nConnection: close\r\n\r\n")
            self.assertTrue(out.startswith(b"HTTP/1.1 "), out[:80])
            out = d.raw(b"GET /\r\n\r\n")
            access = os.path.join(d.home, "logs", "access.log")
            deadline = time.time() + 10  # a stop under Wine is abrupt: the lines are waited for
            while LAUNCHER and open(access, "rb").read().count(b"\n") < 5 and time.time() < deadline:
                time.sleep(0.1)
        finally:
            d.stop(keep_home=True)
        with open(access, "rb") as f:
            log = f.read()
        shutil.rmtree(d.home, ignore_errors=True)
        lines = log.decode("ascii").split("\n")
        self.assertEqual(lines[-1], "")
        self.assertEqual(len(lines) - 1, 5, log)
        for line in lines[:-1]:
            self.assertRegex(line, ACCESS_LINE)
        self.assertIn(r'"GET /x\x1b[31m\x22\x7f\x5c%0D%0A HTTP/1.1" 404', lines[3])
        self.assertTrue(lines[3].endswith(r'"r\x0bforged\xff" "a\x22b\x01"'), lines[3])
        self.assertIn(" 431 ", lines[0])

    def test_pipelined_requests_and_a_body_after_leave_to_send_it(self):
        d = self.shared()
        # Three requests in one send, the second with a body: three answers in order. (GET
        # with a body: a POST would need what the guard and the levels demand.)
        out = d.raw(b"GET /status HTTP/1.1\r\n\r\n"
                    b"GET /levels HTTP/1.1\r\nContent-Length: 3\r\n\r\nabc"
                    b"GET /nothing HTTP/1.1\r\nConnection: close\r\n\r\n", wait=3.0)
        codes = re.findall(rb"HTTP/1.1 (\d{3}) ", out)
        self.assertEqual(codes[0], b"200")
        self.assertEqual(codes[-1], b"404")
        self.assertEqual(len(codes), 3, out)
        # A client that waits for leave before it sends its body.
        s = socket.create_connection(("127.0.0.1", d.port), timeout=10)
        s.sendall(b"GET /status HTTP/1.1\r\nContent-Length: 4\r\n"
                  b"Expect: 100-continue\r\n\r\n")
        self.assertEqual(s.recv(4096), b"HTTP/1.1 100 Continue\r\n\r\n")
        s.sendall(b"abcd")
        self.assertTrue(s.recv(4096).startswith(b"HTTP/1.1 200 "))
        s.close()

    def test_a_stop_lets_requests_finish_within_its_grace_and_cuts_the_rest(self):
        if LAUNCHER:
            self.skipTest("a signal ends a process under Wine at once")
        d = Daemon("stopGraceMs=1000\nreadTimeoutMs=5000\n")
        head = (b"POST /levels HTTP/1.1\r\nContent-Type: application/x-www-form-urlencoded\r\n"
                b"Content-Length: 20\r\n\r\n")
        finishing = socket.create_connection(("127.0.0.1", d.port), timeout=10)
        finishing.sendall(head + b"name=a")
        stuck = socket.create_connection(("127.0.0.1", d.port), timeout=10)
        stuck.sendall(head + b"name=b")
        idle = socket.create_connection(("127.0.0.1", d.port), timeout=10)
        idle.sendall(b"GET /status HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n")
        answer = idle.recv(65536)
        length = int(re.search(rb"Content-Length: (\d+)", answer).group(1))
        while len(answer) - answer.index(b"\r\n\r\n") - 4 < length:
            answer += idle.recv(65536)
        self.assertTrue(answer.startswith(b"HTTP/1.1 200 "))
        time.sleep(0.3)
        started = time.time()
        d.proc.send_signal(signal.SIGTERM)
        time.sleep(0.3)
        finishing.sendall(b"&level=1&x=12345678")  # 20 bytes in all: complete
        answer = finishing.recv(4096)
        self.assertTrue(answer.startswith(b"HTTP/1.1 "), answer)
        self.assertIn(b"Connection: close", answer)
        self.assertEqual(idle.recv(4096), b"", "an idle connection is closed at once")
        self.assertEqual(stuck.recv(4096), b"", "cut when the grace ran out")
        code = d.stop(keep_home=True)
        elapsed = time.time() - started
        with open(os.path.join(d.home, "logs", "velmorad.log")) as f:
            last = f.read().splitlines()[-1]
        shutil.rmtree(d.home, ignore_errors=True)
        if not LAUNCHER:
            self.assertEqual(code, 0)
        self.assertLess(elapsed, 4.0)
        self.assertIn("connections cut at the end of the grace: 1", last)


class WriteFilterTest(unittest.TestCase):
    """Under Wine, with the project's test filter library on the daemon's search path and
    two protected volumes: C (RAM overlay, enabled, commit pending) and D (disk overlay)."""

    @classmethod
    def setUpClass(cls):
        fake = os.path.join(os.path.dirname(os.path.abspath(DAEMON)), "ewf-fake")
        if not LAUNCHER or not os.path.isdir(fake):
            raise unittest.SkipTest("the test filter library exists in the Windows build only")
        cls.d = Daemon("writeFilter.apply=true\n", env={"VELMORA_TEST_EWFAPI":
                            "Z:" + os.path.join(fake, "ewfapi.dll").replace("/", "\\"),
                        "VELMORA_FAKE_EWF": "C:1:0:4:5000000000 D:0:1:0:0"})

    @classmethod
    def tearDownClass(cls):
        cls.d.stop()

    def test_read_and_command_the_overlay(self):
        d = self.d
        r, body = d.get("/write-filter?drive=c")
        self.assertEqual(r.status, 200, body)
        e = ET.fromstring(body)
        self.assertEqual((e.tag, e.get("drive"), e.get("state"), e.get("command"),
                          e.get("ramUsage")), ("writeFilter", "C", "0", "4", "5000000000"))
        r, body = d.get("/write-filter?drive=D&command=2", method="POST")
        self.assertEqual(r.status, 200, body)
        self.assertEqual(ET.fromstring(body).get("command"), "2")
        r, body = d.get("/write-filter?drive=E&command=1", method="POST")
        self.assertEqual(r.status, 404, body)
        r, body = d.get("/write-filter?drive=E")
        self.assertEqual(r.status, 404, body)
        r, body = d.get("/write-filter?drive=C&command=3", method="POST")
        self.assertEqual(r.status, 400, body)


LOG_LINE = re.compile(r"^(TRACE  |MESSAGE|WARNING|ERROR  ) \[\d\d:\d\d:\d\d \d\d-[A-Z][a-z]{2}-\d{4}\] "
                      r"\[tid=\d+\] \S.*$")


ACCESS_LINE = re.compile(r'^127\.0\.0\.1 - - \[\d\d/[A-Z][a-z]{2}/\d{4}:\d\d:\d\d:\d\d [+-]\d{4}\] '
                         r'"([^"]*)" (\d{3}) (\d+) "([^"]*)" "([^"]*)"$')


class LogTest(unittest.TestCase):
    def test_the_access_log_is_rotated_by_size_with_every_line_whole(self):
        d = Daemon("logMaxBytes=20000\nlogBackups=5\n")
        sent = 800
        failures = run_clients(d, 4,
                               lambda first: ("/status?n=%d" % n for n in range(first, sent, 4)))
        logs = os.path.join(d.home, "logs")

        def read_logs():
            names = sorted((f for f in os.listdir(logs) if f.startswith("access.log")),
                           key=lambda f: -int(f.rsplit(".", 1)[1]) if f[-1].isdigit() else 0)
            files = {}
            for name in names:
                with open(os.path.join(logs, name), "rb") as f:
                    files[name] = f.read()
            logged = sum(len(re.findall(rb'"GET /status\?n=\d+ HTTP/1.1" 200 \d+', data))
                         for data in files.values())
            return files, logged

        if LAUNCHER:  # a stop under Wine is abrupt: the lines are waited for
            deadline = time.time() + 10
            while read_logs()[1] < sent and time.time() < deadline:
                time.sleep(0.1)
        code = d.stop(keep_home=True)  # the stop writes what is still buffered
        try:
            if not LAUNCHER:
                self.assertEqual(code, 0)
            self.assertEqual(failures, [])
            files, logged = read_logs()
            self.assertIn("access.log.1", files, "rotated while running")
            for name, data in files.items():
                self.assertTrue(data.endswith(b"\n"), name)
                self.assertLessEqual(len(data), 20000, name)
                for line in data.decode("ascii").split("\n")[:-1]:
                    self.assertRegex(line, ACCESS_LINE, name)
            self.assertEqual(logged, sent, "every request logged once")
            with open(os.path.join(logs, "velmorad.log"), "rb") as f:
                lines = f.read().decode("ascii").split("\n")[:-1]
            for line in lines:
                self.assertRegex(line, LOG_LINE)
            if not LAUNCHER:
                self.assertIn("connections cut at the end of the grace: 0", lines[-1])
        finally:
            shutil.rmtree(d.home, ignore_errors=True)


if __name__ == "__main__":
    if len(sys.argv) > 2 and sys.argv[1] == "--launcher":
        LAUNCHER = [sys.argv.pop(2)]
        sys.argv.pop(1)
    DAEMON = sys.argv.pop(1)
    unittest.main(verbosity=2)
