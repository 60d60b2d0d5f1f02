"""Starting the real gra-overlay.exe under Wine for end-to-end tests, and
reading what it leaves behind: its log file, the keys file, the stand-in
runtime's journal, and the datagrams it sends back over the game link.

The environment comes from ctest: GRA_BUILD_DIR (the Windows build folder),
WINEPREFIX, DISPLAY (an Xvfb display) and WINEDEBUG; a test marked GRA_LANE=screen
takes the screen lane's display and prefix instead."""

import itertools
import os
import re
import shutil
import socket
import subprocess
import time
import uuid

BUILD_DIR = os.environ.get("GRA_BUILD_DIR", os.path.join(os.path.dirname(__file__), "..", "..", "build"))
BUILD_DIR = os.path.abspath(BUILD_DIR)
PROGRAM = os.path.join(BUILD_DIR, "bin", "gra-overlay.exe")
TEST_BIN = os.path.join(BUILD_DIR, "testbin")
RUNTIME_FOLDER = os.path.join(BUILD_DIR, "standin-runtime")
SCRATCH = os.path.join(BUILD_DIR, "e2e-scratch")


def _take_the_screen_lane():
    """A test that needs the screen to itself (ctest gives it GRA_LANE=screen) runs on the screen
    lane's display and Wine prefix when the run has one (scripts/in-wine-display.sh with
    GRA_SCREEN_LANE=1): one at a time there, beside the tests of the main display."""
    if os.environ.get("GRA_LANE") == "screen" and os.environ.get("GRA_SCREEN_DISPLAY"):
        os.environ["DISPLAY"] = os.environ["GRA_SCREEN_DISPLAY"]
        os.environ["WINEPREFIX"] = os.environ["GRA_SCREEN_WINEPREFIX"]


_take_the_screen_lane()

LOG_PREFIX = re.compile(r"^\[gra-overlay\] \d\d:\d\d:\d\d (.*)$", re.S)

_names = itertools.count(1)


def unique(prefix):
    """A name no other test (nor another run) uses: game titles, folders."""
    return "%s %d-%d-%s" % (prefix, os.getpid(), next(_names), uuid.uuid4().hex[:6])


def wine_path(linux_path):
    return "Z:" + os.path.abspath(linux_path).replace("/", "\\")


def free_udp_port():
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def scratch_dir(name):
    path = os.path.join(SCRATCH, re.sub(r"[^A-Za-z0-9_.-]", "_", name))
    shutil.rmtree(path, ignore_errors=True)
    os.makedirs(path)
    return path


def wait_until(predicate, timeout, interval=0.05):
    """Polls predicate until it returns something true; returns that, or None."""
    deadline = time.monotonic() + timeout
    while True:
        value = predicate()
        if value:
            return value
        if time.monotonic() >= deadline:
            return None
        time.sleep(interval)


def udp_queue_bytes(port):
    """The bytes waiting in the receive queue of the UDP socket bound to
    127.0.0.1:port (from /proc/net/udp), or None when none is bound."""
    local = "0100007F:%04X" % port
    with open("/proc/net/udp") as table:
        for line in table.readlines()[1:]:
            fields = line.split()
            if fields[1] == local:
                return int(fields[4].split(":")[1], 16)
    return None


def read_log_file(path):
    """The raw lines of a log file (CR LF line ends stripped)."""
    try:
        with open(path, "rb") as f:
            data = f.read()
    except FileNotFoundError:
        return []
    text = data.decode("utf-8", errors="replace")
    if text.endswith("\r\n"):
        text = text[:-2]
    return text.split("\r\n") if text else []


def messages_of(lines):
    """The message part of each log line (lines without the prefix are kept whole)."""
    result = []
    for line in lines:
        m = LOG_PREFIX.match(line)
        result.append(m.group(1) if m else line)
    return result


class Overlay:
    """One gra-overlay.exe process under Wine with its own log, documents
    folder, port and (by default) the stand-in WebView2 runtime."""

    def __init__(self, name, port=None, mode=None, game=None, game_class=None, show=False,
                 runtime="standin", extra_args=(), env=None, page_port=None, exe=None,
                 log=None, doc=None, data=None, raw_args=None, limited_token=False):
        self.dir = scratch_dir(name)
        # limited_token: started by run-limited.exe with the limited token
        # linked to the elevated one that Wine gives every process
        self.limited_token = limited_token
        self.port = port if port is not None else free_udp_port()
        self.log_path = log or os.path.join(self.dir, "gra_overlay.log")
        self.doc_dir = doc or os.path.join(self.dir, "Documents")
        os.makedirs(self.doc_dir, exist_ok=True)
        self.data_dir = data or os.path.join(self.dir, "webdata")
        self.journal_path = os.path.join(self.dir, "journal.txt")
        self.page_port = page_port if page_port is not None else free_udp_port()
        self.exe = exe or PROGRAM
        self.own_arguments = raw_args is None  # then the program listens on self.port
        if raw_args is not None:
            self.args = list(raw_args)
        else:
            self.args = ["--port", str(self.port), "--log", wine_path(self.log_path),
                         "--doc", wine_path(self.doc_dir), "--data", wine_path(self.data_dir)]
            if mode:
                self.args += ["--mode", mode]
            if game is not None:
                self.args += ["--game", game]
            if game_class is not None:
                self.args += ["--game-class", game_class]
            if show:
                self.args.append("--show")
        self.args += list(extra_args)
        self.env = dict(os.environ)
        self.env.pop("WEBVIEW2_BROWSER_EXECUTABLE_FOLDER", None)
        self.env.pop("WEBVIEW2_ADDITIONAL_BROWSER_ARGUMENTS", None)  # the program's own arguments only, unless asked
        if runtime == "standin":
            self.env["WEBVIEW2_BROWSER_EXECUTABLE_FOLDER"] = wine_path(RUNTIME_FOLDER)
        # runtime "chromium": the caller's env names the runtime and its bridge
        elif runtime == "empty":
            empty = os.path.join(self.dir, "no-runtime")
            os.makedirs(empty, exist_ok=True)
            self.env["WEBVIEW2_BROWSER_EXECUTABLE_FOLDER"] = wine_path(empty)
        # Wine's own diagnostics stay on: a start that Wine ends before the program's first log
        # line (once: "the program did not start: []") then says why in wine-output.txt.
        self.env["WINEDEBUG"] = "-all,err+winediag"
        self.env["GRA_STANDIN_JOURNAL"] = wine_path(self.journal_path)
        self.env["GRA_STANDIN_PAGE_PORT"] = str(self.page_port)
        self.env.update(env or {})
        self.process = None
        self._output = None

    # -- life cycle ---------------------------------------------------------

    def start(self, wait_started=True):
        self._output = open(os.path.join(self.dir, "wine-output.txt"), "ab")
        launcher = [os.path.join(TEST_BIN, "run-limited.exe")] if self.limited_token else []
        program = wine_path(self.exe) if self.limited_token else self.exe
        self.process = subprocess.Popen(["wine"] + launcher + [program] + self.args, env=self.env,
                                        stdin=subprocess.DEVNULL, stdout=self._output,
                                        stderr=subprocess.STDOUT)
        # A Wine process can take long to start on a busy machine: the wait
        # is generous, since it costs nothing when the start is quick.
        if wait_started and not self.wait_for_log(r"^started, build ", timeout=60):
            raise AssertionError("the program did not start: log %r, %s, Wine said %r"
                                 % (self.log_lines(), "still running" if self.running() else
                                    "ended with %r" % self.process.poll(), self.wine_output()[-2000:]))
        if wait_started and self.own_arguments:
            self.wait_link_bound()
        return self

    def wait_link_bound(self, timeout=30):
        """The program logs its start before it binds its game-link port: a datagram sent in
        between is lost. Waits until the port is bound (by it or, when taken, by another), the
        program has said what it does about a taken port, or it has ended."""
        wait_until(lambda: udp_queue_bytes(self.port) is not None or not self.running()
                   or self.wait_for_log(r"^port \d+ ", timeout=0) is not None, timeout)

    def wine_output(self):
        """What Wine and the program wrote on their output, as text."""
        try:
            with open(os.path.join(self.dir, "wine-output.txt"), "rb") as f:
                return f.read().decode("utf-8", errors="replace")
        except FileNotFoundError:
            return ""

    def wait_exit(self, timeout):
        try:
            return self.process.wait(timeout=timeout)
        except subprocess.TimeoutExpired:
            return None

    def running(self):
        return self.process is not None and self.process.poll() is None

    def stop(self):
        if self.process is None:
            return
        if self.process.poll() is None:
            self.process.kill()
            try:
                self.process.wait(timeout=10)
            except subprocess.TimeoutExpired:
                pass
        if self._output:
            self._output.close()
            self._output = None

    def __enter__(self):
        if self.process is None:
            self.start()
        return self

    def __exit__(self, *exc):
        self.stop()

    # -- what it leaves behind -------------------------------------------------

    def log_lines(self):
        return read_log_file(self.log_path)

    def messages(self):
        return messages_of(self.log_lines())

    def wait_for_log(self, pattern, timeout=15, after=0):
        """Waits for a log message (prefix stripped) matching pattern among the
        messages from index `after` on; returns the match object or None."""
        regex = re.compile(pattern)

        def find():
            for message in self.messages()[after:]:
                m = regex.search(message)
                if m:
                    return m
            return None
        return wait_until(find, timeout)

    def journal(self):
        try:
            with open(self.journal_path, "rb") as f:
                return f.read().decode("utf-8", errors="replace").splitlines()
        except FileNotFoundError:
            return []

    def wait_for_journal(self, pattern, timeout=15):
        regex = re.compile(pattern)
        return wait_until(lambda: next((l for l in self.journal() if regex.search(l)), None), timeout)

    def host_window(self, timeout=20):
        """The host window's handle (16 hex digits), as the stand-in runtime
        saw it when the program created its web view inside it."""
        line = self.wait_for_journal(r"environment\.CreateCoreWebView2Controller parent=", timeout)
        if not line:
            raise AssertionError("no web view was created: %r" % self.journal())
        return line.split("parent=")[1].strip()

    def wait_datagrams_read(self, timeout=10):
        """Waits until the program has read every datagram sent to its port so
        far (the loopback puts a datagram in the socket's queue before sendto
        returns, so an empty queue means it was read); true if it has."""
        return wait_until(lambda: udp_queue_bytes(self.port) == 0, timeout)

    def post_message(self, message, wparam=0, lparam=0):
        """Posts a window message to this program's host window."""
        return post_message(self.host_window(), message, wparam, lparam)

    def keys_file(self):
        try:
            with open(os.path.join(self.doc_dir, "gra_keys.txt"), "rb") as f:
                return f.read()
        except FileNotFoundError:
            return None


WM_CLOSE = 0x0010
WM_QUIT = 0x0012
WM_TIMER = 0x0113


def post_message(hwnd, message, wparam=0, lparam=0):
    """PostMessageW from another Windows process (testctl.exe)."""
    from standin_game import testctl
    return testctl(BUILD_DIR, "post", hwnd, message, wparam, lparam)


class GameLink:
    """A UDP socket standing for the game: sends datagrams to the program's
    port and collects what it sends back."""

    def __init__(self, overlay_port, source_port=0):
        self.overlay_port = overlay_port
        self.sock = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.sock.bind(("127.0.0.1", source_port))
        self.port = self.sock.getsockname()[1]

    def send(self, data):
        if isinstance(data, str):
            data = data.encode("utf-8")
        self.sock.sendto(data, ("127.0.0.1", self.overlay_port))

    def receive(self, timeout=5):
        """The next datagram as bytes, or None after timeout seconds."""
        self.sock.settimeout(timeout)
        try:
            data, _ = self.sock.recvfrom(65536)
            return data
        except socket.timeout:
            return None

    def receive_all(self, quiet=0.5):
        """Everything that arrives until the link is quiet for `quiet` seconds."""
        got = []
        while True:
            data = self.receive(quiet)
            if data is None:
                return got
            got.append(data)

    def close(self):
        self.sock.close()

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()
