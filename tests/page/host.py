# SPDX-License-Identifier: Apache-2.0
"""A running host, its folders, and the door by which a test asks it beside the page."""
import http.client
import json
import os
import shutil
import socket
import subprocess
import time
from pathlib import Path
from urllib.parse import quote

PATIENCE = 60  # seconds: a busy machine may take many for what is done in one
TOKEN = "a token of forty characters, or a few less".replace(" ", "-")


def await_(condition, what):
    """What `condition` gives, as soon as it is true."""
    end = time.monotonic() + PATIENCE
    while not (result := condition()):
        if time.monotonic() > end:
            raise AssertionError(f"this did not come: {what}")
        time.sleep(0.02)
    return result


class SocketConnection(http.client.HTTPConnection):
    def __init__(self, path):
        super().__init__("localhost", timeout=PATIENCE)
        self.path = path

    def connect(self):
        self.sock = socket.socket(socket.AF_UNIX)
        self.sock.settimeout(PATIENCE)
        self.sock.connect(str(self.path))


class Site:
    """`sections` are those of the configuration beside "loader" and "door"; "load-list" has `plugins`."""

    def __init__(self, host, folder, plugins, sections):
        self.host = host
        self.folder = Path(folder)
        self.put_count = 0
        self.deployed, self.hot_deploy, self.inbox, self.runtime = (
            self.folder / name for name in ("deployed", "hot-deploy", "inbox", "run"))
        for each in (self.deployed, self.hot_deploy, self.inbox, self.runtime):
            each.mkdir()
        self.token_file = self.folder / "token"
        self.token_file.touch(mode=0o600)
        self.token_file.write_text(TOKEN + "\n")
        self.sections = sections
        self.plugins = plugins
        self.port = 0  # any, until it is known
        self.process = None

    def start(self):
        configuration = {
            "loader": {"deployed": str(self.deployed), "hot-deploy": str(self.hot_deploy), "inbox": str(self.inbox),
                       "load-list": self.plugins},
            "door": {"listen": f"127.0.0.1:{self.port}", "token-file": str(self.token_file)}, **self.sections}
        file = self.folder / "greetings.json"
        file.write_text(json.dumps(configuration, indent=4))
        with open(self.folder / "log", "a", encoding="utf-8") as log:
            environment = {**os.environ, "RUNTIME_DIRECTORY": str(self.runtime)}
            self.process = subprocess.Popen([self.host, str(file)], stdout=log, stderr=log, env=environment)
        await_(self.is_ready, "the host is ready")
        self.port = int(next(place for place in self.report()["host"]["door"] if ":" in place).rsplit(":", 1)[1])

    def is_ready(self):
        if self.process.poll() is not None:
            raise AssertionError(f"the host has ended: {self.written()}")
        try:
            return self.ask("GET", "/readyz")["ok"]
        except (FileNotFoundError, ConnectionRefusedError, ValueError):
            return False

    def stop(self):
        """Its exit status."""
        self.process.terminate()
        return self.process.wait(PATIENCE)

    def written(self):
        return (self.folder / "log").read_text(encoding="utf-8", errors="replace")

    @property
    def address(self):
        return f"http://127.0.0.1:{self.port}/"

    def ask(self, method, path, body=None):
        sockets = list(self.runtime.glob("*.sock"))
        if len(sockets) != 1:
            raise FileNotFoundError("there is no door yet")
        connection = SocketConnection(sockets[0])
        try:
            connection.request(method, path, json.dumps(body or {}), {"Content-Type": "application/json"})
            return json.loads(connection.getresponse().read())
        finally:
            connection.close()

    def report(self):
        return self.ask("GET", "/v1/report")

    def call(self, url, **given):
        answer = self.ask("POST", f"/v1/call?url={quote(url)}", given)
        if not answer.get("handled"):
            raise AssertionError(f"{url}: {answer}")

    def running(self, plugin):
        """The name of the plugin's file that was loaded last; None if none is in memory."""
        loaded = [each for each in self.report()["plugins"] if each["plugin"] == plugin and each["inMemory"]]
        return max(loaded, key=lambda each: each["loadedSince"])["file"] if loaded else None

    def deploy(self, file, name=None):
        """Before the start: `file` is there."""
        shutil.copy(file, self.deployed / (name or Path(file).name))

    def put(self, folder, file, name=None):
        """Into a watched folder, in one step, and each time as another version: a host does not go back to the same."""
        name = name or Path(file).name
        shutil.copy(file, self.folder / name)
        self.put_count += 1
        with open(self.folder / name, "ab") as copy:
            copy.write(str(self.put_count).encode())
        os.rename(self.folder / name, folder / name)
