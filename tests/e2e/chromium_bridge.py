"""The Chromium-backed WebView2 runtime from a test's side: starting its bridge
(node chromium_runtime/bridge/bridge.mjs), reading its journal, and looking
into the page through the bridge's control connection.

    with Bridge("name") as bridge:
        overlay = Overlay(..., runtime="chromium", env=bridge.program_env())
        bridge.wait_page()
        bridge.eval("document.title")
"""

import json
import os
import socket
import subprocess
import time

from harness import BUILD_DIR, scratch_dir, wait_until, wine_path

SOURCE_DIR = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", ".."))
BRIDGE_SCRIPT = os.path.join(SOURCE_DIR, "chromium_runtime", "bridge", "bridge.mjs")
RUNTIME_FOLDER = os.path.join(BUILD_DIR, "chromium-runtime")


class Bridge:
    """One bridge process, with its output and journal in a scratch folder."""

    def __init__(self, name, chromium=None, spare=True):
        self.spare = spare
        self.dir = scratch_dir(name + "-bridge")
        self.output_path = os.path.join(self.dir, "bridge-output.txt")
        self.journal_path = os.path.join(self.dir, "bridge-journal.jsonl")
        self.chromium = chromium
        self.port = None
        self.process = None
        self._output = None
        self._control = None

    def start(self):
        command = ["node", BRIDGE_SCRIPT, "--journal", self.journal_path]
        if self.chromium:
            command += ["--chromium", self.chromium]
        if self.spare:
            # "always": a new spare is started whenever one is taken (the self-check starts the program four times)
            command += ["--spare", "always" if self.spare == "always" else "yes"]
        self._output = open(self.output_path, "wb")
        self.process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=self._output,
                                        stderr=subprocess.STDOUT)
        line = wait_until(lambda: next((l for l in self.output() if l.startswith("bridge listening on ")), None), 20)
        if not line:
            self.stop()
            raise AssertionError("the bridge did not start: %r" % self.output())
        self.port = int(line.rsplit(":", 1)[1])
        # The program is started once the browser it will get is up: its cover
        # gives the page 10 s, which a cold browser start on a busy machine
        # can take alone. A spare that cannot start is no reason to wait: the
        # program's environment then starts (or fails to start) its own.
        if self.spare:
            wait_until(lambda: any(l.startswith("spare browser ") for l in self.output()), 60)
        return self

    def program_env(self, scale=None):
        """What the program's environment needs to load this runtime and find this bridge."""
        env = {"WEBVIEW2_BROWSER_EXECUTABLE_FOLDER": wine_path(RUNTIME_FOLDER),
               "GRA_CHROMIUM_BRIDGE_PORT": str(self.port)}
        if scale is not None:
            env["GRA_CHROMIUM_SCALE"] = str(scale)
        return env

    def stop(self):
        if self._control is not None:
            self._control.close()
            self._control = None
        if self.process is not None and self.process.poll() is None:
            self.process.terminate()
            try:
                self.process.wait(timeout=10)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait(timeout=10)
        if self._output is not None:
            self._output.close()
            self._output = None

    def __enter__(self):
        return self.start()

    def __exit__(self, *exc):
        self.stop()

    # -- what it says ----------------------------------------------------------

    def output(self):
        try:
            with open(self.output_path, "rb") as f:
                return f.read().decode("utf-8", "replace").splitlines()
        except FileNotFoundError:
            return []

    def journal(self):
        entries = []
        try:
            with open(self.journal_path, "rb") as f:
                for line in f.read().decode("utf-8", "replace").splitlines():
                    try:
                        entries.append(json.loads(line))
                    except ValueError:
                        pass
        except FileNotFoundError:
            pass
        return entries

    def calls(self, op=None):
        """The calls the runtime forwarded, in order; only those of one op if given."""
        return [e for e in self.journal() if e.get("event") == "call" and (op is None or e.get("op") == op)]

    def page_errors(self):
        return [e["message"] for e in self.journal() if e.get("event") == "page-error"]

    # -- the page ----------------------------------------------------------------

    def request(self, message, timeout=30):
        """Sends one control request and returns its value; raises on an error reply."""
        if self._control is None:
            self._control = _Control(self.port)
        return self._control.request(message, timeout)

    def state(self):
        return self.request({"op": "state"})

    def eval(self, expression, timeout=30):
        return self.request({"op": "eval", "expression": expression}, timeout)

    def type_text(self, text):
        """Types into the page as the web view's window does with the characters it receives."""
        return self.request({"op": "type", "text": text})

    def wait_eval(self, expression, timeout=20):
        """Polls an expression until it is truthy; returns its value, or None."""
        def probe():
            try:
                return self.eval(expression, timeout=5)
            except AssertionError:
                return None
        return wait_until(probe, timeout, interval=0.1)

    def wait_page(self, timeout=40):
        """Waits until the page is loaded from its folder and its script runs."""
        loaded = self.wait_eval("document.readyState === 'complete' && location.protocol === 'https:' && location.href", timeout)
        if not loaded:
            raise AssertionError("the page never loaded; bridge said %r, page errors %r"
                                 % (self.output(), self.page_errors()))
        return loaded


class _Control:
    def __init__(self, port):
        self.sock = socket.create_connection(("127.0.0.1", port), timeout=10)
        self.sock.sendall(b'{"op":"control"}\n')
        self.buffer = b""
        self.next_id = 0

    def request(self, message, timeout):
        self.next_id += 1
        message = dict(message, id=self.next_id)
        self.sock.sendall(json.dumps(message).encode("utf-8") + b"\n")
        deadline = time.monotonic() + timeout
        while True:
            while b"\n" in self.buffer:
                line, self.buffer = self.buffer.split(b"\n", 1)
                reply = json.loads(line.decode("utf-8"))
                if reply.get("id") == self.next_id:
                    if not reply.get("ok"):
                        raise AssertionError("the bridge refused %r: %s" % (message, reply.get("error")))
                    return reply.get("value")
            left = deadline - time.monotonic()
            if left <= 0:
                raise AssertionError("no answer from the bridge to %r" % (message,))
            self.sock.settimeout(left)
            try:
                data = self.sock.recv(65536)
            except socket.timeout:
                continue
            if not data:
                raise AssertionError("the bridge closed the control connection")
            self.buffer += data

    def close(self):
        self.sock.close()
