"""A headless Chromium for tests of pages, driven through a pipe with its debugging protocol."""

import json
import os
import shutil
import subprocess
import tempfile


def find_chromium():
    """Returns the program's path, None where it is not installed."""
    for name in ("chromium", "chromium-browser", "google-chrome"):
        if path := shutil.which(name):
            return path
    return None


class Browser:
    """One page at a time; a context manager."""

    def __init__(self, program):
        self.profile = tempfile.TemporaryDirectory(ignore_cleanup_errors=True)
        to_child, self.send_fd = os.pipe()
        self.receive_fd, from_child = os.pipe()
        # The protocol uses the descriptors 3 and 4.
        arguments = [program, "--headless", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
                     "--no-first-run", "--hide-scrollbars", f"--user-data-dir={self.profile.name}",
                     "--remote-debugging-pipe", "about:blank"]
        self.process = subprocess.Popen(
            ["bash", "-c", f'exec "$@" 3<&{to_child} 4>&{from_child}', "bash", *arguments],
            pass_fds=(to_child, from_child), stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.close(to_child)
        os.close(from_child)
        self.buffer = b""
        self.number = 0
        self.events = []
        self.session = None
        target = self.call("Target.createTarget", url="about:blank")["targetId"]
        self.session = self.call("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
        for domain in ("Page", "Network", "Runtime", "Log"):
            self.call(f"{domain}.enable")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.terminate()
        self.process.wait()
        os.close(self.send_fd)
        os.close(self.receive_fd)
        self.profile.cleanup()

    def _message(self):
        while b"\0" not in self.buffer:
            data = os.read(self.receive_fd, 1 << 20)
            if not data:
                raise RuntimeError("Chromium ended")
            self.buffer += data
        text, self.buffer = self.buffer.split(b"\0", 1)
        return json.loads(text)

    def call(self, method, **parameters):
        self.number += 1
        message = {"id": self.number, "method": method, "params": parameters}
        if self.session:
            message["sessionId"] = self.session
        os.write(self.send_fd, json.dumps(message).encode() + b"\0")
        while True:
            answer = self._message()
            if answer.get("id") == self.number:
                if "error" in answer:
                    raise RuntimeError(f"{method}: {answer['error']}")
                return answer["result"]
            self.events.append(answer)

    def open(self, path, width, height=900, dark=False):
        """Opens a file at a width [CSS pixels] and waits until it is loaded."""
        self.events.clear()
        self.call("Emulation.setDeviceMetricsOverride", width=width, height=height,
                  deviceScaleFactor=1, mobile=width < 600)
        self.call("Emulation.setEmulatedMedia",
                  features=[{"name": "prefers-color-scheme", "value": "dark" if dark else "light"}])
        self.call("Page.navigate", url="file://" + os.path.abspath(path))
        while not any(e.get("method") == "Page.loadEventFired" for e in self.events):
            self.events.append(self._message())

    def requests(self):
        """Returns the addresses of all that the page asked for."""
        return [e["params"]["request"]["url"] for e in self.events
                if e.get("method") == "Network.requestWillBeSent"]

    def complaints(self):
        """Returns what the browser has to say about the page, such as blocked scripts."""
        return [e["params"]["entry"]["text"] for e in self.events
                if e.get("method") == "Log.entryAdded"]

    def evaluate(self, expression):
        """Returns the value of a script's expression, which runs although the page allows none."""
        result = self.call("Runtime.evaluate", expression=expression, returnByValue=True)
        if "exceptionDetails" in result:
            raise RuntimeError(result["exceptionDetails"])
        return result["result"].get("value")

    def screenshot(self, path, whole=True):
        """Stores a picture of the page as PNG."""
        import base64
        data = self.call("Page.captureScreenshot", captureBeyondViewport=whole)["data"]
        with open(path, "wb") as out:
            out.write(base64.b64decode(data))
