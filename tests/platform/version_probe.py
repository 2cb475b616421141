#!/usr/bin/env python3
"""Runs the version probe under several Windows versions that Wine pretends to be.

Wine answers GetVersionExA from a per-program setting
(HKCU\\Software\\Wine\\AppDefaults\\<exe name>\\Version), so each version gets a copy of the
probe under a name of its own; other programs running in the same Wine prefix keep their
version. The copies and their settings are removed afterwards.

    version_probe.py --launcher wine path/to/velmora_version_probe.exe
"""
import argparse
import contextlib
import os
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
from wine_version import as_version, wine  # noqa: E402

# Wine's version name -> what the probe must print. The XP service-pack question reads the
# build number of the system, which Wine leaves at 7601 whatever the version.
EXPECTED = {
    "nt40": "version=4.0 win2k=0 winxp=0 winxpsp1=0 vista=0 win7=0 win8=0",
    "win2k": "version=5.0 win2k=1 winxp=0 winxpsp1=0 vista=0 win7=0 win8=0",
    "winxp": "version=5.1 win2k=1 winxp=1 winxpsp1=1 vista=0 win7=0 win8=0",
    "win2003": "version=5.2 win2k=1 winxp=1 winxpsp1=1 vista=0 win7=0 win8=0",
    "vista": "version=6.0 win2k=1 winxp=1 winxpsp1=1 vista=1 win7=0 win8=0",
    "win7": "version=6.1 win2k=1 winxp=1 winxpsp1=1 vista=1 win7=1 win8=0",
    "win8": "version=6.2 win2k=1 winxp=1 winxpsp1=1 vista=1 win7=1 win8=1",
}
# (version, build number the probe reads, expected service-pack answer): 2600 itself
# passes on XP, one less fails, and a 5.0 system fails whatever its build.
BUILDS = [("winxp", "2599", "0"), ("winxp", "2600", "1"), ("win2k", "2600", "0"),
          ("win2003", "2599", "0")]


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--launcher", action="append", default=[])
    parser.add_argument("probe")
    args = parser.parse_args()
    failures = []
    runs = [(v, [], EXPECTED[v]) for v in EXPECTED]
    for version, build, answer in BUILDS:
        expected = EXPECTED[version].replace("winxpsp1=1", "winxpsp1=" + answer)
        runs.append((version, ["--build", build], expected))
    with contextlib.ExitStack() as copies:
        exe = {v: copies.enter_context(as_version(args.launcher, args.probe, v)) for v in EXPECTED}
        for version, extra, expected in runs:
            done = wine(args.launcher, exe[version], *extra, timeout=120)
            got = done.stdout.strip()
            print("%-8s %-14s %s" % (version, " ".join(extra), got))
            if done.returncode != 0 or got != expected:
                failures.append("%s %s: expected %r, got %r (rc %d)" %
                                (version, extra, expected, got, done.returncode))
    for f in failures:
        print("FAIL: " + f)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
