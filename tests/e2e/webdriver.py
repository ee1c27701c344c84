"""A small client of chromedriver's WebDriver HTTP API, standard library only.

    with Browser() as b:
        b.open(url); b.type("input[name=q]", "tea"); b.click("input[type=submit]")

Chromium runs headless with a new empty profile and no network of its own
(no updates, sync or background requests), so it talks only to the pages
a test opens. find_browser() returns None when either program is missing.
"""
import base64
import json
import os
import shutil
import subprocess
import tempfile
import urllib.error
import urllib.request

import server

CHROMIUM_ARGS = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic",
                 "--no-first-run", "--disable-background-networking",
                 "--disable-component-update", "--disable-sync",
                 "--disable-dev-shm-usage", "--window-size=1000,800"]


def find_browser():
    """(chromium, chromedriver) paths, or None."""
    found = [p if p and os.access(p, os.X_OK) else None for p in (
        "/usr/lib/chromium/chromium", server.program("chromium"), server.program("chromedriver"),
        "/usr/lib/chromium/chromedriver")]
    chromium, driver = found[0] or found[1], found[2] or found[3]
    return (chromium, driver) if chromium and driver else None


class WebDriverError(Exception):
    def __init__(self, error, message):
        super().__init__("%s: %s" % (error, message.splitlines()[0] if message else ""))
        self.error = error


class Browser:
    def __init__(self, paths=None):
        self.chromium, self.driver = paths or find_browser()
        self.proc = self.session = self.profile = None

    def __enter__(self):
        self.profile = tempfile.mkdtemp(prefix="tolm-chromium-")
        self.port = server.free_port()
        self.proc = subprocess.Popen([self.driver, "--port=%d" % self.port],
                                     stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                     stderr=subprocess.DEVNULL)

        def ready():
            try:
                return self.call("GET", "/status").get("ready")
            except OSError:
                return False
        caps = {"browserName": "chrome", "unhandledPromptBehavior": "ignore",
                "goog:chromeOptions": {
                    "binary": self.chromium,
                    "args": CHROMIUM_ARGS + ["--user-data-dir=" + self.profile]}}
        try:
            server.wait_for(ready, "chromedriver", [self.proc], 10)
            got = self.call("POST", "/session", {"capabilities": {"alwaysMatch": caps}})
        except Exception:
            self.close()
            raise
        self.session = "/session/" + got["sessionId"]
        return self

    def __exit__(self, *exc):
        self.close()

    def close(self):
        if self.session:
            try:
                self.call("DELETE", self.session)
            except Exception:  # the browser is going away anyway
                pass
            self.session = None
        server.end_process(self.proc)
        self.proc = None
        if self.profile:
            shutil.rmtree(self.profile, ignore_errors=True)
            self.profile = None

    def call(self, method, path, body=None):
        data = json.dumps(body).encode() if body is not None else None
        req = urllib.request.Request("http://127.0.0.1:%d%s" % (self.port, path), data=data,
                                     method=method,
                                     headers={"Content-Type": "application/json"})
        try:
            with urllib.request.urlopen(req, timeout=30) as r:
                return json.loads(r.read())["value"]
        except urllib.error.HTTPError as e:
            value = json.loads(e.read() or b"{}").get("value", {})
            raise WebDriverError(value.get("error", str(e.code)), value.get("message", ""))

    def cmd(self, method, path, body=None):
        return self.call(method, self.session + path, body)

    def open(self, url):
        self.cmd("POST", "/url", {"url": url})

    def find(self, css):
        got = self.cmd("POST", "/element", {"using": "css selector", "value": css})
        return "/element/" + next(iter(got.values()))

    def type(self, css, text):
        element = self.find(css)
        self.cmd("POST", element + "/clear", {})
        self.cmd("POST", element + "/value", {"text": text})

    def click(self, css):
        self.cmd("POST", self.find(css) + "/click", {})

    def submit(self, css):
        """Clicks css and waits until the next page has loaded."""
        self.js("window.tolmOld = true")
        self.click(css)
        server.wait_for(lambda: not self.js("return window.tolmOld === true || "
                                            "document.readyState !== 'complete'"),
                        "a new page after a click on " + css)

    def js(self, script, *args):
        return self.cmd("POST", "/execute/sync", {"script": script, "args": list(args)})

    def text(self, css="body"):
        return self.js("return document.querySelector(arguments[0]).textContent", css)

    def title(self):
        return self.cmd("GET", "/title")

    def url(self):
        return self.cmd("GET", "/url")

    def alert(self):
        """The text of an open alert, confirm or prompt, or None."""
        try:
            return self.cmd("GET", "/alert/text")
        except WebDriverError as e:
            if e.error == "no such alert":
                return None
            raise

    def screenshot(self, path):
        with open(path, "wb") as f:
            f.write(base64.b64decode(self.cmd("GET", "/screenshot")))
