#!/usr/bin/env python3
"""velmorad's pings inside network namespaces of their own: many concurrent pings of an
answering host beside pings of a silent address never mix (the silent one always times
out, the answering one always answers), and an address behind a gateway that answers
"unreachable" is reported unreachable.

    test_pings.py PATH-TO-VELMORAD

The test runs itself again under `unshare --net` (namespace A, the daemon's); a second
process in a namespace of its own (B) is the gateway, joined to A by a veth pair:

    A: va 198.51.100.1/24, 203.0.113.0/24 and 192.0.2.0/24 via 198.51.100.2
    B: vb 198.51.100.2/24, forwarding on, 203.0.113.0/24 unreachable, 192.0.2.0/24 blackhole

so 192.0.2.9 is dropped without a word and 203.0.113.5 is answered "unreachable". Without root (or where
namespaces cannot be made) it says why and exits 77, which CTest counts as skipped.
"""
import os
import shutil
import subprocess
import sys
import tempfile
import threading
import unittest
import urllib.request
import xml.etree.ElementTree as ET

import namespaces
from namespaces import sh

DAEMON = None
INSIDE = "VELMORA_PING_TEST_INSIDE"
ANSWERING, SILENT, UNREACHABLE = "198.51.100.2", "192.0.2.9", "203.0.113.5"


class Pings(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.gateway = subprocess.Popen(["unshare", "--net", "sleep", "600"],
                                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        try:
            cls.start_daemon()
        except Exception:
            cls.gateway.kill()
            raise

    @classmethod
    def start_daemon(cls):
        pid = str(cls.gateway.pid)  # unshare execs sleep: the same process
        b = ["nsenter", "-t", pid, "-n"]
        # The gateway's namespace exists once its process runs unshared.
        for _ in range(100):
            if os.readlink("/proc/%s/ns/net" % pid) != os.readlink("/proc/self/ns/net"):
                break
            subprocess.run(["sleep", "0.02"])
        for command in (["ip", "link", "set", "lo", "up"],
                        ["ip", "link", "add", "va", "type", "veth", "peer", "name", "vb"],
                        ["ip", "link", "set", "vb", "netns", pid],
                        ["ip", "addr", "add", "198.51.100.1/24", "dev", "va"],
                        ["ip", "link", "set", "va", "up"],
                        ["ip", "route", "add", "203.0.113.0/24", "via", ANSWERING],
                        ["ip", "route", "add", "192.0.2.0/24", "via", ANSWERING],
                        b + ["ip", "link", "set", "lo", "up"],
                        b + ["ip", "addr", "add", "198.51.100.2/24", "dev", "vb"],
                        b + ["ip", "link", "set", "vb", "up"],
                        b + ["sysctl", "-qw", "net.ipv4.ip_forward=1"],
                        b + ["ip", "route", "add", "unreachable", "203.0.113.0/24"],
                        b + ["ip", "route", "add", "blackhole", "192.0.2.0/24"]):
            sh(*command)
        cls.home = tempfile.mkdtemp(prefix="velmorad-pings-")
        cls.proc = subprocess.Popen([DAEMON, "--port", "0", "--home", cls.home],
                                    stdout=subprocess.PIPE, text=True)  # stderr shows in the output
        line = cls.proc.stdout.readline()
        if "listening on http://127.0.0.1:" not in line:
            cls.proc.kill()
            raise RuntimeError("daemon did not start: %r" % line)
        cls.port = int(line.strip().rstrip("/").rsplit(":", 1)[1])

    @classmethod
    def tearDownClass(cls):
        cls.proc.terminate()
        cls.proc.wait(timeout=30)
        cls.gateway.kill()
        cls.gateway.wait()
        shutil.rmtree(cls.home, ignore_errors=True)

    def ping(self, host, timeout=1):
        url = "http://127.0.0.1:%d/ping?host=%s&timeout=%d" % (self.port, host, timeout)
        with urllib.request.urlopen(url, timeout=30) as r:
            return ET.fromstring(r.read())

    def test_a_silent_address_beside_a_busy_one_always_times_out(self):
        results = {ANSWERING: [], SILENT: []}

        def client(host, count):
            for _ in range(count):
                results[host].append(self.ping(host))

        threads = [threading.Thread(target=client, args=(ANSWERING, 40)) for _ in range(4)]
        threads += [threading.Thread(target=client, args=(SILENT, 2)) for _ in range(4)]
        for t in threads:
            t.start()
        for t in threads:
            t.join(120)
        self.assertEqual(len(results[ANSWERING]), 160)
        self.assertEqual(len(results[SILENT]), 8)
        for e in results[SILENT]:
            self.assertEqual((e.get("time"), e.get("error")), ("-1", "ping: request timed out"))
        for e in results[ANSWERING]:
            self.assertIsNone(e.get("error"))
            self.assertTrue(0 <= int(e.get("time")) < 1000, e.attrib)

    def test_an_address_behind_an_unreachable_route_is_reported_unreachable(self):
        e = self.ping(UNREACHABLE, 2)
        self.assertEqual(e.get("time"), "-1")
        self.assertIn("unreachable", e.get("error"))


def main():
    global DAEMON
    DAEMON = os.path.abspath(sys.argv.pop(1))
    namespaces.run_inside(INSIDE, [DAEMON], ["--net"], ("unshare", "nsenter", "ip", "sysctl"),
                          "unshare, nsenter (util-linux), ip (iproute2) and sysctl are needed")
    unittest.main(verbosity=2)


if __name__ == "__main__":
    main()
