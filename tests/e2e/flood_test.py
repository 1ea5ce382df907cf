"""Commits under a flood of frames: whatever both the old and the new configuration drop never comes
through, and what both let through always does.

ACL_FLOOD_COMMITS (20) commits of each kind, with ACL_FLOOD_ENTRIES (50) entries that match nothing
in front of what moves; ACL_FLOOD_BACKENDS names the back ends.
"""

import os
import signal
import subprocess
import time
import unittest

import flood
import network_namespace
from daemon import DaemonTest
from flood import MOVER_A, MOVER_B, VICTIM, WITNESS
from netconf_client import DENY, interface, profile

COMMITS = int(os.environ.get("ACL_FLOOD_COMMITS", 20))
ROUNDS = max(1, COMMITS // 20)  # of each way in which an interface appears
ENTRIES = int(os.environ.get("ACL_FLOOD_ENTRIES", 50))
BACKENDS = os.environ.get("ACL_FLOOD_BACKENDS", "nftables bpf").split()
LAST = 65535  # of the entry that moves, behind all others
MATCH = {"l2": "<source-mac-address>02:00:00:00:00:01</source-mac-address>",
         "l3": "<destination-ipv4-address><mask><ip>10.0.0.0/30</ip></mask>"
               "</destination-ipv4-address>"}
PRIORITY = {"first-l2": 1, "first-l3": 2, "second-l3": 3, "moved-l3": 4}


def setUpModule():
    network_namespace.enter()
    if subprocess.run(["nft", "list", "tables"]).returncode:
        raise unittest.SkipTest("no packet filter in a network namespace")
    flood.run("ip link set lo up; echo 1 >/proc/sys/net/ipv6/conf/default/disable_ipv6")


def holds_nothing(kind, count):
    """Entries that no frame of the flood matches."""
    for i in range(count):
        mac = ":".join(f"{byte:02x}" for byte in (6, 0, 0, i >> 16, i >> 8 & 255, i & 255))
        ip = f"172.{16 + (i >> 16)}.{i >> 8 & 255}.{i & 255}"
        yield (i, f"<source-mac-address>{mac}</source-mac-address>" if kind == "l2" else
               f"<source-ipv4-address><no-mask><ip>{ip}</ip></no-mask></source-ipv4-address>", DENY)


def denying(place, there):
    """What puts the deny at a place or takes it away, profiles and interfaces of an edit: an entry
    of a profile, or a port's binding to a profile that holds one."""
    operation = "merge" if there else "delete"
    if place.startswith("port"):
        return "", (f"<interface><interface-name>{place}</interface-name>"
                    f'<ingress nc:operation="{operation}">moved-l3</ingress></interface>')
    kind = place[-2:]
    content = f"<match>{MATCH[kind]}</match><action>{DENY}</action>" if there else ""
    return (f"<access-list><acl-type>{kind}</acl-type><acl-name>{place}</acl-name>"
            f'<access-list-entry nc:operation="{operation}"><ace-priority>{LAST}</ace-priority>'
            f"{content}</access-list-entry></access-list>"), ""


# What moves from where to where and back, and the frames that look: of those that pass both ports
# only a move in their own direction must let none through.
MOVES = {
    "between the groups": (("first-l2", VICTIM), ("first-l3", VICTIM)),
    "between profiles": (("first-l3", VICTIM), ("second-l3", VICTIM)),
    "between ports": (("port0", MOVER_B), ("port1", MOVER_A)),
}
# How an interface gets a name that has a filter.
SPARE = "ip link add spare type veth peer name peer0; ip link set peer0 up; ip link set spare up"
APPEARANCES = {
    "created": ["ip link add port0 type veth peer name peer0",
                "ip link set peer0 up; ip link set port0 up"],
    "renamed while down": [SPARE, "ip link set spare down; ip link set spare name port0",
                           "ip link set port0 up"],
    "renamed while up": [SPARE, "ip link set spare name port0"],
}


class FloodTest(DaemonTest):
    def prepare(self, backend):
        flood.add_ports("port0", "port1")
        flood.run("nft -f -", input=flood.FORWARD.encode())
        self.addCleanup(flood.run, "nft flush ruleset; ip link del peer0; ip link del peer1")
        state = self.directory / f"state-{backend}"
        state.mkdir()
        daemon = self.daemon(filter_backend=backend, state_directory=state).start()
        self.addCleanup(self.aclctl, daemon, "flush")
        self.addCleanup(daemon.stop)
        self.session = self.enterContext(daemon.session())
        deny = (LAST, MATCH["l3"], DENY)
        profiles = [profile(name, name[-2:], priority, *holds_nothing(name[-2:], ENTRIES),
                            *([deny] if name == "moved-l3" else []))
                    for name, priority in PRIORITY.items()]
        self.session.edit("".join(profiles), interface("port0", "first-l2", "first-l3", "second-l3")
                          + interface("port1", "first-l3"))
        self.flood = flood.Flood()
        self.addCleanup(self.flood.close)
        return daemon

    def edit(self, *parts):
        self.session.edit(*("".join(part[i] for part in parts) for i in range(2)))

    def count(self, work):
        """Does the work; frames of each kind that arrived and that passed until then, all settled."""
        before = self.flood.arrived(), self.flood.passed()
        work()
        self.flood.send(None)
        return ({kind: n - old[kind] for kind, n in new.items()}
                for old, new in zip(before, (self.flood.arrived(), self.flood.passed())))

    def move(self, name, places):
        """Moves the deny to and fro under a flood."""
        for _, kind in places:  # nothing else stops them
            arrived, passed = self.count(lambda kind=kind: self.flood.send_some(kind))
            self.assertGreater(passed[kind], 0)
        self.edit(denying(places[0][0], True))

        def commit():
            for i in range(1, COMMITS + 1):
                (new, kind), (old, _) = places[i % 2], places[1 - i % 2]
                self.flood.send(kind)
                self.edit(denying(old, False), denying(new, True))

        start = time.monotonic()
        arrived, passed = self.count(commit)
        self.edit(denying(places[COMMITS % 2][0], False))
        leaked = sum(count for kind, count in passed.items() if kind != WITNESS)
        lost = arrived[WITNESS] - passed[WITNESS]
        print(f"{name}: {COMMITS} commits in {time.monotonic() - start:.1f} s, "
              f"{sum(arrived.values())} frames, {leaked} leaked, {lost} lost")
        self.assertGreater(arrived[WITNESS], COMMITS)
        self.assertEqual((leaked, lost), (0, 0))

    def backends(self):
        for backend in BACKENDS:
            if backend == "nftables" or network_namespace.has_tables():
                yield backend
                continue
            with self.subTest(backend=backend):
                self.skipTest("no BPF file system, or in a user namespace")

    def test_moves_of_a_deny(self):
        for backend in self.backends():
            self.prepare(backend)
            for name, places in MOVES.items():
                with self.subTest(name, backend=backend):
                    self.move(f"{backend}, {name}", places)
            self.doCleanups()
            self.setUp()

    def test_interfaces_that_appear(self):
        for backend in self.backends():
            daemon = self.prepare(backend)
            self.edit(denying("first-l3", True))
            by_name = "follow an interface's name" not in daemon.log()
            for alive in (True, False):
                for how, commands in APPEARANCES.items():
                    with self.subTest(how, backend=backend, alive=alive):
                        if not alive:
                            daemon.stop(signal.SIGKILL)
                        self.appear(f"{backend}, {how}, daemon {'alive' if alive else 'dead'}",
                                    commands, leaks_nothing=by_name and "while up" not in how)
                    if not alive:
                        daemon.start()
            self.doCleanups()
            self.setUp()

    def appear(self, name, commands, leaks_nothing):
        """Takes the interface away and has one come in its place, into which frames flow."""
        leaked = []
        for _ in range(ROUNDS):
            flood.run("ip link del peer0")
            before = self.flood.passed()[VICTIM]
            self.flood.send(VICTIM)
            for command in commands:
                if subprocess.run(command, shell=True).returncode:
                    self.assertIn("while up", name)
                    return print(f"{name}: not on this kernel")
                if "set port0 up" in command or "set spare up" in command:
                    self.flood.send_some(VICTIM)
            time.sleep(0.05)
            self.flood.send(None)
            leaked.append(self.flood.passed()[VICTIM] - before)
        print(f"{name}: {sorted(leaked)} leaked")
        if leaks_nothing:
            self.assertEqual(max(leaked), 0)


if __name__ == "__main__":
    unittest.main()
