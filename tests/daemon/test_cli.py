#!/usr/bin/env python3
"""velmorad as an operator meets it: the command line, the settings file, one instance per
home, reload on SIGHUP, logs that keep their limit, and the answers of /status, /levels and
/write-filter that depend on them.

    test_cli.py PATH-TO-VELMORAD VERSION
"""
import glob
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest
import urllib.error
import urllib.parse
import urllib.request
import xml.etree.ElementTree as ET

DAEMON = None
VERSION = None

# (arguments, settings file text or None for the home's default, exit code, text expected in
# the output). "{config}" in the arguments is the settings file.
CASES = [
    (["--help"], None, 0, "usage: velmorad"),
    (["--version"], None, 0, "velmorad %(version)s"),
    (["--frob"], None, 2, "unknown option --frob"),
    (["--port"], None, 2, "--port needs a value"),
    (["--port=70000"], None, 2, "--port 70000: a port is a number 0 to 65535"),
    (["--check", "--port=8081"], None, 0, "would listen on http://127.0.0.1:8081/"),
    (["--check", "--bind", "999.1.1.1"], None, 1,
     "--bind: 999.1.1.1 is not an IPv4 address (four numbers 0 to 255"),
    (["--check", "--bind", "1.2.3"], None, 1, "1.2.3 is not an IPv4 address"),
    (["--check", "--bind", " 127.0.0.1"], None, 1, "contains spaces"),
    (["--check", "--bind", "no-such-host.invalid"], None, 1,
     "the host name no-such-host.invalid does not resolve"),
    (["--check", "--bind", "::1"], None, 0, "would listen on http://[::1]:8080/"),
    (["--check", "--bind=[::1]"], None, 0, "would listen on http://[::1]:8080/"),
    (["--check", "--bind=[127.0.0.1]"], None, 1, "[127.0.0.1] is not an IPv6 address"),
    (["--check", "--config", "{config}"], "port = 18090\n", 0, "would listen on http://127.0.0.1:18090/"),
    (["--check", "--config", "{config}"], "port=70000\n", 1, ":1: port: 70000 is out of range (0 to 65535)"),
    (["--check", "--config", "{config}"], "port=abc\n", 1, ':1: port: "abc" is not a whole number'),
    (["--check", "--config", "{config}"], "maxConnections=0\n", 1, "maxConnections: 0 is out of range"),
    (["--check", "--config", "{config}"], "# x\nprot=8081\n", 1,
     ":2: unknown key prot (ignored; did you mean port?)"),
    (["--check", "--config", "{config}"], "network.apply=yes\n", 1, '"yes" is not true or false'),
    (["--check", "--config", "{config}"], "trustedProxies=192.0.2.1, proxy\n", 1,
     '"proxy" is not a numeric IPv4 or IPv6 address'),
    (["--check", "--config", "{config}"], "port=1\nport=2\n", 1,
     ":2: port is given again; this line replaces line 1"),
    (["--check", "--config", "{config}"], "port=70000\nport=8082\n", 1, "would listen on http://127.0.0.1:8082/"),
    (["--check", "--config", "{config}"], "port 8081\n", 1, '"port 8081" is not of the form key=value'),
    (["--check", "--config", "{config}/missing"], None, 1, "missing: cannot be read: No such file"),
    # Not only checked: a start with any error refuses and says where to look.
    (["--port", "0", "--bind", "999.1.1.1"], None, 78, "not started"),
    (["--port", "0", "--config", "{config}"], "port=8081\nlogBackups=-1\n", 78,
     "logBackups: -1 is out of range"),
]


def run(args, home, timeout=20, **kw):
    return subprocess.run([DAEMON] + args + ["--home", home], capture_output=True, text=True,
                          timeout=timeout, **kw)


class Home:
    def __init__(self, settings="", levels=None):
        self.path = tempfile.mkdtemp(prefix="velmorad-cli-")
        os.makedirs(os.path.join(self.path, "lib"))
        self.settings = os.path.join(self.path, "lib", "velmorad.properties")
        self.write(settings)
        if levels is not None:
            os.makedirs(os.path.join(self.path, "logs"))
            with open(os.path.join(self.path, "logs", "levels.properties"), "w") as f:
                f.write(levels)

    def write(self, settings):
        with open(self.settings, "w") as f:
            f.write(settings)

    def logs(self):
        return os.path.join(self.path, "logs")

    def log_text(self):
        out = b""
        for name in sorted(glob.glob(os.path.join(self.logs(), "velmorad*"))):
            with open(name, "rb") as f:
                out += f.read()
        return out.decode()

    def state(self):
        """Every file below the home with its bytes and modification time."""
        files = {}
        for root, _, names in os.walk(self.path):
            for n in names:
                p = os.path.join(root, n)
                with open(p, "rb") as f:
                    files[p] = (f.read(), os.stat(p).st_mtime_ns)
        return files

    def start(self, env=None):
        proc = subprocess.Popen([DAEMON, "--port", "0", "--home", self.path],
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                                env=dict(os.environ, **(env or {})))
        line = proc.stdout.readline()
        if "listening on http://127.0.0.1:" not in line:
            proc.kill()
            raise AssertionError("did not start: %r %r" % (line, proc.stderr.read()))
        proc.port = int(line.strip().rstrip("/").rsplit(":", 1)[1])
        proc.started = proc.stdout.readline()
        proc.stdout.close()
        return proc

    def wait_in_log(self, text, timeout=10):
        deadline = time.time() + timeout
        while text not in self.log_text():
            if time.time() > deadline:
                raise AssertionError("%r not logged in time:\n%s" % (text, self.log_text()))
            time.sleep(0.05)


def stop(proc):
    proc.send_signal(signal.SIGTERM)
    code = proc.wait(timeout=30)
    proc.journal = proc.stderr.read()
    proc.stderr.close()
    return code


def request(port, path, data=None, headers=None):
    req = urllib.request.Request("http://127.0.0.1:%d%s" % (port, path), data=data,
                                 headers=headers or {}, method="POST" if data is not None else "GET")
    try:
        with urllib.request.urlopen(req, timeout=10) as r:
            return r.status, r.read().decode()
    except urllib.error.HTTPError as e:
        return e.code, e.read().decode()


class CommandLineAndSettingsTest(unittest.TestCase):
    def test_each_case_answers_what_a_user_can_act_on(self):
        for args, settings, code, expected in CASES:
            home = tempfile.mkdtemp(prefix="velmorad-cli-")
            config = os.path.join(home, "given.properties")
            if settings is not None:
                with open(config, "w") as f:
                    f.write(settings)
            argv = [a.replace("{config}", config) for a in args]
            with self.subTest(args=argv, settings=settings):
                out = run(argv, home)
                text = out.stdout + out.stderr
                self.assertEqual(out.returncode, code, text)
                self.assertIn(expected % {"version": VERSION}, text)
                if code != 0:
                    self.assertFalse(os.path.exists(os.path.join(home, "logs")),
                                     "a refused start must not set up logs")
                    self.assertFalse(os.path.exists(os.path.join(config, "missing")))
            shutil.rmtree(home)

    def test_an_unreadable_settings_file_is_named_with_the_reason(self):
        home = tempfile.mkdtemp(prefix="velmorad-cli-")
        os.chmod(home, 0o755)
        config = os.path.join(home, "secret.properties")
        with open(config, "w") as f:
            f.write("port=8081\n")
        os.chmod(config, 0o000)
        # Root reads any file: the daemon then runs as a user that is not the owner.
        as_other = (lambda: (os.setgid(65534), os.setuid(65534))) if os.geteuid() == 0 else None
        out = run(["--check", "--config", config], home, preexec_fn=as_other)
        self.assertEqual(out.returncode, 1, out.stderr)
        self.assertIn(config + ": cannot be read: Permission denied", out.stderr)
        shutil.rmtree(home)


class RunningDaemonTest(unittest.TestCase):
    def new_home(self, *args, **kwargs):
        home = Home(*args, **kwargs)
        self.addCleanup(shutil.rmtree, home.path, True)
        return home

    def test_a_second_start_names_the_first_and_touches_nothing(self):
        home = self.new_home()
        first = home.start()
        try:
            home.wait_in_log("started")
            before = home.state()
            time.sleep(0.05)
            out = run(["--port", "0"], home.path)
            self.assertEqual(out.returncode, 1, out.stderr)
            self.assertIn("process %d" % first.pid, out.stderr)
            self.assertEqual(home.state(), before)
        finally:
            self.assertEqual(stop(first), 0)
        self.assertIn("velmorad stopped", home.log_text())
        # The lock went with its holder: the next start works.
        self.assertEqual(stop(home.start()), 0)

    def test_reload_takes_what_can_change_and_keeps_the_log_limit(self):
        home = self.new_home("logMaxBytes=10485760\nlogBackups=5\n", levels="velmorad=1\n")
        proc = home.start(env={"JOURNAL_STREAM": "8:1234"})
        try:
            self.assertIn("at most", proc.started)
            home.write("logMaxBytes=2048\nlogBackups=2\nmaxConnections=5\nwriteFilter.apply=true\n"
                       "netwrok.apply=true\n")
            with open(os.path.join(home.logs(), "levels.properties"), "w") as f:
                f.write("velmorad=0\n")
            proc.send_signal(signal.SIGHUP)
            home.wait_in_log("reloaded")
            log = home.log_text()
            for text in ("logBackups 5 -> 2", "logMaxBytes 10485760 -> 2048",
                         "writeFilter.apply false -> true", "level of velmorad 1 -> 0",
                         "maxConnections changed from 10000 to 5 in the file; it takes effect at "
                         "the next start", "did you mean network.apply?"):
                self.assertIn(text, log)
            home.write("logMaxBytes=2048\nlogBackups=2\nport=99999\n")
            proc.send_signal(signal.SIGHUP)
            home.wait_in_log("reload refused")
            # Many rotations within one second: each needs a name of its own, and only the
            # newest two backups stay.
            home.write("logMaxBytes=1024\nlogBackups=2\n")
            for _ in range(150):
                proc.send_signal(signal.SIGHUP)
                time.sleep(0.004)
            time.sleep(0.5)
            self.assertIsNone(proc.poll())
        finally:
            self.assertEqual(stop(proc), 0)
        backups = glob.glob(os.path.join(home.logs(), "velmorad.backup_*"))
        self.assertEqual(len(backups), 2, backups)
        for name in backups + [os.path.join(home.logs(), "velmorad.log")]:
            with open(name, "rb") as f:
                lines = f.read().splitlines(True)
            longest = max(len(line) for line in lines)
            self.assertLessEqual(sum(len(line) for line in lines), 1024 + longest, name)
        journal = proc.journal
        self.assertIn("<4>velmorad: ", journal)  # warnings reach the journal with priority
        self.assertIn("<3>velmorad: reload refused", journal)
        self.assertNotIn("started", journal)

    def test_status_levels_and_write_filter_answers(self):
        home = self.new_home()
        proc = home.start()
        try:
            code, body = request(proc.port, "/status")
            self.assertEqual(ET.fromstring(body).get("version"), VERSION)
            with open(os.path.join(home.path, "lib", "velmorad.token")) as f:
                token = f.read().strip()
            form = {"Content-Type": "application/x-www-form-urlencoded",
                    "Authorization": "Bearer " + token}
            code, body = request(proc.port, "/levels", b"name=velmorad&level=0", form)
            self.assertEqual(code, 200, body)
            levels = {e.get("name"): e.get("level") for e in ET.fromstring(body)}
            self.assertEqual(levels.get("velmorad"), "0")
            code, body = request(proc.port, "/levels", b"name=velmorda&level=2", form)
            self.assertEqual(code, 400)
            message = ET.fromstring(body).get("message")
            self.assertIn('no log is named "velmorda"; the names are ', message)
            self.assertIn("velmorad", message.split("the names are ")[1])
            # Nothing new was made by the refused name.
            code, body = request(proc.port, "/levels")
            self.assertNotIn("velmorda", body)
            code, body = request(proc.port, "/write-filter?drive=C")
            self.assertEqual((code, ET.fromstring(body).get("message")),
                             (503, "the write filter is not available on this system"))
            # A switch written with spaces is on, as --check reads it, without a restart.
            home.write("writeFilter.apply = true\n")
            code, body = request(proc.port, "/write-filter?drive=C&command=1", b"", form)
            self.assertEqual(code, 503, body)
        finally:
            self.assertEqual(stop(proc), 0)


if __name__ == "__main__":
    DAEMON, VERSION = sys.argv[1], sys.argv[2]
    unittest.main(argv=sys.argv[:1], verbosity=2)
