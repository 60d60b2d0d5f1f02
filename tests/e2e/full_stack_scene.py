"""One full-stack scene: the real program under Wine over the stand-in game,
showing a real page (by default the real default page and gra-overlay.js)
in Chromium through the Chromium-backed runtime and its bridge, with a UDP
socket that plays the game's end of the link.

Two things Wine does differently from Windows shape these tests, and each
test that meets them says so:
- Wine does not draw a window that is the child of another process's window,
  so pixels are checked in owned mode; child mode is used where the keyboard
  must reach the page (in owned mode the program never moves the keyboard).
- Wine shapes a layered window with a colour key (passive mode, the mouse the
  game's) by its pixels alone, ignoring its window region; the project's prefix
  turns that off for gra-overlay.exe (scripts/wine/prefix-settings.reg), so the
  region cuts the host in every mode and the game is seen around the page.
Screenshots are taken with `import -window root`: `xwd -root` draws Wine's
windows, which have their own colormap, without their shapes.
"""

import os
import re
import shutil
import subprocess
import time

from chromium_bridge import Bridge
from harness import BUILD_DIR, GameLink, Overlay, free_udp_port, scratch_dir, unique, wait_until, wine_path
from standin_game import StandinGame

WEB_DIR = os.path.join(BUILD_DIR, "bin", "web")
SOURCE_WEB_DIR = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", "..", "web"))
PAGES_DIR = os.path.join(os.path.dirname(os.path.abspath(__file__)), "pages")


def framed_game_exe():
    """The stand-in game copied as gra-demo-game.exe, a name for which the
    project's Wine prefix has Wine draw the window frame itself (there is no
    window manager under Xvfb): a person then sees a game window."""
    folder = os.path.join(BUILD_DIR, "demo-game")
    os.makedirs(folder, exist_ok=True)
    source = os.path.join(BUILD_DIR, "testbin", "standin-game.exe")
    target = os.path.join(folder, "gra-demo-game.exe")
    if not os.path.exists(target) or os.path.getmtime(target) < os.path.getmtime(source):
        # A copy that may be running is replaced, never written over.
        partial = target + ".%d.tmp" % os.getpid()
        shutil.copy2(source, partial)
        os.replace(partial, target)
    return target


def screenshot(path):
    """Saves the whole X display as a PNG at path (import, not xwd: see above)."""
    subprocess.run(["import", "-window", "root", path], check=True)
    return path


def save_screen(folder_name, name):
    """Saves the whole X display as build/screenshots/<folder_name>/<name>.png; returns the path."""
    folder = os.path.join(BUILD_DIR, "screenshots", folder_name)
    os.makedirs(folder, exist_ok=True)
    return screenshot(os.path.join(folder, name + ".png"))


def wait_for_screen(folder_name, name, points, shows, timeout=10):
    """Saves the display again and again until the colours at the points are
    what shows(colours) accepts, or the deadline passes; returns the last
    screenshot's path and colours. The screen is looked at until it shows
    what is expected: a page fades in, a frame is on its way."""
    deadline = time.monotonic() + timeout
    while True:
        path = save_screen(folder_name, name)
        colours = screen_pixels(path, points)
        if shows(colours) or time.monotonic() >= deadline:
            return path, colours
        time.sleep(0.2)


def screen_pixels(path, points):
    """The colours (r, g, b) at screen points of a screenshot."""
    fx = " ".join("%%[pixel:p{%d,%d}]" % (x, y) for x, y in points)
    out = subprocess.run(["convert", path, "-format", fx, "info:"], capture_output=True, text=True,
                         check=True).stdout
    colours = []
    for match in re.finditer(r"(?:srgba?|rgba?)\(([^)]*)\)|gray\((\d+)\)|(white|black)", out):
        if match.group(1):
            parts = [float(p.strip().rstrip("%")) for p in match.group(1).split(",")[:3]]
            colours.append(tuple(int(round(p)) for p in parts))
        elif match.group(2):
            value = int(match.group(2))
            colours.append((value, value, value))
        else:
            value = 255 if match.group(3) == "white" else 0
            colours.append((value, value, value))
    return colours


def page_folder(name, fixture):
    """A page folder made of a fixture page of tests/e2e/pages and the real gra-overlay.js."""
    folder = scratch_dir(name + "-web")
    shutil.copy(os.path.join(SOURCE_WEB_DIR, "gra-overlay.js"), folder)
    shutil.copy(os.path.join(PAGES_DIR, fixture), os.path.join(folder, "index.html"))
    return folder


class FullStackScene:
    def __init__(self, name, mode="owned", scale=None, web=None, game_size=(800, 500), env=None,
                 title=None, game_place=None, game_exe=None, port=None, doc=None):
        self.name = name
        self.title = title or unique(name)
        self.game_class = "FS_" + re.sub(r"[^A-Za-z0-9]", "_", self.title)
        self.game_size = game_size
        self.game_place = game_place
        self.game_exe = game_exe
        self.port = port
        self.doc = doc
        self.bridge = Bridge(name)
        self.scale = scale
        self.mode = mode
        self.web = web
        self.env = env or {}
        self.game = None
        self.overlay = None
        self.link = None

    # -- life cycle -------------------------------------------------------------

    def start(self):
        try:
            self.bridge.start()
            width, height = self.game_size
            self.game = StandinGame().start(BUILD_DIR, self.title, self.game_class, free_udp_port(),
                                            exe=self.game_exe)
            self.game.set_client(width, height)
            if self.game_place:
                self.game.move(*self.game_place)
            self.game.front()
            env = dict(self.bridge.program_env(self.scale), **self.env)
            extra = ["--web", wine_path(self.web)] if self.web else []
            self.overlay = Overlay(self.name, port=self.port, mode=self.mode, game=self.title,
                                   game_class=self.game_class, runtime="chromium", env=env, extra_args=extra,
                                   doc=self.doc)
            self.overlay.start()
            self.link = GameLink(self.overlay.port)
            self.introduce_the_game()
            return self
        except BaseException:
            self.stop()
            raise

    def stop(self):
        if self.link is not None:
            self.link.close()
        if self.overlay is not None:
            self.overlay.stop()
        if self.game is not None:
            self.game.stop()
        self.bridge.stop()

    def introduce_the_game(self, timeout=60):
        """Sends "state" until the program answers, which gives it the address for its reports.
        The program logs its start before it binds its port, so a first "state" sent at once can
        be lost on a busy machine; then every report of the test went nowhere."""
        deadline = time.monotonic() + timeout
        while time.monotonic() < deadline:
            self.link.send("GRAO state")
            reply = self.link.receive(3)
            if reply is not None and reply.startswith(b"GRAO state "):
                return
        raise AssertionError("the program never answered \"state\": log %r" % self.overlay.messages())

    def __enter__(self):
        return self.start()

    def __exit__(self, *exc):
        self.stop()

    # -- the page -------------------------------------------------------------------

    def wait_ready(self, timeout=40):
        """Waits for the page's "ready" in the log; fails with what the bridge saw if it never comes."""
        if not self.overlay.wait_for_log(r"^page ready$", timeout):
            raise AssertionError("the page never said ready; log %r, bridge %r, page errors %r"
                                 % (self.overlay.messages(), self.bridge.output(), self.bridge.page_errors()))
        self.bridge.wait_page()

    def eval(self, expression):
        return self.bridge.eval(expression)

    def wait_eval(self, expression, timeout=20):
        return self.bridge.wait_eval(expression, timeout)

    def hit_boxes(self):
        """The page's data-hit boxes as the page lays them out, in CSS pixels [x, y, w, h]."""
        return self.eval("""[...document.querySelectorAll('[data-hit]')]
            .filter((e) => !e.hidden && e.getClientRects().length)
            .map((e) => e.getBoundingClientRect())
            .filter((r) => r.width > 0 && r.height > 0)
            .map((r) => [r.left, r.top, r.width, r.height])""")

    # -- the game and the host ---------------------------------------------------------

    def game_says(self, text):
        self.link.send("GRAO " + text)

    def wait_report(self, text, timeout=30):
        """Receives what the program sends the game until text comes (true) or the deadline passes.
        The page's message crosses the browser, the bridge and Wine before it becomes a datagram,
        which on a busy machine takes seconds."""
        self.seen_reports = []
        deadline = time.monotonic() + timeout
        while time.monotonic() < deadline:
            datagram = self.link.receive(max(0.05, deadline - time.monotonic()))
            if datagram is None:
                continue
            self.seen_reports.append(datagram.decode("utf-8", "replace"))
            if self.seen_reports[-1] == text:
                return True
        return False

    def reports(self, quiet=1.0):
        return [d.decode("utf-8", "replace") for d in self.link.receive_all(quiet)]

    def host_window(self):
        """The host window's description as the game sees it (its owned window in owned mode, its
        child in child mode), or None while there is none."""
        windows = self.game.owned() if self.mode == "owned" else self.game.children()
        if isinstance(windows, dict):
            windows = windows.get("windows", [])
        hosts = [w for w in windows if w.get("class") == "GRAOverlayHost"]
        return hosts[0] if hosts else None

    def host_hwnd(self):
        """The host window's handle, waited for."""
        def find():
            host = self.host_window()
            return host["hwnd"] if host else None
        hwnd = wait_until(find, 20)
        if not hwnd:
            raise AssertionError("no host window found beside the game")
        return hwnd

    def host_info(self):
        return self.game.window(self.host_hwnd())

    def host_region(self):
        """The host window's region as rectangles [left, top, right, bottom] in window coordinates."""
        return self.host_info().get("region")

    def client_origin(self):
        """The game's client area's top-left corner on the screen."""
        return self.game.info()["clientOrigin"]

    # -- the screen ----------------------------------------------------------------------

    def screenshot(self, label):
        """Saves the whole X display as build/screenshots/full-stack/<name>-<label>.png; returns the path."""
        return save_screen("full-stack", "%s-%s" % (self.name, label))

    def screen_until(self, label, points, shows, timeout=10):
        """Screenshots until shows(colours at the points) is true or the deadline passes: (path, colours)."""
        return wait_for_screen("full-stack", "%s-%s" % (self.name, label), points, shows, timeout)

    def pixels(self, path, points):
        """The colours (r, g, b) at screen points of a screenshot."""
        return screen_pixels(path, points)

    def click(self, x, y, button=1):
        # Wine takes a press where it last saw the pointer: the move must arrive first.
        subprocess.run(["xdotool", "mousemove", str(x), str(y), "sleep", "0.3", "click", str(button)], check=True)

    def wheel(self, x, y, down=1):
        """Turns the wheel towards the user (X buttons 5) down times over a point."""
        subprocess.run(["xdotool", "mousemove", str(x), str(y), "sleep", "0.3",
                        "click", "--repeat", str(down), "--delay", "50", "5"], check=True)

    def type_text(self, text):
        subprocess.run(["xdotool", "type", "--delay", "30", text], check=True)

