"""Runs a Windows program under Wine as if on an older Windows version.

Wine answers GetVersionExA from a per-program setting
(HKCU\\Software\\Wine\\AppDefaults\\<exe name>\\Version), so the program runs as a copy
under a name of its own; other programs in the same Wine prefix keep their version. The
copy and its setting are removed when the block ends.

    with as_version(["wine"], "path/to/x.exe", "winxp") as exe:
        wine(["wine"], exe, "--flag")
"""
import contextlib
import os
import shutil
import subprocess


def wine(launcher, *args, timeout=240):
    return subprocess.run(launcher + list(args), capture_output=True, text=True,
                          timeout=timeout, stdin=subprocess.DEVNULL)


@contextlib.contextmanager
def as_version(launcher, program, version):
    folder = os.path.dirname(os.path.abspath(program))
    stem = os.path.splitext(os.path.basename(program))[0]
    name = "%s-%d-%s.exe" % (stem, os.getpid(), version)
    key = "HKCU\\Software\\Wine\\AppDefaults\\" + name
    shutil.copy(program, os.path.join(folder, name))
    try:
        if wine(launcher, "reg", "add", key, "/v", "Version", "/d", version, "/f").returncode:
            raise RuntimeError("cannot set the Windows version of " + name)
        yield os.path.join(folder, name)
    finally:
        wine(launcher, "reg", "delete", key, "/f")
        os.remove(os.path.join(folder, name))
