"""Preview a page folder in the real program, over the stand-in game, under Wine.

    python3 scripts/preview.py PAGE_FOLDER [--screenshot FILE] [--size WxH]
                               [--scale S] [--mode child|owned] [--port N]
                               [--ready-timeout S]

The page runs in Chromium through the project's Chromium-backed WebView2
runtime, inside gra-overlay.exe, over the stand-in game. Without --screenshot
it runs until the game window is closed or Ctrl-C: each line typed on the
terminal is sent to the program as a game command ("show hello",
'note {"text":"hi"}', "hide", "reload", "window borderless", ...), and what
the program sends the game (the page's "game" messages, state reports) and the
program's log lines are printed as they come. With --screenshot the page is
shown once it is ready, and the screen is saved as a PNG after the page's first
frame since "show"; the exit status is 0, or 1 with the reason if the page
never became ready.

DISPLAY must name an X display with Wine's services running: scripts/preview.sh
arranges that (the user's display, or Xvfb for --screenshot)."""

import argparse
import os
import re
import sys
import threading
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "tests", "e2e"))

from full_stack_scene import FullStackScene, framed_game_exe, screenshot  # noqa: E402
from harness import wait_until  # noqa: E402

FIRST_FRAME_TIMEOUT = 15
UNCHANGED_AFTER = 2


class PreviewError(Exception):
    pass


def parse_size(text):
    match = re.fullmatch(r"(\d+)x(\d+)", text)
    if not match or not (100 <= int(match.group(1)) <= 8192 and 100 <= int(match.group(2)) <= 8192):
        raise argparse.ArgumentTypeError("a size is WIDTHxHEIGHT, each 100 to 8192: %r" % text)
    return int(match.group(1)), int(match.group(2))


def parse_scale(text):
    try:
        value = float(text)
    except ValueError:
        value = 0
    if not 0.25 <= value <= 4:
        raise argparse.ArgumentTypeError("a scale is a number from 0.25 to 4: %r" % text)
    return value


def parse_port(text):
    if not text.isdigit() or not 1 <= int(text) <= 65535:
        raise argparse.ArgumentTypeError("a port is 1 to 65535: %r" % text)
    return int(text)


def arguments(argv):
    parser = argparse.ArgumentParser(prog="preview.sh", description=__doc__.splitlines()[0])
    parser.add_argument("page_folder", metavar="PAGE_FOLDER", help="the folder holding the page's index.html")
    parser.add_argument("--screenshot", metavar="FILE", help="save a PNG of the screen once the page has drawn, and end")
    parser.add_argument("--size", type=parse_size, default=(960, 600), metavar="WxH",
                        help="the game's client area (default 960x600)")
    parser.add_argument("--scale", type=parse_scale, metavar="S", help="the web view's rasterization scale")
    parser.add_argument("--mode", choices=["child", "owned"], default="owned",
                        help="how the program attaches to the game (default owned: Wine does not draw child mode)")
    parser.add_argument("--port", type=parse_port, metavar="N", help="the program's UDP port")
    parser.add_argument("--ready-timeout", type=float, default=40, metavar="S",
                        help="how long the page may take to say ready (default 40 s)")
    args = parser.parse_args(argv)
    args.page_folder = os.path.abspath(args.page_folder)
    if not os.path.isfile(os.path.join(args.page_folder, "index.html")):
        parser.error("%s has no index.html" % args.page_folder)
    return args


def start_scene(args):
    name = os.path.basename(args.page_folder.rstrip(os.sep)) or "page"
    scene = FullStackScene("preview", mode=args.mode, scale=args.scale, web=args.page_folder, game_size=args.size,
                           title="Preview - %s" % name, game_place=(40, 40), port=args.port,
                           game_exe=framed_game_exe())
    scene.start()
    return scene


def wait_ready(scene, timeout):
    if scene.overlay.wait_for_log(r"^page ready$", timeout):
        return
    messages = scene.overlay.messages()
    errors = scene.bridge.page_errors()
    reason = "the page did not say ready within %g s" % timeout
    if errors:
        reason += "; page errors: %s" % "; ".join(errors)
    failures = [m for m in messages if "failed" in m or "FAILED" in m]
    if failures:
        reason += "; log: %s" % "; ".join(failures)
    raise PreviewError(reason + " (does it load gra-overlay.js and call connect()?)")


def frames_painted(scene):
    return (scene.bridge.state() or {}).get("framesPainted", 0)


def take_screenshot(scene, path, ready_timeout):
    wait_ready(scene, ready_timeout)
    before = frames_painted(scene)
    scene.game_says("show")
    # A page that "show" does not change sends no new frame: the one it had drawn is then the picture.
    changed = wait_until(lambda: frames_painted(scene) > before, UNCHANGED_AFTER, interval=0.05)
    if not changed and not wait_until(lambda: frames_painted(scene) > 0, FIRST_FRAME_TIMEOUT, interval=0.05):
        raise PreviewError("no frame of the page came within %d s of \"show\"" % FIRST_FRAME_TIMEOUT)
    # The page's region follows its first frame; then the screen is taken.
    settle_until = time.monotonic() + 3
    last = frames_painted(scene)
    while time.monotonic() < settle_until:
        time.sleep(0.4)
        now = frames_painted(scene)
        if now == last:
            break
        last = now
    folder = os.path.dirname(os.path.abspath(path))
    os.makedirs(folder, exist_ok=True)
    screenshot(path)
    print("preview: %s (the game's client area at %s, the page at its top left)" % (path, client_area(scene)),
          flush=True)


def client_area(scene):
    info = scene.game.info()
    return "(%d, %d), %dx%d" % (info["clientOrigin"][0], info["clientOrigin"][1], info["client"][2], info["client"][3])


class Printer(threading.Thread):
    """Prints what the program sends the game and its new log lines as they come."""

    def __init__(self, scene):
        super().__init__(daemon=True)
        self.scene = scene
        self.stop = False
        self.seen = 0

    def run(self):
        while not self.stop:
            for data in self.scene.link.receive_all(0.2):
                print("program -> game: %s" % data.decode("utf-8", "replace"), flush=True)
            lines = self.scene.overlay.messages()
            for line in lines[self.seen:]:
                print("log: %s" % line, flush=True)
            self.seen = len(lines)


def interact(scene):
    print("preview: type game commands (show TEXT, note JSON, hide, toggle, reload, window borderless|framed, ...);"
          " close the game window or press Ctrl-C to end", flush=True)
    if scene.mode == "child":
        print("preview: child mode - Wine does not draw a window that is the child of another process's window,"
              " so the page will not be seen", flush=True)
    printer = Printer(scene)
    printer.start()
    reader = threading.Thread(target=read_commands, args=(scene,), daemon=True)
    reader.start()
    try:
        while scene.game.proc.poll() is None and scene.overlay.running():
            time.sleep(0.2)
    finally:
        printer.stop = True
        printer.join(2)
    print("preview: the %s ended" % ("game" if scene.game.proc.poll() is not None else "program"), flush=True)


def read_commands(scene):
    for line in sys.stdin:
        command = line.strip()
        if command:
            scene.game_says(command[5:] if command.startswith("GRAO ") else command)


def main(argv):
    args = arguments(argv)
    scene = None
    try:
        scene = start_scene(args)
        if args.screenshot:
            take_screenshot(scene, args.screenshot, args.ready_timeout)
        else:
            interact(scene)
        return 0
    except PreviewError as error:
        print("preview: %s" % error, file=sys.stderr, flush=True)
        return 1
    except KeyboardInterrupt:
        return 0
    finally:
        if scene is not None:
            scene.stop()


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
