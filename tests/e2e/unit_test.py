"""The service unit: the daemon, as it is installed, started by a systemd in a container."""

import os
import pathlib
import shutil
import subprocess
import unittest

BUILD = os.path.dirname(os.environ["ACL_APP_DAEMON"])
EXAMPLES = pathlib.Path(__file__).parents[2] / "examples"

# Over this machine's root, which stays as it is, in memory. Ends with the container's output.
HOST = """set -eu
mount --make-rprivate / && mount -t tmpfs none "$0" && mkdir "$0/up" "$0/work" "$0/root"
mount -t overlay overlay -o "lowerdir=/,upperdir=$0/up,workdir=$0/work" "$0/root"
DESTDIR="$0/root" cmake --install "$1" --strip >/dev/null
cp -r "$2" "$0/root/examples" && echo "$3" >"$0/root/steps"
cat >"$0/root/etc/systemd/system/steps.service" <<END
[Service]
Type=oneshot
ExecStart=/bin/sh -x /steps
ExecStopPost=/bin/systemctl poweroff --force
END
printf '[Unit]\\nRequires=basic.target steps.service\\n' >"$0/root/etc/systemd/system/steps.target"
systemd-nspawn -q -D "$0/root" --register=no --keep-unit --private-network --capability=all \\
  --console=pipe -b systemd.unit=steps.target >&2
cat "$0/root/log"
"""
CONTAINER = """exec >/log 2>&1
groupadd netops && useradd -G netops member && useradd stranger
echo netconf_socket_group=netops >>/usr/local/etc/acl-app/acl-app.conf
for port in access-1 access-2 spare uplink; do
  ip link add $port type veth peer name $port-peer && ip link set $port up && ip link set $port-peer up
done
ip link set lo up
mount -o remount,rw /sys && mkdir -p /sys/fs/bpf && mount -t bpf bpf /sys/fs/bpf
systemctl start acl-app
nsenter --target $(systemctl show -P MainPID acl-app) --mount mkdir /sys/fs/bpf/acl-app/maps && echo pins
grep -E 'CapEff|Seccomp:' /proc/$(systemctl show -P MainPID acl-app)/status
aclctl apply /examples/branch.json
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
        scratch = pathlib.Path(f"/tmp/acl-app-unit.{os.getpid()}")
        scratch.mkdir()
        self.addCleanup(scratch.rmdir)
        run = subprocess.run(
            ["unshare", "--mount", "bash", "-c", HOST, scratch, BUILD, EXAMPLES, CONTAINER],
            capture_output=True, text=True, timeout=120)
        if run.returncode != 0:
            self.skipTest("no container is to be had here: " + run.stderr[-300:])
        for said in ["+ echo pins", "CapEff:\t000000c000001000", "Seccomp:\t2", "commit 2 applied",
                     "passed   ARP for the router", "dropped  telnet to the world",
                     "GROUP  CAPACITY", 'only members of the group "netops" may connect',
                     "field: commit 2 by root", "field: interface uplink vanished",
                     "applied at the start", "result success", "Filters of "]:
            self.assertIn(said, run.stdout)
        # Nothing is missing that the kernel could do: the warnings, behind the last step, are none.
        self.assertRegex(run.stdout, r"-p warning\n(-- No entries --\n)?$")


if __name__ == "__main__":
    unittest.main()
