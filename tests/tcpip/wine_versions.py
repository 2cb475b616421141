#!/usr/bin/env python3
"""Runs the tests of the real Windows back ends under older Windows versions that Wine
pretends to be: XP (adapters from the shorter addresses record, gateways from the adapter
information) and 2000 (adapters from the adapter information only).

    wine_versions.py --launcher wine path/to/velmora_tcpip_tests.exe
"""
import argparse
import os
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
from wine_version import as_version, wine  # noqa: E402


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--launcher", action="append", default=[])
    parser.add_argument("tests")
    args = parser.parse_args()
    failures = []
    for version, seen in (("winxp", "windows: xp=1 vista=0"), ("win2k", "windows: xp=0 vista=0")):
        with as_version(args.launcher, args.tests, version) as exe:
            done = wine(args.launcher, exe, "--gtest_filter=WindowsSystem.*")
        print("== %s\n%s%s" % (version, done.stdout, done.stderr))
        if seen not in done.stdout:
            failures.append("%s: the program did not see the version (%r expected)" %
                            (version, seen))
        if done.returncode != 0 or "[  PASSED  ] 3 tests" not in done.stdout:
            failures.append("%s: rc %d" % (version, done.returncode))
    for f in failures:
        print("FAIL: " + f)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
