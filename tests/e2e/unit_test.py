"""The service unit: the daemon, as it is installed, started by a systemd in a container."""

import os
import pathlib
import shutil
import subprocess
import unittest

BUILD = os.path.dirname(os.environ["ACL_APP_DAEMON"])
SOURCE = pathlib.Path(__file__).parents[2]

CONTAINER = """
groupadd netops && useradd -G netops member && useradd stranger
echo netconf_socket_group=netops >>/usr/local/etc/acl-app/acl-app.conf
systemctl start acl-app
nsenter --target $(systemctl show -P MainPID acl-app) --mount mkdir /sys/fs/bpf/acl-app/maps && echo pins
grep -E 'CapEff|Seccomp:' /proc/$(systemctl show -P MainPID acl-app)/status
grep 'open files' /proc/$(systemctl show -P MainPID acl-app)/limits
aclctl apply /examples/branch.json
aclctl show status
python3 /examples/send_frames.py access-1 access-1-peer
su member -c 'aclctl show resources'
su stranger -c 'aclctl show resources'
systemctl restart acl-app
aclctl show commits
ip link del uplink
sleep 0.2
journalctl -o cat --no-pager COMMIT=2 USER=root | sed 's/^/field: /'
journalctl -o cat --no-pager INTERFACE=uplink | sed 's/^/field: /'
systemctl stop acl-app
echo "result $(systemctl show -P Result acl-app)"
aclctl flush
journalctl -u acl-app -o cat --no-pager -p warning
"""


class UnitTest(unittest.TestCase):
    def test_exposure_is_low(self):
        if shutil.which("systemd-analyze") is None:
            self.skipTest("no systemd-analyze")
        subprocess.run(
            ["systemd-analyze", "security", "--offline=true", "--threshold=20", "--no-pager",
             f"{BUILD}/dist/acl-app.service"], check=True, stdout=subprocess.DEVNULL)

    def test_the_daemon_works_under_it(self):
        if os.geteuid() != 0 or shutil.which("systemd-nspawn") is None:
            self.skipTest("a container with systemd takes root and systemd-nspawn")
        prepare = (f"DESTDIR=$root cmake --install '{BUILD}' --strip >/dev/null; "
                   f"cp -r '{SOURCE}/examples' $root/examples")
        run = subprocess.run([SOURCE / "tools/container", "/", prepare, CONTAINER],
                             capture_output=True, text=True, timeout=170)
        if run.returncode != 0:
            self.skipTest("no container is to be had here: " + run.stderr[-300:])
        for said in ["+ echo pins", "CapEff:\t000000c000001000", "Seccomp:\t2", "commit 2 applied",
                     "enforced by bpf (the best that this kernel allows) on 3 ports",
                     "passed   ARP for the router", "dropped  telnet to the world",
                     "GROUP  CAPACITY", 'only members of the group "netops" may connect',
                     "field: commit 2 by root", "field: interface uplink vanished",
                     "applied at the start", "result success", "Filters of "]:
            self.assertIn(said, run.stdout)
        self.assertRegex(run.stdout, r"Max open files +(\d+) +\1 ")
        # Nothing is missing that the kernel could do: the warnings, behind the last step, are none.
        self.assertRegex(run.stdout, r"-p warning\n(-- No entries --\n)?$")


if __name__ == "__main__":
    unittest.main()
