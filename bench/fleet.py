#!/usr/bin/env python3
"""What one roll-out by examples/fleet costs the controller, over real sshds on loopback.

Usage: fleet.py BUILD [ELEMENTS]...

Starts ELEMENTS daemons of the build directory BUILD (8, if no number is given), each behind an sshd,
and rolls the policy of tests/fleet/fleet_test.py out to them: first where it is new, then where it
is there already. Prints seconds, CPU seconds of Ansible with all its processes, the most memory that
these had together (PSS), and connections and bytes per element. Everything runs on this machine, so
the seconds are those of controller and elements together.
"""

import asyncio
import os
import pathlib
import resource
import sys
import threading
import time
import unittest

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILD = pathlib.Path(sys.argv[1]).resolve()
os.environ.update(ACL_APP_DAEMON=str(BUILD / "acl-app"), ACL_APP_ACLCTL="", ACL_APP_YANG=str(ROOT / "yang"),
                  ACL_APP_BRIDGE=str(BUILD / "tools/netconf_bridge/acl-app-netconf"))
sys.path.insert(0, str(ROOT / "tests/fleet"))

from fleet_test import AnsibleTest  # noqa: E402


class Counter:
    """Passes connections on and counts them, and their bytes."""

    def __init__(self):
        self.connections = self.bytes = 0
        self.loop = asyncio.new_event_loop()
        threading.Thread(target=self.loop.run_forever, daemon=True).start()

    def before(self, port):
        """The port of a passage to `port`."""
        async def serve():
            server = await asyncio.start_server(accept, "127.0.0.1", 0)
            return server.sockets[0].getsockname()[1]

        async def accept(reader, writer):
            self.connections += 1
            there, back = await asyncio.open_connection("127.0.0.1", port)
            await asyncio.gather(self.copy(reader, back), self.copy(there, writer))

        return asyncio.run_coroutine_threadsafe(serve(), self.loop).result()

    async def copy(self, reader, writer):
        try:
            while data := await reader.read(1 << 16):
                self.bytes += len(data)
                writer.write(data)
        except ConnectionError:
            pass
        writer.close()


def processes(name):
    """Of the processes that have `name` in their command line: CPU seconds and parents by number,
    and megabytes of all together."""
    seconds, parents, total = {}, {}, 0
    for process in pathlib.Path("/proc").glob("[0-9]*"):
        try:
            if name not in (process / "cmdline").read_text():
                continue
            fields = (process / "stat").read_text().rsplit(")", 1)[1].split()
            seconds[process.name] = (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")
            parents[process.name] = fields[1]
            total += int((process / "smaps_rollup").read_text().split("Pss:")[1].split()[0]) / 1024
        except (OSError, IndexError):
            pass
    return seconds, parents, total


class Bench(AnsibleTest):
    def measure(self, what, counter):
        counter.connections = counter.bytes = most = 0
        begin, apart = time.monotonic(), {}
        before = sum(resource.getrusage(resource.RUSAGE_CHILDREN)[:2])
        self.start(acl_fleet_timeout=1800)
        while self.playbook.poll() is None:
            seconds, parents, megabytes = processes("/bin/ansible")
            most = max(most, megabytes)
            # Those that keep the connections are nobody's children, and so not waited for.
            apart.update({pid: seconds[pid] for pid in seconds if parents[pid] not in seconds
                          and pid != str(self.playbook.pid)})
            time.sleep(1)
        taken = time.monotonic() - begin
        self.finish(says="every element has the policy")
        spent = sum(resource.getrusage(resource.RUSAGE_CHILDREN)[:2]) - before + sum(apart.values())
        print(f"{self.number:3} elements, {what:8} {taken:6.1f} s {spent:7.1f} CPU s {most:6.0f} MB"
              f" {counter.connections / self.number:4.1f} connections"
              f" {counter.bytes / self.number / 1000:6.1f} kB", flush=True)

    def runTest(self):
        counter = Counter()
        for element in self.elements:
            element.sshd.port = counter.before(element.sshd.port)
        self.measure("new", counter)
        self.measure("the same", counter)


for number in map(int, sys.argv[2:] or ["8"]):
    bench = Bench()
    bench.number = number
    if not unittest.TextTestRunner(verbosity=0).run(bench).wasSuccessful():
        sys.exit(1)
