"""What Debian's own Prometheus and chromium make of acl-app-metrics: alerts that fire and that do not,
the dashboard's questions, and the page as people see it. tools/lanes seeing calls this."""

import contextlib
import ctypes
import http.client
import json
import pathlib
import re
import socket
import subprocess
import sys
import time
import unittest
import urllib.parse

HERE = pathlib.Path(__file__).parent
ROOT = HERE.parents[1]
sys.path.insert(0, str(ROOT / "tests/e2e"))

from browser import Browser  # noqa: E402: found by the path above
from daemon import DaemonTest, until  # noqa: E402
from metrics_test import MARKUP, Metrics  # noqa: E402
from netconf_client import DENY, PERMIT, interface, profile  # noqa: E402

DIST = ROOT / "dist/prometheus"
PICTURES = ROOT / "build/seeing"
CLONE_NEWNET = 0x40000000


def promtool(*arguments, text=None):
    done = subprocess.run(["promtool", *arguments], input=text, capture_output=True, text=True)
    assert done.returncode == 0, done.stdout + done.stderr


class PrometheusTest(DaemonTest):
    def start_prometheus(self, port):
        rules = re.sub(r"for: \d+m", "for: 0s", (DIST / "acl-app.rules.yml").read_text())
        self.write("rules.yml", rules)
        config = self.write("prometheus.yml", "global: {scrape_interval: 1s, evaluation_interval: 1s}\n"
                            "rule_files: [rules.yml]\nscrape_configs: [{job_name: acl-app, "
                            f"static_configs: [{{targets: ['127.0.0.1:{port}']}}]}}]\n")
        with socket.socket() as free:
            free.bind(("127.0.0.1", 0))
            self.port = free.getsockname()[1]
        process = subprocess.Popen(
            ["prometheus", f"--config.file={config}", f"--storage.tsdb.path={self.directory}/tsdb",
             f"--web.listen-address=127.0.0.1:{self.port}"], stderr=subprocess.DEVNULL)
        self.addCleanup(process.wait)
        self.addCleanup(process.terminate)

    def asked(self, path):
        try:
            with contextlib.closing(
                    http.client.HTTPConnection("127.0.0.1", self.port, timeout=10)) as connection:
                connection.request("GET", "/api/v1/" + path)
                return json.loads(connection.getresponse().read())
        except (OSError, ValueError):  # it is about to start, and "Service Unavailable" is no JSON
            return {"status": "error", "data": {"alerts": []}}

    def firing(self):
        return {alert["labels"]["alertname"] for alert in self.asked("alerts")["data"]["alerts"]
                if alert["state"] == "firing"}

    def query(self, expression):
        answer = self.asked("query?query=" + urllib.parse.quote(expression))
        self.assertEqual(answer["status"], "success", (expression, answer))
        return answer["data"]["result"]

    def test_what_is_shipped_is_sound(self):
        promtool("check", "rules", DIST / "acl-app.rules.yml")
        promtool("test", "rules", HERE / "rules_test.yml")

    def test_alerts_fire_and_end(self):
        daemon = self.daemon(filter_capacity=4).start()
        metrics = Metrics(daemon.socket)
        self.addCleanup(lambda: metrics.process.poll() is None and metrics.stop())
        self.start_prometheus(metrics.port)
        entries = [(p, f"<destination-port>{p}</destination-port>", DENY) for p in (10, 20, 30, 40)]
        with daemon.session() as session:
            drop_ipv6 = profile("mac", "l2", 2, (5, "<ethertype>ipv6</ethertype>", DENY))
            session.edit(profile("guests", "l3", 1, *entries[:2]) + drop_ipv6,
                         interface("lo", "guests", "mac"))
            always = {"AclAppNothingEnforced"}  # by the memory back end
            until(lambda: self.firing() == always)
            session.edit(profile("guests", "l3", 1, *entries), interface("none", "mac"))
            wanted = always | {"AclAppGroupNearlyFull", "AclAppFindings"}
            until(lambda: self.firing() == wanted)
        promtool("check", "metrics", text=metrics.ask("/metrics")[2])
        self.ask_for_the_dashboard()
        daemon.stop()
        until(lambda: self.firing() == {"AclAppDaemonAway"})
        metrics.stop()
        until(lambda: self.firing() == {"AclAppMetricsAway"})

    def ask_for_the_dashboard(self):
        """Each question of the dashboard is understood, and is about metrics that there are."""
        told = {sample["metric"]["__name__"] for sample in self.query('{job="acl-app"}')}
        dashboard = json.loads((DIST / "grafana-dashboard.json").read_text())
        questions = [target["expr"] for panel in dashboard["panels"] for target in panel["targets"]]
        self.assertGreater(len(questions), 20)
        # Only where entries are enforced.
        told |= {"acl_app_entry_hits_total"} | {f"acl_app_search_{x}" for x in
                                                ("mean_tables", "worst_tables", "worst_entries")}
        for text in [*questions, (DIST / "acl-app.rules.yml").read_text()]:
            self.assertLessEqual(set(re.findall(r"\bacl_app_\w+", text)), told)
        for question in questions:
            self.query(question.replace("$instance", ".*").replace("$__rate_interval", "1m"))


class PageTest(DaemonTest):
    """In a network namespace of its own, with the kernel's filters where it allows them."""

    @classmethod
    def setUpClass(cls):
        libc = ctypes.CDLL(None, use_errno=True)
        if libc.unshare(CLONE_NEWNET) != 0 or subprocess.run(
                "ip link set lo up && ip link add port0 type veth peer name peer0 && "
                "ip link set port0 up && ip link set peer0 up", shell=True).returncode != 0:
            raise unittest.SkipTest("no network namespace with veth pairs")
        PICTURES.mkdir(parents=True, exist_ok=True)

    def setUp(self):
        super().setUp()
        self.browser = Browser()
        self.addCleanup(self.browser.close)

    def text(self, selector):
        return self.browser.value(f"document.querySelector({json.dumps(selector)}).innerText")

    def open(self, metrics, name, **look):
        """Opens the page, and keeps a picture of it. It fits its window, whatever that is."""
        self.browser.show(f"http://127.0.0.1:{metrics.port}/", **look)
        self.browser.wait("document.getElementById('verdict').textContent !== '…'")
        self.browser.picture(PICTURES / f"{name}.png")
        self.assertEqual(self.browser.value("document.documentElement.scrollWidth"), look["width"])

    def test_the_page(self):
        daemon = self.daemon(filter_backend="kernel").start()
        self.addCleanup(self.aclctl, daemon, "flush")
        metrics = Metrics(daemon.socket)
        self.addCleanup(lambda: metrics.process.poll() is None and metrics.stop())
        until(lambda: metrics.state()["up"])
        self.open(metrics, "empty", width=1280)
        self.assertIn("0\nof 65,536 entries", self.text("[data-group=l3]"))
        self.assertEqual(self.text("#interfaces"), "No profile with entries is bound to an interface.")

        escaped = MARKUP.replace("<", "&lt;")
        entry = profile("guests", "l3", 1, (10, "<destination-port>80</destination-port>", DENY),
                        (20, "", PERMIT)).replace("<match>", f"<description>{escaped}</description><match>")
        with daemon.session() as session:
            session.edit(entry, interface("port0", "guests") + interface(escaped, "guests"),
                         options=f'<comment xmlns="urn:acl-app:netconf">{escaped} in a comment</comment>')
        until(lambda: len(metrics.state()["commits"]) == 2)
        with socket.socket(socket.AF_PACKET, socket.SOCK_RAW) as sender:
            sender.bind(("peer0", 0))
            for _ in range(20):
                sender.send(bytes.fromhex("020000000001" "020000000002" "0800" "4500001c00010000"
                                          "40110000" "0a000001" "0a000002" "1388005000080000"))
                time.sleep(0.1)
        until(lambda: any(busy["packets"] == 20 for busy in metrics.state()["busy"]))
        until(lambda: metrics.state()["findings"]["commit"] == "2")
        for name, look in (("wide", {"width": 1280}), ("narrow", {"width": 360}),
                           ("dark", {"width": 1280, "dark": True})):
            self.open(metrics, name, **look)
        self.compare(daemon)

        # The same page, while the daemon goes and comes back.
        daemon.stop()
        self.browser.wait("document.title.startsWith('away')")
        self.browser.picture(PICTURES / "away.png")
        self.assertRegex(self.text("#alert"), r"The daemon is away\.\s+What follows is as it was at 20")
        self.assertIn("4", self.text("[data-group=l3] .used"))
        daemon.start()
        self.browser.wait("!document.title.startsWith('away')")
        self.assertEqual(self.text("#alert"), "")
        metrics.stop()
        self.browser.wait("document.getElementById('alert').textContent.includes('metrics does not')")
        refused = [e["params"] for e in self.browser.told()
                   if "ERR_CONNECTION" not in json.dumps(e)]
        self.assertEqual(refused, [], "scripts that fail, and what the policy keeps from running")

    def compare(self, daemon):
        """What the page shows with what aclctl does."""
        def told(*command):
            return json.loads(self.aclctl(daemon, *command, "--json").stdout)

        resources = told("show", "resources")["acl-app:status"]["acl-resources"]
        for group in ("l2", "l3"):
            self.assertIn(f"{resources[group]['used-entries']}\nof 65,536 entries",
                          self.text(f"[data-group={group}]"))
        entries = told("show", "groups")["acl-app-filters:filters"]["group"][1]["entry"]
        hit = next(e for e in entries if e["interface"] == "port0" and e["ace-priority"] == 10)
        self.assertRegex(self.text("#busy"), "L3 guests 10 on port0\ndst-port 80 → deny\n"
                         + re.escape(MARKUP) + rf"\n.*/s\n.*/s\n{hit['hits']['packets']} in all")
        self.browser.wait("document.querySelector('#busy .line').points.length > 2")
        self.assertIn(f"{MARKUP} absent\nwaiting for it\nL3 guests 2\nport0 up\nin force",
                      self.text("#interfaces"))
        commits = told("show", "commits")["acl-app-commits:commits"]["commit"]
        self.assertEqual(
            self.browser.value("[...document.querySelectorAll('#commits tbody tr')].map("
                               "(row) => row.cells[0].innerText)"), [c["id"] for c in commits][::-1])
        self.assertIn(f"{MARKUP} in a comment", self.text("#commits"))
        found = self.aclctl(daemon, "show", "findings").stdout.splitlines()[1:]
        self.assertEqual(self.browser.value("document.querySelectorAll('#findings li').length"),
                         len(found))
        self.assertIn(f"{MARKUP} there is no such interface", self.text("#findings"))


if __name__ == "__main__":
    unittest.main()
