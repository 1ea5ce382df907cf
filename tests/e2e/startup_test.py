"""Starts that work, and those that must fail: with a clear fault and a status other than 0."""

import fcntl
import grp
import os
import pathlib
import re
import resource
import shutil
import socket
import subprocess
import unittest
import unittest.mock

from daemon import ACLCTL, BRIDGE, DAEMON, YANG, DaemonTest
from netconf_client import NAMESPACES, profile

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
        # The reason is the last line, with nothing of the kind before it.
        *before, last = daemon.log().splitlines()
        self.assertNotRegex("\n".join(before), "fault|#1|cannot start")
        for text in ("critical cannot start: ", *texts):
            self.assertIn(str(text), last)

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
        other = shutil.copytree(YANG, self.directory / "yang")
        module = other / "acl-app.yang"
        module.write_text(module.read_text().replace("leaf vlan {", "leaf lan {", 1))
        for name, value, said in [
            ("state_directory", none, none),
            ("netconf_socket", none / "netconf.sock", none),
            ("netconf_socket", precious, "no socket"),
            ("yang_directory", none, none),
            ("yang_directory", other, "acl-app.yang is not the one that the daemon was built with"),
            ("filter_backend", "magic", "filter_backend"),
            ("no_such_setting", 1, "no_such_setting"),
            ("netconf_socket_group", "no-such-group", "no-such-group"),
            ("netconf_write_group", "no-such-group", "no-such-group"),
        ]:
            with self.subTest(name, value=value):
                self.assert_fails(self.daemon(**{name: value}), said)
        self.assertEqual(precious.read_text(), "precious")

    def test_the_command_line_is_looked_at_before_anything_else(self):
        for arguments, status, said in [
            (["--version"], 0, r"^acl-app \d+\.\d+\.\d+\n$"),
            (["--help"], 0, "^Usage: acl-app .*/none\n"),
            (["--help", "x"], 2, '^acl-app: "x" is not understood\n'),
            (["start"], 2, '^acl-app: "start" is not understood\n'),
        ]:
            run = subprocess.run([DAEMON, *arguments], capture_output=True, text=True, timeout=30,
                                 env={"ACL_APP_SETTINGS": str(self.directory / "none")})
            self.assertEqual(run.returncode, status, arguments)
            self.assertRegex(run.stderr if status else run.stdout, re.compile(said, re.S))
            self.assertEqual(run.stdout if status else run.stderr, "")

    def test_settings_are_told_alike(self):
        told = subprocess.check_output([DAEMON, "--settings"], text=True)
        build, guide = pathlib.Path(DAEMON).parent, pathlib.Path(__file__).parents[2] / "docs/operator.md"
        all_told = [dict(re.findall(line, text, re.M)) for line, text in (
            (r"^(\w+) = (.*)$", told),
            (r"^(\w+) = ?(.*)$", (build / "dist/acl-app.conf").read_text()),
            (r"^\| `(\w+)` \|(?: `([^`]*)`)? \|", guide.read_text()))]
        for settings in all_told:  # where these are is of the installation
            self.assertTrue(settings.pop("yang_directory") and settings.pop("log_target"))
            self.assertEqual(settings, all_told[0])

    def test_clients_find_the_socket_in_the_settings(self):
        daemon = self.daemon().start()
        settings = str(daemon.log_path.with_suffix(".conf"))
        clients = {"aclctl": [ACLCTL, "show", "config"], "acl-app-netconf": [BRIDGE]}

        def check(status, said, user=None, **environment):
            for name, command in clients.items():
                run = subprocess.run(command, capture_output=True, text=True, timeout=30,
                                     stdin=subprocess.DEVNULL, env=environment, user=user,
                                     extra_groups=user and [])
                self.assertEqual(run.returncode, 0 if status == 0 else status[name], run.stderr)
                self.assertRegex(run.stderr, said.replace("NAME", name))

        check(0, "^$", ACL_APP_SETTINGS=settings)
        none = str(self.directory / "none")
        check(0, "^$", ACL_APP_SETTINGS=none, ACL_APP_SOCKET=daemon.socket)
        check({"aclctl": 3, "acl-app-netconf": 1}, "^NAME: settings file /.*/none cannot be read: No "
              "such file .*; ACL_APP_SOCKET or --socket names", ACL_APP_SETTINGS=none)
        if os.geteuid() == 0:
            self.directory.chmod(0o755)
            os.chown(daemon.socket, 0, grp.getgrnam("adm").gr_gid)
            check({"aclctl": 4, "acl-app-netconf": 1}, "^NAME: cannot reach .*: Permission denied "
                  '\\(only members of the group "adm" may', user=65534,
                  ACL_APP_SOCKET=daemon.socket)

    def test_an_installation_leaves_the_settings(self):
        install = ["cmake", "--install", os.path.dirname(DAEMON), "--component", "settings"]
        for content in (None, "edited"):
            subprocess.run(install, check=True, stdout=subprocess.DEVNULL,
                           env={**os.environ, "DESTDIR": str(self.directory)})
            default = next(self.directory.glob("**/acl-app.conf.default"))
            settings = default.with_suffix("")
            self.assertEqual(settings.read_text(), content or default.read_text())
            settings.write_text("edited")

    def test_an_unread_log_stops_nothing(self):
        daemon = self.daemon(log_level="debug")
        os.mkfifo(daemon.log_path)
        reader = os.open(daemon.log_path, os.O_RDONLY | os.O_NONBLOCK)
        self.addCleanup(os.close, reader)
        fcntl.fcntl(reader, fcntl.F_SETPIPE_SZ, 4096)
        with daemon.start().session() as s:
            for i in range(40):
                s.edit(profile(f"p{i}", "l3", 1), default="replace")
        shown = subprocess.check_output([ACLCTL, "--socket", daemon.socket, "show", "status"])
        self.assertRegex(shown.decode(), "log +warning +stderr, level debug; .* lost: [1-9]")
        os.read(reader, 4096)
        self.assertEqual(daemon.stop(), 0)
        self.assertIn(b" [log lines dropped before this one: ", os.read(reader, 4096))

    def test_it_takes_as_many_descriptors_as_it_may_have(self):
        soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
        resource.setrlimit(resource.RLIMIT_NOFILE, (min(soft, hard - 1), hard))
        self.addCleanup(resource.setrlimit, resource.RLIMIT_NOFILE, (soft, hard))
        daemon = self.daemon().start()
        self.assertEqual((hard, hard),
                         resource.prlimit(daemon.process.pid, resource.RLIMIT_NOFILE))

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
