"""Access lists of standard models, through aclctl: there and back, and valid by the published modules.

ACL_STANDARD_MODULES names a directory with these modules (yang/standard/SOURCES.md lists them).
"""

import json
import os
import pathlib
import shutil
import subprocess
import unittest

from daemon import ACLCTL, DaemonTest

LINES = """set acl guests type l3 priority 20 description "names and the web"
set acl guests 10 match dst 203.0.113.53 proto 17 dport 53 action permit
set acl guests 20 match src 10.0.0.0/8 dscp 46 action deny description "[seq 70000] ticket 4711"
set acl guests 30 match tos 185 proto 6 dport 443 action permit
set acl macs type l2 priority 5
set acl macs 10 match smac 02:00:00:00:00:01/ff:ff:ff:00:00:00 ether 0x0806 action deny
bind guests eth0
bind macs eth0
"""
OWN_LINES = """set acl own type l2 priority 7 description "[acl own/in]"
set acl own 5 match vlan 100 pcp 3 action set-pcp 5
set acl own 6 match vlan 7 action deny
"""
TYPES = ["iana-if-type", "ietf-access-control-list", "ietf-acl-enh", "openconfig-acl"]


class StandardsTest(DaemonTest):
    def convert(self, *arguments, text, status=0):
        done = subprocess.run([ACLCTL, *arguments, "-"], input=text, capture_output=True, text=True)
        self.assertEqual(status, done.returncode, done.stderr)
        return done

    def test_there_and_back(self):
        daemon = self.daemon().start()
        lines = self.write("lines", LINES + OWN_LINES)
        self.assertEqual(0, self.aclctl(daemon, "apply", lines).returncode)
        for model, form in ("rfc8519", "--json"), ("rfc9899", "--xml"):
            lists = self.aclctl(daemon, "export", "--to", model, form)
            self.assertEqual((0, ""), (lists.returncode, lists.stderr))
            file = self.write("lists", lists.stdout)
            done = self.aclctl(daemon, "import", "--from", model, "--diff", "--replace", file)
            self.assertEqual((0, ""), (done.returncode, done.stdout), done.stderr)
        # By name or by number, read in the short way or by the schema.
        named = LINES.replace("proto 17", "proto udp").replace("dscp 46", "dscp ef").replace("0x0806", "arp")
        self.assertEqual(0, self.aclctl(daemon, "apply", "--replace", self.write("lines", named)).returncode)
        running = self.aclctl(daemon, "export", "--to", "rfc8519").stdout
        self.assertEqual(*(sorted(json.loads(text)["ietf-access-control-list:acls"]["acl"], key=str)
                           for text in (running, self.convert("export", "--to", "rfc8519", text=LINES).stdout)))

    def test_statuses(self):
        for own, arguments, status in (
            ("", [], 0),
            (OWN_LINES, ["--standard-only"], 5),
            (OWN_LINES, ["--standard-only", "--skip-entries"], 9),
        ):
            arguments = ["export", "--to", "rfc8519", *arguments]
            done = self.convert(*arguments, text=LINES.replace("tos 185", "dscp 1") + own, status=status)
            self.assertEqual(status == 5, done.stdout == "")
            self.assertEqual(status == 9, "WARNING" in done.stderr)

    def test_exports_are_valid(self):
        modules = pathlib.Path(os.environ.get("ACL_STANDARD_MODULES", "none"))
        if not modules.is_dir() or shutil.which("yanglint") is None:
            self.skipTest("there is no yanglint, or ACL_STANDARD_MODULES names no published modules")
        # Of ours these alone: beside them there are transcriptions of published ones.
        for name in "acl-app-types.yang", "standard/acl-app-standard.yang":
            shutil.copy(pathlib.Path(os.environ["ACL_APP_YANG"]) / name, self.directory)
        texts = [self.directory / "acl-app-standard.yang", *(modules / f"{t}.yang" for t in TYPES)]
        features = ["-F", "ietf-access-control-list:*", "-F", "ietf-acl-enh:*"]
        paths = [part for path in (modules, self.directory) for part in ("-p", str(path))]
        interface = {"name": "eth0", "type": "iana-if-type:ethernetCsmacd"}
        for model in "rfc8519", "rfc9899", "openconfig":
            openconfig = model == "openconfig"
            lines = LINES.replace("tos 185", "dscp 1") + ("" if openconfig else OWN_LINES)
            data = json.loads(self.convert("export", "--to", model, text=lines).stdout)
            if openconfig:
                entry = {"name": "eth0", "config": interface}
                data["openconfig-interfaces:interfaces"] = {"interface": [entry]}
            else:
                data["ietf-interfaces:interfaces"] = {"interface": [interface]}
            file = self.write("data.json", json.dumps(data))
            done = subprocess.run(
                ["yanglint", *paths, "-t", "config", *features, *texts, file],
                capture_output=True,
                text=True,
            )
            self.assertEqual(0, done.returncode, f"{model}: {done.stderr}")


if __name__ == "__main__":
    unittest.main()
