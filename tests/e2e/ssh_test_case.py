"""A test's own daemon behind an sshd, and ncclient to talk to it."""

import getpass
import unittest
import warnings

warnings.simplefilter("ignore", DeprecationWarning)  # ncclient's own
try:
    from ncclient import manager
    from ncclient.operations import RPCError
except ImportError:
    manager = RPCError = None

from daemon import BRIDGE, DaemonTest
from sshd import SSHD, Sshd, make_keys


@unittest.skipIf(manager is None, "python3-ncclient is not installed")
@unittest.skipIf(SSHD is None, "openssh-server is not installed")
class SshTestCase(DaemonTest):
    settings = {}

    def setUp(self):
        super().setUp()
        self.running = self.daemon(**self.settings).start()
        make_keys(self.directory)
        self.port = Sshd(self, self.directory, self.directory,
                         f"{BRIDGE} --socket {self.running.socket}").port

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
