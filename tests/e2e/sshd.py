"""A real sshd on loopback in front of a daemon, as ../../dist has it for NETCONF over SSH."""

import os
import pathlib
import shutil
import signal
import socket
import subprocess
import time

SSHD = shutil.which("sshd", path="/usr/sbin:/usr/local/sbin:" + os.environ.get("PATH", ""))


def make_keys(directory):
    """Makes host_key and user_key there; the user is whoever runs the test."""
    for key in ("host_key", "user_key"):
        subprocess.run(
            ["ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", pathlib.Path(directory) / key],
            check=True,
        )


class Sshd:
    """Serves `subsystem` as "netconf" on `port`, with the keys of `keys`; files are in `directory`."""

    def __init__(self, test, directory, keys, subsystem):
        self.directory = pathlib.Path(directory)
        with socket.socket() as probe:
            probe.bind(("127.0.0.1", 0))
            self.port = probe.getsockname()[1]
        self.config = self.directory / "sshd_config"
        self.config.write_text(
            f"""
Port {self.port}
ListenAddress 127.0.0.1
HostKey {keys}/host_key
PidFile none
AuthorizedKeysFile {keys}/user_key.pub
StrictModes no
UsePAM no
PasswordAuthentication no
PermitRootLogin prohibit-password
Subsystem netconf {subsystem}
"""
        )
        separation = pathlib.Path("/run/sshd")
        if os.geteuid() == 0:
            separation.mkdir(mode=0o755, exist_ok=True)
        self.process = None
        test.addCleanup(self.stop)
        self.start()

    def start(self):
        with open(self.directory / "sshd.log", "ab") as log:
            self.process = subprocess.Popen([SSHD, "-D", "-e", "-f", self.config], stderr=log,
                                            start_new_session=True)
        deadline = time.monotonic() + 20
        while time.monotonic() < deadline and self.process.poll() is None:
            try:
                socket.create_connection(("127.0.0.1", self.port)).close()
                return
            except OSError:
                time.sleep(0.02)
        raise AssertionError((self.directory / "sshd.log").read_text())

    def cut(self):
        """Ends it with all its sessions, as a line that breaks."""
        found, below = [], [self.process.pid]
        while below:
            listed = subprocess.run(["pgrep", "-P", ",".join(map(str, below))],
                                    capture_output=True, text=True, check=False)
            below = [int(pid) for pid in listed.stdout.split()]
            found += below
        self.stop()
        for pid in found:
            try:
                os.kill(pid, signal.SIGKILL)
            except ProcessLookupError:
                pass

    def stop(self):
        self.process.terminate()
        self.process.wait()
