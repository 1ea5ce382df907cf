"""Someone else's client over a real sshd: ncclient, through the bridge, on loopback."""

import getpass
import os
import pathlib
import re
import shutil
import socket
import subprocess
import time
import unittest
import warnings

warnings.simplefilter("ignore", DeprecationWarning)  # ncclient's own
try:
    from ncclient import manager
    from ncclient.operations import RPCError
except ImportError:
    manager = None

from daemon import DaemonTest
from netconf_client import ACL, BASE

BRIDGE = os.environ["ACL_APP_BRIDGE"]
SSHD = shutil.which("sshd", path="/usr/sbin:/usr/local/sbin:" + os.environ.get("PATH", ""))


def config(*interfaces, operation="merge"):
    content = "".join(
        f'<interface nc:operation="{operation}"><interface-name>{name}</interface-name></interface>'
        for name in interfaces
    )
    return (
        f'<config xmlns="{BASE}" xmlns:nc="{BASE}"><config xmlns="{ACL}"><access-list>{content}'
        "</access-list></config></config>"
    )


@unittest.skipIf(manager is None, "python3-ncclient is not installed")
@unittest.skipIf(SSHD is None, "openssh-server is not installed")
class SshTest(DaemonTest):
    def setUp(self):
        super().setUp()
        self.running = self.daemon().start()
        self.port = self.start_sshd()

    def start_sshd(self):
        """An sshd on loopback with keys of its own; returns its port."""
        for key in ("host_key", "user_key"):
            subprocess.run(
                ["ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", self.directory / key],
                check=True,
            )
        with socket.socket() as probe:
            probe.bind(("127.0.0.1", 0))
            port = probe.getsockname()[1]
        sshd_config = self.write(
            "sshd_config",
            f"""
Port {port}
ListenAddress 127.0.0.1
HostKey {self.directory}/host_key
PidFile {self.directory}/sshd.pid
AuthorizedKeysFile {self.directory}/user_key.pub
StrictModes no
UsePAM no
PasswordAuthentication no
PermitRootLogin prohibit-password
Subsystem netconf {BRIDGE} --socket {self.running.socket}
""",
        )
        separation = pathlib.Path("/run/sshd")
        if os.geteuid() == 0 and not separation.exists():
            separation.mkdir(mode=0o755)
            self.addCleanup(separation.rmdir)
        log = open(self.directory / "sshd.log", "wb")
        self.addCleanup(log.close)
        sshd = subprocess.Popen([SSHD, "-D", "-e", "-f", sshd_config], stderr=log)
        self.addCleanup(sshd.wait)
        self.addCleanup(sshd.terminate)
        deadline = time.monotonic() + 20
        while time.monotonic() < deadline and sshd.poll() is None:
            try:
                socket.create_connection(("127.0.0.1", port)).close()
                return port
            except OSError:
                time.sleep(0.02)
        raise AssertionError((self.directory / "sshd.log").read_text())

    def connect(self):
        session = manager.connect(
            host="127.0.0.1",
            port=self.port,
            username=getpass.getuser(),
            key_filename=str(self.directory / "user_key"),
            hostkey_verify=False,
            allow_agent=False,
            look_for_keys=False,
            timeout=30,
        )
        self.addCleanup(lambda: session.connected and session.close_session())
        return session

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

    @unittest.skipIf(shutil.which("ansible-playbook") is None, "ansible is not installed")
    def test_the_playbook_of_the_examples(self):
        example = pathlib.Path(__file__).parents[2] / "examples" / "ansible.yml"
        bad = config("bad", operation="merge").replace("</interface-name>",
                                                       "</interface-name><ingress>none</ingress>")
        playbook = self.write(
            "playbook.yml",
            f"""
- import_playbook: {example}
- hosts: all
  gather_facts: false
  connection: ansible.netcommon.netconf
  tasks:
    - ansible.builtin.assert: {{that: '"no-telnet" in running.output'}}
    - ansible.netcommon.netconf_config: {{content: '{bad}'}}
      check_mode: true
      ignore_errors: true
      register: refused
    - ansible.builtin.assert: {{that: 'refused is failed and "none" in refused.msg'}}
    - ansible.netcommon.netconf_config: {{content: '{config("good")}'}}
      check_mode: true
      register: tested
    - ansible.builtin.assert: {{that: tested is changed}}
    - ansible.builtin.meta: reset_connection
""",
        )
        m = self.connect()
        m.edit_config(target="running", config=config("spare"))
        done = subprocess.run(
            ["ansible-playbook", "-i", "127.0.0.1,", "-u", getpass.getuser(), "--private-key",
             self.directory / "user_key", "-e", f"ansible_port={self.port}", playbook],
            env={**os.environ, "HOME": str(self.directory), "ANSIBLE_HOST_KEY_CHECKING": "False",
                 "ANSIBLE_HOME": str(self.directory / "ansible"), "LC_ALL": "C.UTF-8"},
            capture_output=True, text=True, timeout=200,
        )
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        self.assert_config(m, ["no-telnet", "uplink"], ["spare", "bad", "good"])

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
