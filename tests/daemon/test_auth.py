#!/usr/bin/env python3
"""Who may change the host through velmorad: the token, the Host and Origin checks, the
content type of a document, the write-filter switch, the throttle on wrong tokens, log
lines that requests cannot forge, request lengths that cannot be smuggled, the refusal to
listen beyond loopback, and the daemon behind nginx with TLS.

    test_auth.py PATH-TO-VELMORAD

As root the test runs itself again in network, mount and UTS namespaces of its own: only
loopback (where a document may be applied), so that a daemon bound to 0.0.0.0 is reachable from nowhere, and a hosts file of
its own in which a foreign name resolves to 127.0.0.1, as DNS rebinding makes it; without
root those cases skip.
"""
import http.client
import os
import re
import shutil
import socket
import subprocess
import sys
import tempfile
import time
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import test_velmorad as base  # noqa: E402  (the daemon launcher the daemon tests share)

INSIDE = "VELMORA_AUTH_TEST_INSIDE"
IN_NAMESPACE = os.environ.get(INSIDE) == "1"
MARK = "FORGED-LINE"
REBOUND = "rebind.example"  # resolves to 127.0.0.1 inside the namespace


def request(d, method, path, headers=None, body=None, source="127.0.0.1"):
    c = http.client.HTTPConnection("127.0.0.1", d.port, timeout=10, source_address=(source, 0))
    c.request(method, path, body=body, headers=headers or {})
    r = c.getresponse()
    data = r.read()
    c.close()
    return r, data


def logs_of(d, awaited=None):
    """Every log file's text; with `awaited`, once that text is there (a request's lines are
    written just after its answer) or after 5 s."""
    deadline = time.time() + 5
    while True:
        text = read_logs(d)
        if awaited is None or awaited in text or time.time() > deadline:
            return text
        time.sleep(0.05)


def read_logs(d):
    text = ""
    logs = os.path.join(d.home, "logs")
    for name in sorted(os.listdir(logs)):
        if name.endswith(".log") or ".backup_" in name:
            with open(os.path.join(logs, name), "rb") as f:
                text += f.read().decode("latin-1")
    return text


class AuthTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.d = base.Daemon("allowedHosts=proxy.example, Other.Example\n")
        cls.bearer = {"Authorization": "Bearer " + cls.d.token}

    @classmethod
    def tearDownClass(cls):
        cls.d.stop()

    def test_token_file_is_private_and_the_command_prints_and_renews_it(self):
        d = self.d
        path = os.path.join(d.home, "lib", "velmorad.token")
        self.assertEqual(os.stat(path).st_mode & 0o777, 0o600)
        self.assertRegex(d.token, r"^[0-9a-f]{64}$")
        printed = subprocess.run([base.DAEMON, "token", "--home", d.home], capture_output=True,
                                 text=True, check=True).stdout.strip()
        self.assertEqual(printed, d.token)
        renewed = subprocess.run([base.DAEMON, "token", "--new", "--home", d.home],
                                 capture_output=True, text=True, check=True).stdout.strip()
        try:
            self.assertRegex(renewed, r"^[0-9a-f]{64}$")
            self.assertNotEqual(renewed, d.token)
            self.assertEqual(os.stat(path).st_mode & 0o777, 0o600)
            change = "/levels?name=velmorad&level=1"
            r, _ = request(d, "POST", change, {"Authorization": "Bearer " + d.token})
            self.assertEqual(r.status, 401, "the running daemon took the new token")
            r, _ = request(d, "POST", change, {"Authorization": "Bearer " + renewed})
            self.assertEqual(r.status, 200)
        finally:
            with open(path + ".tmp", "w") as f:
                f.write(d.token + "\n")
            os.chmod(path + ".tmp", 0o600)
            os.replace(path + ".tmp", path)
        os.chmod(path, 0o644)
        try:
            out = subprocess.run([base.DAEMON, "token", "--home", d.home], capture_output=True,
                                 text=True)
            self.assertNotEqual(out.returncode, 0)
            self.assertIn("chmod 600", out.stderr)
        finally:
            os.chmod(path, 0o600)

    def test_every_change_needs_the_token(self):
        d = self.d
        levels = os.path.join(d.home, "logs", "levels.properties")
        xml = {"Content-Type": "application/xml"}
        changes = [("POST", "/levels?name=probe&level=0", {}, 200),
                   ("POST", "/network", xml, 403),  # network.apply is off
                   ("POST", "/write-filter?drive=C&command=2", {}, 403),  # writeFilter.apply
                   ("DELETE", "/status", {}, 405), ("PUT", "/levels", {}, 405)]
        for method, path, headers, allowed in changes:
            for authorization, status in ((None, 401), ("Bearer " + "0" * 64, 401),
                                          ("Bearer " + d.token[:-1], 401),
                                          ("Basic " + d.token, 401), ("Bearer", 401),
                                          ("bearer " + d.token, allowed)):
                sent = dict(headers)
                if authorization:
                    sent["Authorization"] = authorization
                r, body = request(d, method, path, sent, body=b"<x/>" if xml == headers else None)
                self.assertEqual(r.status, status, (method, path, authorization, body))
                if status == 401:
                    self.assertEqual(r.getheader("WWW-Authenticate"), "Bearer")
                if path.startswith("/levels?"):
                    with open(levels) as f:
                        self.assertEqual("probe=" in f.read(), r.status == 200, authorization)
        r, _ = request(d, "GET", "/levels")
        self.assertEqual(r.status, 200, "reads on loopback need no token")

    def test_host_must_name_this_daemon(self):
        d = self.d
        for host, status in (("127.0.0.1:%d" % d.port, 200), ("127.0.0.1", 200),
                             ("LOCALHOST:%d" % d.port, 200), ("proxy.example", 200),
                             ("other.example:443", 200), ("evil.example", 421),
                             ("127.0.0.1.evil.example", 421), ("localhost.evil.example", 421),
                             ("[::1]:%d" % d.port, 421), ("proxy.example:", 421),
                             ("proxy.example:x", 421), ("a@proxy.example", 421)):
            for path in ("/network", "/levels", "/status"):
                r, body = request(d, "GET", path, {"Host": host})
                self.assertEqual(r.status, status, (host, path, body))
        if IN_NAMESPACE:
            self.assertEqual(socket.gethostbyname(REBOUND), "127.0.0.1")
            r, _ = request(d, "GET", "/levels", {"Host": "%s:%d" % (REBOUND, d.port)})
            self.assertEqual(r.status, 421, "a name is never taken for the address it resolves to")
        awaited = "refused GET /levels from 127.0.0.1: 421"
        self.assertIn(awaited, logs_of(d, awaited))

    def test_changes_from_other_origins_are_refused(self):
        d = self.d
        own = "http://127.0.0.1:%d" % d.port
        for extra, status in (({"Origin": "http://evil.example"}, 403), ({"Origin": "null"}, 403),
                              ({"Origin": "http://127.0.0.1:1"}, 403),
                              ({"Sec-Fetch-Site": "cross-site"}, 403),
                              ({"Sec-Fetch-Site": "same-site"}, 403),
                              ({"Origin": own, "Sec-Fetch-Site": "cross-site"}, 403),
                              ({"Origin": own, "Sec-Fetch-Site": "same-origin"}, 200),
                              ({"Sec-Fetch-Site": "none"}, 200), ({}, 200)):
            r, body = request(d, "POST", "/levels?name=velmorad&level=1",
                              dict(self.bearer, **extra))
            self.assertEqual(r.status, status, (extra, body))
        awaited = "refused POST /levels from 127.0.0.1: 403 a request from the page http://evil."
        self.assertIn(awaited, logs_of(d, awaited))
        r, _ = request(d, "GET", "/levels", {"Origin": "http://evil.example"})
        self.assertEqual(r.status, 200, "a read from another page is the browser's to withhold")

    def test_documents_come_as_xml(self):
        for kind, status in (("text/plain", 415), ("application/x-www-form-urlencoded", 415),
                             ("multipart/form-data; boundary=x", 415), (None, 415),
                             ("application/xml", 403), ("Text/XML; charset=utf-8", 403)):
            headers = dict(self.bearer)
            if kind:
                headers["Content-Type"] = kind
            r, body = request(self.d, "POST", "/network", headers, body=b"<tcpIpSettings/>")
            self.assertEqual(r.status, status, (kind, body))

    def test_write_filter_changes_need_their_switch(self):
        d = self.d
        settings = os.path.join(d.home, "lib", "velmorad.properties")
        r, body = request(d, "POST", "/write-filter?drive=C&command=1", self.bearer)
        self.assertEqual(r.status, 403)
        self.assertIn(b"writeFilter.apply=true in " + settings.encode(), body)
        with open(settings) as f:
            saved = f.read()
        with open(settings, "a") as f:
            f.write("writeFilter.apply=true\n")
        try:
            r, body = request(d, "POST", "/write-filter?drive=C&command=1", self.bearer)
            self.assertEqual(r.status, 503, "switched on, the route answers: no filter here")
        finally:
            with open(settings, "w") as f:
                f.write(saved)

    def test_wrong_tokens_are_slowed_then_refused_for_a_while(self):
        d = self.d
        wrong = {"Authorization": "Bearer " + "f" * 64}
        change = "/levels?name=velmorad&level=1"
        guesser = "127.0.0.2"  # another client address; everyone else is left alone
        seen = []
        while len([s for s in seen if s == 401]) < 10:
            r, _ = request(d, "POST", change, wrong, source=guesser)
            seen.append(r.status)
            if r.status == 429:
                self.assertLessEqual(int(r.getheader("Retry-After")), 1, seen)
                time.sleep(1.05)
            self.assertLess(len(seen), 30, seen)
        self.assertEqual(seen[:6], [401] * 5 + [429], "five free guesses, then a pause")
        r, _ = request(d, "POST", change, self.bearer, source=guesser)
        self.assertEqual(r.status, 429, "locked out, the right token too")
        self.assertGreater(int(r.getheader("Retry-After")), 30)
        r, _ = request(d, "POST", change, self.bearer)
        self.assertEqual(r.status, 200, "another client is not affected")
        log = logs_of(d, "wrong tokens from 127.0.0.2;")
        self.assertEqual(len(re.findall(r"wrong tokens from 127\.0\.0\.2;", log)), 1, log)
        self.assertEqual(log.count("from 127.0.0.2: 401"), 5, "further guesses are not logged")
        self.assertNotIn(d.token, log)
        self.assertNotIn("f" * 64, log)

    def test_requests_cannot_forge_log_lines(self):
        d = self.d
        host = b"Host: 127.0.0.1\r\n"
        auth = ("Authorization: Bearer %s\r\n" % d.token).encode()
        for raw in (b"GET /a\n" + MARK.encode() + b" HTTP/1.1\r\n" + host + b"\r\n",
                    b"GET /status HTTP/1.1\r\nHost: evil\n" + MARK.encode() + b"\r\n\r\n",
                    b"POST /levels?n=%0D%0A" + MARK.encode() + b" HTTP/1.1\r\n" + host + auth +
                    b"Origin: http://x\n" + MARK.encode() + b"\r\nContent-Length: 0\r\n\r\n",
                    b"POST /network HTTP/1.1\r\n" + host + auth +
                    b"Content-Type: text/x\r" + MARK.encode() + b"\r\n\r\n"):
            self.assertTrue(d.raw(raw, wait=3.0).startswith(b"HTTP/1.1 "), raw)
        if IN_NAMESPACE:  # a document's values quoted in the reports of its refusal
            self.post_document_with_line_ends()
        log = logs_of(d, "GET /a\\x0A" + MARK)
        for line in log.split("\n"):
            self.assertFalse(line.lstrip().startswith(MARK), line)
        self.assertIn("\\x0A" + MARK, log, "the requests were logged, escaped")
        if IN_NAMESPACE:
            self.assertIn("network: The value of domain on <tcpIpSettings> holds a control", log)

    def post_document_with_line_ends(self):
        settings = os.path.join(self.d.home, "lib", "velmorad.properties")
        with open(settings) as f:
            saved = f.read()
        with open(settings, "a") as f:  # read at each request
            f.write("network.apply=true\nnetwork.resolverPath=%s/resolv.conf\n"
                    "network.hostnamePath=%s/hostname\n" % (self.d.home, self.d.home))
        try:
            document = ('<tcpIpSettings domain="a&#13;&#10;%s"><dnsHosts><dnsHost ipAddress='
                        '"192.0.2.1&#10;%s"/></dnsHosts></tcpIpSettings>' % (MARK, MARK))
            r, body = request(self.d, "POST", "/network",
                              dict(self.bearer, **{"Content-Type": "text/xml"}), document)
            self.assertEqual(r.status, 400, body)
        finally:
            with open(settings, "w") as f:
                f.write(saved)

    def test_lengths_that_two_readers_could_read_differently_are_refused(self):
        d = self.d
        head = ("POST /levels?name=velmorad&level=1 HTTP/1.1\r\nHost: 127.0.0.1\r\n"
                "Authorization: Bearer %s\r\n" % d.token).encode()
        for fields, status in ((b"Content-Length: 4294967301\r\n", 413),
                               (b"Content-Length: 18446744073709551621\r\n", 413),
                               (b"Content-Length: 5\r\nContent-Length: 6\r\n", 400),
                               (b"Content-Length: 5\r\nTransfer-Encoding: chunked\r\n", 400),
                               (b"Content-Length: +5\r\n", 400)):
            out = d.raw(head + fields + b"\r\nxxxxx" + head + b"\r\n", wait=3.0)
            self.assertTrue(out.startswith(b"HTTP/1.1 %d " % status), (fields, out[:60]))
            self.assertEqual(out.count(b"HTTP/1.1 "), 1, "the body is never a second request")

    def test_a_forwarded_address_counts_only_from_a_trusted_proxy(self):
        r, _ = request(self.d, "GET", "/levels",
                       {"Host": "evil.example", "X-Forwarded-For": "192.0.2.66"})
        self.assertEqual(r.status, 421)
        log = logs_of(self.d, "refused GET /levels from 127.0.0.1: 421")
        self.assertIn("refused GET /levels from 127.0.0.1: 421", log)
        self.assertNotIn("192.0.2.66", log)


class ListenTest(unittest.TestCase):
    def start(self, settings, bind):
        home = tempfile.mkdtemp(prefix="velmorad-auth-")
        self.addCleanup(shutil.rmtree, home, ignore_errors=True)
        os.makedirs(os.path.join(home, "lib"))
        with open(os.path.join(home, "lib", "velmorad.properties"), "w") as f:
            f.write(settings)
        proc = subprocess.Popen([base.DAEMON, "--bind", bind, "--port", "0", "--home", home],
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        return home, proc

    def test_beyond_loopback_only_when_allowed(self):
        for bind in ("0.0.0.0", "::", "192.0.2.1"):
            home, proc = self.start("", bind)
            out, err = proc.communicate(timeout=10)
            self.assertEqual(proc.returncode, 2, (bind, out, err))
            self.assertIn("remote.allow=true", err)
            self.assertFalse(os.path.exists(os.path.join(home, "logs", "velmorad.log")))
        if not IN_NAMESPACE:
            self.skipTest("listening on 0.0.0.0 is tried only inside a network namespace")
        home, proc = self.start("remote.allow=true\n", "0.0.0.0")
        try:
            line = proc.stdout.readline()
            port = int(line.strip().rstrip("/").rsplit(":", 1)[1])
            with open(os.path.join(home, "lib", "velmorad.token")) as f:
                token = f.read().strip()
            for path, headers, status in (("/status", {}, 200), ("/levels", {}, 401),
                                          ("/network", {}, 401),
                                          ("/levels", {"Authorization": "Bearer " + token}, 200)):
                c = http.client.HTTPConnection("127.0.0.1", port, timeout=10)
                c.request("GET", path, headers=headers)
                r = c.getresponse()
                r.read()
                c.close()
                self.assertEqual(r.status, status, path)
        finally:
            proc.terminate()
            _, err = proc.communicate(timeout=10)
        self.assertIn("WARNING: listening on 0.0.0.0 over plain HTTP", err)


class ProxyTest(unittest.TestCase):
    """The sample nginx site in front of the daemon, with a self-signed certificate."""

    def test_an_authenticated_change_through_nginx_with_tls(self):
        for tool in ("nginx", "openssl", "curl"):
            if shutil.which(tool) is None and not os.path.exists("/usr/sbin/" + tool):
                self.skipTest(tool + " is not installed")
        d = base.Daemon("allowedHosts=velmora.test\ntrustedProxies=127.0.0.1\n")
        self.addCleanup(d.stop)
        work = tempfile.mkdtemp(prefix="velmorad-nginx-")
        self.addCleanup(shutil.rmtree, work, ignore_errors=True)
        os.chmod(work, 0o755)
        cert, key = os.path.join(work, "cert.pem"), os.path.join(work, "key.pem")
        subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "1",
                        "-subj", "/CN=velmora.test", "-addext",
                        "subjectAltName=DNS:velmora.test", "-keyout", key, "-out", cert],
                       check=True, capture_output=True)
        with socket.socket() as s:
            s.bind(("127.0.0.1", 0))
            port = s.getsockname()[1]
        sample = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..",
                              "packaging", "nginx", "velmorad.conf")
        with open(sample) as f:
            site = f.read()
        site = re.sub(r"listen \[::\]:443 ssl;\n", "", site)
        for old, new in (("listen 443 ssl", "listen 127.0.0.1:%d ssl" % port),
                         ("/etc/ssl/certs/velmorad.example.org.pem", cert),
                         ("/etc/ssl/private/velmorad.example.org.key", key),
                         ("server_name velmorad.example.org;", "server_name velmora.test;"),
                         ("127.0.0.1:8080", "127.0.0.1:%d" % d.port)):
            self.assertIn(old, site)
            site = site.replace(old, new)
        with open(os.path.join(work, "nginx.conf"), "w") as f:
            f.write("pid %s/nginx.pid;\nerror_log %s/error.log;\nevents {}\nhttp {\n"
                    "access_log off;\nclient_body_temp_path %s;\nproxy_temp_path %s;\n%s}\n"
                    % (work, work, work, work, site))
        nginx = subprocess.Popen([shutil.which("nginx") or "/usr/sbin/nginx", "-p", work, "-c",
                                  os.path.join(work, "nginx.conf"), "-g", "daemon off;"],
                                 stderr=subprocess.PIPE, text=True)
        self.addCleanup(nginx.wait, 10)
        self.addCleanup(nginx.terminate)
        url = "https://velmora.test:%d" % port

        def through(*headers):
            # curl from 127.0.0.2, checking the certificate for the proxy's name.
            out = subprocess.run(
                ["curl", "-sS", "--retry", "20", "--retry-connrefused", "--retry-delay", "0",
                 "--cacert", cert, "--interface", "127.0.0.2", "--resolve",
                 "velmora.test:%d:127.0.0.1" % port, "-X", "POST", "-w", "\n%{http_code}"] +
                [a for h in headers for a in ("-H", h)] + [url + "/levels?name=velmorad&level=1"],
                capture_output=True, text=True, check=True)
            body, _, status = out.stdout.rpartition("\n")
            return int(status), body

        self.assertEqual(through("Origin: " + url)[0], 401)
        self.assertEqual(through("Origin: https://evil.example")[0], 403)
        status, body = through("Origin: " + url, "Sec-Fetch-Site: same-origin",
                               "Authorization: Bearer " + d.token)
        self.assertEqual(status, 200, body)
        self.assertIn('name="velmorad" level="1"', body)
        log = logs_of(d, "refused POST /levels from 127.0.0.2: 401")
        self.assertIn("refused POST /levels from 127.0.0.2: 401", log,
                      "the client named by the proxy, not the proxy")


if __name__ == "__main__":
    base.DAEMON = sys.argv.pop(1)
    if not IN_NAMESPACE and os.geteuid() == 0 and shutil.which("unshare"):
        with tempfile.NamedTemporaryFile("w", prefix="velmorad-hosts-", delete=False) as hosts:
            hosts.write("127.0.0.1 localhost %s\n::1 localhost ip6-localhost\n" % REBOUND)
        os.chmod(hosts.name, 0o644)
        inner = ("ip link set lo up && mount --make-rprivate / && mount --bind %s /etc/hosts && "
                 "exec %s %s %s" % (hosts.name, sys.executable, os.path.abspath(__file__),
                                    base.DAEMON))
        try:
            code = subprocess.call(["unshare", "-n", "-m", "-u", "sh", "-c", inner],
                                   env=dict(os.environ, **{INSIDE: "1"}))
        finally:
            os.unlink(hosts.name)
        sys.exit(code)
    unittest.main(verbosity=2)
