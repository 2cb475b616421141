"""What the daemon tests that change a host's network share: a command's output, and
running the test again inside namespaces of its own so that only those change.

    namespaces.run_inside("VELMORA_X_TEST_INSIDE", [DAEMON], ["--net", "--uts", "--mount"])

returns at once inside the namespaces; outside it runs the same script there (as root,
with `inside` set to "1" in its environment) and exits with its code, or prints why that
cannot be done and exits 77, which CTest counts as skipped.
"""
import os
import shutil
import subprocess
import sys

MOUNT_PRIVATE = ["--propagation", "private"]


def sh(*args):
    return subprocess.run(args, check=True, capture_output=True, text=True).stdout.strip()


def make_network(hostname):
    """Inside the namespaces: loopback up, a veth pair v0/v1 up with 192.0.2.10/24 on v0, a
    default gateway 192.0.2.1 and the host name `hostname`."""
    for command in (["ip", "link", "set", "lo", "up"],
                    ["ip", "link", "add", "v0", "type", "veth", "peer", "name", "v1"],
                    ["ip", "link", "set", "v0", "up"], ["ip", "link", "set", "v1", "up"],
                    ["ip", "addr", "add", "192.0.2.10/24", "dev", "v0"],
                    ["ip", "route", "add", "default", "via", "192.0.2.1"],
                    ["hostname", hostname]):
        sh(*command)


def run_inside(inside, args, flags, tools=("unshare", "ip"),
               missing="unshare (util-linux) and ip (iproute2) are needed", why=None):
    """`args` follow the script's path on the new command line (the test's own arguments
    are added after them); `why`, when given, is a reason of the caller's to skip."""
    if os.environ.get(inside) == "1":
        return
    if why is None:
        if os.geteuid() != 0:
            why = "new network namespaces need root"
        elif not all(shutil.which(tool) for tool in tools):
            why = missing
        elif subprocess.run(["unshare"] + flags + ["true"], capture_output=True).returncode != 0:
            why = "unshare is refused here"
    if why:
        print("skipped: " + why)
        sys.exit(77)
    if "--mount" in flags:
        flags = flags + MOUNT_PRIVATE
    env = dict(os.environ, **{inside: "1"})
    script = os.path.abspath(sys.modules["__main__"].__file__)
    sys.exit(subprocess.run(["unshare"] + flags + [sys.executable, script] + args +
                            sys.argv[1:], env=env).returncode)
