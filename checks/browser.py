"""A headless Chromium for the checks, driven through WebDriver."""

import base64
import json
import os
import re
import shutil
import subprocess
import time
import urllib.error
import urllib.request

from tally import TIMEOUT, Failure, need, same


class Browser:
    """A headless Chromium behind chromedriver, which speaks WebDriver: JSON over HTTP."""

    FLAGS = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
             "--disable-background-networking", "--disable-component-update", "--disable-sync",
             "--disable-dev-shm-usage", "--hide-scrollbars", "--window-size=1100,800"]

    def __init__(self, home):
        self._http = urllib.request.build_opener(urllib.request.ProxyHandler({}))
        self._log = open(home / "chromedriver.log", "w+", encoding="utf-8")
        self._driver = subprocess.Popen(["chromedriver", "--port=0"], stdout=self._log,
                                        stderr=subprocess.STDOUT,
                                        env=dict(os.environ, HOME=str(home)))
        self._session = None
        try:
            base = f"http://127.0.0.1:{self._port()}/session"
            self._session = base
            options = {"args": self.FLAGS + [f"--user-data-dir={home / 'profile'}"]}
            options["binary"] = shutil.which("chromium")
            made = self._call("POST", "", {"capabilities": {"alwaysMatch": {
                "browserName": "chrome", "goog:chromeOptions": options,
                "goog:loggingPrefs": {"browser": "ALL", "performance": "ALL"}}}})
            self._session = f"{base}/{made['sessionId']}"
        except BaseException:
            self._end_driver()
            raise

    def _port(self):
        end = time.monotonic() + TIMEOUT
        while time.monotonic() < end and self._driver.poll() is None:
            self._log.seek(0)
            found = re.search(r"successfully on port (\d+)", self._log.read())
            if found:
                return int(found[1])
            time.sleep(0.05)
        raise Failure("chromedriver does not start")

    def _call(self, method, path, body=None):
        data = None if body is None else json.dumps(body).encode()
        request = urllib.request.Request(self._session + path, data, method=method,
                                         headers={"Content-Type": "application/json"})
        try:
            with self._http.open(request, timeout=60) as answer:
                return json.load(answer)["value"]
        except urllib.error.HTTPError as error:
            raise Failure(json.load(error)["value"]["message"].split("\n")[0]) from error

    def _end_driver(self):
        self._driver.terminate()
        self._driver.wait(TIMEOUT)
        self._log.close()

    def close(self):
        try:
            self._call("DELETE", "")
        finally:
            self._end_driver()

    def load(self, path):
        self._call("POST", "/url", {"url": path.as_uri()})

    def script(self, text, *arguments):
        return self._call("POST", "/execute/sync", {"script": text, "args": arguments})

    def async_script(self, text, *arguments):
        """As script(), for one that calls its last argument with its result."""
        return self._call("POST", "/execute/async", {"script": text, "args": arguments})

    def until(self, text, expected, *arguments):
        """Waits for what a script returns."""
        end = time.monotonic() + TIMEOUT
        while (found := self.script(text, *arguments)) != expected:
            if time.monotonic() > end:
                same(text, found, expected)
            time.sleep(0.02)

    def picture(self, path):
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(base64.b64decode(self._call("GET", "/screenshot")))

    def press(self, *keys):
        """Types keys, one after the other; those without a letter as WebDriver codes them."""
        actions = [{"type": kind, "value": key} for key in keys for kind in ("keyDown", "keyUp")]
        self._call("POST", "/actions", {"actions": [{"type": "key", "id": "keys",
                                                     "actions": actions}]})

    def devtools(self, command, **parameters):
        """Carries out a command of the browser's own protocol."""
        return self._call("POST", "/goog/cdp/execute", {"cmd": command, "params": parameters})

    def log(self, kind):
        """What the browser has noted since the last time: "browser" for the console's lines,
        "performance" for events of the network."""
        return self._call("POST", "/se/log", {"type": kind})


def have_browser():
    """Whether Chromium and its driver are here; installs them where that is possible."""
    need(("chromium", "chromium"), ("chromedriver", "chromium-driver"))
    return all(shutil.which(name) for name in ("chromium", "chromedriver"))
