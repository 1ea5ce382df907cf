#!/usr/bin/env python3
"""What a bulk edit and one-entry commits cost the real daemon, over its socket.

Usage: bulk.py DAEMON [ENTRIES] [COMMITS]

Starts DAEMON on a scratch directory with the memory back end, sends ENTRIES entries (each with a
source address, a protocol, a destination port and a deny) and their binding in one <edit-config>,
and then COMMITS changes of one entry each. Prints the daemon's CPU time (proc(5), user and system)
from the message to the reply, its largest resident set, and the times from message to reply of the
commits. The last field of a line is the number.
"""

import os
import pathlib
import statistics
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
DAEMON = str(pathlib.Path(sys.argv[1]).resolve())
ENTRIES = int(sys.argv[2]) if len(sys.argv) > 2 else 65536  # and no more
COMMITS = int(sys.argv[3]) if len(sys.argv) > 3 else 200
os.environ.update(ACL_APP_DAEMON=DAEMON, ACL_APP_ACLCTL="", ACL_APP_BRIDGE="",
                  ACL_APP_YANG=str(ROOT / "yang"))
sys.path.insert(0, str(ROOT / "tests/e2e"))

from daemon import Daemon  # noqa: E402
from netconf_client import DENY, interface, profile  # noqa: E402


def cpu_seconds(pid):
    fields = pathlib.Path(f"/proc/{pid}/stat").read_text().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def megabytes(pid, name):
    for line in pathlib.Path(f"/proc/{pid}/status").read_text().splitlines():
        if line.startswith(name + ":"):
            return int(line.split()[1]) / 1024
    raise KeyError(name)


def match(i):
    return (
        f"<source-ipv4-address><no-mask><ip>10.{i >> 16}.{i >> 8 & 255}.{i & 255}</ip></no-mask>"
        f"</source-ipv4-address><ip-protocol>{(6, 17)[i % 2]}</ip-protocol>"
        f"<destination-port>{1 + i % 60000}</destination-port>"
    )


def change(entry, port):
    return (
        "<access-list><acl-type>l3</acl-type><acl-name>p0</acl-name><access-list-entry>"
        f"<ace-priority>{entry}</ace-priority><match><destination-port>{port}</destination-port>"
        "</match></access-list-entry></access-list>"
    )


def main():
    content = profile("p0", "l3", 0, *((i, match(i), DENY) for i in range(ENTRIES)))
    with tempfile.TemporaryDirectory(prefix="acl-app-bench.") as scratch:
        (pathlib.Path(scratch) / "state").mkdir()
        daemon = Daemon(scratch, log_level="info", filter_capacity=65536).start()
        pid = daemon.process.pid
        try:
            with daemon.session() as session:
                session.socket.settimeout(600)
                before, start = cpu_seconds(pid), time.monotonic()
                session.edit(content, interface("port-0", "p0"))
                print(f"bulk edit of {ENTRIES} entries, wall s: {time.monotonic() - start:.2f}")
                print(f"bulk edit of {ENTRIES} entries, cpu s: {cpu_seconds(pid) - before:.2f}")
                print(f"peak resident MB: {megabytes(pid, 'VmHWM'):.0f}")
                time.sleep(1)
                print(f"resident MB after it: {megabytes(pid, 'VmRSS'):.0f}")
                times, before = [], cpu_seconds(pid)
                for i in range(COMMITS):
                    start = time.monotonic()
                    session.edit(change(i * 7919 % min(ENTRIES, 65536), 60001 + i % 5000))
                    times.append(1000 * (time.monotonic() - start))
                    time.sleep(0.02)
                if times:
                    used = 1000 * (cpu_seconds(pid) - before) / COMMITS
                    print(f"one-entry commit, best ms: {min(times):.2f}")
                    print(f"one-entry commit, median ms: {statistics.median(times):.2f}")
                    print(f"one-entry commit, cpu ms (with what comes after the reply): {used:.2f}")
        finally:
            daemon.process.kill()
            daemon.process.wait()


main()
