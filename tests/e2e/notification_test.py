"""Notifications over a real sshd, read by someone else's client: each kind, replay, who does not read."""

import datetime
import getpass
import re
import signal
import socket
import time
import unittest

from daemon import Daemon
from netconf_client import ACL, BASE, DENY, interface, profile
from ssh_test_case import RPCError, SshTestCase

NOTIFICATION = "urn:ietf:params:xml:ns:netconf:notification:1.0"
LONG_AGO = "2020-01-01T00:00:00Z"


def told(notification):
    """Name of the event and its leaves as {name: text}; of lists the last entry counts."""
    event = notification.notification_ele[1]
    leaves = {leaf.tag.split("}")[1]: leaf.text for leaf in event.iter() if len(leaf) == 0}
    return event.tag.split("}")[1], leaves


class NotificationTest(SshTestCase):
    settings = {"filter_capacity": 10, "filter_threshold_l3": "80 50"}

    def take(self, session, name, **leaves):
        """The leaves of the next notification `name`, which must have those given."""
        while True:
            notification = session.take_notification(timeout=20)
            self.assertIsNotNone(notification, f"no {name}")
            event, has = told(notification)
            if event == name:
                self.assertEqual(has, {**has, **leaves}, notification.notification_xml)
                return has

    def edit(self, session, *lists, target="running", operation="merge"):
        config = (f'<config xmlns="{BASE}" xmlns:nc="{BASE}"><config xmlns="{ACL}"><access-list>'
                  f'{"".join(lists)}</access-list></config></config>')
        session.edit_config(target=target, config=config, default_operation=operation)

    def web(self, *numbers):
        entries = profile("web", "l3", 1, *((n, "", DENY) for n in numbers))
        return f"<acl-profile><ingress>{entries}</ingress></acl-profile>" + interface("e0", "web")

    def test_each_kind(self):
        m, other = self.connect(), self.connect()
        user = {"username": getpass.getuser(), "session-id": other.session_id}
        self.assertIn(":notification:1.0", m.server_capabilities)
        self.assertIn(":interleave:1.0", m.server_capabilities)
        m.create_subscription()
        self.edit(other, self.web(*range(1, 9)))
        change = self.take(m, "netconf-config-change", **user, datastore="running", commit="2",
                           operation="create", changes="20")
        self.assertTrue(change["target"].endswith("acl-app:interface[acl-app:interface-name='e0']"))
        self.take(m, "group-threshold", group="l3", state="raised", entries="8", threshold="80")
        self.take(m, "commit-outcome", commit="2", result="applied", type="l3", entries="8",
                  user=user["username"])
        self.edit(other, self.web(1, 2), operation="replace")
        self.take(m, "group-threshold", group="l3", state="cleared", entries="2", threshold="50")

        step = "netconf-confirmed-commit"
        for n in range(3, 6):  # confirmed, cancelled, and forgotten
            self.edit(other, self.web(n), target="candidate")
            other.commit(confirmed=True, timeout="300")
            self.take(m, step, **user, **{"confirm-event": "start", "timeout": "300"})
            other.commit(confirmed=True, timeout="1" if n == 5 else "200")
            self.take(m, step, **{"confirm-event": "extend"})
            if n == 3:
                other.commit()
                self.take(m, step, **user, **{"confirm-event": "complete"})
            elif n == 4:
                other.cancel_commit()
                self.assertIn("server", self.take(m, "netconf-config-change"))
                self.take(m, step, **user, **{"confirm-event": "cancel"})
        self.assertNotIn("username", self.take(m, step, **{"confirm-event": "timeout"}))

        third = self.connect()
        self.take(m, "netconf-session-start", **{**user, "session-id": third.session_id})
        m.kill_session(session_id=third.session_id)
        self.take(m, "netconf-session-end", **{"termination-reason": "killed",
                                               "killed-by": m.session_id})
        other.close_session()
        self.take(m, "netconf-session-end", **user, **{"termination-reason": "closed"})
        with self.running.session() as plain:
            plain.get_config()
        self.take(m, "netconf-session-end", **{"termination-reason": "dropped"})
        with socket.socket(socket.AF_UNIX) as wrong:
            wrong.connect(self.running.socket)
            wrong.sendall(b"<goodbye/>]]>]]>")
            self.take(m, "netconf-session-end", **{"termination-reason": "bad-hello"})
        self.assertIn("web", m.get_config(source="running").data_xml)  # a session like any other

    def test_replay_over_a_restart(self):
        m = self.connect()
        self.edit(m, self.web(*range(1, 9)))
        self.running.stop(signal.SIGKILL)
        self.running = Daemon(self.directory, **self.settings)
        self.addCleanup(self._end, self.running)
        self.running.start()
        m = self.connect()
        self.edit(m, self.web(1), operation="replace")
        with self.assertRaises(RPCError) as refused:
            m.create_subscription(start_time="2099-01-01T00:00:00Z")
        self.assertEqual(refused.exception.tag, "bad-element")
        stop = datetime.datetime.now(datetime.timezone.utc) + datetime.timedelta(seconds=1)
        wanted = (f'<filter xmlns="{NOTIFICATION}" xmlns:n="urn:acl-app:notifications" type="xpath" '
                  'select="/n:commit-outcome | /n:group-threshold"/>')
        m.create_subscription(filter=wanted, start_time=LONG_AGO, stop_time=stop.isoformat())
        for expected in ("1 applied", "l3 raised", "2 applied", "2 applied", "l3 cleared", "3 applied"):
            has = told(m.take_notification(timeout=20))[1]
            got = has.get("commit") or has["group"], has.get("result") or has["state"]
            self.assertEqual(" ".join(got), expected)
        self.assertEqual(told(m.take_notification(timeout=20))[0], "replayComplete")
        self.edit(m, self.web(3))
        self.take(m, "commit-outcome", commit="4")
        self.assertEqual(told(m.take_notification(timeout=20))[0], "notificationComplete")
        m.create_subscription()
        streams = m.get(("subtree", '<netconf xmlns="urn:ietf:params:xml:ns:netmod:notification"/>'))
        self.assertRegex(streams.data_xml, "<name>NETCONF<.*replaySupport>true<")
        shown = self.aclctl(self.running, "events").stdout
        self.assertRegex(shown, r"(?m)^\S+ \S+ +commit-outcome +commit=2 user=\S+ session-id=\d+ "
                         r"result=applied duration=\d+ type=l2 entries=0 type=l3 entries=8$")

    def test_who_does_not_read_holds_up_nobody(self):
        m = self.connect()
        m.create_subscription()
        with self.running.session() as deaf, self.running.session() as writer:
            deaf.ok(f'<create-subscription xmlns="{NOTIFICATION}"/>')
            slowest = 0
            for i in range(150):
                lists = (interface(f"e{n}", operation="merge" if i % 2 == 0 else "delete")
                         for n in range(64))
                start = time.monotonic()
                writer.edit(others="".join(lists))
                slowest = max(slowest, time.monotonic() - start)
            while self.take(m, "commit-outcome", result="applied")["commit"] != "151":
                pass
            self.assertLess(slowest, 20, "it would be dropped after a minute")
            deaf.socket.settimeout(20)
            with self.assertRaises(ConnectionError):
                while True:
                    deaf.receive()
            log = self.running.log()
        self.assertRegex(log, rf"session {deaf.session_id} .*: the peer does not read its notif")
        self.assertEqual(len(re.findall("does not read", log)), 1)


if __name__ == "__main__":
    unittest.main(warnings="ignore")
