# SPDX-License-Identifier: BSD-3-Clause
"""A browser without a window, through the W3C WebDriver protocol of Debian's chromium-driver."""

import base64
import json
import os
import shutil
import socket
import subprocess
import tempfile
import time
import urllib.error
import urllib.request

CHROMIUM, CHROMEDRIVER = shutil.which("chromium"), shutil.which("chromedriver")


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


class Browser:
    """One browser; everything that it asks the network for goes to a proxy that answers nobody."""

    def __init__(self):
        self.folder = tempfile.TemporaryDirectory()
        port = free_port()
        self.url = f"http://127.0.0.1:{port}"
        # what starts with the environment's proxies would ask them for the address above
        self.opener = urllib.request.build_opener(urllib.request.ProxyHandler({}))
        self.driver = subprocess.Popen([CHROMEDRIVER, f"--port={port}"], stdout=subprocess.DEVNULL,
                                       stderr=subprocess.DEVNULL, start_new_session=True)
        options = {
            "binary": CHROMIUM,
            "args": ["--headless", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
                     "--hide-scrollbars", "--proxy-server=127.0.0.1:9", "--proxy-bypass-list=<-loopback>",
                     f"--user-data-dir={self.folder.name}"],
        }
        try:
            self.wait_for_driver()
            session = self.call("POST", "/session", {"capabilities": {"alwaysMatch": {
                "goog:chromeOptions": options,
                "goog:loggingPrefs": {"browser": "ALL", "performance": "ALL"}}}})
        except Exception:
            self.end_driver()
            raise
        self.session = f"/session/{session['sessionId']}"

    def __enter__(self):
        return self

    def __exit__(self, *_):
        try:
            self.call("DELETE", self.session)
        finally:
            self.end_driver()

    def end_driver(self):
        self.driver.terminate()
        self.driver.wait()
        self.folder.cleanup()

    def wait_for_driver(self):
        for _ in range(200):
            try:
                if self.call("GET", "/status")["ready"]:
                    return
            except (urllib.error.URLError, ConnectionError):
                time.sleep(0.1)
        raise RuntimeError("chromedriver does not answer")

    def call(self, method, path, body=None):
        request = urllib.request.Request(self.url + path, method=method,
                                         data=None if body is None else json.dumps(body).encode(),
                                         headers={"Content-Type": "application/json"})
        try:
            with self.opener.open(request, timeout=60) as answer:
                return json.load(answer)["value"]
        except urllib.error.HTTPError as e:
            raise RuntimeError(f"{path}: {e.read().decode()}") from e

    def cdp(self, command, **params):
        return self.call("POST", self.session + "/goog/cdp/execute", {"cmd": command, "params": params})

    def show(self, path, width, height, dark=False, phone=False):
        """Opens a file at a size in CSS pixels."""
        self.cdp("Emulation.setDeviceMetricsOverride", width=width, height=height,
                 deviceScaleFactor=2 if phone else 1, mobile=phone)
        self.cdp("Emulation.setEmulatedMedia", features=[
            {"name": "prefers-color-scheme", "value": "dark" if dark else "light"}])
        self.call("POST", self.session + "/url", {"url": "file://" + os.path.abspath(path)})

    def evaluate(self, script):
        return self.call("POST", self.session + "/execute/sync", {"script": script, "args": []})

    def screenshot(self, path):
        """The whole page, however long."""
        data = self.cdp("Page.captureScreenshot", captureBeyondViewport=True)["data"]
        with open(path, "wb") as f:
            f.write(base64.b64decode(data))

    def pdf(self, path):
        """Prints on A4."""
        data = self.call("POST", self.session + "/print",
                         {"page": {"width": 21.0, "height": 29.7}, "background": False})
        image = base64.b64decode(data)
        with open(path, "wb") as f:
            f.write(image)
        return image

    def messages(self):
        """What the page's console said since the last call."""
        return self.call("POST", self.session + "/se/log", {"type": "browser"})

    def requests(self):
        """URLs asked for since the last call."""
        events = [json.loads(e["message"])["message"]
                  for e in self.call("POST", self.session + "/se/log", {"type": "performance"})]
        return [e["params"]["request"]["url"] for e in events if e["method"] == "Network.requestWillBeSent"]
