"""What runs, as the access lists of RFC 8519: someone else's client, which knows nothing but that."""

import os
import pathlib
import re
import shutil
import subprocess
import unittest
import xml.etree.ElementTree as ET

from daemon import YANG
from ssh_test_case import RPCError, SshTestCase
from standards_test import LINES, OWN_LINES

ACLS = "urn:ietf:params:xml:ns:yang:ietf-access-control-list"
FEATURES = """match-on-eth match-on-ipv4 match-on-ipv6 match-on-tcp match-on-udp eth ipv4
mixed-eth-ipv4 mixed-eth-ipv4-ipv6 interface-stats interface-attachment""".split()
# Of types that differ from part to part, with names that the conversion has to tell apart.
MANY = """set acl many type l3 priority 9
bind many eth1
set acl later type l3 priority 10 description "[acl many]"
set acl later 5 match dst 10.0.0.1 action deny description "[end]"
set acl later 7 match dst 10.0.0.2 action deny description "[ace 5]"
set acl later 8 match dst 10.0.0.3 action deny description "[ace end]"
set acl later 9 action deny description "[end]"
""" + "".join(
    f"set acl many {i} match {'ether 0x0806' if i == 200 else f'dst 10.0.{i}.0/24'} action deny"
    + {1: ' description "[ace twin]"', 2: ' description "[ace 5]"', 64: ' description "[end]"'}.get(i % 100, "")
    + "\n" for i in range(1, 256))


def plain(element):
    """An element to compare: in one order, but for entries, and without the prefixes of identities."""
    children = sorted(map(plain, element), key=lambda c: (c[0], c[2][0] if c[0].endswith("}acl") else ()))
    return (element.tag, (element.text or "").strip().split(":", 1)[-1], children)


class ViewTest(SshTestCase):
    def lists(self, session, *content):
        """What a subtree filter selects: as text, and as an element."""
        text = session.get(("subtree", f'<acls xmlns="{ACLS}">{"".join(content)}</acls>')).data_xml
        data = re.sub(r"<\?xml.*?\?>", "", text)
        return re.search(r"<data.*?>(.*)</data>", data, re.S).group(1), ET.fromstring(data)[0]

    def lint(self, directories, modules, text):
        file = self.write("view.xml", text)
        paths = [part for path in directories for part in ("-p", path)]
        features = "ietf-access-control-list:" + ",".join(FEATURES)
        done = subprocess.run(["yanglint", *paths, "-t", "data", "-F", features, *modules, file],
                              capture_output=True, text=True)
        self.assertEqual((done.returncode, done.stderr), (0, ""))

    def test_the_running_configuration_is_there_as_lists(self):
        lines = self.write("lines", LINES + OWN_LINES + MANY)
        done = self.aclctl(self.running, "apply", lines)
        self.assertEqual(done.returncode, 0, done.stderr)
        session = self.connect()
        text, lists = self.lists(session)
        exported = self.aclctl(self.running, "export", "--to", "rfc8519", "--xml").stdout
        self.assertEqual(plain(lists), plain(ET.fromstring(exported)))
        _, one = self.lists(session, "<acl><name>many 2</name><aces><ace><name>twin 2</name></ace></aces></acl>")
        self.assertRegex("".join(one.itertext()), r"^many 2\s*twin 2\s*10.0.101.0/24\s*\S+:drop")
        selected = session.get(("xpath", ({"a": ACLS}, "/a:acls/a:attachment-points")))
        self.assertEqual(len(re.findall("<acl-set>", selected.data_xml)), 3)
        everything = session.get(("xpath", ({"a": ACLS}, "//a:ace[a:matches/a:ipv4/a:dscp=46]/a:name")))
        self.assertIn("<name>20</name>", everything.data_xml)
        if shutil.which("yanglint") is None:
            self.skipTest("there is no yanglint")
        own = pathlib.Path(YANG)
        modules = ["acl-app-standard-view.yang", "acl-app-standard.yang"]
        self.lint([own / "standard", own], [own / "standard" / name for name in modules], text)
        published = pathlib.Path(os.environ.get("ACL_STANDARD_MODULES", "none"))
        if published.is_dir():
            names = [f"ietf-{name}.yang" for name in ("access-control-list", "packet-fields", "ethertypes",
                                                      "interfaces")]
            for name in (*names, "iana-if-type.yang"):
                shutil.copy(published / name, self.directory)
            for name in (*modules, "acl-app-types.yang"):
                shutil.copy(next(own.rglob(name)), self.directory)
            self.lint([self.directory], [self.directory / name for name in (*modules, names[0])], text)

    def test_it_is_announced_and_cannot_be_written(self):
        session = self.connect()
        announced = next(c for c in session.server_capabilities if c.startswith(ACLS))
        self.assertIn("features=" + ",".join(FEATURES), announced)
        self.assertIn("deviations=acl-app-standard-view", announced)
        for module in "ietf-access-control-list", "ietf-packet-fields", "acl-app-standard-view":
            self.assertIn(f"module {module} {{", session.get_schema(module).data)
        self.assertFalse([c for c in session.server_capabilities if "ietf-interfaces" in c])
        edit = f'<config><acls xmlns="{ACLS}"><acl><name>x</name></acl></acls></config>'
        with self.assertRaisesRegex(RPCError, "acls is state and cannot be configured"):
            session.edit_config(target="running", config=edit)
        self.assertNotIn("acls", session.get_config("running").data_xml)


if __name__ == "__main__":
    unittest.main()
