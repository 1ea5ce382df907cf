"""What the daemon holds never depends on how it came to be: random commits, kills under load and a full
disk, each followed by a comparison with a fresh load of the same configuration."""

import os
import random
import shutil
import subprocess
import threading
import time
import unittest
import xml.etree.ElementTree as ET

from daemon import Daemon, DaemonTest
from netconf_client import ACL, DENY, FILTERS, NAMESPACES, RpcError, interface, profile

# Each test goes on for that long; and kills at least as often as ACL_KILL_ROUNDS says.
SECONDS = 3
KILL_ROUNDS = int(os.environ.get("ACL_KILL_ROUNDS", "3"))
PRIORITIES = {"a": 1, "b": 5, "c": 6, "d": 7}


def content(element):
    """An element without the order of its children, which nothing may rely on."""
    children = sorted((content(child) for child in element), key=repr)
    return element.tag, (element.text or "").strip(), children


def config_of(session):
    return "".join(ET.tostring(e, encoding="unicode") for e in session.get_config())


def state_of(session):
    """Groups in the order of evaluation, the status in any."""
    groups = session.get(f'<filter type="subtree"><filters xmlns="{FILTERS}"/></filter>')
    status = session.get(f'<filter><status xmlns="{ACL}"><acl-resources/></status></filter>')
    return ET.tostring(groups), content(status)


class RandomEdits:
    """Random profiles and interfaces as XML, with every operation, many of them refused."""

    MATCHES = {
        "destination-mac-address": ["02:00:00:00:00:01", "ff:ff:ff:ff:ff:ff"],
        "destination-mac-address-mask": ["ff:ff:ff:00:00:00"],
        "vlan": [1, 7, 4094],
        "ethertype": ["lldp", "88b5"],
        "pcp": [0, 7],
        "dscp": ["ef", 12],
        "tos": [0, 255],
        "ip-protocol": ["tcp", 132],
        "destination-port": ["https", 8080],
    }

    def __init__(self, seed):
        self.random = random.Random(seed)

    def operation(self, percent):
        if self.random.random() * 100 > percent:
            return ""
        operations = ["merge", "replace", "create", "delete", "remove", "remove"]
        return f' nc:operation="{self.random.choice(operations)}"'

    def leaf(self, name, value=""):
        return f"<{name}{self.operation(12)}>{value}</{name}>"

    def some(self, names, most):
        return self.random.sample(names, self.random.randint(0, most))

    def entry(self, priority):
        names = self.some(sorted(self.MATCHES), 4)
        match = "".join(self.leaf(n, self.random.choice(self.MATCHES[n])) for n in names)
        if self.random.random() < 0.4:
            form, ip = self.random.choice([("mask", "10.1.2.3/8"), ("no-mask", "10.0.0.1")])
            match += (
                f"<source-ipv4-address{self.operation(8)}><{form}>{self.leaf('ip', ip)}</{form}>"
                "</source-ipv4-address>"
            )
        action = f"<packet-handling>{self.leaf(self.random.choice(['deny', 'permit']))}</packet-handling>"
        if self.random.random() < 0.3:
            action += f"<set>{self.leaf('pcp', self.random.choice([0, 3, 7]))}</set>"
        return (
            f"<access-list-entry{self.operation(20)}><ace-priority>{priority}</ace-priority>"
            f"<match{self.operation(8)}>{match}</match><action{self.operation(8)}>{action}</action>"
            "</access-list-entry>"
        )

    def profile(self, name):
        kind, other = self.random.sample(["l2", "l3"], 2)
        entries = "".join(self.entry(p) for p in self.some([0, 1, 2, 65535], 4))
        text = profile(name, kind, PRIORITIES[name]).replace("</access-list>", entries + "</access-list>")
        if self.random.random() < 0.15:  # the other type takes the name over
            return (
                f'<access-list nc:operation="remove"><acl-type>{other}</acl-type><acl-name>{name}'
                "</acl-name></access-list>" + text
            )
        return text.replace("<access-list>", f"<access-list{self.operation(25)}>", 1)

    def interface(self, name):
        bound = "".join(f"<ingress{self.operation(40)}>{p}</ingress>" for p in self.some("abcd", 3))
        return f"<interface{self.operation(20)}><interface-name>{name}</interface-name>{bound}</interface>"

    def make(self):
        profiles = "".join(self.profile(n) for n in self.some("abcd", 3))
        return profiles, "".join(self.interface(n) for n in self.some(["e0", "e1", "e2"], 2))


class DurabilityTest(DaemonTest):
    def assert_as_fresh(self, session, context):
        """Compares with a daemon that has loaded the same configuration from a file."""
        config = config_of(session)
        directory = self.directory / "fresh"
        shutil.rmtree(directory, ignore_errors=True)
        (directory / "state").mkdir(parents=True)
        startup = self.write("startup.xml", config or f'<config xmlns="{ACL}"/>')
        fresh = Daemon(directory, startup_file=startup).start()
        try:
            with fresh.session() as other:
                self.assertEqual(config_of(other), config, context)
                self.assertEqual(state_of(other), state_of(session), f"{context}\n{config}")
        finally:
            fresh.stop()

    def test_random_commits_leave_what_a_fresh_load_and_a_restart_give(self):
        seed = random.randrange(1 << 30)
        edits = RandomEdits(seed)
        daemon = self.daemon().start()
        end, accepted, checks = time.monotonic() + SECONDS, 0, 0
        while time.monotonic() < end:
            with daemon.session() as session:
                for _ in range(60):
                    try:
                        session.edit(*edits.make(), default=edits.random.choice(["merge"] * 9 + ["none"]))
                        accepted += 1
                    except RpcError:
                        pass
                self.assert_as_fresh(session, f"seed {seed}")
                before = content(session.get_config()), state_of(session)
            self.assertEqual(daemon.stop(), 0)
            daemon = self.daemon().start()
            with daemon.session() as session:
                after = content(session.get_config()), state_of(session)
                self.assertEqual(after, before, f"seed {seed}")
            checks += 1
        self.assertGreater(accepted, checks * 5)

    def commit_until_killed(self, daemon, count, acknowledged):
        """Commits the states count, count + 1, ... and notes the last that was acknowledged."""
        try:
            with daemon.session() as session:
                while True:
                    count += 1
                    session.edit(*self.state(count))
                    acknowledged.append(count)
        except (OSError, ET.ParseError):
            pass

    @staticmethod
    def state(count):
        """The edit to state `count`: one number in many places, a profile in every other state."""
        vlan = f"<vlan>{count % 4000 + 1}</vlan>"
        edit = profile("p", "l3", 1, *((n, vlan, DENY) for n in range(3)))
        if count % 2:
            return (
                edit + profile("q", "l2", 2, (1, vlan, DENY)),
                interface("e0", "p", "q") + interface("e1", "q"),
            )
        gone = "<acl-type>l2</acl-type><acl-name>q</acl-name>"
        return (
            edit + f'<access-list nc:operation="remove">{gone}</access-list>',
            interface("e0", "p").replace("</interface>", '<ingress nc:operation="remove">q</ingress></interface>')
            + interface("e1", operation="remove"),
        )

    def whole_state(self, session):
        """The number of the state that is there, which must be there in all its parts."""
        root = session.get_config()
        vlans = {v.text for v in root.iter(f"{{{ACL}}}vlan")}
        self.assertEqual(len(vlans), 1, "one commit must be there as a whole")
        bound = sorted(b.text for b in root.findall(".//acl:interface/acl:ingress", NAMESPACES))
        number = int(vlans.pop()) - 1
        self.assertEqual(bound, ["p", "q", "q"] if number % 2 else ["p"])
        return number

    def test_a_killed_daemon_loses_nothing_acknowledged(self):
        seed = random.randrange(1 << 30)
        chance = random.Random(seed)
        end, rounds, count = time.monotonic() + SECONDS, 0, 0
        while rounds < KILL_ROUNDS or time.monotonic() < end:
            daemon = self.daemon().start()
            acknowledged = []
            client = threading.Thread(
                target=self.commit_until_killed, args=(daemon, count, acknowledged)
            )
            client.start()
            while not acknowledged:
                time.sleep(0.001)
            time.sleep(chance.random() * 0.03)
            daemon.process.kill()
            daemon.wait()
            client.join()
            daemon = self.daemon().start()
            with daemon.session() as session:
                found = self.whole_state(session)
                last = acknowledged[-1]
                self.assertIn(found, (last % 4000, (last + 1) % 4000), f"seed {seed} round {rounds}")
                count = last if found == last % 4000 else last + 1
                self.assert_as_fresh(session, f"seed {seed} round {rounds}")
            daemon.stop()
            rounds += 1
        if KILL_ROUNDS:
            print(f"{rounds} kills, {count} commits", flush=True)

    def test_a_full_disk_refuses_commits_and_nothing_else(self):
        daemon = self.daemon()
        state = daemon.settings["state_directory"]
        mount = 'mount -t tmpfs -o size=256k tmpfs "$1" && exec "$2"'
        own_user = [] if os.geteuid() == 0 else ["--user", "--map-root-user"]
        own_mounts = ["unshare", *own_user, "--mount", "sh", "-c"]
        if subprocess.run([*own_mounts, mount, "sh", state, "true"], capture_output=True).returncode:
            self.skipTest("no mount namespace to be had")
        daemon.command = [*own_mounts, mount, "sh", state, *daemon.command]
        daemon.start()
        ballast = f"/proc/{daemon.process.pid}/root{state}/ballast"
        with daemon.session() as session:
            session.edit(*self.state(0))
            with self.assertRaises(RpcError) as refused:
                for count in range(1, 100):
                    with self.assertRaises(OSError), open(ballast, "ab", buffering=0) as file:
                        while file.write(bytes(4096)):
                            pass
                    session.edit(*self.state(count))
            error = refused.exception.errors[0]
            self.assertEqual(error["error-tag"], "resource-denied")
            self.assertRegex(error["error-message"], "disk is full; nothing was changed")
            self.assertEqual(self.whole_state(session), count - 1)
            os.unlink(ballast)
            session.edit(*self.state(count))
            self.assertEqual(self.whole_state(session), count)
            self.assert_as_fresh(session, "after the disk was full")


if __name__ == "__main__":
    unittest.main()
