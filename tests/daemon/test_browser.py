#!/usr/bin/python3
"""velmorad's settings page in a real browser (Debian's Chromium, headless, driven through
its WebDriver), against a daemon that changes the network of namespaces this test makes:
sign in, change a DNS server with review and confirmation, let a second change lapse and
come back, a malformed address refused before anything is sent, and cross-site forms and
fetches from a page on another loopback address that must change nothing. A screenshot of
each panel is saved into the output folder.

    test_browser.py PATH-TO-VELMORAD OUTPUT-DIR

Runs itself again under `unshare` (network, UTS and mount namespaces), as root; without
root, Chromium, its driver or Python's selenium it says why and exits 77 (skipped).
"""
import http.client
import http.server
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import threading
import time
import unittest
import xml.etree.ElementTree as ET
from collections import Counter

import namespaces
from namespaces import sh

try:
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service
    from selenium.webdriver.common.by import By
    from selenium.webdriver.common.keys import Keys
    from selenium.webdriver.support.select import Select
except ImportError:  # main() says so and skips
    webdriver = None

DAEMON = OUTPUT = None
INSIDE = "VELMORA_BROWSER_TEST_INSIDE"
CHROMIUM, DRIVER = "/usr/bin/chromium", "/usr/bin/chromedriver"
ATTACKER = "127.0.0.2"


def read(path):
    try:
        with open(path) as f:
            return f.read()
    except FileNotFoundError:
        return ""


class Host:
    """A daemon with network.apply=true and files of its own for resolver and host name,
    listening on `bind` (127.0.0.1, or every address with remote access allowed)."""

    def __init__(self, bind="127.0.0.1"):
        self.home = tempfile.mkdtemp(prefix="velmorad-browser-")
        os.makedirs(os.path.join(self.home, "lib"))
        self.resolver = os.path.join(self.home, "resolv.conf")
        self.hostname_file = os.path.join(self.home, "hostname")
        with open(self.resolver, "w") as f:
            f.write("nameserver 192.0.2.53\n")
        with open(self.hostname_file, "w") as f:
            f.write("browser-host\n")
        with open(os.path.join(self.home, "lib", "velmorad.properties"), "w") as f:
            f.write("network.apply=true\nwriteFilter.apply=true\nnetwork.resolverPath=%s\n"
                    "network.hostnamePath=%s\nremote.allow=%s\n"
                    % (self.resolver, self.hostname_file, str(bind != "127.0.0.1").lower()))
        self.proc = subprocess.Popen([DAEMON, "--bind", bind, "--port", "0", "--home", self.home],
                                     stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        for _ in range(20):
            line = self.proc.stdout.readline()
            if "listening on http://" in line or not line:
                break
        if "listening on" not in line:
            self.proc.kill()
            raise RuntimeError("daemon did not start: %r" % line)
        self.port = int(line.strip().rstrip("/").rsplit(":", 1)[1])
        self.origin = "http://127.0.0.1:%d" % self.port
        self.token = self.find_token()

    def find_token(self):
        text = read(os.path.join(self.home, "lib", "velmorad.token")).strip()
        if not text:
            run = subprocess.run([DAEMON, "token", "--home", self.home], capture_output=True,
                                 text=True)
            text = run.stdout.strip().splitlines()[-1] if run.returncode == 0 and run.stdout else ""
        return text or "no-token-on-this-daemon"

    def stop(self):
        self.proc.terminate()
        self.proc.wait(timeout=15)
        self.proc.stdout.close()
        shutil.rmtree(self.home, ignore_errors=True)

    def request(self, method, path, headers=None):
        c = http.client.HTTPConnection("127.0.0.1", self.port, timeout=20)
        c.request(method, path, headers=headers or {})
        r = c.getresponse()
        body = r.read()
        c.close()
        return r, body

    def requests(self):
        """(method, target, status) of every request in the access log, whichever form it
        has: a combined-format logs/access.log, or access lines in the daemon's own log."""
        found = []
        for name in ("access.log", "velmorad.log"):
            for line in read(os.path.join(self.home, "logs", name)).splitlines():
                m = (re.search(r'"([A-Z]+) (\S+) HTTP/[0-9.]+" (\d{3}) ', line) or
                     re.search(r"\] ([A-Z]+) (\S+) (\d{3}) -?\d+$", line))
                if m:
                    found.append((m.group(1), m.group(2), int(m.group(3))))
        return found

    def logged_so_far(self):
        """Every request so far, once the access log holds them: a marker request is sent
        and waited for, since the log may be written in batches."""
        self.marks = getattr(self, "marks", 0) + 1
        marker = "/mark-%d" % self.marks  # answered 404, logged by its path
        self.request("GET", marker)
        end = time.time() + 15
        while time.time() < end:
            seen = self.requests()
            if any(target == marker for _, target, _ in seen):
                return seen
            time.sleep(0.1)
        raise AssertionError("the access log never showed " + marker)

    def state(self):
        """What a change could touch: resolver, host name, levels and the kernel's view."""
        return (read(self.resolver), read(self.hostname_file), sh("hostname"),
                read(os.path.join(self.home, "logs", "levels.properties")),
                sh("ip", "-j", "addr"), sh("ip", "-j", "route"))

    def asks_for_token(self):
        return self.request("POST", "/levels")[0].status == 401



class Attacker(http.server.BaseHTTPRequestHandler):
    """Serves, from another origin, a page that tries to change the daemon without its token:
    forms that submit themselves and fetches in no-cors mode."""
    target = ""

    def do_GET(self):
        t = self.target
        doc = ('<tcpIpSettings hostname="evil" isReadonly="false"><adapters/></tcpIpSettings>')
        page = """<!DOCTYPE html><html><body>
<iframe name="f1"></iframe><iframe name="f2"></iframe><iframe name="f3"></iframe>
<form id="a" target="f1" method="post" action="%(t)s/write-filter?drive=C&amp;command=2"></form>
<form id="b" target="f2" method="post" action="%(t)s/levels?name=http&amp;level=0">
  <input name="name" value="http"><input name="level" value="0"></form>
<form id="c" target="f3" method="post" enctype="text/plain" action="%(t)s/network">
  <input name='%(doc)s<x a' value='"/>'></form>
<script>
for (const id of ["a", "b", "c"]) document.getElementById(id).submit();
fetch("%(t)s/levels?name=velmorad&level=3", {method: "POST", mode: "no-cors",
  headers: {"Content-Type": "application/x-www-form-urlencoded"}, body: "name=velmorad&level=3"})
  .finally(() => fetch("%(t)s/network", {method: "POST", mode: "no-cors",
    headers: {"Content-Type": "text/plain"}, body: '%(doc)s'}))
  .finally(() => { document.title = "sent"; });
</script></body></html>""" % {"t": t, "doc": doc}
        data = page.encode()
        self.send_response(200)
        self.send_header("Content-Type", "text/html")
        self.send_header("Content-Length", str(len(data)))
        self.end_headers()
        self.wfile.write(data)

    def log_message(self, *args):
        pass


class SettingsPage(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        namespaces.make_network("browser-host")
        cls.host = Host()
        cls.profile = tempfile.mkdtemp(prefix="velmorad-chromium-")
        options = webdriver.ChromeOptions()
        options.binary_location = CHROMIUM
        for arg in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-quic",
                    "--no-first-run", "--disable-background-networking",
                    "--disable-component-update", "--disable-sync", "--disable-dev-shm-usage",
                    "--window-size=1280,1000", "--user-data-dir=" + cls.profile):
            options.add_argument(arg)
        try:
            cls.browser = webdriver.Chrome(service=Service(DRIVER), options=options)
        except Exception:
            cls.host.stop()
            raise
        cls.browser.implicitly_wait(0)
        os.makedirs(OUTPUT, exist_ok=True)

    @classmethod
    def tearDownClass(cls):
        cls.browser.quit()
        cls.host.stop()
        shutil.rmtree(cls.profile, ignore_errors=True)

    # Helpers over the page ------------------------------------------------------------
    def find(self, css):
        return self.browser.find_element(By.CSS_SELECTOR, css)

    def wait(self, what, condition, timeout=15):
        end = time.time() + timeout
        while time.time() < end:
            try:
                if condition():
                    return
            except Exception:  # noqa: BLE001 - the page is still changing
                pass
            time.sleep(0.2)
        self.fail("waited %d s for %s" % (timeout, what))

    def shot(self, panel, name=None):
        # A window as tall as the page, so that the whole panel is in the picture.
        b = self.browser
        width, height = b.get_window_size()["width"], b.get_window_size()["height"]
        b.set_window_size(width, b.execute_script("return document.body.scrollHeight") + 200)
        self.find("#" + panel).screenshot(os.path.join(OUTPUT, "panel-%s.png" % (name or panel)))
        b.set_window_size(width, height)

    def dns_input(self):
        return self.find("#host-body input[data-list='dnsHosts'][data-index='0']")

    def set_value(self, element, text):
        # As typed: select all, delete, type (each step an input event the page checks).
        element.send_keys(Keys.CONTROL, "a")
        element.send_keys(Keys.DELETE)
        element.send_keys(text)
        self.assertEqual(element.get_attribute("value"), text)

    def sign_in(self, host=None, origin=None):
        b, host = self.browser, host or self.host
        origin = origin or host.origin
        if b.current_url.startswith(origin) and self.find("#panels").is_displayed():
            return
        b.get(origin + "/")
        self.wait("the sign-in form", lambda: self.find("#token").is_displayed())
        # By keyboard alone: the form takes the focus, Enter signs in.
        self.assertEqual(b.switch_to.active_element.get_attribute("id"), "token")
        b.switch_to.active_element.send_keys(host.token + Keys.ENTER)
        self.wait("the panels", lambda: self.find("#panels").is_displayed())
        self.wait("the v0 adapter", lambda: self.find("fieldset[data-adapter='v0']"))

    def review_and_apply(self, seconds):
        self.find("#network-review").click()
        self.wait("the review", lambda: self.find("#review-dialog").is_displayed())
        rows = [[td.text for td in tr.find_elements("css selector", "td")]
                for tr in self.find("#review-table").find_elements("css selector", "tbody tr")]
        self.set_value(self.find("#review-window"), str(seconds))
        return rows

    def need_confirmation(self):
        if self.host.request("GET", "/network/pending")[0].status != 200:
            self.skipTest("this daemon has no confirmation window (GET /network/pending: 404)")

    # The tests --------------------------------------------------------------------------
    def test_1_sign_in_shows_every_panel(self):
        r, body = self.host.request("GET", "/")
        self.assertEqual(r.getheader("Content-Security-Policy"), "default-src 'self'")
        self.assertIn(b"/ui/app.js", body)
        self.assertEqual(self.host.request("GET", "/api")[0].status, 200)
        b = self.browser
        b.get(self.host.origin + "/")
        self.wait("the sign-in form", lambda: self.find("#token").is_displayed())
        self.assertIn("velmorad token", self.find("#sign-in").text)
        if self.host.asks_for_token():
            self.set_value(self.find("#token"), "0" * 64)
            self.find("#sign-in-form button").click()
            self.wait("the refusal", lambda: "refused" in self.find("#sign-in-error").text)
            self.assertFalse(self.find("#panels").is_displayed())
        self.shot("sign-in")
        self.sign_in()
        self.wait("the status", lambda: re.match(r"\d", self.find("#status-version").text))
        card = self.find("fieldset[data-adapter='v0']")
        self.assertEqual(card.find_element("css selector", "input[data-attr='ipAddress']")
                         .get_attribute("value"), "192.0.2.10")
        self.assertEqual(self.dns_input().get_attribute("value"), "192.0.2.53")
        dhcp = card.find_element("css selector", "input[type='checkbox'][disabled]")
        self.assertIn("DHCP is not available", card.find_element(
            "css selector", "#" + dhcp.get_attribute("aria-describedby")).text)
        self.wait("the write filter's answer", lambda: "not available on this system"
                  in self.find("#wf-unavailable").text)
        self.wait("the levels", lambda: self.find("select[data-name='velmorad']"))
        level = self.find("select[data-name='velmorad']")
        Select(level).select_by_value("0")
        result = "#" + level.get_attribute("aria-describedby")
        self.wait("the level saved", lambda: "saved" in self.find(result).text)
        self.assertIn("velmorad=0", read(os.path.join(self.host.home, "logs", "levels.properties")))
        self.assertEqual(sessionStorage(b, "velmorad.token"), self.host.token)
        # The page asks nothing of any other host.
        urls = b.execute_script(
            "return performance.getEntriesByType('resource').map(e => e.name)")
        self.assertTrue(all(u.startswith(self.host.origin) for u in urls), urls)
        for panel in ("status", "network", "write-filter", "levels"):
            self.shot(panel)
        b.set_window_size(390, 844)  # a phone's width: one column, nothing cut off
        self.assertLessEqual(b.execute_script("return document.documentElement.scrollWidth"),
                             390)
        self.shot("network", "network-small")
        b.set_window_size(1280, 1000)

    def test_2_malformed_address_is_marked_and_never_sent(self):
        self.sign_in()
        posts_before = [r for r in self.host.logged_so_far() if r[0] == "POST"]
        dns, mask = self.dns_input(), self.find(
            "fieldset[data-adapter='v0'] input[data-attr='subnetMask']")
        dns6 = self.find("#host-body input[data-list='ipv6DnsHosts'][data-index='0']")
        for field, text, valid in (
                (dns6, "2001:db8::1", True), (dns6, "::ffff:192.0.2.1", True),
                (dns6, "2001:db8:::1", False), (dns6, "1:2:3:4:5:6:7:8:9", False),
                (dns6, "2001:db8::g", False), (dns6, "", True),
                (mask, "255.0.255.0", False), (mask, "0.0.0.0", False), (mask, "33", False),
                (mask, "24", True), (mask, "255.255.255.0", True),
                (dns, "198.51.100.7", True), (dns, "01.2.3.4", False), (dns, "224.0.0.1", False),
                (dns, "192.0.2.300", False), (dns, "192.0.2", False), (dns, "fe80::1", False),
                (dns, "192.0.2.5x", False)):
            self.set_value(field, text)
            self.assertEqual(field.get_attribute("aria-invalid"), str(not valid).lower(), text)
        self.find("#network-review").click()
        self.wait("the page's refusal", lambda: "nothing has been sent"
                  in self.find("#network-error").text)
        self.assertFalse(self.find("#review-dialog").is_displayed())
        focused = self.browser.switch_to.active_element
        self.assertEqual(focused.get_attribute("id"), dns.get_attribute("id"),
                         "focus goes to the field to correct")
        self.assertNotEqual(focused.value_of_css_property("outline-style"), "none")
        self.assertEqual([r for r in self.host.logged_so_far() if r[0] == "POST"], posts_before)
        self.set_value(dns, "192.0.2.53")
        self.assertEqual(dns.get_attribute("aria-invalid"), "false")

    def test_3_change_reviewed_applied_and_confirmed(self):
        self.need_confirmation()
        self.sign_in()
        # A well-formed gateway no link reaches: the daemon's refusal is shown at the field.
        gateway = self.find("#host-body input[data-attr='defaultGateway']")
        self.set_value(gateway, "203.0.113.1")
        self.review_and_apply(60)
        self.find("#review-apply").click()
        self.wait("the daemon's refusal", lambda: "203.0.113.1" in self.find("#network-error").text)
        self.assertEqual(gateway.get_attribute("aria-invalid"), "true")
        self.assertFalse(self.find("#pending").is_displayed())
        self.set_value(gateway, "192.0.2.1")
        self.set_value(self.dns_input(), "198.51.100.53")
        rows = self.review_and_apply(60)
        self.assertIn(["Host", "DNS servers", "192.0.2.53", "198.51.100.53"], rows)
        self.find("#review-dialog").screenshot(os.path.join(OUTPUT, "panel-review.png"))
        self.find("#review-apply").click()
        self.wait("the countdown", lambda: self.find("#pending").is_displayed())
        self.assertLessEqual(int(self.find("#pending-seconds").text), 60)
        self.assertIn("nameserver 198.51.100.53", read(self.host.resolver))
        self.shot("network", "network-pending")
        self.find("#pending-confirm").click()
        self.wait("the confirmation", lambda: "Confirmed" in self.find("#network-result").text)
        self.assertFalse(self.find("#pending").is_displayed())
        pending = ET.fromstring(self.host.request("GET", "/network/pending")[1])
        self.assertIsNone(pending.get("id"))
        self.assertIn("nameserver 198.51.100.53", read(self.host.resolver))
        self.assertNotIn("192.0.2.53", read(self.host.resolver))

    def test_4_unconfirmed_change_comes_back_by_itself(self):
        self.need_confirmation()
        self.sign_in()
        self.browser.refresh()  # the page reads the host afresh
        self.wait("the v0 adapter", lambda: self.find("fieldset[data-adapter='v0']"))
        before = self.dns_input().get_attribute("value")
        resolver = read(self.host.resolver)
        self.set_value(self.dns_input(), "203.0.113.53")
        self.review_and_apply(3)
        self.find("#review-apply").click()
        self.wait("the countdown", lambda: self.find("#pending").is_displayed())
        self.assertIn("203.0.113.53", read(self.host.resolver))
        self.wait("the page to say the change lapsed",
                  lambda: "not confirmed in time" in self.find("#network-result").text, 20)
        self.wait("the old value in the page",
                  lambda: self.dns_input().get_attribute("value") == before)
        self.assertEqual(read(self.host.resolver), resolver)

    def test_5_cross_site_requests_change_nothing(self):
        if not self.host.asks_for_token():
            self.skipTest("this daemon takes changes without a token (POST /levels: not 401)")
        before = self.host.state()
        posts_before = Counter(r for r in self.host.logged_so_far() if r[0] == "POST")
        Attacker.target = self.host.origin
        server = http.server.ThreadingHTTPServer((ATTACKER, 0), Attacker)
        thread = threading.Thread(target=server.serve_forever, daemon=True)
        thread.start()
        try:
            self.browser.get("http://%s:%d/" % (ATTACKER, server.server_address[1]))
            self.wait("the attacking page", lambda: self.browser.title == "sent")

            def attempts():
                posts = Counter(r for r in self.host.requests() if r[0] == "POST")
                return list((posts - posts_before).elements())

            # Three forms and two fetches: /write-filter, /levels twice, /network twice.
            self.wait("the daemon to log the attempts", lambda: len(attempts()) >= 5)
        finally:
            server.shutdown()
            server.server_close()
        seen = attempts()
        self.assertEqual(sorted(target.split("?")[0] for _, target, _ in seen),
                         ["/levels", "/levels", "/network", "/network", "/write-filter"], seen)
        for _, target, status in seen:
            self.assertIn(status, (401, 403), "%s answered %d" % (target, status))
        self.assertEqual(self.host.state(), before)

    def test_6_page_names_the_new_address_to_confirm_at(self):
        self.need_confirmation()
        host = Host("0.0.0.0")
        try:
            self.sign_in(host, "http://192.0.2.10:%d" % host.port)
            v0 = "fieldset[data-adapter='v0'] input[data-attr='ipAddress']"
            self.set_value(self.find(v0), "192.0.2.11")
            self.review_and_apply(60)
            moved = "http://192.0.2.11:%d/" % host.port
            self.assertIn(moved, self.find("#review-moves").text, "the review warns first")
            self.find("#review-apply").click()
            # Its own connection went with the old address: the page names the new one.
            self.wait("the page to name the new address",
                      lambda: moved in self.find("#pending-unreachable").text, 40)
            # Only a request that waited out its time says so: the window has run since.
            self.assertLessEqual(int(self.find("#pending-seconds").text), 50)
            self.shot("network", "network-moved")
            self.sign_in(host, moved.rstrip("/"))
            self.wait("the waiting change", lambda: self.find("#pending").is_displayed())
            self.find("#pending-confirm").click()
            self.wait("the confirmation", lambda: "Confirmed" in self.find("#network-result").text)
            addresses = [a["local"] for a in json.loads(sh("ip", "-j", "addr", "show", "v0"))[0]
                         ["addr_info"] if a["family"] == "inet"]
            self.assertEqual(addresses, ["192.0.2.11"])
        finally:
            host.stop()


def sessionStorage(browser, key):  # noqa: N802 - named after the page's storage
    return browser.execute_script("return sessionStorage.getItem(arguments[0])", key)


def main():
    global DAEMON, OUTPUT
    DAEMON = os.path.abspath(sys.argv.pop(1))
    OUTPUT = os.path.abspath(sys.argv.pop(1))
    why = None
    if webdriver is None:
        why = "Python's selenium (python3-selenium) is not installed for " + sys.executable
    elif not (os.access(CHROMIUM, os.X_OK) and os.access(DRIVER, os.X_OK)):
        why = "chromium and chromium-driver are not installed"
    namespaces.run_inside(INSIDE, [DAEMON, OUTPUT], ["--net", "--uts", "--mount"], why=why)
    unittest.main(verbosity=2)


if __name__ == "__main__":
    main()
