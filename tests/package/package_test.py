"""The Debian package: what is in it, and what installing, upgrading, removing and purging it do to a
machine, which is a container with systemd over a throw-away root. tools/lanes package calls this.

The package is built in build/package as ./package does it, and once more with the next version. The
root is made by mmdebstrap, and kept there for the next time."""

import os
import pathlib
import re
import shutil
import subprocess
import unittest

ROOT = pathlib.Path(__file__).parents[2]
WORK = ROOT / "build/package"
TREE = WORK / "acl-app"

# Sends a denied frame every 2 ms until it is told to end; says how many came through.
FLOOD = """import os, struct, sys, time
sys.path.insert(0, "/flooding")
import send_frames as f
frame = f.mac(f.ROUTER) + f.mac(f.STATION) + struct.pack("!H", f.ETH_IPV4) + f.ipv4(
    "192.0.2.7", "10.1.2.3", f.TCP, 443)
passed = sent = 0
with f.listen("access-1", f.ETH_IPV4) as listener, f.socket.socket(f.socket.AF_PACKET,
                                                               f.socket.SOCK_RAW) as sender:
    listener.setblocking(False)
    sender.bind(("access-1-peer", 0))
    while not os.path.exists("/flooding/end"):
        sender.send(frame)
        sent += 1
        time.sleep(0.002)
        try:
            passed += listener.recv(2048) == frame
        except BlockingIOError:
            pass
print("flood:", "many" if sent > 100 else sent, "sent,", passed, "passed")
"""

CONTAINER = """
export DEBIAN_FRONTEND=noninteractive
examples=/usr/share/doc/acl-app/examples
frame() { python3 /flooding/send_frames.py access-1 access-1-peer 192.0.2.7 10.1.2.3 tcp 443 | cut -d ' ' -f 1; }
service() { systemctl is-active acl-app; systemctl is-enabled acl-app; aclctl --version; }
left() { find /etc /usr /var /run /sys/fs/bpf /lib/systemd -xdev -path '*acl-app*' ! -path '/var/*/dpkg/*' ! -path '/etc/ssh/*'; }
say() { set +x; echo "$1: $(shift; "$@" 2>&1 | tr '\\n' ' ')"; set -x; }

dpkg -i /first.deb
say installed service
say modes stat -c %a,%U:%G /var/lib/acl-app /etc/acl-app/acl-app.conf
say pages sh -c 'dpkg -L acl-app | grep -c share/man/.*gz'
useradd -m -G acl-netconf member; useradd -m -G acl-netconf,acl-netconf-admin admin; useradd stranger
say stranger su stranger -c 'aclctl show resources'
say member su member -c "aclctl apply $examples/branch.json"
say admin su admin -c "aclctl apply $examples/branch.json"
say look su member -c 'aclctl show groups | grep -c access-1'
mkdir /flooding && cp $examples/send_frames.py /flooding
say filtered frame

mkdir -p /run/sshd ~member/.ssh && cp $examples/sshd-acl-app.conf /etc/ssh/sshd_config.d/acl-app.conf
ssh-keygen -q -t ed25519 -N '' -f /key && cp /key.pub ~member/.ssh/authorized_keys
rm -f /run/nologin && systemctl restart ssh
remote() { ssh -i /key -o StrictHostKeyChecking=no -o BatchMode=yes "$@" </dev/null | grep -c urn:ietf:params:netconf:base:1.1; }
say subsystem remote -q -p 830 -s member@127.0.0.1 netconf
say forced remote -q -p 830 member@127.0.0.1 true
say shell remote -q -p 22 member@127.0.0.1 true

sed -i 's/^filter_capacity = .*/filter_capacity = 500/' /etc/acl-app/acl-app.conf
python3 /flood & flood=$!
dpkg -i --force-confold /second.deb
say upgraded service
say running sh -c 'aclctl show commits | tail -1'
say capacity aclctl show resources
dpkg -r acl-app
sleep 0.5; touch /flooding/end; wait $flood
say removed frame
say service systemctl is-active acl-app
say kept ls /etc/acl-app /var/lib/acl-app

dpkg -i /second.deb
say again frame
dpkg -i /metrics.deb
say metrics sh -c 'systemctl is-active acl-app-metrics; ps -o user:20= -C acl-app-metrics; sleep 6; python3 -c "import urllib.request as r
print(r.urlopen(\\"http://127.0.0.1:9830/metrics\\").read().decode())" | grep ^acl_app_up'
dpkg --purge acl-app-metrics
say commits sh -c 'aclctl show commits | tail -1'
dpkg --purge acl-app
say purged frame
say left left
say groups getent group acl-netconf acl-netconf-admin

dpkg -i /first.deb && aclctl apply $examples/branch.json
say anew frame
dpkg -r acl-app && dpkg --purge acl-app
say later frame
say nothing left
journalctl -u acl-app -o cat --no-pager -p warning
"""

# What the container says, by key.
SAID = {
    "installed": "active enabled aclctl FIRST",
    "modes": "700,root:root 644,root:root",
    "pages": "4",
    "stranger": '.*only members of the group "acl-netconf" may connect.*',
    "member": ".*member may read, but not change anything.*",
    "admin": "commit 2 applied: .*",
    "look": "12",
    "filtered": "dropped",
    "subsystem": "1", "forced": "1", "shell": "0",
    "upgraded": "active enabled aclctl SECOND",
    "running": " *2 .*admin .*applied at the start",
    "capacity": ".* L3 +500 .*",
    "flood": "many sent, 0 passed",
    "removed": "dropped",
    "service": "inactive",
    "kept": ".*acl-app.conf .*configuration.db .*",
    "again": "dropped",
    "metrics": "active acl-app-metrics acl_app_up 1",
    "commits": " *2 .*admin .*applied at the start",
    "purged": "passed", "left": "",
    "groups": "acl-netconf:.*:acl-app-metrics,admin,member acl-netconf-admin:.*:admin",
    "anew": "dropped", "later": "passed", "nothing": "",
}


def run(*command, **options):
    """Runs a command and returns what it printed; fails with that."""
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          check=False, **options)
    if done.returncode != 0:
        raise AssertionError(f"{command[:4]} failed:\n{done.stdout[-5000:]}")
    return done.stdout


def the_one(files):
    found = list(files)
    assert len(found) == 1, found
    return found[0]


def build(*options, **environment):
    """Builds the package; where it is, its version, and its list of changes."""
    run("./package", *options, cwd=ROOT, env={**os.environ, **environment})
    package = the_one(WORK.glob("acl-app_*.deb"))
    return package, package.name.split("_")[1], the_one(WORK.glob("*.changes"))


def throw_away_root(package):
    """A root with all that the package needs, kept for the next time; none, with the reason."""
    wanted = ", ".join(run("dpkg-deb", "-f", of, "Depends").strip() for of in
                       (package, the_one(WORK.glob("acl-app-metrics_*.deb"))))
    wanted = re.sub(r"acl-app \(= [^)]*\), ", "", wanted)
    root, made_for = WORK / "root", WORK / "root.depends"
    if made_for.exists() and made_for.read_text() == wanted:
        return root, None
    shutil.rmtree(root, ignore_errors=True)
    made = subprocess.run(
        ["mmdebstrap", "--quiet", "--variant=minbase",
         "--include=systemd,systemd-sysv,iproute2,procps,python3,openssh-server,passwd",
         f"--customize-hook=chroot \"$1\" apt-get satisfy -y --no-install-recommends '{wanted}'",
         "bookworm", root], capture_output=True, text=True, check=False)
    if made.returncode != 0:
        return None, "no root is to be had: " + made.stderr[-300:]
    made_for.write_text(wanted)
    return root, None


class PackageTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        for tool in ("dpkg-buildpackage", "lintian", "mmdebstrap", "man"):
            if shutil.which(tool) is None:
                raise unittest.SkipTest(f"no {tool}; tools/setup installs it")
        package, cls.version, changes = build()
        run("lintian", "--allow-root", "--fail-on", "error,warning", changes)
        the_one(WORK.glob("acl-app-dbgsym_*.deb"))
        cls.first = shutil.copy(package, WORK / "first")

    def test_all_that_is_linked_is_in_the_copyright_file(self):
        said = (ROOT / "debian/copyright").read_text()
        for program in ("acl-app", "tools/aclctl/aclctl", "tools/metrics/acl-app-metrics",
                        "tools/netconf_bridge/acl-app-netconf"):
            needed = run("objdump", "-p", TREE / "build/debian" / program)
            for library in re.findall(r"NEEDED +(?:lib)?([a-z]+)", needed):
                if library not in ("c", "m", "gcc", "stdc", "ld"):  # the toolchain's, named as such
                    self.assertIn(library, said, program)

    def test_the_manual_pages_are_sound(self):
        pages = list((TREE / "build/debian/man").iterdir())
        self.assertEqual(len(pages), 5)
        for page in pages:
            run("sh", "-c", '[ -z "$(man --warnings -l "$0" 2>&1 >/dev/null | tee /dev/stderr)" ]',
                page, env={**os.environ, "LC_ALL": "C.UTF-8", "MANWIDTH": "100"})
            self.assertNotRegex(page.read_text(), "@[A-Z_]+@")

    def test_its_life_on_a_machine(self):
        if os.geteuid() != 0 or shutil.which("systemd-nspawn") is None:
            self.skipTest("a container with systemd takes root and systemd-nspawn")
        root, reason = throw_away_root(self.first)
        if root is None:
            self.skipTest(reason)
        second, second_version, _ = build("--next", DEB_BUILD_OPTIONS="noautodbgsym")
        metrics = the_one(WORK.glob("acl-app-metrics_*.deb"))
        prepare = f"""cp {self.first} $root/first.deb; cp {second} $root/second.deb
                      cp {metrics} $root/metrics.deb
                      printf %s '{FLOOD}' >$root/flood"""
        done = subprocess.run([ROOT / "tools/container", root, prepare, CONTAINER],
                              capture_output=True, text=True, timeout=900, check=False)
        if done.returncode != 0:
            self.skipTest("no container is to be had here: " + done.stderr[-300:])
        (WORK / "life.log").write_text(done.stdout)
        said = dict(re.findall(r"(?m)^(\w+): (.*?) ?$", done.stdout))
        versions = {"FIRST": self.version, "SECOND": second_version}
        for key, wanted in SAID.items():
            with self.subTest(key):
                wanted = re.sub("FIRST|SECOND", lambda which: re.escape(versions[which[0]]), wanted)
                self.assertRegex(said.get(key, "(nothing)"), f"^{wanted}$", done.stdout)
        # Nothing else of what was done is worth a warning.
        self.assertRegex(done.stdout, r"-p warning\n.*\(member\): edit-config refused .*\n$")


if __name__ == "__main__":
    unittest.main()
