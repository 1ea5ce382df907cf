"""The daemon on the kernel's packet filter, from a commit to the frames, in a network namespace."""

import json
import os
import pathlib
import re
import signal
import socket
import subprocess
import unittest
import xml.etree.ElementTree as ET

import network_namespace
from daemon import ACLCTL, DAEMON, DaemonTest, until
from netconf_client import FILTERS, NAMESPACES

ACLS = "urn:ietf:params:xml:ns:yang:ietf-access-control-list"
CONFIG = """<config xmlns="urn:acl-app:acl"><access-list><acl-profile><ingress><access-list>
<acl-type>l3</acl-type><acl-name>web</acl-name><acl-priority-l3><priority>1</priority>
</acl-priority-l3>%s</access-list></ingress></acl-profile><interface>
<interface-name>port0</interface-name><ingress>web</ingress></interface></access-list></config>"""
DENY = """<access-list-entry><ace-priority>%d</ace-priority><match><destination-port>%d
</destination-port></match><action><packet-handling><deny/></packet-handling></action>
</access-list-entry>"""

# What a frame costs with two entries, which rules are three each for.
SEARCH = {"bpf": r'"tables-worst": 1,\n +"entries-worst": 1\n',
          "nftables": r'"port": "port0",\n +"entries-worst": 6\n'}


def setUpModule():
    network_namespace.enter()
    add = "ip link set lo up && ip link add port0 type veth peer name peer0 && ip link set port0 up"
    if subprocess.run(add + " && ip link set peer0 up && nft list tables", shell=True).returncode:
        raise unittest.SkipTest("no veth pairs or no packet filter in a network namespace")


def send(port, count=1):
    """UDP frames to a port, into port0."""
    udp = (1234).to_bytes(2, "big") + port.to_bytes(2, "big") + bytes((0, 12, 0, 0)) + b"test"
    ip = bytes((0x45, 0, 0, 20 + len(udp), 0, 1, 0, 0, 64, 17, 0, 0, 10, 0, 0, 1, 10, 0, 0, 2))
    frame = bytes((2, 0, 0, 0, 0, 1, 2, 0, 0, 0, 0, 2, 8, 0)) + ip + udp
    with socket.socket(socket.AF_PACKET, socket.SOCK_RAW) as s:
        s.bind(("peer0", 0))
        for _ in range(count):
            s.send(frame)


class KernelTest(DaemonTest):
    def setUp(self):
        super().setUp()
        # After the daemons have ended, which may own their tables.
        self.addCleanup(subprocess.run, ["nft", "flush", "ruleset"], check=True)

    def start(self, filter_backend="nftables", **settings):
        return self.daemon(filter_backend=filter_backend, **settings).start()

    def apply(self, daemon, *entries):
        config = self.write("config.xml", CONFIG % "".join(DENY % entry for entry in entries))
        result = self.aclctl(daemon, "apply", "--replace", config)
        self.assertEqual(result.returncode, 0, result.stderr)

    def hits(self, daemon):
        """Packets that each entry of the L3 group has decided."""
        shown = json.loads(self.aclctl(daemon, "show", "groups", "--json").stdout)
        group = shown["acl-app-filters:filters"]["group"][1]
        return [int(entry["hits"]["packets"]) for entry in group.get("entry", [])]

    def counted(self, daemon, only=""):
        """The same as the operation get-hits tells it, by ace-priority."""
        with daemon.session() as session:
            reply = session.rpc(f'<get-hits xmlns="{FILTERS}">{only}</get-hits>')
        return {int(e.findtext("f:ace-priority", None, NAMESPACES)):
                int(e.findtext("f:packets", None, NAMESPACES))
                for e in reply.iterfind("f:group/f:binding/f:entry", NAMESPACES)}

    def statistics(self, daemon):
        """The same as RFC 8519's counters tell it, in the view and in an export, by entry."""
        with daemon.session() as session:
            view = session.get(f'<filter><acls xmlns="{ACLS}"><attachment-points/></acls></filter>')
        command = "export", "--to", "rfc8519", "--statistics", "--xml"
        exported = ET.fromstring(self.aclctl(daemon, *command).stdout)
        seen, told = ({e[0].text: int(e[1].text) for e in lists.iter(f"{{{ACLS}}}ace-statistics")}
                      for lists in (view, exported))
        self.assertEqual(seen, told)
        return seen

    def assert_hits(self, daemon, expected):
        until(lambda: self.hits(daemon) == expected, shown=lambda: self.hits(daemon))

    def tables(self):
        return subprocess.run(["nft", "list", "tables"], capture_output=True, text=True).stdout

    def test_commits_reach_frames_and_filters_outlive_the_daemon(self):
        self.commits_reach_frames("nftables")

    def test_the_same_by_tables(self):
        self.need_tables()
        self.commits_reach_frames("bpf")

    def test_a_change_of_back_end_leaves_no_filter_behind(self):
        self.need_tables()
        for backend, there, gone in (("nftables", "acl-app/port0", "acl-app-guard"),
                                     ("bpf", "acl-app-guard", "acl-app/port0"),
                                     ("nftables", "acl-app/port0", "acl-app-guard")):
            daemon = self.start(backend)
            self.apply(daemon, (1, 80))
            self.apply(daemon, (2, 443))  # an update of its own, whatever was stored
            self.assertIn(there, self.tables())
            self.assertNotIn(gone, self.tables())
            self.assertEqual(daemon.stop(), 0)
        before = " filters 1 port as before the start"
        daemon = self.start("memory")
        self.assert_status(daemon, "warning +enforced by nothing: .*; nftables" + before)
        self.assertEqual(daemon.stop(), 0)
        self.assertEqual(self.start("bpf").stop(), 0)
        # A port whose table is another process's keeps the old filter until the new one is there.
        owner = self.own_table()
        daemon = self.start("nftables")
        self.assert_status(daemon, f"error .*; bpf{before}; failed: port0")
        owner.communicate()
        self.assert_status(daemon, r"ok +enforced by nftables .* on 1 port")
        self.assertNotIn("acl-app-guard", self.tables())
        self.assertEqual(daemon.stop(), 0)
        self.assertEqual(self.aclctl(daemon, "flush").returncode, 0)

    def own_table(self):
        """A process that owns the table of port0 until it is talked to."""
        owner = subprocess.Popen(["nft", "-i"], stdin=subprocess.PIPE, text=True)
        self.addCleanup(owner.communicate)
        print("add table netdev acl-app/port0 { flags owner; }", file=owner.stdin, flush=True)
        until(lambda: "port0" in self.tables())
        return owner

    def need_tables(self):
        if not network_namespace.has_tables():
            self.skipTest("no BPF file system, or in a user namespace")

    def test_the_status_says_what_enforces_and_why(self):
        self.need_tables()
        first = self.start("bpf")
        self.apply(first, (1, 80))
        subprocess.run(["nft", "flush", "ruleset"], check=True)
        until(lambda: "acl-app-guard" in self.tables())  # the daemon puts the guards right
        (self.directory / "second").mkdir()
        second = self.start("kernel", state_directory=self.directory / "second",
                            netconf_socket=self.directory / "second.sock")
        self.apply(second, (1, 80))
        rename = "ip link set %s down && ip link set %s name %s && ip link set %s up"
        subprocess.run(rename % ("port0", "port0", "other", "other"), shell=True, check=True)
        self.addCleanup(subprocess.run, rename % ("other", "other", "port0", "port0"), shell=True,
                        check=True)
        self.assert_status(second, r"error +enforced by nftables \(not by bpf: .*: another daemon "
                           r"uses it\) on 0 ports; bpf filters 1 port as before the start, .*"
                           r"\(a running daemon has them\); no interface yet: port0")
        self.assertEqual(first.stop(), 0)
        until(lambda: "acl-app-guard" not in self.tables())  # tried until it can be done
        self.assertEqual(second.stop(), 0)
        self.assertEqual(self.aclctl(first, "flush").returncode, 0)

    def assert_status(self, daemon, line):
        shown = lambda: self.aclctl(daemon, "show", "status").stdout
        until(lambda: re.search(f"^filters +{line}$", shown(), re.M), shown=shown)

    def commits_reach_frames(self, backend):
        daemon = self.start(backend)
        self.apply(daemon, (1, 80), (2, 443))
        send(80, 3)
        send(443)
        send(22)
        self.assert_hits(daemon, [3, 1])
        shown = self.aclctl(daemon, "show", "groups", "--hits").stdout
        self.assertRegex(shown, r"dst-port 80 +deny +3 +96\n")
        for command, says in (
            (("show", "acl"), r"port0 +up +in-force\n(.*\n)+ +1 .*dst-port [a-z0-9]+ +deny +3 +96\n"),
            (("trace", "port0", "udp", "80"), r"L3: +[a-z]+ entry 1 .*\nframe is dropped\n$"),
            (("show", "commits", "--json"), r'"interfaces-in-force": 1,'),
            (("show", "groups", "--json"), SEARCH[backend]),
            (("check", self.directory / "config.xml", "--json"), SEARCH["bpf"]),
        ):
            self.assertRegex(self.aclctl(daemon, *command).stdout, says)
        self.assertRegex(daemon.log(), r"applied in .*; in force on 1 of 1 interface\n")
        self.assert_status(daemon, rf"ok +enforced by {backend} \(as filter_backend says\) on 1 port")
        refused = self.aclctl(daemon, "flush")
        self.assertEqual(refused.returncode, 5)
        self.assertIn("is running", refused.stderr)

        self.assertEqual(daemon.stop(signal.SIGKILL), -signal.SIGKILL)
        table = {"nftables": "acl-app/port0", "bpf": "acl-app-guard"}[backend]
        self.assertIn(table, self.tables())
        send(443)  # still filtered
        daemon = self.start(backend, startup_file=self.directory / "config.xml")
        self.assert_hits(daemon, [3, 2])  # and counted on
        self.apply(daemon, (1, 80), (5, 22), (2, 443))
        self.assert_hits(daemon, [3, 2, 0])
        self.assertEqual(self.counted(daemon), {1: 3, 2: 2, 5: 0})
        self.assertEqual(self.counted(daemon, "<hit/>"), {1: 3, 2: 2})
        self.assertEqual(self.statistics(daemon), {"1": 3, "2": 2, "5": 0})
        send(22)
        self.assert_hits(daemon, [3, 2, 1])

        self.assertEqual(daemon.stop(), 0)
        subprocess.run(["nft", "add", "table", "netdev", "other"], check=True)
        flushed = self.aclctl(daemon, "flush")
        self.assertEqual((flushed.returncode, flushed.stdout), (0, "Filters of 1 port removed.\n"))
        self.assertEqual(self.tables(), "table netdev other\n")

    def test_the_loop_follows_interfaces_and_repairs_damage(self):
        daemon = self.start()
        self.apply(daemon, (1, 80))
        state = lambda: json.loads(self.aclctl(daemon, "show", "groups", "--json").stdout)[
            "acl-app-filters:filters"]["port"][0]["state"]
        self.assertEqual(state(), "enforced")
        subprocess.run("ip link set port0 down; ip link set port0 name away", shell=True, check=True)
        until(lambda: state() == "absent")
        gone = "interface-state +interface=port0 link=absent filters=waiting\n"
        self.await_events(daemon, gone)
        subprocess.run("ip link set away name port0; ip link set port0 up", shell=True, check=True)
        # The peer takes a while to see that the link is up.
        until(lambda: send(80) or self.hits(daemon) != [0])
        self.assertIn("interface port0 vanished", daemon.log())
        self.await_events(daemon, gone, "interface-state +interface=port0 link=up filters=in-force\n")

        # Others either cannot do any damage, or it is put right.
        damage = ["nft", "flush", "chain", "netdev", "acl-app/port0", "l3"]
        done = subprocess.run(damage, capture_output=True, text=True)
        if done.returncode == 0:
            until(lambda: "port0 was not as it should be" in daemon.log())
            self.await_events(daemon, "filters-changed +interface=port0 put-right=true reason=")
        else:
            self.assertIn("Operation not permitted", done.stderr)
        # Without the daemon they can, until it is back.
        self.assertEqual(daemon.stop(signal.SIGKILL), -signal.SIGKILL)
        subprocess.run(damage, check=True)
        daemon = self.start(startup_file=self.directory / "config.xml")
        before = self.hits(daemon)[0]
        send(80)
        self.assert_hits(daemon, [before + 1])

    def await_events(self, daemon, *events):
        """Waits until `aclctl events` shows lines with these patterns, one after the other."""
        pattern = re.compile(".*".join(events), re.S)
        shown = lambda: self.aclctl(daemon, "events").stdout
        until(lambda: pattern.search(shown()), shown=shown)

    def test_what_is_not_in_force_is_told_of(self):
        """Another program holds a port's table, and an update is larger than the kernel takes here."""
        owner = self.own_table()
        daemon = self.start()
        outcome = "commit-outcome +commit=%d .*result=%s .*"
        for ports in ((80,), (80, 443)):
            self.aclctl(daemon, "apply", self.write("config.xml", CONFIG % "".join(
                DENY % (port, port) for port in ports)))
        self.await_events(daemon, "filters-changed +interface=port0 put-right=false reason=",
                          outcome % (2, "pending"), outcome % (2, "superseded corrected"),
                          outcome % (3, "pending"))
        owner.communicate()
        self.await_events(daemon, outcome % (3, "applied corrected"))
        daemon.stop()

        daemon = self.daemon(filter_backend="nftables", state_directory=self.directory)
        daemon.command[:0] = ["unshare", "--user", "--map-root-user", "--net"]
        daemon.start()
        limit = pathlib.Path("/proc/sys/net/core/wmem_max")  # older kernels: not in every namespace
        octets = int(limit.read_text()) if limit.exists() else 212992
        many = range(1, octets // 350)  # some 1000 octets each, of twice as many
        if len(many) > 30000:
            self.skipTest("the kernel takes larger updates than are made here")
        config = CONFIG.replace("port0", "lo") % "".join(DENY % (n, n) for n in many)
        self.assertIn("is not applied", self.aclctl(daemon, "apply", self.write(
            "config.xml", config)).stderr)
        self.await_events(daemon, outcome % (2, "failed reason=.*refused"))
        self.assert_status(daemon, "error .* on 0 ports; all frames pass, for the groups were refused")

    def rules(self):
        listed = subprocess.run(["nft", "-s", "list", "ruleset"], capture_output=True, text=True)
        return listed.stdout

    def test_damage_to_the_state_takes_no_filters_away(self):
        state = self.directory / "state"
        log, database = state / "configuration.db-wal", state / "configuration.db"

        with_file = ("with", self.directory / "config.xml")

        def flip():
            octets = bytearray(log.read_bytes())
            octets[40] ^= 4
            log.write_bytes(octets)

        def empty():
            database.write_bytes(b"")

        def lose_all():
            for file in state.iterdir():
                file.unlink()

        cases = (
            (flip, signal.SIGKILL, "nftables", "in doubt", with_file, 2),
            (log.unlink, signal.SIGKILL, "nftables", "in doubt", ("empty",), 0),
            (empty, signal.SIGTERM, "nftables", "is empty", ("empty",), 0),
            (empty, signal.SIGTERM, "bpf", "is empty", with_file, 2),
            (database.unlink, signal.SIGTERM, "nftables", "is missing", with_file, 2),
            (lose_all, signal.SIGKILL, "nftables", "nothing was ever committed", with_file, 2),
            (lose_all, signal.SIGKILL, "bpf", "nothing was ever committed", ("empty",), 0),
        )
        for damage, ended, backend, said, way_out, entries in cases:
            if backend == "bpf" and not network_namespace.has_tables():
                continue  # as a test by itself says
            with self.subTest(said, ended=ended, backend=backend):
                daemon = self.start()
                self.apply(daemon, (1, 80))
                self.apply(daemon, (1, 80), (2, 443))
                daemon.stop(ended)
                before = self.rules()
                damage()
                daemon = self.start(backend)
                stay = {"nftables": "stays so on [1-9]", "bpf": "nftables filters 1 port"}[backend]
                self.assertRegex(self.aclctl(daemon, "show", "status").stdout,
                                 f"filters +warning .*{stay}(.|\n)*storage +error.*{said}")
                self.assertRegex(daemon.log(), said)
                refused = self.aclctl(daemon, "apply", self.directory / "config.xml")
                self.assertEqual(refused.returncode, 5)
                self.assertIn("aclctl recover", refused.stderr)
                subprocess.run("ip link set port0 down; ip link set port0 up", shell=True, check=True)
                self.assertEqual(self.rules(), before)
                done = self.aclctl(daemon, "recover", *way_out)
                self.assertEqual(done.returncode, 0, done.stderr)
                if backend == "bpf":
                    until(lambda: "acl-app/port0" not in self.tables())
                else:  # a port is one rule, and two more behind IPv6's authentication header
                    self.assertEqual(self.rules().count("drop"), 3 * entries)
                self.apply(daemon, (1, 80))
                self.assertEqual(daemon.stop(), 0)
        self.assertEqual(self.aclctl(daemon, "flush").returncode, 0)

    def test_without_the_privilege_the_start_is_refused(self):
        result = subprocess.run(
            ["setpriv", "--bounding-set=-net_admin,-sys_admin", "--inh-caps=-all", DAEMON],
            env={**os.environ, "ACL_APP_SETTINGS": str(self.write("s", "\n".join(
                f"{k} = {v}" for k, v in self.daemon(filter_backend="nftables").settings.items())))},
            capture_output=True, text=True, timeout=30)
        self.assertEqual(result.returncode, 1)
        self.assertIn("it needs CAP_NET_ADMIN", result.stderr)

    def test_a_flush_that_is_refused_opens_no_port(self):
        self.need_tables()
        daemon = self.start("bpf")
        self.apply(daemon, (1, 80))
        self.assertEqual(daemon.stop(), 0)
        for way, says in (
                (("setpriv", "--bounding-set=-net_admin", "--inh-caps=-all"), "not permitted"),
                (("unshare", "-m", "sh", "-c", 'umount /sys/fs/bpf; exec "$@"', "-"),
                 "filters are in force on 1 port that cannot be removed from here")):
            result = subprocess.run([*way, ACLCTL, "--socket", daemon.socket, "flush"],
                                    capture_output=True, text=True)
            self.assertEqual(result.returncode, 7, result.stderr)
            self.assertIn(says, result.stderr)
            send(80)
        daemon = self.start("bpf")
        self.assert_hits(daemon, [2])
        self.assertEqual(daemon.stop(), 0)
        self.assertEqual(self.aclctl(daemon, "flush").returncode, 0)

    def test_a_flush_that_cannot_look_for_the_daemon_does_nothing(self):
        (self.directory / "closed").mkdir(mode=0)
        result = subprocess.run(
            ["setpriv", "--bounding-set=-dac_override,-dac_read_search", "--inh-caps=-all", ACLCTL,
             "--socket", self.directory / "closed" / "socket", "flush"],
            capture_output=True, text=True)
        self.assertEqual(result.returncode, 4)
        self.assertIn("Permission denied", result.stderr)


if __name__ == "__main__":
    unittest.main()
