"""Test-side helpers for the stand-in WebView2 runtime.

The stand-in (tests/standin_runtime) is loaded by the program in place of
the real runtime when WEBVIEW2_BROWSER_EXECUTABLE_FOLDER names
runtime_folder(build_dir). It journals every call to the file named by
GRA_STANDIN_JOURNAL and plays the page over UDP on the port named by
GRA_STANDIN_PAGE_PORT; StandinPage is the test's end of that link.

Standard library only.
"""

import os
import queue
import socket
import threading
import time


def runtime_folder(build_dir):
    """The Linux path of the folder to hand over as WEBVIEW2_BROWSER_EXECUTABLE_FOLDER
    (converted to a Windows path, e.g. with winepath -w)."""
    return os.path.join(build_dir, "standin-runtime")


def read_journal(path):
    """The journal's lines without their line ends; [] while there is no file."""
    try:
        with open(path, "rb") as journal:
            data = journal.read()
    except FileNotFoundError:
        return []
    return data.decode("utf-8", errors="replace").splitlines()


class StandinPage:
    """Plays the page: sends commands to the stand-in and collects what the
    program posts to the page ("posted <json>" datagrams)."""

    def __init__(self, port):
        self._address = ("127.0.0.1", port)
        self._socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self._socket.bind(("127.0.0.1", 0))
        self._socket.settimeout(0.2)
        self._replies = queue.Queue()
        self._posted = []
        self._posted_changed = threading.Condition()
        self._closing = False
        self._reader = threading.Thread(target=self._read, daemon=True)
        self._reader.start()

    def _read(self):
        while not self._closing:
            try:
                data, _ = self._socket.recvfrom(65536)
            except socket.timeout:
                continue
            except OSError:
                # An ICMP "port unreachable" for a command sent before the
                # program listened; nothing to collect.
                if self._closing:
                    return
                continue
            text = data.decode("utf-8", errors="replace")
            if text.startswith("posted "):
                self._keep_posted(text[len("posted "):])
            else:
                self._replies.put(text)

    def _keep_posted(self, json_text):
        """Keeps one message the program posted to the page."""
        with self._posted_changed:
            self._posted.append(json_text)
            self._posted_changed.notify_all()

    def _drain_replies(self):
        while True:
            try:
                self._replies.get_nowait()
            except queue.Empty:
                return

    def command(self, text, timeout=5):
        """Sends one command and returns the stand-in's reply; raises
        TimeoutError when none comes."""
        self._drain_replies()
        self._socket.sendto(text.encode("utf-8"), self._address)
        try:
            return self._replies.get(timeout=timeout)
        except queue.Empty:
            raise TimeoutError("no reply from the stand-in runtime to %r" % text[:80]) from None

    def hello(self, timeout=20):
        """Waits until the program has loaded the stand-in and listens (the
        link also needs one datagram from us before "posted" messages can
        reach us). Returns True when it answered within the timeout."""
        deadline = time.monotonic() + timeout
        attempt = 0
        while time.monotonic() < deadline:
            attempt += 1
            tag = "t%d" % attempt
            self._drain_replies()
            self._socket.sendto(("hello " + tag).encode("utf-8"), self._address)
            try:
                while True:
                    reply = self._replies.get(timeout=0.3)
                    if reply == "ok " + tag:
                        return True
            except queue.Empty:
                continue
        return False

    def post(self, json_text, timeout=5):
        """The page posts json_text: "done" after the program's handler
        returned, "nohandler" before it registered one, "closed" after the
        controller was closed."""
        return self.command("post " + json_text, timeout)

    def post_fail(self, timeout=5):
        """A page message whose text cannot be taken (get_WebMessageAsJson fails)."""
        return self.command("post-fail", timeout)

    def set_scale(self, scale, timeout=5):
        """The rasterization scale the web view reports from now on."""
        return self.command("scale %s" % scale, timeout)

    def crash(self, how):
        """Makes the program's process crash inside the stand-in's callback:
        how is "access" (an access violation) or "stack" (a stack overflow).
        No reply comes."""
        self._socket.sendto(("crash " + how).encode("utf-8"), self._address)

    def posted(self, timeout=0, count=1):
        """Everything the program posted to the page so far (JSON texts in
        order). Waits up to timeout seconds until there are at least count."""
        deadline = time.monotonic() + timeout
        with self._posted_changed:
            while len(self._posted) < count:
                left = deadline - time.monotonic()
                if left <= 0:
                    break
                self._posted_changed.wait(left)
            return list(self._posted)

    def wait_posted(self, predicate, timeout=5):
        """The first posted JSON text for which predicate(text) is true,
        waiting up to timeout seconds; None when none came."""
        deadline = time.monotonic() + timeout
        with self._posted_changed:
            while True:
                for text in self._posted:
                    if predicate(text):
                        return text
                left = deadline - time.monotonic()
                if left <= 0:
                    return None
                self._posted_changed.wait(left)

    def close(self):
        self._closing = True
        self._reader.join(timeout=2)
        self._socket.close()

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()
