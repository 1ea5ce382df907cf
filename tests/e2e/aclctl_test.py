"""The operator's command: what it shows, and a status for each kind of error."""

import json
import socket
import struct
import subprocess
import threading
import unittest

from daemon import ACLCTL, DaemonTest

MACS = {"source-mac-address": "00:11:22:33:44:55", "source-mac-address-mask": "ff:ff:ff:00:00:00"}
DENY, PERMIT = {"packet-handling": {"deny": [None]}}, {"packet-handling": {"permit": [None]}}
PROFILE = {
    "acl-type": "l2",
    "acl-name": "macs%s",
    "acl-priority-l2": {"priority": 1},
    "access-list-entry": [
        {"ace-priority": 1, "match": {**MACS, "vlan": 10}, "action": DENY},
        {"ace-priority": 2, "action": {**PERMIT, "set": {"pcp": 3}}},
    ],
}
CONFIG = {
    "acl-app:config": {
        "access-list": {
            "acl-profile": {"ingress": {"access-list": [PROFILE]}},
            "interface": [{"interface-name": "acl0", "ingress": ["macs%s"]}],
        }
    }
}


GROUPS = """\
L2 group (id 0, stage 1, priority 0): 2 entries
PORT  STATE   PROFILE  ENTRY  MATCH                                                ACTION
acl0  absent  macs%s       1  src-mac 00:11:22:33:44:55/ff:ff:ff:00:00:00 vlan 10  deny
acl0  absent  macs%s       2  any                                                  permit, set-pcp 3

L3 group (id 1, stage 1, priority 1): 0 entries
"""
RESOURCES = [
    "GROUP CAPACITY USED AVAILABLE", "L2 65536 2 65534", "L3 65536 0 65536", "",
    "PROFILE GROUP ENTRIES", "macs%s L2 2", "",
    "INTERFACE STATE GROUP PROFILE ENTRIES", "acl0 absent L2 macs%s 2",
]


class AclctlTest(DaemonTest):
    def setUp(self):
        super().setUp()
        self.running = self.daemon().start()

    def begin(self):
        """Applies CONFIG; returns its file."""
        file = self.write("c.json", json.dumps(CONFIG))
        self.run_ok("apply", file)
        return file

    def assert_rows(self, output, rows):
        """Compares the rows of a table, without the blanks that align them."""
        self.assertEqual([line.split() for line in output.splitlines()], [r.split() for r in rows])

    def run_ok(self, *arguments):
        result = self.aclctl(self.running, *arguments)
        # Interfaces that tests bind profiles to are not there.
        stderr = [line for line in result.stderr.splitlines() if "no such interface" not in line]
        self.assertEqual((result.returncode, stderr), (0, []))
        return result.stdout

    def assert_fails(self, status, *arguments, says=()):
        result = self.aclctl(self.running, *arguments)
        self.assertEqual(result.returncode, status, result.stderr)
        self.assertEqual(result.stdout, "")
        for text in says:
            self.assertIn(text, result.stderr)

    def test_what_is_applied_is_shown(self):
        self.begin()
        self.assertEqual(json.loads(self.run_ok("show", "config")), CONFIG)
        self.assertEqual(self.run_ok("show", "groups"), GROUPS)
        self.assert_rows(self.run_ok("show", "resources"), RESOURCES)
        groups = json.loads(self.run_ok("show", "groups", "--json"))
        self.assertEqual(groups["acl-app-filters:filters"]["group"][0]["entry"][1]["port"], ["acl0"])
        used = json.loads(self.run_ok("show", "resources", "--json"))
        self.assertEqual(used["acl-app:status"]["acl-resources"]["l2"]["used-entries"], 2)

    def test_a_profile_is_shown_with_its_bindings(self):
        self.begin()
        rows = ["macs%s (l2, priority 1)", "", "INTERFACE STATE FILTERS", "acl0 absent not-enforced",
                "", "ENTRY MATCH ACTION PACKETS BYTES DESCRIPTION",
                "1 src-mac 00:11:22:33:44:55/ff:ff:ff:00:00:00 vlan 10 deny - -",
                "2 any permit, set-pcp 3 - -"]
        for profile in ([], ["macs%s"]):
            self.assert_rows(self.run_ok("show", "acl", *profile), rows)
        self.assert_fails(5, "show", "acl", "macs", says=['there is no profile "macs"'])

    def test_a_trace_tells_which_entries_decide(self):
        self.begin()
        denied = "frame is dropped"
        frame = "ff:ff:ff:ff:ff:ff 00:11:22:00:00:01 8100 600a 0800" + "00" * 46
        self.assertEqual(
            self.run_ok("trace", "acl0", "--hex", frame),
            "frame: dst-mac ff:ff:ff:ff:ff:ff src-mac 00:11:22:00:00:01 ethertype 0x8100 vlan 10 "
            "pcp 3 inner-ethertype 0x0800 tos 0 src-ip 0.0.0.0 dst-ip 0.0.0.0 protocol 0\n"
            "       no destination port: the IP version is not 4\n"
            "L2:    macs%s entry 1 (vlan 10, source-mac-address 00:11:22:33:44:55, "
            "source-mac-address-mask ff:ff:ff:00:00:00: deny)\n" + denied +
            "\nthe groups are not in force on acl0: not-enforced\n")
        for words, says in (
            ("src-mac 0:11:22:0:0:1 vlan 10 pcp 7", "vlan 10 pcp 7 inner-ethertype 0x88b5\n"),
            ("dscp 46 src 10.0.0.1 dst 10.0.0.2 udp 53", "ethertype 0x0800 tos 184 src-ip 10.0.0.1 "
             "dst-ip 10.0.0.2 protocol 17 dst-port 53\n"),
            ("dst 2001:db8::1 tcp 443 tpid 0x88a8", "inner-ethertype 0x86dd dst-port 443\n"),
            ("tcp 443 vlan 11", "L2:    macs%s entry 2 (any frame: permit, set-pcp 3)\n"
             "L3:    no entries\nframe is passed, pcp 3, queue 3\n"),
            ("vlan 010", "vlan 10 "), ("ethertype 0806", "ethertype 0x0806\n"),
            ("ethertype arp vlan 1 tpid service-vlan", "ethertype 0x88a8 vlan 1 pcp 0 inner-ethertype 0x0806\n"),
            ("dst 10.0.0.1 dscp ef tcp dport https", "tos 184 src-ip 0.0.0.0 dst-ip 10.0.0.1 protocol 6 dst-port 443\n"),
            ("tcp 443 vlan 11 --why", "PROFILE  ENTRY  MISSES\nmacs%s       1  vlan 10, "),
        ):
            self.assertIn(says, self.run_ok("trace", "acl0", *words.split()))
        self.assertIn("no profile in force is bound to acl1", self.run_ok("trace", "acl1", "tcp"))
        capture = self.directory / "frames.pcap"
        sent = bytes.fromhex(frame.replace(":", "").replace(" ", ""))
        header = struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, 1)
        record = struct.pack("<IIII", 0, 0, len(sent), len(sent))
        capture.write_bytes(header + record + sent + record + sent[:6] + bytes(6) + sent[12:])
        lines = self.run_ok("trace", "acl0", "--pcap", str(capture)).splitlines()
        self.assertRegex(lines[1], " +1 .*  dropped +macs%s entry 1$")
        self.assertRegex(lines[2], " +2 .*  passed, queue 3 +macs%s entry 2$")
        traces = json.loads(self.run_ok("trace", "acl0", "--pcap", str(capture), "--json"))
        self.assertEqual([trace["acl-app-filters:verdict"] for trace in traces],
                         ["dropped", "passed"])
        second = self.run_ok("trace", "acl0", "--pcap", str(capture), "-n", "2")
        self.assertIn("src-mac 00:00:00:00:00:00", second)
        for status, words, says in (
            (2, "vlan 4096", "vlan takes a number up to 4095"), (2, "flag 1", "not by \"flag\""),
            (2, "src 10.0.0", "no IP address"), (2, "--hex 0", "hexadecimal"),
            (2, "", "by words, by --hex or by --pcap"), (5, "--hex 00", "length"),
            (3, "--pcap nothing", "cannot read nothing"), (2, "tcp 1 -n 2", "-n is for --pcap"),
            (3, f"--pcap {capture} -n 3", "has 2 frames"), (2, "tos tcp", "tos takes a number"),
            (2, "src 10.0.0.1 dst ::1", "different IP versions"),
            (2, "tcp 80 udp 90", "udp: protocol is given twice"), (2, "tcp 99999", "up to 65535"),
            (2, "src 10.0.0.1 src-ip 10.0.0.2", "src is given twice"), (2, "tos 1 dscp 2", "exclude"),
        ):
            self.assert_fails(status, "trace", "acl0", *words.split(), says=[says])
        self.running.stop()
        self.assert_fails(2, "trace", "acl0", "--hex", "0", says=["hexadecimal"])

    def test_what_is_shown_can_be_applied(self):
        self.begin()
        emptied = self.write("empty.json", '{"acl-app:config": {}}')
        for form, name in (("--json", "again.json"), ("--xml", "again.xml")):
            saved = self.write(name, self.run_ok("show", "config", form))
            self.run_ok("apply", "--replace", emptied)
            self.assertEqual(json.loads(self.run_ok("show", "config")), {"acl-app:config": {}})
            emptied = self.write("of-" + name, self.run_ok("show", "config", form))
            self.run_ok("apply", saved)
            self.assertEqual(json.loads(self.run_ok("show", "config")), CONFIG)
        self.run_ok("apply", "--replace", emptied)
        self.assertNotIn("macs", self.run_ok("show", "config"))

    def test_netconf_envelopes_and_operations_in_files(self):
        self.begin()
        base = "urn:ietf:params:xml:ns:netconf:base:1.0"
        text = (
            f'<?xml version="1.0"?>\n<config xmlns="{base}" xmlns:nc="{base}"><config xmlns='
            '"urn:acl-app:acl"><access-list nc:operation="remove"/></config></config>'
        )
        self.run_ok("apply", self.write("delete.xml", text))
        self.assertNotIn("macs", self.run_ok("show", "config"))

    def test_the_history_says_what_was_changed_and_leads_back(self):
        self.begin()
        changed = json.dumps(CONFIG).replace('"vlan": 10', '"vlan": 20').replace("acl0", "acl1")
        self.run_ok("apply", self.write("d.json", changed))
        entry = (
            "/config/access-list/acl-profile/ingress/access-list[acl-type='l2'][acl-name='macs%s']"
            "/access-list-entry[ace-priority='1']"
        )
        difference = [
            "  " + entry,
            "-     match/vlan 10",
            "+     match/vlan 20",
            "+ /config/access-list/interface[interface-name='acl1']",
            "+     ingress macs%s",
        ]
        shown = self.run_ok("show", "commit", 3).splitlines()
        self.assertRegex(shown[0], r"^commit 3 by \w+ \(session \d+\), [-0-9]+ [:0-9]+ UTC$")
        self.assertEqual(shown[1:], difference)
        self.assertEqual(self.run_ok("diff", self.directory / "d.json"), "")
        self.assertEqual(
            self.run_ok("rollback", 2), "commit 4: the configuration is that of commit 2 again\n"
        )
        self.assertEqual(json.loads(self.run_ok("show", "config")), CONFIG)
        self.assertIn("already", self.run_ok("rollback", 2))
        self.assertEqual(self.run_ok("diff", self.directory / "d.json").splitlines(), difference)
        gone = self.run_ok("diff", "--replace", self.write("e.xml", '<config xmlns="urn:acl-app:acl"/>'))
        self.assertIn("\n- " + entry + "\n", gone)
        self.assertNotRegex(gone, r"(?m)^[^-]")

        commits = [line.split(None, 6) for line in self.run_ok("history").splitlines()]
        self.assertEqual([c[0] for c in commits], ["COMMIT", "4", "3", "2"])
        self.assertEqual([c[5] for c in commits[1:]], ["3", "3", "12"])
        self.assertEqual(commits[1][6], "rollback to 2")
        last = json.loads(self.run_ok("history", "-n", 1, "--json"))["acl-app-history:commit"]
        self.assertEqual([c["id"] for c in last], ["4"])
        shown = json.loads(self.run_ok("show", "commit", 3, "--json"))
        self.assertEqual(
            shown["acl-app-history:change"][0]["leaf"],
            [{"name": "match/vlan", "old-value": "10", "value": "20"}],
        )
        self.assertEqual(shown["acl-app-history:id"], "3")
        self.assert_fails(5, "show", "commit", 9, says=["no commit 9"])
        self.assert_fails(5, "rollback", 9, says=["no commit 9", "unchanged"])

    def test_a_rollback_cannot_change_a_priority(self):
        self.begin()
        empty = self.write("e.json", '{"acl-app:config":{}}')
        self.run_ok("apply", "--replace", empty)
        other = json.dumps(CONFIG).replace('l2": {"priority": 1', 'l2": {"priority": 2')
        self.run_ok("apply", self.write("d.json", other))
        self.assert_fails(5, "rollback", 2, says=["macs%s", "cannot change from 2 to 1"])
        self.run_ok("apply", "--replace", empty)
        self.run_ok("rollback", 2)
        self.assertEqual(json.loads(self.run_ok("show", "config")), CONFIG)

    def test_findings(self):
        entries = [
            {"ace-priority": 5, "match": {"ip-protocol": "icmp", "destination-port": 1}},
            {"ace-priority": 10, "match": {"ip-protocol": "udp"}, "action": DENY},
            {"ace-priority": 20, "match": {"destination-port": 53, "ip-protocol": 17}},
        ]
        profile = {"acl-type": "l3", "acl-name": "p", "acl-priority-l3": {"priority": 1}}
        lists = {
            "acl-profile": {"ingress": {"access-list": [{**profile, "access-list-entry": entries}]}},
            "interface": [{"interface-name": name, "ingress": ["p"]} for name in ("lo", "none")],
        }
        file = self.write("f.json", json.dumps({"acl-app:config": {"access-list": lists}}))
        found = [
            "none: there is no such interface",
            "p 5: no frame can match: destination-port",
            "p 20: never decides: an earlier entry has all of its frames, and denies them, where "
            "this one permits (p 10)",
            "p 5: has no action, and so permits",
            "lo, none: IPv6 passes",
        ]
        checked = self.run_ok("check", file)
        for text in found:
            self.assertIn("finding: " + text, checked)
        self.assert_fails(5, "apply", "--strict", file, says=found)
        self.assertEqual(self.run_ok("show", "findings"), "nothing was found\n")
        applied = self.aclctl(self.running, "apply", file)
        self.assertEqual(applied.returncode, 0)
        for text in found:
            self.assertIn("aclctl: finding: " + text, applied.stderr)
        # What running has already is no hindrance.
        self.run_ok("apply", "--strict", file)
        told = json.loads(self.run_ok("show", "findings", "--json"))["acl-app-findings:finding"]
        self.assertEqual(told[2]["cover"], [{"profile": "p", "ace-priority": 10}])
        with self.running.session() as session:
            kinds = "<findings xmlns='urn:acl-app:findings'><finding><kind/></finding></findings>"
            state = session.get(f"<filter type='subtree'>{kinds}</filter>")
            self.assertEqual([kind.text for kind in state.iter() if kind.tag.endswith("}kind")],
                             [finding["kind"] for finding in told])

    def test_what_does_not_fit_is_refused_and_can_be_checked(self):
        self.running.stop()
        self.running = self.daemon(filter_capacity=3).start()
        file = self.write("c.json", json.dumps(CONFIG))
        table, _, _ = self.run_ok("check", file).partition("\n\n")
        self.assert_rows(
            table, ["GROUP CAPACITY USED NOW THEN AVAILABLE", "L2 3 0 2 1", "L3 3 0 0 3",
                    "tables that a frame is looked up in: L2 1.0, at most 1 (acl0); they take 2 kB"]
        )
        self.run_ok("apply", file)
        more = self.write("d.json", json.dumps(CONFIG).replace("acl0", "acl1"))
        reason = 'the L2 group would need 4 entries, and has room for 3; most are needed by "macs%s"'
        self.assert_fails(5, "apply", more, says=[reason, "(resource-denied)"])
        refused = self.aclctl(self.running, "check", more, "--json")
        self.assertEqual(refused.returncode, 5)
        self.assertIn(reason, refused.stderr)
        answer = json.loads(refused.stdout)
        self.assertEqual(answer["acl-app-history:group"][0]["entries-then"], "4")
        self.assertEqual(answer["acl-app-history:refusal"][0]["tag"], "resource-denied")
        bad = self.aclctl(self.running, "check", self.write("b.json", '{"acl-app:config":{"x":1}}'))
        self.assertEqual(bad.returncode, 5)
        self.assertIn("unknown-element", bad.stderr)
        # What is stored is loaded with less room as well, and may shrink.
        self.running.stop()
        self.running = self.daemon(filter_capacity=1).start()
        self.assertRegex(self.running.log(), r"warning.*needs 2 entries in the l2 group")
        self.assertEqual(json.loads(self.run_ok("show", "config")), CONFIG)
        self.assert_fails(5, "apply", more, says=["room for 1"])
        self.run_ok("rollback", 1)

    def test_each_kind_of_error_has_its_status(self):
        self.begin()
        before = self.run_ok("show", "config")
        for command, says in (
            ("frobnicate", ["no command", "frobnicate", "--help"]),
            ("show nothing", ["commits, config", "nothing"]),
            ("show", ["followed by one of: acl, commit, commits"]),
            ("show commit", ["arguments for show commit"]),
            ("apply", ["number of arguments"]),
            ("show config --bogus", ["bogus"]),
            ("show config --replace", ["show config does not take --replace"]),
            ("history --xml", ["history does not take --xml"]),
            ("apply --xml c.json", ["apply does not take --xml"]),
            ("flush -n 2", ["flush does not take -n"]),
            ("history -n x", ["number", '"x"']),
            ("history -n=", ["from 1 to 10000"]),
            ("history -n 10001", ["from 1 to 10000"]),
            ("watch -n 1 -i nan", ["from 0.1 to 3600"]),
            ("rollback x", ["number", '"x"']),
            ("show commit 18446744073709551616", ["is not the number of a commit"]),
        ):
            with self.subTest(command):
                self.assert_fails(2, *command.split(), says=says)
        self.assert_fails(2, "history", "-n", "", says=["from 1 to 10000"])
        envelope = '<%s xmlns="urn:ietf:params:xml:ns:netconf:base:1.0">%s</%s>'
        on_purpose = '{"acl-app:config": {}}'
        for name, text, says in (
            ("none.json", None, "No such"),
            ("torn.json", '{"acl-app:config":', "no JSON"),
            ("torn.xml", "<config>", "not well-formed"),
            ("blank.xml", " ", "not well-formed"),
            ("text.xml", envelope % ("config", "oops", "config"), "text within <config>"),
            ("data.xml", envelope % ("data", "oops", "data"), "text within <data>"),
            ("mix.xml", envelope % ("data", "oops<a xmlns='urn:a'/>", "data"), ""),
            ("after.xml", envelope % ("data", "<a xmlns='urn:a'/>oops", "data"), "not well-formed"),
            ("text.json", '{"acl-app:config": "oops"}', "no JSON configuration"),
            ("two.xml", 2 * (envelope % ("config", "", "config")), "beside <config>"),
            ("empty.xml", envelope % ("config", "", "config"), on_purpose),
            ("empty.json", "{}", on_purpose),
        ):
            file = self.directory / name if text is None else self.write(name, text)
            for command in ("apply", "check", "diff"):
                with self.subTest(name, command=command):
                    self.assert_fails(3, command, "--replace", file, says=[name, says])
        for directory in ("d.json", "d.xml"):
            (self.directory / directory).mkdir()
            for command in ("apply", "check", "diff"):
                path = self.directory / directory
                self.assert_fails(3, command, path, says=[directory, "Is a directory"])
        priority = json.dumps(CONFIG).replace('"priority": 1', '"priority": -1')
        says = ["bad.json", "acl-name='macs%s']/acl-priority-l2/priority: ", "(invalid-value)"]
        self.assert_fails(5, "apply", self.write("bad.json", priority), says=says)
        bogus = '{"acl-app:config":{"access-list":{"bogus":1}}%s}'
        for name, text, says in (
            ("bogus.json", bogus % ',"x:y":2', ['module "x"']),
            ("bogus.json", bogus % "", ["bogus is no"]),
            ("odd.json", '{"ietf-netconf:config": {}}', []),
            ("odd.xml", '<config xmlns="urn:acl-app:acl">oops</config>', []),
            ("x.xml", "<x xmlns='urn:x'/>", []),
        ):
            self.assert_fails(5, "apply", "--replace", self.write(name, text), says=says)
        self.assertEqual(self.run_ok("show", "config"), before)
        with open("/dev/full", "w") as full:
            command = [ACLCTL, "--socket", self.running.socket, "show", "config"]
            self.assertEqual(subprocess.run(command, stdout=full, stderr=subprocess.DEVNULL).returncode, 3)
        self.running.stop()
        self.assert_fails(4, "show", "config", says=["is it running"])

    def test_a_peer_that_is_no_daemon(self):
        self.running.stop()
        listener = socket.socket(socket.AF_UNIX)
        self.addCleanup(listener.close)
        listener.bind(self.running.socket)
        listener.listen()
        for answer in (b"", b"HTTP/1.1 400\r\n\r\n]]>]]>"):
            def serve():
                with listener.accept()[0] as peer:
                    peer.sendall(answer)
            thread = threading.Thread(target=serve)
            thread.start()
            self.assert_fails(6, "show", "config")
            thread.join()


if __name__ == "__main__":
    unittest.main()
