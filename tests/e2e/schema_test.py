"""Schema and core agree: every leaf that an entry can have comes into the group that is enforced,
when it is committed and when it is loaded. One that did not would widen the entry in silence."""

import pathlib
import re
import unittest

from daemon import YANG, DaemonTest
from netconf_client import interface, profile

# A value of each leaf below match/ and action/, by its path there; what else it needs is beside it.
MAC = "02:00:00:00:00:01"
MATCHES = {
    "destination-mac-address": MAC,
    "destination-mac-address-mask": "ff:ff:ff:00:00:00",
    "source-mac-address": MAC,
    "source-mac-address-mask": "ff:ff:ff:00:00:00",
    "vlan": "5",
    "ethertype": "arp",
    "pcp": "3",
    "dscp": "ef",
    "tos": "16",
    "source-ipv4-address/mask/ip": "10.0.0.0/8",
    "source-ipv4-address/no-mask/ip": "10.0.0.1",
    "destination-ipv4-address/mask/ip": "10.0.0.0/8",
    "destination-ipv4-address/no-mask/ip": "10.0.0.1",
    "ip-protocol": "tcp",
    "destination-port": "80",
}
ACTIONS = {"packet-handling/deny": "", "packet-handling/permit": "", "set/pcp": "3"}


def leaves(text, grouping):
    """The paths of the leaves of a grouping, from the module's text."""
    body = re.search(rf"\n  grouping {grouping} {{\n(.*?)\n  }}\n", text, re.S).group(1)
    paths, above = [], []
    for line in body.splitlines():
        if node := re.match(r"\s*(container|list|leaf|leaf-list) (\S+) {$", line):
            above.append(node.group(2) + "/")
            if node.group(1).startswith("leaf"):
                paths.append("".join(above)[:-1])
        elif uses := re.match(r"\s*uses (\S+);$", line):
            paths += ["".join(above) + path for path in leaves(text, uses.group(1))]
        elif line.endswith("{"):
            above.append("")  # has no place in paths
        elif re.match(r"\s*}$", line):
            above.pop()
    return paths


def element(path, value):
    """The XML of a leaf; with that of a mask comes the address that it is of."""
    xml = value
    for name in reversed(path.split("/")):
        xml = f"<{name}>{xml}</{name}>"
    if path.endswith("-mask"):
        xml += element(path.removesuffix("-mask"), MAC)
    return xml


class SchemaTest(DaemonTest):
    def test_every_leaf_comes_into_force(self):
        text = (pathlib.Path(YANG) / "acl-app.yang").read_text()
        self.assertEqual(set(leaves(text, "entry-match")), {"match/" + path for path in MATCHES})
        self.assertEqual(set(leaves(text, "entry-action")), {"action/" + path for path in ACTIONS})
        entries = [(i, element(path, value), "") for i, (path, value) in enumerate(MATCHES.items())]
        entries += [(100 + i, "", element(path, value))
                    for i, (path, value) in enumerate(ACTIONS.items())]
        daemon = self.daemon().start()
        with daemon.session() as session:
            session.edit(profile("p", "l3", 1, *[(p, "", "") for p, _, _ in entries]),
                         interface("lo", "p"))
            # Into entries that are there, leaf by leaf.
            session.edit(profile("p", "l3", 1, *entries))
            committed = session.groups()["l3"]
        daemon.stop()
        with self.daemon().start().session() as session:
            loaded = session.groups()["l3"]
        self.assertEqual(committed, loaded)
        self.assertEqual(len(committed), len(entries))
        for path, entry in zip([*MATCHES, *ACTIONS], committed):
            kind, other = ("match", "action") if path in MATCHES else ("action", "match")
            leaf = {"packet-handling/deny": "deny", "packet-handling/permit": "permit",
                    "set/pcp": "set-pcp"}.get(path, path.split("/")[0])
            wanted = {leaf, leaf.removesuffix("-mask")}
            self.assertEqual((set(entry[kind]), entry[other]), (wanted, {}), path)


if __name__ == "__main__":
    unittest.main()
