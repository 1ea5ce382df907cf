"""Someone else's client over a real sshd: ncclient, through the bridge, on loopback."""

import getpass
import os
import pathlib
import re
import subprocess
import time
import unittest

from daemon import BRIDGE
from netconf_client import ACL, BASE
from ssh_test_case import RPCError, SshTestCase


def config(*interfaces, operation="merge"):
    content = "".join(
        f'<interface nc:operation="{operation}"><interface-name>{name}</interface-name></interface>'
        for name in interfaces
    )
    return (
        f'<config xmlns="{BASE}" xmlns:nc="{BASE}"><config xmlns="{ACL}"><access-list>{content}'
        "</access-list></config></config>"
    )


class SshTest(SshTestCase):
    def assert_config(self, session, present=(), absent=(), source="running"):
        text = session.get_config(source=source).data_xml
        for name in present:
            self.assertIn(f">{name}<", text)
        for name in absent:
            self.assertNotIn(f">{name}<", text)

    def assert_edits(self, m):
        """Each operation and each option of <edit-config>; leaves the interface "a" behind."""
        def edit(*names, operation, **options):
            m.edit_config(target="running", config=config(*names, operation=operation), **options)

        def refused(*names, operation, **options):
            with self.assertRaises(RPCError) as error:
                edit(*names, operation=operation, **options)
            return error.exception.tag

        edit("k", "l", operation="create", error_option="stop-on-error")
        self.assertEqual(refused("k", operation="create"), "data-exists")
        edit("k", operation="replace", error_option="continue-on-error")
        edit("k", operation="delete", test_option="set")
        edit("k", "l", operation="remove", default_operation="none")
        self.assert_config(m, ["a"], ["k", "l"])
        edit("n", operation="merge", test_option="test-only")
        self.assert_config(m, absent=["n"])
        rename = config("o").replace(' nc:operation="merge"', "")
        with self.assertRaises(RPCError) as missing:
            m.edit_config(target="running", config=rename, default_operation="none")
        self.assertEqual(missing.exception.tag, "data-missing")

    def assert_retrieval(self, m):
        """Filters, defaults, schemas and the library; there is one interface, "i"."""
        names = (
            f'<config xmlns="{ACL}"><access-list><interface><interface-name/></interface>'
            "</access-list></config>"
        )
        for filter in (("subtree", names), ("xpath", ({"a": ACL}, "//a:interface-name"))):
            self.assertIn(">i<", m.get(filter=filter).data_xml)
            self.assertIn(">i<", m.get_config(source="running", filter=filter).data_xml)
        status = m.get(filter=("subtree", f'<status xmlns="{ACL}"/>')).data_xml
        self.assertIn("used-entries", status)
        self.assertNotIn("access-list", status)
        for mode in ("explicit", "trim", "report-all", "report-all-tagged"):
            self.assertIn(">i<", m.get_config(source="running", with_defaults=mode).data_xml)
        self.assertIn("module acl-app {", m.get_schema("acl-app").data)
        library = '<yang-library xmlns="urn:ietf:params:xml:ns:yang:ietf-yang-library"/>'
        content = m.get(filter=("subtree", library)).data_xml
        self.assertIn("<name>acl-app</name>", content)
        content_id = re.search("<content-id>(.*?)<", content).group(1)
        self.assertTrue(any(f"content-id={content_id}" in c for c in m.server_capabilities))

    def test_every_operation(self):
        m, other = self.connect(), self.connect()
        self.assertIn(":candidate", m.server_capabilities)
        self.assertIn(":confirmed-commit:1.1", m.server_capabilities)

        m.edit_config(target="running", config=config("a"), test_option="test-then-set",
                      error_option="rollback-on-error")
        with self.assertRaises(RPCError) as refused:
            m.edit_config(target="running", config=config("b", operation="delete"))
        self.assertEqual(refused.exception.tag, "data-missing")
        self.assertIn("acl-app:interface-name='b'", refused.exception.path)
        self.assert_edits(m)
        m.edit_config(target="running", config=config("c"), default_operation="replace")
        self.assert_config(m, ["c"], ["a"])

        m.edit_config(target="candidate", config=config("d"))
        self.assert_config(other, absent=["d"])
        self.assert_config(other, ["c", "d"], source="candidate")
        m.validate(source="candidate")
        m.commit()
        self.assert_config(other, ["c", "d"])
        m.edit_config(target="candidate", config=config("e"))
        m.discard_changes()
        self.assert_config(m, absent=["e"], source="candidate")

        m.edit_config(target="candidate", config=config("f"))
        m.commit(confirmed=True, timeout="1")
        self.assert_config(m, ["f"])
        time.sleep(1.5)
        self.assert_config(m, absent=["f"])
        m.edit_config(target="candidate", config=config("g"))
        m.commit(confirmed=True, persist="token")
        other.cancel_commit(persist_id="token")
        self.assert_config(m, absent=["g"])
        m.edit_config(target="candidate", config=config("h"))
        m.commit(confirmed=True)
        m.commit()
        self.assert_config(other, ["h"])

        m.copy_config(
            source=f'<source xmlns="{BASE}">{config("i")}</source>', target="candidate"
        )
        m.copy_config(source="candidate", target="running")
        self.assert_config(m, ["i"], ["c", "d", "h"])
        with self.assertRaises(RPCError):
            m.delete_config(target="candidate")

        with m.locked(target="running"):
            with self.assertRaises(RPCError) as denied:
                other.lock(target="running")
            self.assertEqual(denied.exception.tag, "lock-denied")
            with self.assertRaises(RPCError) as in_use:
                other.edit_config(target="running", config=config("j"))
            self.assertEqual(in_use.exception.tag, "in-use")

        self.assert_retrieval(m)
        other_id = other.session_id
        m.kill_session(session_id=other_id)
        with self.assertRaises(Exception):
            other.get_config(source="running")
        m.close_session()
        log = self.running.log()
        self.assertIn(f"user {getpass.getuser()} (", log)
        self.assertIn(f"session {other_id}", log)

    def test_a_large_configuration_passes(self):
        m = self.connect()
        names = [f"interface-{i}" for i in range(5000)]
        m.edit_config(target="running", config=config(*names))
        self.assert_config(m, names)

    def test_the_bridge_says_when_there_is_no_daemon(self):
        self.running.stop()
        bridge = subprocess.run(
            [BRIDGE, "--socket", self.running.socket], capture_output=True, input=b"", timeout=20
        )
        self.assertEqual(bridge.returncode, 1)
        self.assertIn(b"cannot reach the daemon", bridge.stderr)
        with self.assertRaises(Exception):
            self.connect()


if __name__ == "__main__":
    unittest.main(warnings="ignore")
