"""Starts that work, and those that must fail: with a clear fault and a status other than 0."""

import os
import socket
import unittest
import unittest.mock

from daemon import DaemonTest
from netconf_client import NAMESPACES

XML = (
    '<config xmlns="urn:acl-app:acl"><access-list><acl-profile><ingress><access-list><acl-type>l3'
    "</acl-type><acl-name>p</acl-name><acl-priority-l3><priority>%s</priority></acl-priority-l3>"
    "<access-list-entry><ace-priority>1</ace-priority><match><vlan>7</vlan></match>"
    "</access-list-entry></access-list></ingress></acl-profile><interface><interface-name>eth0"
    "</interface-name><ingress>p</ingress></interface></access-list></config>"
)
JSON = '{"acl-app:config":{"access-list":{"interface":[{"interface-name":"eth%d"}]}}}'


class StartupTest(DaemonTest):
    def assert_fails(self, daemon, *texts):
        daemon.spawn()
        self.assertEqual(daemon.wait(), 1, daemon.log())
        faults = [line for line in daemon.log().splitlines() if "fatal fault in " in line]
        for text in texts:
            self.assertIn(str(text), faults[0])

    def test_startup_file_may_be_json(self):
        with self.daemon(startup_file=self.write("c.json", JSON % 3)).start().session() as s:
            name = s.get_config().findtext(".//acl:interface-name", None, NAMESPACES)
            self.assertEqual(name, "eth3")

    def test_bad_startup_files_end_the_start(self):
        cases = [
            ("missing.xml", None, "missing.xml"),
            ("torn.xml", XML[:100], "torn.xml"),
            ("torn.json", JSON[:40], "torn.json"),
            ("value.xml", XML % 70000, "priority"),
            ("unknown.json", '{"acl-app:config":{"bogus":1}}', "bogus"),
            ("module.json", '{"other:config":{}}', "other"),
            ("binding.xml", (XML % 1).replace("<ingress>p", "<ingress>q"), "q"),
            ("name.txt", XML % 1, "name.txt"),
        ]
        for name, content, said in cases:
            with self.subTest(name):
                path = self.directory / name if content is None else self.write(name, content)
                self.assert_fails(self.daemon(startup_file=path), said)
                self.assertFalse((self.directory / "netconf.sock").exists())

    def test_bad_settings_end_the_start(self):
        none = self.directory / "none"
        precious = self.write("file", "precious")
        for name, value, said in [
            ("state_directory", none, none),
            ("netconf_socket", none / "netconf.sock", none),
            ("netconf_socket", precious, "no socket"),
            ("yang_directory", none, none),
            ("filter_backend", "magic", "filter_backend"),
            ("no_such_setting", 1, "no_such_setting"),
            ("netconf_socket_group", "no-such-group", "no-such-group"),
            ("netconf_write_group", "no-such-group", "no-such-group"),
        ]:
            with self.subTest(name, value=value):
                self.assert_fails(self.daemon(**{name: value}), said)
        self.assertEqual(precious.read_text(), "precious")

    def test_a_second_daemon_on_the_same_state_does_not_start(self):
        first = self.daemon().start()
        self.assert_fails(
            self.daemon(netconf_socket=self.directory / "other.sock"), self.directory / "state"
        )
        with first.session() as s:
            self.assertEqual(s.used(), {"l2": 0, "l3": 0})

    def test_the_service_manager_is_told(self):
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as manager:
            manager.bind(str(self.directory / "notify"))
            manager.settimeout(30)
            told = {"NOTIFY_SOCKET": manager.getsockname(), "WATCHDOG_USEC": "200000"}
            with unittest.mock.patch.dict(os.environ, told):
                daemon = self.daemon(startup_file=self.write("c.xml", XML % 1)).spawn()
            told = [manager.recv(100)]
            while told[-1] != b"READY=1":
                told.append(manager.recv(100))
            self.assertIn(b"STATUS=commit 2 applied", told)
            with daemon.session() as s:
                self.assertEqual(s.used(), {"l2": 0, "l3": 1}, "ready means loaded and submitted")
            self.assertEqual([manager.recv(100) for _ in range(2)], [b"WATCHDOG=1"] * 2)
            self.assertEqual(daemon.stop(), 0)
            while manager.recv(100) != b"STOPPING=1":
                pass

    def test_a_socket_in_use_ends_the_start(self):
        first = self.daemon().start()
        other = self.directory / "other"
        other.mkdir()
        self.assert_fails(self.daemon(state_directory=other), first.socket, "in use")
        with first.session() as s:
            self.assertEqual(s.used(), {"l2": 0, "l3": 0})

    def test_the_socket_of_a_killed_daemon_is_replaced(self):
        first = self.daemon().start()
        first.process.kill()
        first.wait()
        self.assertTrue(os.path.exists(first.socket))
        with socket.socket(socket.AF_UNIX) as probe, self.assertRaises(ConnectionRefusedError):
            probe.connect(first.socket)
        second = self.daemon(netconf_socket_mode="0600").start()
        self.assertEqual(os.stat(second.socket).st_mode & 0o777, 0o600)
        self.assertEqual(second.stop(), 0)
        self.assertFalse(os.path.exists(second.socket))


if __name__ == "__main__":
    unittest.main()
