#!/usr/bin/env python3
"""velmorad's /network on Linux, inside network, UTS and mount namespaces of its own: the
document shows the links, gateway, DNS servers and host name that `ip` set up; POST is
refused until network.apply=true; then a changed document reaches the kernel and the
files, checked with `ip -j`, `hostname` and the files themselves.

    test_network.py PATH-TO-VELMORAD

Runs itself again under `unshare`; without root (or where namespaces cannot be made) it
says why and exits 77, which CTest counts as skipped. The resolver and host-name files
are temporary files named in the daemon's settings.
"""
import http.client
import json
import os
import shutil
import subprocess
import sys
import tempfile
import unittest
import xml.etree.ElementTree as ET

DAEMON = None
INSIDE = "VELMORA_NETWORK_TEST_INSIDE"


def sh(*args):
    return subprocess.run(args, check=True, capture_output=True, text=True).stdout.strip()


def ip_json(*args):
    return json.loads(sh("ip", "-j", *args))


class NetworkEndpoint(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        for command in (["ip", "link", "set", "lo", "up"],
                        ["ip", "link", "add", "v0", "type", "veth", "peer", "name", "v1"],
                        ["ip", "link", "set", "v0", "up"], ["ip", "link", "set", "v1", "up"],
                        ["ip", "addr", "add", "192.0.2.10/24", "dev", "v0"],
                        ["ip", "route", "add", "default", "via", "192.0.2.1"],
                        ["hostname", "ns-daemon"]):
            sh(*command)
        cls.home = tempfile.mkdtemp(prefix="velmorad-network-")
        os.makedirs(os.path.join(cls.home, "lib"))
        cls.resolver = os.path.join(cls.home, "resolv.conf")
        cls.hostname_file = os.path.join(cls.home, "hostname")
        with open(cls.resolver, "w") as f:
            f.write("# kept\nnameserver 192.0.2.53\n")
        with open(cls.hostname_file, "w") as f:
            f.write("ns-daemon\n")
        cls.write_settings(False)
        cls.proc = subprocess.Popen([DAEMON, "--port", "0", "--home", cls.home],
                                    stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        line = cls.proc.stdout.readline()
        if "listening on http://127.0.0.1:" not in line:
            cls.proc.kill()
            raise RuntimeError("daemon did not start: %r" % line)
        cls.port = int(line.strip().rstrip("/").rsplit(":", 1)[1])
        with open(os.path.join(cls.home, "lib", "velmorad.token")) as f:
            cls.token = f.read().strip()

    @classmethod
    def tearDownClass(cls):
        cls.proc.terminate()
        cls.proc.wait(timeout=10)
        shutil.rmtree(cls.home, ignore_errors=True)

    @classmethod
    def write_settings(cls, apply):
        with open(os.path.join(cls.home, "lib", "velmorad.properties"), "w") as f:
            f.write("network.apply=%s\nnetwork.resolverPath=%s\nnetwork.hostnamePath=%s\n"
                    % ("true" if apply else "false", cls.resolver, cls.hostname_file))

    def request(self, method, body=None):
        c = http.client.HTTPConnection("127.0.0.1", self.port, timeout=20)
        headers = {"Authorization": "Bearer " + self.token}
        if body is not None:
            headers["Content-Type"] = "text/xml"
        c.request(method, "/network", body=body, headers=headers)
        r = c.getresponse()
        data = r.read()
        c.close()
        return r.status, data

    @staticmethod
    def read(path):
        with open(path) as f:
            return f.read()

    def kernel_state(self):
        addrs = ip_json("addr", "show", "dev", "v0")[0]["addr_info"]
        return (sorted((a["local"], a["prefixlen"]) for a in addrs if a["family"] == "inet"),
                [r.get("gateway") for r in ip_json("route", "show", "default")],
                sh("hostname"), self.read(self.resolver))

    def test_1_get_shows_what_ip_set(self):
        status, body = self.request("GET")
        self.assertEqual(status, 200, body)
        doc = ET.fromstring(body)
        self.assertEqual(doc.tag, "tcpIpSettings")
        self.assertEqual(doc.get("hostname"), "ns-daemon")
        self.assertEqual(doc.get("defaultGateway"), "192.0.2.1")
        self.assertEqual([d.get("ipAddress") for d in doc.find("dnsHosts")], ["192.0.2.53"])
        adapters = {a.get("id"): a for a in doc.find("adapters")}
        self.assertEqual(sorted(adapters), ["v0", "v1"])
        self.assertEqual(adapters["v0"].get("ipAddress"), "192.0.2.10")
        self.assertEqual(adapters["v0"].get("macAddress"),
                         ip_json("link", "show", "v0")[0]["address"].upper())
        if shutil.which("curl"):
            out = sh("curl", "-sf", "--max-time", "10", "http://127.0.0.1:%d/network" % self.port)
            self.assertEqual(ET.fromstring(out).get("hostname"), "ns-daemon")

    def test_2_post_is_refused_until_allowed_and_then_applies(self):
        status, doc = self.request("GET")
        before = self.kernel_state()
        status, body = self.request("POST", doc)
        self.assertEqual(status, 403, body)
        self.assertEqual(ET.fromstring(body).get("code"), "403")
        self.assertEqual(self.kernel_state(), before)

        self.write_settings(True)
        changed = ET.fromstring(doc)
        changed.set("hostname", "ns-changed")
        changed.set("defaultGateway", "198.51.100.1")
        ET.SubElement(changed.find("dnsHosts"), "dnsHost", ipAddress="198.51.100.53")
        v0 = [a for a in changed.find("adapters") if a.get("id") == "v0"][0]
        v0.set("ipAddress", "198.51.100.2")
        readonly = ET.fromstring(ET.tostring(changed))
        readonly.set("isReadonly", "true")
        status, body = self.request("POST", ET.tostring(readonly))
        self.assertEqual(status, 200, body)
        self.assertEqual(self.kernel_state(), before, "isReadonly=true changes nothing")

        status, body = self.request("POST", ET.tostring(changed))
        self.assertEqual(status, 200, body)
        self.assertEqual(ET.fromstring(body).get("hostname"), "ns-changed")
        addrs, gateways, hostname, resolver = self.kernel_state()
        self.assertEqual(addrs, [("198.51.100.2", 24)])
        self.assertEqual(gateways, ["198.51.100.1"])
        self.assertEqual(hostname, "ns-changed")
        self.assertEqual(resolver, "# kept\nnameserver 192.0.2.53\nnameserver 198.51.100.53\n")
        self.assertEqual(self.read(self.hostname_file), "ns-changed\n")

    def test_3_bad_address_is_reported_and_changes_nothing_of_its_own(self):
        self.write_settings(True)
        status, doc = self.request("GET")
        before = self.kernel_state()
        bad = ET.fromstring(doc)
        [a for a in bad.find("adapters") if a.get("id") == "v0"][0].set("ipAddress", "999.1.1.1")
        status, body = self.request("POST", ET.tostring(bad))
        self.assertEqual(status, 400, body)
        self.assertIn("999.1.1.1", ET.fromstring(body).get("message"))
        self.assertEqual(self.kernel_state(), before)
        gone = ET.fromstring(doc)
        gone.set("defaultGateway", "203.0.113.1")
        status, body = self.request("POST", ET.tostring(gone))
        self.assertEqual(status, 400, body)
        self.assertIn("203.0.113.1", ET.fromstring(body).get("message"))


def main():
    global DAEMON
    DAEMON = os.path.abspath(sys.argv.pop(1))
    if os.environ.get(INSIDE) != "1":
        why = None
        if os.geteuid() != 0:
            why = "new network namespaces need root"
        elif not shutil.which("unshare") or not shutil.which("ip"):
            why = "unshare (util-linux) and ip (iproute2) are needed"
        elif subprocess.run(["unshare", "--net", "--uts", "--mount", "true"],
                            capture_output=True).returncode != 0:
            why = "unshare is refused here"
        if why:
            print("skipped: " + why)
            sys.exit(77)
        env = dict(os.environ, **{INSIDE: "1"})
        sys.exit(subprocess.run(["unshare", "--net", "--uts", "--mount", "--propagation",
                                 "private", sys.executable, os.path.abspath(__file__),
                                 DAEMON] + sys.argv[1:], env=env).returncode)
    unittest.main(verbosity=2)


if __name__ == "__main__":
    main()
