"""Drives the stand-in game (testbin/standin-game.exe) and testctl.exe under Wine.

The game answers one UDP datagram with one JSON datagram; see
tests/standin_game/commands.cpp for the commands. Wine's prefix, DISPLAY and
WINEDEBUG come from the environment of the test run.

    game = StandinGame().start(build_dir, "Game Title", "GameClass", 47700)
    hwnd = game.hwnd()
    ...
    game.stop()
"""

import json
import os
import socket
import subprocess
import tempfile
import time

START_TIMEOUT = 20.0


def wine_path(linux_path):
    """The path as a Windows program under Wine sees it: Z: and backslashes."""
    return "Z:" + os.path.abspath(linux_path).replace("/", "\\")


def _testbin(build_dir, name):
    return os.path.join(build_dir, "testbin", name)


def testctl(build_dir, *args, timeout=20):
    """Runs testctl.exe with the arguments; its JSON as a dict, else its text.

    The output goes through a file rather than a pipe: Wine's background
    services may inherit a pipe and keep it open long after testctl ended.
    """
    command = ["wine", _testbin(build_dir, "testctl.exe")] + [str(a) for a in args]
    with tempfile.TemporaryFile() as out:
        subprocess.run(command, stdin=subprocess.DEVNULL, stdout=out, stderr=subprocess.DEVNULL,
                       timeout=timeout, check=False)
        out.seek(0)
        text = out.read().decode("utf-8", errors="replace").strip()
    try:
        return json.loads(text)
    except ValueError:
        return text


class StandinGame:
    """One stand-in game process, or (attach) a control connection to one."""

    def __init__(self, port=None):
        self.port = port
        self.proc = None
        self.log_path = None
        self._log = None

    @classmethod
    def attach(cls, port):
        """Talks to a game that this object did not start (e.g. spawn_owned)."""
        return cls(port)

    def start(self, build_dir, title, cls, port, extra_args=(), env=None, log_dir=None, exe=None):
        """Starts the game (the test build's stand-in, or the copy at exe) and
        waits until it answers "ping"; returns self."""
        self.port = port
        log_dir = log_dir or os.path.join(build_dir, "e2e-logs")
        os.makedirs(log_dir, exist_ok=True)
        self.log_path = os.path.join(log_dir, "standin-game-%d.log" % port)
        self._log = open(self.log_path, "wb")
        command = ["wine", exe or _testbin(build_dir, "standin-game.exe"), "--title", title, "--class", cls,
                   "--port", str(port)] + [str(a) for a in extra_args]
        # Wine's own diagnostics stay on for the stand-in: a start that Wine ends before the
        # game's first line (seen once: exit code 1, an empty log) then says why.
        env = dict(env or os.environ, WINEDEBUG="-all,err+winediag")
        self.proc = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=self._log,
                                     stderr=subprocess.STDOUT, env=env)
        self._wait_until_ready()
        self._check_own_window(title, cls)
        return self

    def _check_own_window(self, title, cls):
        """A game left over on the same port would answer in place of this one."""
        info = self.info()
        if info.get("title") != title or info.get("class") != cls:
            self._kill(grace=0)
            raise RuntimeError("port %d is answered by another window (%r, %r); log %s:\n%s"
                               % (self.port, info.get("title"), info.get("class"), self.log_path,
                                  self.log_text()))

    def _wait_until_ready(self):
        deadline = time.monotonic() + START_TIMEOUT
        while time.monotonic() < deadline:
            if self.proc.poll() is not None:
                self._kill(grace=0)
                raise RuntimeError("standin-game ended with %s before answering; log %s:\n%s"
                                   % (self.proc.returncode, self.log_path, self.log_text()))
            try:
                self.cmd("ping", timeout=0.5)
                return
            except (TimeoutError, OSError):
                pass
        self._kill(grace=0)
        raise TimeoutError("standin-game on port %d did not answer within %.0f s; log %s"
                           % (self.port, START_TIMEOUT, self.log_path))

    def log_text(self):
        if not self.log_path or not os.path.exists(self.log_path):
            return ""
        with open(self.log_path, "rb") as f:
            return f.read().decode("utf-8", errors="replace")

    def cmd(self, text, timeout=5):
        """Sends one command and returns its JSON reply as a dict.

        Raises TimeoutError when no reply comes, ValueError when the game
        reports an error ({"error": ...}).
        """
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as s:
            s.bind(("127.0.0.1", 0))
            s.settimeout(timeout)
            s.sendto(text.encode("utf-8"), ("127.0.0.1", self.port))
            try:
                data, _ = s.recvfrom(65536)
            except socket.timeout:
                raise TimeoutError("no reply to %r from port %d" % (text, self.port)) from None
        reply = json.loads(data.decode("utf-8"))
        if "error" in reply and len(reply) == 1:
            raise ValueError("standin-game refused %r: %s" % (text, reply["error"]))
        return reply

    # The game window and what belongs to it.
    def hwnd(self):
        return self.cmd("hwnd")["hwnd"]

    def pid(self):
        return self.cmd("hwnd")["pid"]

    def info(self):
        return self.cmd("info")

    def window(self, hwnd):
        return self.cmd("window %s" % hwnd)

    def children(self):
        return self.cmd("children")["windows"]

    def owned(self):
        return self.cmd("owned")["windows"]

    # Moving the game window about.
    def minimize(self):
        return self.cmd("minimize")

    def restore(self):
        return self.cmd("restore")

    def front(self):
        return self.cmd("front")

    def move(self, x, y):
        return self.cmd("move %d %d" % (x, y))

    def resize(self, w, h):
        return self.cmd("resize %d %d" % (w, h))

    def set_client(self, w, h):
        return self.cmd("setclient %d %d" % (w, h))

    def set_title(self, text):
        return self.cmd("settitle " + text)

    # Other windows and messages.
    def second(self, cls, title):
        return self.cmd("second %s %s" % (cls, title))["hwnd"]

    def raise_window(self, hwnd):
        return self.cmd("raise %s" % hwnd)

    def spawn_owned(self):
        """Starts the owned helper in another process; returns a StandinGame for it."""
        reply = self.cmd("spawn-owned")
        helper = StandinGame.attach(reply["port"])
        deadline = time.monotonic() + START_TIMEOUT
        while True:
            try:
                helper.cmd("ping", timeout=0.5)
                return helper
            except (TimeoutError, OSError):
                if time.monotonic() > deadline:
                    raise

    def post(self, hwnd, msg, wparam=0, lparam=0):
        return self.cmd("post %s %s %s %s" % (hwnd, msg, wparam, lparam))

    def send(self, hwnd, msg, wparam=0, lparam=0):
        return self.cmd("send %s %s %s %s" % (hwnd, msg, wparam, lparam))

    def find(self, cls, title=None):
        return self.cmd("find %s" % cls if title is None else "find %s %s" % (cls, title))["hwnd"]

    def lang_requests(self):
        return self.cmd("langrequests")["requests"]

    def load_layout(self, klid):
        return self.cmd("layout %s" % klid)

    def scene(self):
        """{"frames", "markers", "still"}: frames of the scene drawn so far,
        click markers in the latest one, and whether it was started --still."""
        return self.cmd("scene")

    def freeze(self, seconds):
        """The game's thread stops pumping messages for that long (the
        reply comes first)."""
        return self.cmd("freeze %d" % seconds)

    # Ending.
    def close(self):
        """Destroys the game window; the process then ends by itself."""
        return self.cmd("close")

    def exit(self):
        """Ends the process at once, without destroying the window first."""
        return self.cmd("exit")

    def stop(self, timeout=10):
        """Ends the game by all means; safe to call at any time, also twice."""
        if self.proc is None or self.proc.poll() is None:
            try:
                self.cmd("exit", timeout=1)
            except (TimeoutError, OSError, ValueError):
                pass
        self._kill(grace=timeout)

    def _kill(self, grace):
        """Waits grace seconds for the started process to end, then kills it.

        Never sends "exit": the port may belong to another game."""
        if self.proc is not None:
            try:
                self.proc.wait(timeout=grace)
            except subprocess.TimeoutExpired:
                self.proc.kill()
                self.proc.wait(timeout=10)
        if self._log is not None:
            self._log.close()
            self._log = None


def _self_check(build_dir):
    """Quick check of the stand-in game and testctl (python3 standin_game.py BUILD_DIR)."""
    a = StandinGame().start(build_dir, "Standin A", "StandinClassA", 47791)
    b = StandinGame().start(build_dir, "Standin B", "StandinClassB", 47792,
                            extra_args=["--x", "700", "--w", "300", "--h", "200"])
    try:
        ha, hb = a.hwnd(), b.hwnd()
        assert testctl(build_dir, "find", "StandinClassA", "Standin A")["hwnd"] == ha
        assert b.window(ha)["title"] == "Standin A"
        b.cmd("setparent %s %s" % (hb, ha))
        assert [w["hwnd"] for w in a.children()] == [hb]
        assert testctl(build_dir, "info", hb)["parent"] == ha
        b.post(ha, 0x50, 0, "0x04090409")
        deadline = time.monotonic() + 5
        while not a.lang_requests() and time.monotonic() < deadline:
            time.sleep(0.1)
        assert a.lang_requests() == [{"wparam": 0, "lparam": "0000000004090409", "hwnd": ha}]
        a.minimize()
        assert a.info()["iconic"] is True
        print("standin game and testctl: all checks passed")
    finally:
        a.stop()
        b.stop()


if __name__ == "__main__":
    import sys
    _self_check(sys.argv[1] if len(sys.argv) > 1 else "build")
