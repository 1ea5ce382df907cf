"""The configuration in lines, commits that must be confirmed, and the editor."""

import json
import os
import pathlib
import re
import unittest

from daemon import YANG, DaemonTest

BEGIN = """\
set acl guests type l3 priority 20 description "Guests \\"of\\" the house"  # a comment
set acl guests 10 match dst 203.0.113.53 proto udp dport dns action permit
set acl guests 20 match src 10.0.0.0/8 action deny description why
bind guests eth0 eth1
"""
SHOWN = """\
set acl guests type l3 priority 20 description "Guests \\"of\\" the house"
set acl guests 10 match dst-ip 203.0.113.53 protocol udp dst-port dns action permit
set acl guests 20 match src-ip 10.0.0.0/8 action deny description "why"
bind guests eth0 eth1
"""


class LinesTest(DaemonTest):
    def setUp(self):
        super().setUp()
        self.running = self.daemon().start()

    def run_(self, *words, text=None, **env):
        result = self.aclctl(self.running, *words, input=text, env={**os.environ, **env})
        return result.returncode, result.stdout, result.stderr

    def ok(self, line, **options):
        status, out, err = self.run_(*line.split(), **options)
        err = [told for told in err.splitlines() if not told.startswith("aclctl: finding:")]
        self.assertEqual((status, err), (0, []), line)
        return out

    def lines(self):
        """The configuration, as the editor gets it."""
        script = self.write("keep", f'cp "$1" {self.directory}/seen\n')
        self.assertIn("nothing to change", self.ok("edit", EDITOR=f"sh {script}"))
        text = (self.directory / "seen").read_text()
        return "".join(line for line in text.splitlines(True) if not line.startswith("#"))

    def test_each_verb_does_what_it_says_in_one_commit(self):
        self.assertRegex(self.ok("apply -", text=BEGIN), "^commit 2 applied: .*L3 4 entries")
        self.assertEqual(self.lines(), SHOWN)
        before = SHOWN
        for line, changes in (
            ("set acl guests 10 match tos 16", [(r"dst-ip .* dns", "tos 16")]),
            ("set acl guests 20 action permit set-pcp 3", [("action deny", "action permit set-pcp 3")]),
            ("set acl guests 20 match any action none", [("src-ip 10.0.0.0/8", "any"), ("permit set-pcp 3", "none")]),
            ("move acl guests 20 5", [("(?s)(set acl guests 10[^\n]*\n)(set acl guests )20([^\n]*\n)", r"\g<2>5\3\1")]),
            ("renumber acl guests 100 10", [("guests 5 ", "guests 100 "), ("guests 10 ", "guests 110 ")]),
            ("rename acl guests visitors", [("guests", "visitors")]),
            ("unbind visitors eth0", [("eth0 ", "")]),
            ("delete acl visitors 110 match tos", [("tos 16", "any")]),
            ("set acl visitors 100 description [a,b]", [("why", "[a,b]")]),
            ("delete acl visitors 100 description", [(r' description "\[a,b\]"', "")]),
            ("delete acl visitors 100", [("set acl visitors 100.*\n", "")]),
            ("bind visitors #7", [("eth1", '"#7" eth1')]),
            ("unbind visitors", [("bind .*\n", "")]),
            ("delete acl visitors", [("(?s).*", "")]),
        ):
            with self.subTest(line):
                for old, new in changes:
                    before, count = re.subn(old, new, before, count=0 if old == "guests" else 1)
                    self.assertGreater(count, 0)
                self.ok(line)
                self.assertEqual(self.lines(), before)

    def test_what_is_wrong_is_named_with_what_is_expected(self):
        self.ok("apply -", text=BEGIN)
        for line, says in (
            ("set acl guests 15 match sport 9", ['"sport": expected dst-mac', 'after "match"']),
            ("set acl guests 15 match dport 99999", ["dst-port: ", '"99999"', "0..65535"]),
            ("set acl guests 15 match vlan", ['the value of vlan after "vlan"']),
            ("set acl guests 15 match dscp ef tos 1", ["dscp and tos exclude"]),
            ("set acl guests 15 match src 1.2.3.4 src 1.2.3.5", ['"src" is given twice']),
            ("set acl guests 15 action drop", ['"drop": expected deny, permit']),
            ("set acl guests 70000", ["from 0 to 65535"]),
            ("set acl guests type l2", ["is of type l3"]),
            ("set acl nobody 5 match any", ['no profile "nobody"', "type l2|l3"]),
            ("set acl x/y type l2 priority 1", ["acl-name"]),
            ("delete acl guests 15", ["guests has no entry 15"]),
            ("delete acl guests 20 match vlan", ["does not match on it"]),
            ("unbind guests eth9", ["not bound to it"]),
            ("move acl guests 10 20", ["has an entry 20 already"]),
            ("renumber acl guests 65530 10", ["beyond 65535"]),
            ("set profile guests", ['"profile": expected acl after "set"']),
        ):
            with self.subTest(line):
                status, out, err = self.run_(*line.split())
                self.assertEqual((status, out), (2, ""))
                for text in says:
                    self.assertIn(text, err)
        status, _, err = self.run_("apply", "-", text="bind guests eth2\nset acl guests 1 match x\n")
        self.assertEqual(status, 3)
        self.assertIn('standard input:2: "x": expected', err)
        self.assertEqual(self.run_("delete", "acl", "guests")[0], 5)
        self.assertEqual(self.lines(), SHOWN)

    def test_every_leaf_of_the_schema_has_a_word(self):
        text = pathlib.Path(f"{YANG}/acl-app.yang").read_text()
        body = text[text.index("container match {") : text.index("grouping entry-action")]
        leaves = re.findall(r"\n      (?:  )?(?:leaf|container) (\S+) {", body)
        self.assertEqual(len(leaves), 13)
        source = pathlib.Path(f"{YANG}/../tools/client/match_words.cpp").read_text()
        for leaf in leaves:
            self.assertIn(f'"{leaf.removesuffix("-mask")}"', source)

    def test_json_leaves_no_match_behind(self):
        self.ok("apply -", text=BEGIN)
        entry = {"ace-priority": 10, "match": {"ip-protocol": "tcp"}}
        profile = {"acl-type": "l3", "acl-name": "guests", "access-list-entry": [entry]}
        inner = {"acl-profile": {"ingress": {"access-list": [profile]}}}
        inner["interface"] = [{"interface-name": "unbound"}]  # which no line tells of
        edit = json.dumps({"acl-app:config": {"access-list": inner}})
        status, _, err = self.run_("apply", "-", text=edit)
        self.assertEqual(status, 0)
        self.assertRegex(err, "note: entry 10 of guests is replaced: it matched dst-ip .* dns before")
        self.assertIn("set acl guests 10 match protocol tcp action permit\n", self.lines())
        self.assertEqual(self.ok("apply -", text=edit), "nothing to change\n")

    def test_a_commit_is_taken_back_unless_it_is_confirmed(self):
        self.ok("apply -", text=BEGIN)
        for last, expected in (("cancel", SHOWN), ("confirm", SHOWN.replace(" eth1", ""))):
            status, out, _ = self.run_(*"unbind guests eth1 --confirm 100 -m".split(), "two words")
            self.assertEqual((status, "aclctl confirm" in out), (0, True))
            self.assertRegex(self.ok("show commits"), r"to be confirmed: commit \d+ by .* \d+ s")
            state = json.loads(self.ok("show commits --json"))["acl-app-commits:confirmed-commit"]
            self.assertLessEqual(state["remaining"], 100)
            self.ok(last)
            self.assertEqual(self.lines(), expected)
            self.assertNotIn("confirmed-commit", self.ok("show commits --json"))
            self.assertEqual(self.run_("confirm")[0], 5)
        self.assertIn("two words", self.ok("history"))
        self.assertEqual(self.run_("apply", "-", "--confirm", "x", text=BEGIN)[0], 2)
        both = self.ok("diff 2 3"), self.ok("diff 3 2")
        self.assertIn("-     ingress guests", both[0])
        self.assertIn("+     ingress guests", both[1])
        self.assertEqual(self.ok("diff 2 4"), "")
        self.assertIn("[interface-name='eth1']", self.ok("diff 4"))
        self.assertIn("no commit 99", self.run_("diff", "99")[2])

    def test_what_is_looked_for_is_shown(self):
        self.ok("apply -", text=BEGIN + "set acl m type l2 priority 1\nbind m eth9\n"
                "set acl m 7 match smac 00:11:22:00:00:00/ff:ff:ff:00:00:00\n")
        for words, entries in (
            ("", [("eth0", "10"), ("eth0", "20"), ("eth1", "10"), ("eth1", "20"), ("eth9", "7")]),
            ("--port eth1", [("eth1", "10"), ("eth1", "20")]),
            ("--acl m", [("eth9", "7")]),
            ("--covers 10.255.0.1 --port eth0", [("eth0", "20")]),
            ("--covers 203.0.113.53 --port eth0", [("eth0", "10")]),
            ("--covers 00:11:22:ab:cd:ef", [("eth9", "7")]),
            ("--covers 11.0.0.1", []),
            ("--hit", []),
        ):
            for command in ("show groups", "watch -n 1"):
                with self.subTest(command, filter=words):
                    out = self.ok(f"{command} {words}")
                    found = re.findall(r"(?m)^(?:L[23] +)?(eth\d) +(?:(?:absent|down|up) +)?\S+ +(\d+) ", out)
                    self.assertEqual(sorted(found), entries)
        self.assertEqual(self.ok("show lines --find why").count("\n"), 1)
        self.assertEqual(self.ok("show lines guests"), SHOWN)
        self.assertEqual(len(json.loads(self.ok("show lines --json"))), 7)
        self.assertEqual(self.run_("show", "groups", "--covers", "x")[0], 2)

    def test_the_shell_is_told_what_may_come_next(self):
        self.ok("apply -", text=BEGIN)
        for line, offered in (
            ("complete -- ren", ["rename", "renumber"]),
            ("complete -- recover ", ["accept", "empty", "with"]),
            ("complete -- set acl g", ["guests"]),
            ("complete -- move acl guests ", ["10", "20"]),
            ("complete -- set acl guests 10 match dst", ["dst-ip", "dst-mac", "dst-port"]),
            ("complete -- set acl guests 10 match vlan 5 action ", ["action", "deny", "description", "match", "none", "permit", "set-pcp"]),
            ("complete -- unbind guests ", ["eth0", "eth1"]),
            ("complete -- show groups --port ", ["eth0", "eth1"]),
            ("complete -- show groups --h", ["--help", "--hit", "--hits"]),
            ("complete -- rollback ", ["2"]),
        ):
            with self.subTest(line):
                status, out, _ = self.run_(*line.split(" "))
                self.assertEqual((status, out.split()), (0, offered))

    def test_the_editor_loses_nothing(self):
        self.ok("apply -", text=BEGIN)
        for script, answers, expected, says in (
            # The interrupt key, which aclctl gets too, is the editor's own. (A shell is in between.)
            ("p=$PPID; grep -q aclctl /proc/$p/comm || p=$(sed -n 's/^PPid:.//p' /proc/$p/status); "
             "kill -INT $p; sed -i 's/udp/tcp/' \"$1\"", "y\n", SHOWN.replace("udp", "tcp"), "commit"),
            ("sed -i '/guests 20/d' \"$1\"", "n\n", None, "nothing is changed; the text is in"),
            # A refused edit comes back with the reason, and is then put right.
            ("grep -q '^#!' \"$1\" && sed -i 's/dport x/dport 80/' \"$1\" || "
             "echo 'set acl guests 30 match dport x' >>\"$1\"", "y\ny\n",
             None, "commit"),
            ("sed -i 's/^set acl guests type.*/oops/' \"$1\"", "n\n", None, "oops"),
        ):
            with self.subTest(script):
                editor = self.write("editor", script + "\n")
                _, out, err = self.run_(
                    "edit", "guests", text=answers, EDITOR=f"sh {editor}", TMPDIR=str(self.directory)
                )
                self.assertIn(says, out + err)
                if expected is not None:
                    self.assertEqual(self.lines(), expected)
        self.assertIn("guests 20", self.lines())
        kept = list(self.directory.glob("aclctl-edit.*"))
        self.assertEqual(len(kept), 2)
        self.assertIn("oops", "".join(path.read_text() for path in kept))


if __name__ == "__main__":
    unittest.main()
