"""acl-app-metrics: what it tells Prometheus and the page is what aclctl tells."""

import http.client
import json
import os
import re
import socket
import subprocess
import unittest

from daemon import DaemonTest, until
from netconf_client import DENY, PERMIT, interface, profile

METRICS = os.environ["ACL_APP_METRICS"]
MARKUP = "<script>alert(1)</script>"  # a name may be this, and a text all the more
SAMPLE = re.compile(r'([a-z_]+)(?:\{((?:[a-z_]+="(?:[^"\\\n]|\\["\\n])*",?)*)\})? (\S+)')


class Metrics:
    """A running acl-app-metrics, at a port of its own."""

    def __init__(self, socket_path, *options):
        self.process = subprocess.Popen(
            [METRICS, "--socket", socket_path, "--port", "0", "--interval", "1", *options],
            stderr=subprocess.PIPE, text=True)
        started = self.process.stderr.readline()
        self.port = int(re.search(r":(\d+)/ shows the daemon", started).group(1))

    def stop(self):
        self.process.terminate()
        status = self.process.wait(10)
        self.process.stderr.close()
        return status

    def ask(self, path, method="GET", **headers):
        """The answer's status, headers and body."""
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=10)
        connection.request(method, path, headers=headers)
        answer = connection.getresponse()
        body = answer.read().decode()
        connection.close()
        return answer.status, answer.headers, body

    def state(self):
        return json.loads(self.ask("/state.json")[2])

    def samples(self):
        """{(name, frozenset of labels): value}; fails where the text is not well-formed."""
        types, samples, text = {}, {}, self.ask("/metrics")[2]
        for line in text.removesuffix("\n").split("\n"):
            if kind := re.fullmatch(r"# TYPE (\w+) (gauge|counter|histogram)", line):
                assert kind[1] not in types, line
                types[kind[1]] = kind[2]
            elif not line.startswith("# HELP "):
                name, labels, value = SAMPLE.fullmatch(line).groups()
                family = re.sub("_(bucket|sum|count)$", "", name)
                assert name in types or types[family] == "histogram", line
                key = name, frozenset(re.findall(r'(\w+)="([^"]*)"', labels or ""))
                assert key not in samples, line
                samples[key] = float(value)
        return samples

    def wait(self, wanted):
        """The samples and the page's state, as soon as that is as wanted."""
        state = until(lambda: wanted(now := self.state()) and now, shown=self.state)
        return self.samples(), state


def value(samples, name, **labels):
    return samples.get((name, frozenset(labels.items())))


class MetricsTest(DaemonTest):
    def start(self, daemon, *options):
        metrics = Metrics(daemon.socket, *options)
        self.addCleanup(metrics.stop)
        return metrics

    def test_tells_what_aclctl_tells(self):
        daemon = self.daemon(filter_capacity=5, filter_threshold_l3="60 40").start()
        with daemon.session() as session:
            guests = profile("guests", "l3", 1, *[(p, "", DENY) for p in (10, 20)])
            described = guests.replace("<acl-priority", f"<description>{MARKUP.replace('<', '&lt;')}"
                                       "</description><acl-priority")
            names = interface(MARKUP.replace("<", "&lt;"), "guests") + interface("lo", "guests", "mac")
            session.edit(described + profile("mac", "l2", 2, (5, "<vlan>7</vlan>", PERMIT)), names)
        metrics = self.start(daemon)
        samples, state = metrics.wait(lambda s: s["up"] and s["findings"]["commit"] == "2")
        shown = {what: json.loads(self.aclctl(daemon, "show", what, "--json").stdout)
                 for what in ("resources", "commits", "findings")}
        resources = shown["resources"]["acl-app:status"]["acl-resources"]
        for group in ("l2", "l3"):
            of_all = resources[group]
            for name, leaf in (("capacity", "entries-capacity"), ("used", "used-entries"),
                               ("free", "available-entries")):
                self.assertEqual(value(samples, f"acl_app_group_{name}_entries", group=group),
                                 of_all[leaf])
            self.assertEqual(value(samples, "acl_app_group_nearly_full", group=group), group == "l3")
            for use in of_all["profile"]:
                self.assertEqual(value(samples, "acl_app_profile_entries", group=group,
                                       profile=use["acl-name"]), use["used-entries"])
        for one in resources["interface"]:
            for group in ("l2", "l3"):
                for use in one.get(group, {}).get("profile", []):
                    self.assertEqual(
                        value(samples, "acl_app_interface_entries", group=group,
                              interface=one["interface-name"], profile=use["acl-name"]),
                        use["used-entries"])
        commits = shown["commits"]["acl-app-commits:commits"]["commit"]
        took = [int(c["duration"]) / 1e6 for c in commits if "at-start" not in c]
        self.assertEqual(value(samples, "acl_app_commits_total", result="applied"), len(took))
        self.assertAlmostEqual(value(samples, "acl_app_commit_duration_seconds_sum"), sum(took))
        self.assertEqual(value(samples, "acl_app_commit_duration_seconds_bucket", le="+Inf"), 1)
        self.assertEqual([c["id"] for c in state["commits"]], [c["id"] for c in commits][::-1])
        found = {c["kind"]: c["findings"]
                 for c in shown["findings"]["acl-app-findings:count"]}
        self.assertEqual(value(samples, "acl_app_findings", kind="absent-interface"),
                         found["absent-interface"])
        self.assertEqual(state["findings"]["total"], sum(found.values()))
        # What is not to become markup anywhere.
        self.assertIn(MARKUP, [one["name"] for one in state["interfaces"]])
        self.assertEqual({one["name"]: one["description"] for one in state["profiles"]},
                         {"guests": MARKUP, "mac": ""})
        # The memory back end counts nothing, so there is nothing to tell.
        self.assertEqual(value(samples, "acl_app_entry_hits_told"), 0)
        self.assertEqual(value(samples, "acl_app_backend", backend="memory"), 1)
        # While the daemon is away nothing is told that may be otherwise by then.
        daemon.stop()
        samples, state = metrics.wait(lambda s: not s["up"])
        self.assertEqual(value(samples, "acl_app_up"), 0)
        self.assertIsNone(value(samples, "acl_app_group_used_entries", group="l3"))
        self.assertIn("daemon", state["trouble"])
        self.assertEqual(state["groups"][1]["entries"], 4)
        daemon.start()
        samples, _ = metrics.wait(lambda s: s["up"])
        self.assertEqual(value(samples, "acl_app_restarts_total"), 1)
        self.assertEqual(metrics.stop(), 0)

    def test_only_shows_and_only_to_this_machine(self):
        metrics = self.start(self.daemon())  # which was never started
        for method, path, headers, wanted in (
                ("GET", "/", {}, 200), ("HEAD", "/", {}, 200), ("GET", "/page.js", {}, 200),
                ("GET", "/metrics", {"Host": "localhost:9830"}, 200),
                ("GET", "/metrics", {"Host": "[::1]"}, 200),
                ("GET", "/state.json", {"Host": "rebound.example"}, 403),
                ("GET", "/state.json", {"Host": "127.rebound.example"}, 403),
                ("GET", "/../etc/passwd", {}, 404), ("GET", "/nothing", {}, 404),
                ("POST", "/", {}, 405), ("DELETE", "/metrics", {}, 405),
                ("GET", "/", {"Content-Length": "5"}, 400), ("GET", "/", {"X": "x" * 20000}, 431)):
            with self.subTest(f"{method} {path} {list(headers)}"):
                status, answered, body = metrics.ask(path, method, **headers)
                self.assertEqual(status, wanted)
                if status != 431:
                    self.assertIn("default-src 'none'", answered["Content-Security-Policy"])
                self.assertEqual(body == "", method == "HEAD")
        # Those who only hold connections do not keep others out for long, nor without bound.
        held = [socket.create_connection(("127.0.0.1", metrics.port)) for _ in range(80)]
        for connection in held:
            connection.close()
        self.assertEqual(metrics.ask("/")[0], 200)

    def test_wrong_options(self):
        for options, status, said in ((["--port", "99999"], 2, "port"), (["--interval", "0"], 2, "interval"),
                                      (["--nothing"], 2, "nothing"), (["file"], 2, "file"),
                                      (["--address", "localhost"], 1, "no IP address"),
                                      (["--address", "203.0.113.1"], 1, "cannot listen at 203")):
            run = subprocess.run([METRICS, *options], capture_output=True, text=True, timeout=10)
            self.assertEqual((run.returncode, run.stdout), (status, ""), options)
            self.assertIn(said, run.stderr)


if __name__ == "__main__":
    unittest.main()
