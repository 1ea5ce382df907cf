"""Debian's chromium without a screen, driven over the DevTools protocol: JSON messages that end with
NUL, on its descriptors 3 and 4."""

import base64
import json
import os
import subprocess
import tempfile

from daemon import until


class Browser:
    def __init__(self):
        # Processes of the browser may write for a moment yet when it has ended.
        self.profile = tempfile.TemporaryDirectory(prefix="acl-app-test.", ignore_cleanup_errors=True)
        to_read, self.to = os.pipe()
        self.of, to_write = os.pipe()
        os.set_inheritable(to_read, True)
        os.set_inheritable(to_write, True)
        # The descriptors have to be these two, whatever numbers the pipes got.
        command = f'exec chromium "$@" 3<&{to_read} 4>&{to_write}'
        self.process = subprocess.Popen(
            ["sh", "-c", command, "sh", "--headless=new", "--remote-debugging-pipe", "--no-sandbox",
             "--disable-gpu", "--disable-dev-shm-usage", "--no-first-run", "--hide-scrollbars",
             f"--user-data-dir={self.profile.name}", "about:blank"],
            pass_fds=(to_read, to_write), stderr=subprocess.DEVNULL)
        os.close(to_read)
        os.close(to_write)
        self.buffer, self.last, self.events, self.session = b"", 0, [], None
        target = self.call("Target.createTarget", url="about:blank")["targetId"]
        self.session = self.call("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
        for domain in ("Page", "Runtime", "Network", "Log"):
            self.call(f"{domain}.enable")

    def close(self):
        self.session = None
        self.call("Browser.close")
        self.process.wait(20)
        os.close(self.to)
        os.close(self.of)
        self.profile.cleanup()

    def call(self, method, **parameters):
        """The result of a command; what the browser tells meanwhile is kept in `events`."""
        self.last += 1
        message = {"id": self.last, "method": method, "params": parameters}
        if self.session:
            message["sessionId"] = self.session
        os.write(self.to, json.dumps(message).encode() + b"\0")
        while True:
            while b"\0" not in self.buffer:
                data = os.read(self.of, 1 << 20)
                assert data, "the browser has ended"
                self.buffer += data
            text, _, self.buffer = self.buffer.partition(b"\0")
            answer = json.loads(text)
            if answer.get("id") == self.last:
                assert "error" not in answer, answer
                return answer["result"]
            self.events.append(answer)

    def show(self, url, width=1280, height=900, dark=False):
        """Opens a page in a window of that size."""
        self.call("Emulation.setDeviceMetricsOverride", width=width, height=height,
                  deviceScaleFactor=1, mobile=width < 600)
        self.call("Emulation.setEmulatedMedia", features=[
            {"name": "prefers-color-scheme", "value": "dark" if dark else "light"}])
        self.call("Page.navigate", url=url)
        self.wait(f"location.href === {json.dumps(url)} && document.readyState === 'complete'")

    def value(self, expression):
        """What an expression is in the page."""
        result = self.call("Runtime.evaluate", expression=expression, returnByValue=True)
        assert "exceptionDetails" not in result, result
        return result["result"].get("value")

    def wait(self, expression):
        """Waits until an expression holds in the page, and returns its value."""
        return until(lambda: self.value(expression),
                     shown=lambda: (expression, self.value("document.body.innerText")))

    def picture(self, path):
        """The whole page as a PNG file."""
        shot = self.call("Page.captureScreenshot", captureBeyondViewport=True, format="png")
        path.write_bytes(base64.b64decode(shot["data"]))

    def told(self):
        """What the page's console, its policy and its script complained of."""
        return [e for e in self.events if e["method"] in ("Log.entryAdded", "Runtime.exceptionThrown")]
