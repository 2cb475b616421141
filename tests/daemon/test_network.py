#!/usr/bin/env python3
"""velmorad's /network on Linux, inside network, UTS and mount namespaces of its own: the
document shows the links, gateway, DNS servers and host name that `ip` set up; POST is
refused until network.apply=true; then a changed document reaches the kernel and the
files, checked with `ip -j`, `hostname` and the files themselves. Documents that are not
sound are refused whole, a failing one leaves the host byte for byte as it was, and a
change made with a confirmation window reverts when the window passes, also across a
SIGKILL and restart of the daemon.

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
import signal
import tempfile
import time
import unittest
import xml.etree.ElementTree as ET

import namespaces
from namespaces import sh

DAEMON = None
INSIDE = "VELMORA_NETWORK_TEST_INSIDE"


def ip_json(*args):
    return json.loads(sh("ip", "-j", *args))


class NetworkEndpoint(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        # New addresses are usable at once (no duplicate detection), the links' included.
        sh("sysctl", "-qw", "net.ipv6.conf.all.accept_dad=0", "net.ipv6.conf.default.accept_dad=0")
        namespaces.make_network("ns-daemon")
        cls.home = tempfile.mkdtemp(prefix="velmorad-network-")
        os.makedirs(os.path.join(cls.home, "lib"))
        cls.resolver = os.path.join(cls.home, "resolv.conf")
        cls.hostname_file = os.path.join(cls.home, "hostname")
        with open(cls.resolver, "w") as f:
            f.write("# kept\nnameserver 192.0.2.53\n")
        with open(cls.hostname_file, "w") as f:
            f.write("ns-daemon\n")
        cls.write_settings(False)
        cls.start()

    @classmethod
    def start(cls, bind="127.0.0.1"):
        cls.proc = subprocess.Popen([DAEMON, "--port", "0", "--bind", bind, "--home", cls.home],
                                    stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        line = cls.proc.stdout.readline()
        if "listening on http://%s:" % bind not in line:
            cls.proc.kill()
            raise RuntimeError("daemon did not start: %r" % line)
        cls.port = int(line.strip().rstrip("/").rsplit(":", 1)[1])

    @classmethod
    def stop(cls, sig=signal.SIGTERM):
        cls.proc.send_signal(sig)
        cls.proc.wait(timeout=10)
        cls.proc.stdout.close()
        cls.proc.stderr.close()

    @classmethod
    def tearDownClass(cls):
        cls.stop()
        shutil.rmtree(cls.home, ignore_errors=True)

    @classmethod
    def write_settings(cls, apply):
        with open(os.path.join(cls.home, "lib", "velmorad.properties"), "w") as f:
            # remote.allow: some cases listen on every address of the namespace.
            f.write("network.apply=%s\nnetwork.resolverPath=%s\nnetwork.hostnamePath=%s\n"
                    "remote.allow=true\n"
                    % ("true" if apply else "false", cls.resolver, cls.hostname_file))

    def request(self, method, body=None, path="/network", host="127.0.0.1", headers=None):
        fields = {"Content-Type": "text/xml"} if body is not None else {}
        token = os.path.join(self.home, "lib", "velmorad.token")
        if os.path.exists(token):  # reads need it too when listening beyond loopback
            with open(token) as f:
                fields["Authorization"] = "Bearer " + f.read().strip()
        c = http.client.HTTPConnection(host, self.port, timeout=20)
        c.request(method, path, body=body, headers=fields)
        r = c.getresponse()
        data = r.read()
        if headers is not None:
            headers.update({k.lower(): v for k, v in r.getheaders()})
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


    def full_state(self):
        def without_expiry(objects):
            return [{k: v for k, v in o.items() if k != "expires"} for o in objects]
        switches = [self.read("/proc/sys/net/ipv6/conf/%s/disable_ipv6" % link)
                    for link in ("v0", "v1")]
        return (json.dumps(ip_json("-d", "addr", "show")),
                json.dumps(without_expiry(ip_json("-4", "-d", "route", "show", "table", "all"))),
                json.dumps(without_expiry(ip_json("-6", "-d", "route", "show", "table", "all"))),
                switches, sh("hostname"), self.read(self.resolver), self.read(self.hostname_file))

    def current(self):
        status, doc = self.request("GET")
        self.assertEqual(status, 200, doc)
        return doc

    @staticmethod
    def adapter(doc, name):
        return [a for a in doc.find("adapters") if a.get("id") == name][0]

    def test_4_unsound_documents_are_refused_whole_before_anything_is_applied(self):
        self.write_settings(True)
        doc = self.current()
        before = self.full_state()
        good = doc.decode().split("?>", 1)[1]
        root = ET.fromstring(doc)
        v0 = self.adapter(root, "v0")
        address = v0.get("ipAddress")

        def changed(**values):
            copy = ET.fromstring(doc)
            for where, name, value in values["sets"]:
                element = copy if where is None else self.adapter(copy, where)
                if value is None:
                    del element.attrib[name]
                else:
                    element.set(name, value)
            return ET.tostring(copy)

        renamed = good.replace('hostname="ns-changed"', 'hostname="ns-evil"')
        bad = {
            "mismatched end tag": renamed.replace("</adapters>", "</adapterz>"),
            "another root": renamed.replace("<tcpIpSettings ", "<somethingElse ", 1)
                                   .replace("</tcpIpSettings>", "</somethingElse>"),
            "text after the root": renamed + "trailing",
            "deep nesting": renamed.replace("</tcpIpSettings>", "<a>" * 100000 + "</a>" * 100000
                                            + "</tcpIpSettings>"),
            "NUL in a value": renamed.replace('hostname="ns-evil"', 'hostname="ev&#0;il"'),
            "unknown attribute": renamed.replace("<adapters>", "<adapters colour=\"red\">"),
            "mask 0": changed(sets=[("v0", "subnetMask", "0.0.0.0")]),
            "address 0": changed(sets=[("v0", "ipAddress", "0.0.0.0")]),
            "broadcast": changed(sets=[("v0", "ipAddress", "255.255.255.255")]),
            "multicast": changed(sets=[("v0", "ipAddress", "224.0.0.5")]),
            "loopback": changed(sets=[("v0", "ipAddress", "127.0.0.5"), ("v0", "subnetMask", "255.0.0.0")]),
            "own address as gateway": changed(sets=[(None, "defaultGateway", address)]),
            "no enabled": changed(sets=[("v1", "enabled", None)]),
            "no ipv6Enabled": changed(sets=[("v1", "ipv6Enabled", None)]),
            "too many servers": good.replace("</dnsHosts>", "".join(
                '<dnsHost ipAddress="192.0.2.%d"/>' % n for n in range(60, 64)) + "</dnsHosts>"),
        }
        for what, body in bad.items():
            status, answer = self.request("POST", body)
            self.assertEqual(status, 400, what)
            self.assertEqual(self.full_state(), before, what)
        status, answer = self.request("POST", changed(sets=[("v1", "enabled", None),
                                                            ("v0", "subnetMask", "0.0.0.0")]))
        message = ET.fromstring(answer).get("message")
        self.assertIn("adapter v1: enabled is missing", message)
        self.assertIn("subnetMask", message)

    def test_5_a_failing_document_leaves_the_host_as_it_was_and_nothing_is_remembered(self):
        self.write_settings(True)
        sh("ip", "addr", "add", "2001:db8::10/64", "dev", "v0", "nodad")
        doc = ET.fromstring(self.current())
        sh("ip", "route", "add", "203.0.113.128/25", "via", "192.0.2.99", "dev", "v0", "onlink",
           "src", self.adapter(doc, "v0").get("ipAddress"), "metric", "7")
        before = self.full_state()
        doc.set("hostname", "ns-failing")
        doc.find("dnsHosts").clear()
        v0 = self.adapter(doc, "v0")
        v0.set("ipv6Address", "2001:db8::20")
        v0.set("ipv6SubnetPrefixLength", "64")
        # Sound as a document, but refused by the kernel after the rest was applied: an
        # address for a link whose IPv6 the same element switches off.
        v1 = self.adapter(doc, "v1")
        v1.set("enabled", "false")
        v1.set("ipv6Enabled", "false")
        v1.set("ipv6Address", "2001:db8:5::1")
        v1.set("ipv6SubnetPrefixLength", "64")
        status, body = self.request("POST", ET.tostring(doc))
        self.assertEqual(status, 400, body)
        self.assertIn("the former settings were restored", ET.fromstring(body).get("message"))
        self.assertEqual(self.full_state(), before)
        sh("ip", "route", "del", "203.0.113.128/25")

        gone = ET.fromstring(self.current())
        gone.set("defaultGateway", "203.0.113.1")
        status, body = self.request("POST", ET.tostring(gone))
        self.assertEqual(status, 400, body)
        sh("ip", "route", "del", "default")
        later = ET.fromstring(self.current())
        del later.attrib["defaultGateway"]
        self.adapter(later, "v0").set("ipAddress", "203.0.113.10")
        status, body = self.request("POST", ET.tostring(later))
        self.assertEqual(status, 200, body)
        self.assertNotIn("203.0.113.1", [r.get("gateway") for r in ip_json("route", "show",
                                                                            "default")])

    def wait_for(self, state, seconds):
        deadline = time.monotonic() + seconds
        while self.full_state() != state and time.monotonic() < deadline:
            time.sleep(0.2)
        return self.full_state() == state

    def test_6_a_change_with_a_window_reverts_unless_confirmed(self):
        self.write_settings(True)
        doc = ET.fromstring(self.current())
        before = self.full_state()
        doc.set("hostname", "ns-trial")
        ET.SubElement(doc.find("dnsHosts"), "dnsHost", ipAddress="198.51.100.54")
        trial = ET.tostring(doc)

        headers = {}
        status, body = self.request("POST", trial, path="/network?confirmWithin=2", headers=headers)
        self.assertEqual(status, 200, body)
        self.assertEqual(headers["x-confirm-within"], "2")
        change = headers["x-change-id"]
        self.assertEqual(sh("hostname"), "ns-trial")
        status, body = self.request("GET", path="/network/pending")
        self.assertEqual(ET.fromstring(body).get("id"), change)
        status, body = self.request("POST", trial)
        self.assertEqual(status, 409, body)
        time.sleep(2)
        if not self.wait_for(before, 2):
            self.assertEqual(self.full_state(), before, "reverted within S+2 seconds")
        self.assertEqual(ET.fromstring(self.request("GET", path="/network/pending")[1]).attrib, {})
        self.assertEqual(self.request("POST", path="/network/confirm?id=" + change)[0], 404)

        headers = {}
        self.request("POST", trial, path="/network?confirmWithin=30", headers=headers)
        status, body = self.request("POST", path="/network/revert")
        self.assertEqual((status, ET.fromstring(body).get("state")), (200, "reverted"), body)
        self.assertEqual(self.full_state(), before)
        self.assertEqual(self.request("POST", path="/network/revert")[0], 404)

        headers = {}
        self.request("POST", trial, path="/network?confirmWithin=2", headers=headers)
        status, body = self.request("POST", path="/network/confirm?id=" + headers["x-change-id"])
        self.assertEqual((status, ET.fromstring(body).get("state")), (200, "confirmed"), body)
        time.sleep(3)
        self.assertEqual(sh("hostname"), "ns-trial")
        log = self.read(os.path.join(self.home, "logs", "velmorad.log"))
        self.assertIn("hostname ns-changed -> ns-trial", log)
        self.assertIn("reverted (not confirmed in time)", log)
        self.assertIn("confirmed: ", log)

    def test_7_a_daemon_killed_in_the_window_reverts_at_its_next_start(self):
        self.write_settings(True)
        doc = ET.fromstring(self.current())
        before = self.full_state()
        doc.set("hostname", "ns-killed")
        self.adapter(doc, "v0").set("ipAddress", "198.51.100.40")
        status, body = self.request("POST", ET.tostring(doc), path="/network?confirmWithin=60")
        self.assertEqual(status, 200, body)
        self.assertEqual(sh("hostname"), "ns-killed")
        self.stop(signal.SIGKILL)
        self.assertEqual(sh("hostname"), "ns-killed")
        self.start()
        self.assertTrue(self.wait_for(before, 2), "reverted at the next start")

    def test_8_no_lock_out_without_a_window(self):
        self.write_settings(True)
        self.stop()
        self.start(bind="0.0.0.0")
        doc = ET.fromstring(self.current())
        address = self.adapter(doc, "v0").get("ipAddress")
        before = self.full_state()
        self.adapter(doc, "v0").set("enabled", "false")
        status, body = self.request("POST", ET.tostring(doc), host=address)
        self.assertEqual(status, 400, body)
        self.assertIn("switches off adapter v0", ET.fromstring(body).get("message"))
        self.assertEqual(self.full_state(), before)
        # Also when the request came in on an address of the link the document does not show.
        net = address.rsplit(".", 1)[0]
        sh("ip", "addr", "add", net + ".77/24", "dev", "v0")
        status, body = self.request("POST", ET.tostring(doc), host=net + ".77")
        self.assertEqual(status, 400, body)
        sh("ip", "addr", "del", net + ".77/24", "dev", "v0")
        before = self.full_state()
        doc.set("defaultGateway", "")  # a link that is down holds no route
        headers = {}
        status, body = self.request("POST", ET.tostring(doc), host=address,
                                    path="/network?confirmWithin=30", headers=headers)
        self.assertEqual(status, 200, body)
        status, body = self.request("POST", host="127.0.0.1", path="/network/revert")
        self.assertEqual(status, 200, body)
        self.assertEqual(self.full_state(), before)


    def test_9_the_hosts_own_document_round_trips_without_a_change(self):
        self.write_settings(True)
        address = self.adapter(ET.fromstring(self.current()), "v0").get("ipAddress")
        net = address.rsplit(".", 1)[0]
        for command in ("ip addr add %s.11/24 dev v0" % net,
                        "ip addr add 192.0.2.50/25 dev v0",
                        "ip addr add 192.0.2.51/25 dev v0",
                        "ip route add default via %s.1 metric 100" % net,
                        "ip route add default via 192.0.2.1 metric 600",
                        "ip route add default dev v1 metric 900",
                        "ip route add 198.51.100.128/25 via %s.254 proto static metric 50" % net,
                        "ip route add 192.0.2.192/26 via 192.0.2.99 dev v0 onlink src %s" % address,
                        "ip route add default via %s.1 table 100" % net,
                        "ip -6 route add default via fe80::1 dev v0 metric 100",
                        "ip -6 route add default dev v1 metric 4096",
                        "ip -6 route add 2001:db8:2::/48 via 2001:db8::1 proto ra expires 600"):
            sh(*command.split())
        before = self.full_state()
        status, body = self.request("POST", self.current())
        self.assertEqual(status, 200, body)
        self.assertEqual(self.full_state(), before)


def main():
    global DAEMON
    DAEMON = os.path.abspath(sys.argv.pop(1))
    namespaces.run_inside(INSIDE, [DAEMON], ["--net", "--uts", "--mount"])
    unittest.main(verbosity=2)


if __name__ == "__main__":
    main()
