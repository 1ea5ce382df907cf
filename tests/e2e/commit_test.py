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
from netconf_client import ACL, DENY, NAMESPACES, PERMIT, RpcError, interface, profile


USER = pwd.getpwuid(os.geteuid()).pw_name
COMMITS = "urn:acl-app:commits"
ONE_MORE = (
    f'<config xmlns="{ACL}"><access-list><interface><interface-name>eth1</interface-name>'
    "<ingress>p</ingress></interface></access-list></config>"
)
OTHER = ONE_MORE.replace("eth1", "eth2").replace("<ingress>p</ingress>", "")


def commits(session):
    """The state of the commits: leaves by name, and the list "commit" of such dictionaries."""
    top = session.get(f'<filter><commits xmlns="{COMMITS}"/></filter>')[0]
    state = {child.tag.split("}")[1]: child.text for child in top}
    entries = top.findall("c:commit", {"c": COMMITS})
    state["commit"] = [{leaf.tag.split("}")[1]: leaf.text for leaf in entry} for entry in entries]
    return state


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
        self.assertEqual([b.findtext("acl:ingress", None, NAMESPACES) for b in bound], sorted(names))
        s.edit(others="".join(interface(f"if-{n}", operation="delete") for n in names))
        self.assertEqual(s.used()["l2"], 0)
        self.assertEqual(self.running.stop(), 0)

    def test_what_is_not_confirmed_does_not_survive_the_daemon(self):
        confirmed = "<commit><confirmed/><persist>t</persist></commit>"
        self.session.edit(others=interface("before"))
        for end in (signal.SIGKILL, signal.SIGTERM):
            self.session.edit(others=interface("unconfirmed"), target="candidate")
            self.session.ok(confirmed)
            self.session.edit(others=interface("meanwhile"))
            self.running.stop(end)
            self.running = self.daemon(history_commits=1).start()
            self.session = self.running.session()
            self.addCleanup(self.session.socket.close)
            self.assertIn("before", config_text(self.session))
            self.assertNotRegex(config_text(self.session), "unconfirmed|meanwhile")
            last = self.aclctl(self.running, "history", "-n", 1).stdout.splitlines()[-1]
            self.assertRegex(last, rf" {USER} .*: the daemon ended before it was confirmed$")
            with self.assertRaises(RpcError):  # nothing is pending
                self.session.ok("<commit><persist-id>t</persist-id></commit>")
        self.session.edit(others=interface("confirmed"), target="candidate")
        self.session.ok(confirmed)
        self.session.ok("<commit><persist-id>t</persist-id></commit>")
        self.running.stop(signal.SIGKILL)
        with self.daemon().start().session() as s:
            self.assertIn("confirmed", config_text(s))

    def test_what_became_of_a_commit_can_be_read(self):
        s = self.session
        s.edit(profile("p", "l3", 1, (1, "", DENY), (2, "", DENY)), interface("eth0", "p"))
        applied = self.aclctl(self.running, "apply", self.write("c.xml", ONE_MORE))
        self.assertEqual(applied.stdout, "commit 3 applied: L2 0 entries, L3 4 entries\n")
        again = self.aclctl(self.running, "apply", self.directory / "c.xml")
        self.assertEqual((again.returncode, again.stdout), (0, "nothing to change\n"))
        s.edit(profile("q", "l2", 1), target="candidate")  # bound nowhere
        s.ok("<commit/>")
        state = commits(s)
        self.assertEqual((state["running"], state["applied"]), ("4", "4"))
        last = state["commit"][-1]
        self.assertEqual((last["id"], last["user"], last["result"]), ("4", USER, "applied"))
        self.assertEqual(last["session-id"], str(s.session_id))
        self.assertRegex(
            self.running.log(),
            rf"info +commit 4 by {USER} \(session {s.session_id}\): applied in [0-9.]+ ms; "
            "L2 0 entries, L3 4 entries\n",
        )
        # With less room than before, what was accepted is in force all the same, and can shrink.
        self.running.stop()
        self.running = self.daemon(filter_capacity=3).start()
        self.assertRegex(self.running.log(), "needs 4 entries in the l3 group, which has room for 3")
        result = self.aclctl(self.running, "apply", self.write("d.xml", OTHER))
        self.assertEqual(result.stdout, "commit 5 applied: L2 0 entries, L3 4 entries\n")
        with self.running.session() as s:
            with self.assertRaisesRegex(RpcError, "room for 3"):
                s.edit(others=interface("eth2", "p"))
            s.edit(others=interface("eth1", operation="delete"))
            self.assertEqual(commits(s)["applied"], "6")
            self.assertEqual(s.used(), {"l2": 0, "l3": 2})

    def test_what_the_kernel_refuses_leaves_the_filters_as_they_were(self):
        # Where it has no namespace to try that in, the daemon refuses entries that set the PCP.
        enter = ["unshare", "--user", "--map-root-user", "--net", "sh", "-ec"]
        limit = "for l in user net; do echo 0 >/proc/sys/user/max_${l}_namespaces; done\n"
        if subprocess.run([*enter, limit + "nft list tables"], capture_output=True).returncode:
            self.skipTest("no user namespace with a packet filter of its own")
        self.running.stop()
        self.running = self.daemon(filter_backend="kernel")
        self.running.command = [*enter, limit + 'exec "$0"', *self.running.command]
        with self.running.start().session() as s:
            s.edit(profile("p", "l2", 1, (1, "<vlan>5</vlan>", DENY)), interface("eth0", "p"))
            before = s.groups()
            s.edit(profile("p", "l2", 1, (2, "<vlan>6</vlan>", "<set><pcp>3</pcp></set>")))
            state = commits(s)
            self.assertEqual((state["running"], state["applied"]), ("3", "2"))
            reason = "refused the L2 group (filtMgrErr 4, an entry that cannot be enforced exactly)"
            self.assertIn(reason, state["commit"][-1]["reason"])
            self.assertEqual(s.groups(), before)
        back = self.aclctl(self.running, "rollback", 2)
        self.assertEqual(back.returncode, 0, back.stderr)

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
        file = self.write("c.json", '{"acl-app:config": {}}')
        for gid, answer in ((nobody.pw_gid, "access-denied"), (group.gr_gid, "ok")):
            client = subprocess.run(
                [sys.executable, "-B", "-c", CLIENT, daemon.socket, answer],
                env={"PYTHONPATH": os.path.dirname(os.path.abspath(__file__))},
                user=nobody.pw_uid, group=gid, extra_groups=[],
                capture_output=True, text=True, timeout=60,
            )
            self.assertEqual(client.stdout.strip(), answer, client.stderr)
            for command in ("check", "diff"):
                shown = self.aclctl(
                    daemon, command, file, user=nobody.pw_uid, group=gid, extra_groups=[]
                )
                self.assertEqual(shown.returncode, 0 if answer == "ok" else 5, shown.stderr)
                self.assertEqual("access denied: the daemon did not" in shown.stderr, answer != "ok")
        with daemon.session() as s:
            self.assertIn("from-ok", config_text(s))
            self.assertNotIn("from-access-denied", config_text(s))
        self.assertIn("(nobody): rollback refused", daemon.log())


if __name__ == "__main__":
    unittest.main()
