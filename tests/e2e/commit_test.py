"""Commits over NETCONF: what is accepted reaches the groups and the resources, what is refused
changes nothing."""

import grp
import os
import pwd
import signal
import subprocess
import sys
import unittest
import xml.etree.ElementTree as ET

from daemon import DaemonTest
from netconf_client import DENY, NAMESPACES, PERMIT, RpcError, interface, profile


def config_text(session):
    return ET.tostring(session.get_config()).decode()


class CommitTest(DaemonTest):
    def setUp(self):
        super().setUp()
        self.running = self.daemon().start()
        self.session = self.running.session()
        self.addCleanup(self.session.socket.close)

    def test_a_commit_reaches_groups_and_resources(self):
        s = self.session
        self.assertEqual(s.groups(), {"l2": [], "l3": []})
        mac = "<source-mac-address>00:11:22:33:44:55</source-mac-address><vlan>10</vlan>"
        web = "<ip-protocol>tcp</ip-protocol><destination-port>https</destination-port>"
        s.edit(
            profile("macs", "l2", 5, (1, mac, DENY), (9, "", "<set><pcp>3</pcp></set>"))
            + profile("web", "l3", 7, (1, web, PERMIT)),
            interface("eth0", "macs", "web") + interface("eth1", "web")
        )
        groups = s.groups()
        self.assertEqual(
            groups["l2"],
            [
                {
                    "port": ["eth0"],
                    "match": {"source-mac-address": "00:11:22:33:44:55", "vlan": "10"},
                    "action": {"deny": None},
                },
                {"port": ["eth0"], "match": {}, "action": {"set-pcp": "3"}},
            ],
        )
        web_match = {"ip-protocol": "6", "destination-port": "443"}
        self.assertEqual([e["port"] for e in groups["l3"]], [["eth0"], ["eth1"]])
        self.assertEqual([e["match"] for e in groups["l3"]], [web_match, web_match])
        self.assertEqual(s.used(), {"l2": 2, "l3": 2})

        s.edit(
            "<access-list><acl-type>l2</acl-type><acl-name>macs</acl-name>"
            '<access-list-entry nc:operation="delete"><ace-priority>1</ace-priority>'
            "</access-list-entry></access-list>",
            interface("eth1", operation="delete")
        )
        self.assertEqual([e["action"] for e in s.groups()["l2"]], [{"set-pcp": "3"}])
        self.assertEqual(s.used(), {"l2": 1, "l3": 1})
        s.edit(default="replace")
        self.assertEqual(s.groups(), {"l2": [], "l3": []})
        self.assertEqual(s.used(), {"l2": 0, "l3": 0})

    def test_what_is_refused_changes_nothing_and_says_why(self):
        s = self.session
        s.edit(profile("p", "l3", 1, (1, "<vlan>5</vlan>", DENY)), interface("eth0", "p"))
        before = config_text(s), s.groups(), s.used()
        other = interface("other")  # a part that would be fine
        mask = "<source-mac-address-mask>ff:ff:ff:ff:ff:ff</source-mac-address-mask>"
        cases = [
            ("invalid-value", "vlan", profile("q", "l3", 2, (1, "<vlan>4095</vlan>", DENY)), ""),
            ("unknown-element", "bogus", "", "<bogus/>"),
            ("data-exists", "eth0", "", interface("eth0", operation="create")),
            ("data-missing", "none", "", interface("none", operation="delete")),
            ("data-missing", "eth9", "", interface("eth9", "no-such-profile")),
            ("operation-failed", "acl-name='p'", profile("p", "l3", 2), ""),
            ("operation-failed", "mask", profile("q", "l2", 2, (1, mask, DENY)), ""),
            ("invalid-value", "acl-name", profile("braces{%s}", "l3", 2), ""),
        ]
        for tag, names, profiles, others in cases:
            for error_option in ("stop-on-error", "continue-on-error", "rollback-on-error"):
                with self.subTest(profiles + others, error_option=error_option):
                    with self.assertRaises(RpcError) as refused:
                        s.edit(
                            profiles,
                            other + others,
                            options=f"<error-option>{error_option}</error-option>",
                        )
                    error = refused.exception.errors[0]
                    self.assertEqual(error["error-tag"], tag)
                    self.assertIn(names, error.get("error-path", "") + error["error-message"])
                    self.assertTrue(error["error-path"].startswith("/acl-app:config/"))
                    self.assertTrue(error["error-message"])
                    self.assertEqual((config_text(s), s.groups(), s.used()), before)

    def test_names_with_percent_signs_survive(self):
        s = self.session
        names = ["100%", "%s%n", "a%%d", "%5$s"]
        s.edit("".join(profile(n, "l2", i, (1, "", DENY)) for i, n in enumerate(names)))
        s.edit(others="".join(interface(f"if-{n}", n) for n in names))
        self.assertEqual(s.used()["l2"], len(names))
        self.assertEqual({e["port"][0] for e in s.groups()["l2"]}, {f"if-{n}" for n in names})
        bound = s.get_config().findall("acl:config/acl:access-list/acl:interface", NAMESPACES)
        self.assertEqual([b.findtext("acl:ingress", None, NAMESPACES) for b in bound], names)
        s.edit(others="".join(interface(f"if-{n}", operation="delete") for n in names))
        self.assertEqual(s.used()["l2"], 0)
        self.assertEqual(self.running.stop(), 0)

    def test_every_session_sees_the_commit_of_another(self):
        with self.running.session(base_1_1=False) as old:
            old.edit(others=interface("eth7"))
            self.assertIn("eth7", config_text(self.session))

    def test_the_daemon_outlives_broken_sessions(self):
        for garbage in (b"", b"\x00\xff" * 1000, b"<hello", b"\n#5\n<rpc"):
            with self.running.session() as s:
                s.socket.sendall(garbage)
        self.assertEqual(self.session.used(), {"l2": 0, "l3": 0})

    def test_both_signals_end_the_daemon_with_success(self):
        self.assertEqual(self.running.stop(signal.SIGINT), 0)
        self.assertEqual(self.daemon().start().stop(signal.SIGTERM), 0)


CLIENT = """
import sys
from netconf_client import RpcError, Session, interface
with Session(sys.argv[1]) as s:
    s.get_config()
    s.rpc('<get-history xmlns="urn:acl-app:history"/>')
    try:
        s.rpc('<rollback xmlns="urn:acl-app:history"><id>1</id></rollback>')
        s.edit(others=interface("from-" + sys.argv[2]))
        print("ok")
    except RpcError as refused:
        print(refused.tags[0])
"""


@unittest.skipIf(os.geteuid() != 0, "only root can become others")
class AccessTest(DaemonTest):
    def test_outsiders_read_and_the_write_group_writes(self):
        os.chmod(self.directory, 0o755)
        group = grp.getgrnam("users")
        daemon = self.daemon(netconf_socket_mode="0666", netconf_write_group=group.gr_name).start()
        nobody = pwd.getpwnam("nobody")
        for gid, answer in ((nobody.pw_gid, "access-denied"), (group.gr_gid, "ok")):
            client = subprocess.run(
                [sys.executable, "-B", "-c", CLIENT, daemon.socket, answer],
                env={"PYTHONPATH": os.path.dirname(os.path.abspath(__file__))},
                user=nobody.pw_uid, group=gid, extra_groups=[],
                capture_output=True, text=True, timeout=60,
            )
            self.assertEqual(client.stdout.strip(), answer, client.stderr)
        with daemon.session() as s:
            self.assertIn("from-ok", config_text(s))
            self.assertNotIn("from-access-denied", config_text(s))
        self.assertIn("(nobody): rollback refused", daemon.log())


if __name__ == "__main__":
    unittest.main()
