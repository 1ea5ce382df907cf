"""Starts the real daemon on a scratch directory, with the memory back end."""

import os
import pathlib
import signal
import subprocess
import tempfile
import time
import unittest

from netconf_client import Session

DAEMON = os.environ["ACL_APP_DAEMON"]
ACLCTL = os.environ["ACL_APP_ACLCTL"]
BRIDGE = os.environ["ACL_APP_BRIDGE"]
YANG = os.environ["ACL_APP_YANG"]


def until(condition, patience=20, shown=lambda: None):
    """What the condition gives, once that is true; `shown` is what there is when that takes too long."""
    deadline = time.monotonic() + patience
    while not (value := condition()):
        assert time.monotonic() < deadline, shown()
        time.sleep(0.02)
    return value


class Daemon:
    """One daemon. `settings` overrides the settings of the scratch directory."""

    def __init__(self, directory, **settings):
        self.directory = pathlib.Path(directory)
        self.settings = {
            "state_directory": self.directory / "state",
            "netconf_socket": self.directory / "netconf.sock",
            "yang_directory": YANG,
            "filter_backend": "memory",
            **settings,
        }
        self.socket = str(self.settings["netconf_socket"])
        self.log_path = self.directory / f"log.{time.monotonic_ns()}"
        self.command = [DAEMON]
        self.process = None

    def spawn(self):
        config = self.log_path.with_suffix(".conf")
        config.write_text("".join(f"{k} = {v}\n" for k, v in self.settings.items()))
        with open(self.log_path, "wb") as log:
            self.process = subprocess.Popen(
                self.command, env={**os.environ, "ACL_APP_SETTINGS": str(config)}, stderr=log
            )
        return self

    def start(self):
        """Starts it and waits until it serves."""
        self.spawn()
        deadline = time.monotonic() + 30
        while time.monotonic() < deadline and self.process.poll() is None:
            try:
                with Session(self.socket):
                    return self
            except OSError:
                time.sleep(0.01)
        raise AssertionError("the daemon did not start:\n" + self.log())

    def log(self):
        return self.log_path.read_text(errors="replace")

    def wait(self, timeout=30):
        return self.process.wait(timeout)

    def stop(self, with_signal=signal.SIGTERM):
        """Ends it; returns its exit status."""
        if self.process.poll() is None:
            self.process.send_signal(with_signal)
        return self.wait()

    def session(self, **options):
        return Session(self.socket, **options)


class DaemonTest(unittest.TestCase):
    """A scratch directory with a `state` directory, and daemons that end with the test."""

    def setUp(self):
        scratch = tempfile.TemporaryDirectory(prefix="acl-app-test.")
        self.addCleanup(scratch.cleanup)
        self.directory = pathlib.Path(scratch.name)
        (self.directory / "state").mkdir()

    def daemon(self, **settings):
        daemon = Daemon(self.directory, **settings)
        self.addCleanup(self._end, daemon)
        return daemon

    def _end(self, daemon):
        if daemon.process is not None and daemon.process.poll() is None:
            daemon.process.kill()
            daemon.process.wait()

    def write(self, name, text):
        path = self.directory / name
        path.write_text(text)
        return path

    def aclctl(self, daemon, *arguments, **options):
        return subprocess.run(
            [ACLCTL, "--socket", daemon.socket, *map(str, arguments)],
            capture_output=True,
            text=True,
            timeout=60,
            **options,
        )
