"""examples/fleet, with real Ansible over real sshds: whatever fails, in the end all elements have the
new policy or all have the old one."""

import getpass
import json
import os
import pathlib
import re
import signal
import subprocess
import sys
import unittest
import xml.etree.ElementTree as ET

ROOT = pathlib.Path(__file__).parents[2]
sys.path.insert(0, str(ROOT / "tests" / "e2e"))
from daemon import BRIDGE, Daemon, DaemonTest, until  # noqa: E402
from netconf_client import ACL, BASE, DENY, interface, profile  # noqa: E402
from sshd import Sshd, make_keys  # noqa: E402

ELEMENTS = int(os.environ.get("ACL_FLEET_ELEMENTS", "8"))
EXAMPLE = ROOT / "examples" / "fleet"
# Seconds that are enough for all phases on a busy machine.
SLOW = int(os.environ.get("ACL_FLEET_TIMEOUT", "240"))
COMMITS = "urn:acl-app:commits"
POLICY = {
    "name": "guests",
    "profiles": [{"name": "guests", "type": "l3", "priority": 30, "entries": [
        {"priority": 10, "match": {"ip-protocol": "{{ protocol }}", "destination-port": "dns"},
         "action": "permit"},
        {"priority": 20, "match": {"destination-ipv4-address": "10.0.0.0/8"}, "action": "deny"},
        {"priority": 30, "match": {"source-ipv4-address": "192.0.2.1"}, "action": ["permit", "set-pcp 3"]},
    ]}],
    "bindings": [{"interfaces": "{{ access_port }}", "profiles": ["guests"]}],
    "absent": ["nobody"],
}


class Element:
    """A daemon behind an sshd, in a directory of its own."""

    def __init__(self, test, name, keys):
        self.directory = keys / name
        (self.directory / "state").mkdir(parents=True)
        self.name = name
        self.variables = {"access_port": f"port-of-{name}", "protocol": "udp"}
        test.addCleanup(self.kill)
        self.begin()
        self.sshd = Sshd(test, self.directory, keys, f"{BRIDGE} --socket {self.daemon.socket}")
        self.old = self.config()

    def begin(self, *wrapper, **settings):
        """Starts a daemon, by the command `wrapper`, which has the old policy."""
        self.daemon = Daemon(self.directory, **settings)
        self.daemon.command[:0] = wrapper
        self.daemon.start()
        with self.daemon.session() as session:
            session.edit(profile("old", "l2", 5, (1, "<vlan>7</vlan>", DENY)), interface("port", "old"))

    def kill(self):
        self.daemon.process.kill()
        self.daemon.process.wait()

    def config(self):
        with self.daemon.session() as session:
            return ET.tostring(session.get_config()).decode()

    def state(self):
        """The running commit, and whether it is on probation."""
        with self.daemon.session() as session:
            data = session.get(f'<filter><commits xmlns="{COMMITS}"><running/></commits>'
                               f'<confirmed-commit xmlns="{COMMITS}"/></filter>')
            return int(data[0][0].text), len(data) > 1


class AnsibleTest(DaemonTest):
    """Daemons, and Ansible as their controller."""

    number = ELEMENTS

    def setUp(self):
        super().setUp()
        make_keys(self.directory)
        self.elements = [Element(self, f"e{i}", self.directory) for i in range(self.number)]
        self.playbook = None
        self.output = open(self.directory / "ansible.log", "w+")
        self.addCleanup(self.output.close)

    def start(self, playbook="roll_out.yml", *arguments, forks=None, **variables):
        """Starts Ansible in a group of processes of its own."""
        hosts = {e.name: {"ansible_host": "127.0.0.1", "ansible_port": e.sshd.port,
                          **e.variables} for e in self.elements}
        inventory = self.write("inventory.json", json.dumps({"all": {"hosts": hosts, "vars": {
            "ansible_network_os": "default", "ansible_user": getpass.getuser(),
            "ansible_private_key_file": str(self.directory / "user_key"),
            "ansible_connect_timeout": 600, "ansible_command_timeout": 500,
            # The groups are only in memory, where no interface exists.
            "acl_fleet_refused_findings": ["no-frame"], **variables}}}))
        policy = self.write("policy.json", json.dumps({"acl_policy": POLICY}))
        self.output.seek(0)
        self.output.truncate()
        self.playbook = subprocess.Popen(
            ["ansible-playbook", "-i", inventory, "-f", str(forks or self.number), "-e", f"policy={policy}",
             *arguments, playbook],
            cwd=EXAMPLE, start_new_session=True, stdin=subprocess.DEVNULL, stdout=self.output,
            stderr=subprocess.STDOUT,
            env={**os.environ, "HOME": str(self.directory), "ANSIBLE_HOST_KEY_CHECKING": "False",
                 "ANSIBLE_HOME": str(self.directory / "ansible"), "LC_ALL": "C.UTF-8",
                 "PYTHONDONTWRITEBYTECODE": "1"})
        self.addCleanup(self.kill_controller)

    def text(self):
        self.output.seek(0)
        return self.output.read()

    def finish(self, status=0, says=()):
        """Waits for the playbook; its output has what matches `says`."""
        ended = self.playbook.wait(timeout=1800)
        text = self.text()
        self.assertEqual(ended, status, text)
        for pattern in [says] if isinstance(says, str) else says:
            self.assertRegex(text, pattern)
        return text

    def play(self, *arguments, status=0, says=(), **options):
        self.start(*arguments, **options)
        return self.finish(status, says)

    def kill_controller(self):
        if self.playbook.poll() is None:
            os.killpg(self.playbook.pid, signal.SIGKILL)
            self.playbook.wait()

    def wait_for(self, what):
        until(what, 1200, self.text)


class ExampleTest(AnsibleTest):
    number = 1

    def test_the_playbook(self):
        """examples/ansible.yml, and --check of what would be refused and of what would not."""
        def edit(name, *profiles):
            return (f'<config xmlns:nc="{BASE}"><config xmlns="{ACL}"><access-list>'
                    f"{interface(name, *profiles)}</access-list></config></config>")

        playbook = self.write("playbook.yml", f"""
- import_playbook: {ROOT}/examples/ansible.yml
- hosts: all
  gather_facts: false
  connection: ansible.netcommon.netconf
  tasks:
    - ansible.builtin.assert: {{that: '"no-telnet" in running.output'}}
    - ansible.netcommon.netconf_config: {{content: '{edit("bad", "none")}'}}
      check_mode: true
      ignore_errors: true
      register: refused
    - ansible.builtin.assert: {{that: 'refused is failed and "none" in refused.msg'}}
    - ansible.netcommon.netconf_config: {{content: '{edit("good")}'}}
      check_mode: true
      register: tested
    - ansible.builtin.assert: {{that: tested is changed}}
    - ansible.builtin.meta: reset_connection
""")
        with self.elements[0].daemon.session() as session:
            session.edit("", interface("spare"))
        self.play(playbook)
        names = re.findall("interface-name>([^<]+)<", self.elements[0].config())
        self.assertEqual(names, ["port", "uplink"])


class FleetTest(AnsibleTest):
    def assert_all(self, policy):
        """All elements have the policy "new", or all "old"; none is on probation."""
        for element in self.elements:
            text = element.config()
            if policy == "old":
                self.assertEqual(text, element.old, element.name)
            else:
                self.assertIn(f">port-of-{element.name}<", text, element.name)
                self.assertIn(">guests<", text)
                self.assertIn(">old<", text)
            self.assertFalse(element.state()[1], element.name)

    def test_rolls_out_once(self):
        self.play("roll_out.yml", "--check",
                  says=f"no element was changed; all would take it .{ELEMENTS} ready")
        self.assert_all("old")
        text = self.play(says=[f"every element has the policy .{ELEMENTS} new",
                               "e1: has the policy as commit 3"])
        self.assert_all("new")
        before = [e.state() for e in self.elements]
        again = self.play(says=f"every element has the policy .{ELEMENTS} same")
        self.assertEqual(again.count("changed=0"), ELEMENTS, again)
        self.assertEqual([e.state() for e in self.elements], before)
        run = re.search("roll-out (.*) of guests: every", text).group(1)
        self.play("take_back.yml", acl_fleet_run=run, says=f"taken back everywhere .{ELEMENTS} old")
        self.assert_all("old")

    def test_elements_refuse(self):
        """What the dry run finds on some elements changes none of the others."""
        locked, theirs, bad, gone, full, odd = self.elements[1:7]
        sessions = [element.daemon.session() for element in (locked, theirs, bad)]
        for session in sessions:
            self.addCleanup(session.socket.close)
        sessions[0].ok("<lock><target><candidate/></target></lock>")
        sessions[1].ok("<commit><confirmed/><persist>theirs</persist></commit>")
        sessions[2].edit(profile("guests", "l3", 31))
        gone.sshd.cut()
        full.kill()
        full.begin(filter_capacity=4)
        odd.variables["protocol"] = "icmp"
        before = [e.config() for e in self.elements]
        self.play(status=2, acl_fleet_patience=1, acl_fleet_fullest=70, says=[
            "e1: session [0-9]+ holds the lock", "e2: a commit by .* is on probation there until",
            "e3: .* cannot change from 31 to 30", "e4: Could not open socket",
            "e5: L3 0 to 3 of 4 entries: more than 70 %", "e6: findings: guests 10.*no frame can match",
            "e0: would take it: ", f"no element was changed .{ELEMENTS - 6} ready, 6 refused"])
        self.assertEqual([e.config() for e in self.elements], before)
        self.assertEqual([e.name for e in self.elements if e.state()[1]], ["e2"])

    def test_elements_refuse_the_commit(self):
        """What no dry run finds: a disk that is full, and a filter that cannot be programmed."""
        if subprocess.run(["unshare", "--mount", "--net", "nft", "list", "tables"], check=False).returncode:
            self.skipTest("no namespaces, or no packet filter there")
        disk, owned = self.elements[1:3]
        for element in disk, owned:
            element.kill()
        disk.begin("unshare", "--mount", "sh", "-c", 'mount -t tmpfs -o size=256k tmpfs "$0" && exec "$1"',
                   disk.daemon.settings["state_directory"])
        state = f"/proc/{disk.daemon.process.pid}/root{disk.daemon.settings['state_directory']}"
        with self.assertRaisesRegex(OSError, "No space"), open(f"{state}/rest", "wb") as rest:
            while rest.write(bytes(4096)):
                rest.flush()
        owned.begin("unshare", "--net", filter_backend="nftables")
        inside = ["nsenter", f"--net=/proc/{owned.daemon.process.pid}/ns/net", "nft"]
        owner = subprocess.Popen([*inside, "-i"], stdin=subprocess.PIPE, text=True)
        self.addCleanup(owner.communicate)
        print("add table netdev acl-app/port-of-e2 { flags owner; }", file=owner.stdin, flush=True)
        until(lambda: b"of-e2" in subprocess.check_output([*inside, "list", "tables"]))
        self.play(status=2, says=["e1: .*disk is full", "e2: .*not in force: port port-of-e2 .*another process",
                                  f"taken back everywhere .{ELEMENTS} old"])
        self.assert_all("old")

    def test_elements_are_lost_on_probation(self):
        dead, cut = self.elements[1:3]
        self.start(acl_fleet_timeout=SLOW)
        self.wait_for(lambda: dead.state()[1] and cut.state()[1])
        dead.kill()
        cut.sshd.cut()
        says = ": .*; if it has the policy, it goes back by itself"
        self.finish(2, ["not known of e1, e2; look there", f"{ELEMENTS - 2} old", "e1" + says, "e2" + says])
        self.assertFalse(self.elements[0].state()[1])
        dead.daemon.start()
        self.wait_for(lambda: not cut.state()[1])
        self.assert_all("old")

    def test_an_element_dies_when_others_have_kept_it(self):
        """One after the other is told to keep it, and the last one dies before it is told."""
        first, last = self.elements[0], self.elements[-1]
        self.start(forks=1, acl_fleet_timeout=SLOW, acl_fleet_margin=SLOW - 30)
        self.wait_for(lambda: last.state()[1])
        self.wait_for(lambda: not first.state()[1])
        last.kill()
        self.finish(2, f"{last.name}: .*; if it has the policy, it goes back by itself")
        last.daemon.start()
        self.assert_all("old")

    def test_the_controller_dies(self):
        first, last = self.elements[0], self.elements[-1]
        self.start(forks=1, acl_fleet_timeout=5)  # some are on probation, others are not yet
        self.wait_for(lambda: first.state()[1])
        self.kill_controller()
        self.assertFalse(last.state()[1])
        self.wait_for(lambda: not any(e.state()[1] for e in self.elements))
        self.assert_all("old")
        for element in self.elements:  # its connections last for a while
            element.sshd.cut()
            element.sshd.start()
        run = self.die_while_it_is_kept()
        last.kill()
        self.play(acl_fleet_run=run, status=2, says=f"not known of {last.name}.* {ELEMENTS - 1} old")
        last.daemon.start()
        self.assert_all("old")
        self.play(acl_fleet_run=self.die_while_it_is_kept(), says="every element has the policy")
        self.assert_all("new")

    def die_while_it_is_kept(self):
        """Has the controller die when some elements have kept the policy, and others are on probation; the
        roll-out's name."""
        first, last = self.elements[0], self.elements[-1]
        self.start(forks=1)
        self.wait_for(lambda: last.state()[1])
        self.wait_for(lambda: not first.state()[1])
        self.kill_controller()
        self.assertTrue(last.state()[1])
        with last.daemon.session() as session:
            commits = session.get(f'<filter><commits xmlns="{COMMITS}"/></filter>')
        return re.findall("roll-out ([0-9a-z]+) of", ET.tostring(commits).decode())[-1]


if __name__ == "__main__":
    unittest.main(warnings="ignore")
