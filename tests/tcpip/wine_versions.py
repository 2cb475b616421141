#!/usr/bin/env python3
"""Runs the tests of the real Windows back ends under older Windows versions that Wine
pretends to be: XP (adapters from the shorter addresses record, gateways from the adapter
information) and 2000 (adapters from the adapter information only).

Wine answers the version from a per-program setting
(HKCU\\Software\\Wine\\AppDefaults\\<exe name>\\Version), so each version runs a copy of the
test program under a name of its own; the copies and their settings are removed afterwards.

    wine_versions.py --launcher wine path/to/velmora_tcpip_tests.exe
"""
import argparse
import os
import shutil
import subprocess
import sys


def wine(launcher, *args):
    return subprocess.run(launcher + list(args), capture_output=True, text=True, timeout=240,
                          stdin=subprocess.DEVNULL)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--launcher", action="append", default=[])
    parser.add_argument("tests")
    args = parser.parse_args()
    folder = os.path.dirname(os.path.abspath(args.tests))
    failures = []
    for version, seen in (("winxp", "windows: xp=1 vista=0"), ("win2k", "windows: xp=0 vista=0")):
        name = "tcpip%d-%s.exe" % (os.getpid(), version)
        key = "HKCU\\Software\\Wine\\AppDefaults\\" + name
        shutil.copy(args.tests, os.path.join(folder, name))
        try:
            if wine(args.launcher, "reg", "add", key, "/v", "Version", "/d", version,
                    "/f").returncode != 0:
                failures.append("cannot set the version of " + name)
                continue
            done = wine(args.launcher, os.path.join(folder, name), "--gtest_filter=WindowsSystem.*")
            print("== %s\n%s%s" % (version, done.stdout, done.stderr))
            if seen not in done.stdout:
                failures.append("%s: the program did not see the version (%r expected)" %
                                (version, seen))
            if done.returncode != 0 or "[  PASSED  ] 3 tests" not in done.stdout:
                failures.append("%s: rc %d" % (version, done.returncode))
        finally:
            wine(args.launcher, "reg", "delete", key, "/f")
            os.remove(os.path.join(folder, name))
    for f in failures:
        print("FAIL: " + f)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
