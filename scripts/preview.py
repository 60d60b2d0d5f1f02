"""Preview a page folder in the real program, over the stand-in game, under Wine.

    python3 scripts/preview.py PAGE_FOLDER [--screenshot FILE] [--command TEXT]...
                               [--doc FOLDER] [--devtools[=PORT]] [--no-watch]
                               [--size WxH] [--scale S] [--mode child|owned]
                               [--port N] [--ready-timeout S]

The page runs in Chromium through the project's Chromium-backed WebView2
runtime, inside gra-overlay.exe, over the stand-in game. At start it prints
where the program's log and the page's files are. From then on the page's
console output, its uncaught errors and its failed loads are printed as they
come, each with the page file, line and column
("page: error: index.html:42:7 SyntaxError: ...").

Without --screenshot it runs until the game window is closed or Ctrl-C: each
line typed on the terminal is a game command ("show hello",
'note {"text":"hi"}', "hide", "reload", "window borderless", ...), checked as
the game maker's kit checks it (a refused one is printed with the reason and
not sent); what the program sends the game and the program's log lines are
printed as they come; and the page is reloaded whenever a file in its folder
changes (--no-watch: not).

With --screenshot the page is sent the --command texts in order once it is
ready (a bare "show" when there are none), and the screen is saved as a PNG
once the page has drawn them; the exit status is 0, or 1 with the reason if
the page never became ready.

--doc FOLDER keeps the page's files (gra_pad.json, gra_overlay.json) in that
folder between runs; without it a scratch folder is used and emptied at every
run. --devtools[=PORT] opens the page's DevTools on 127.0.0.1:PORT (default
9222), through WEBVIEW2_ADDITIONAL_BROWSER_ARGUMENTS as on Windows, and
prints the address to open in a Chromium browser.

DISPLAY must name an X display with Wine's services running: scripts/preview.sh
arranges that (the user's display, or Xvfb for --screenshot)."""

import argparse
import json
import os
import re
import signal
import sys
import threading
import time
import urllib.request

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "tests", "e2e"))

from full_stack_scene import FullStackScene, framed_game_exe, screenshot  # noqa: E402
from harness import wait_until  # noqa: E402
from game_command import Refused, datagram_text  # noqa: E402

FIRST_FRAME_TIMEOUT = 15
UNCHANGED_AFTER = 2
DEVTOOLS_PORT = 9222
DEVTOOLS_TIMEOUT = 20
PAGE_ADDRESS = "https://gra-overlay.invalid/index.html"
WATCH_INTERVAL = 0.3


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
    parser.add_argument("--command", action="append", default=[], metavar="TEXT",
                        help="with --screenshot: a game command sent once the page is ready, before the picture"
                             " (repeatable, sent in order; instead of the bare \"show\")")
    parser.add_argument("--doc", metavar="FOLDER",
                        help="the folder of the page's files, kept between runs (default: a scratch folder,"
                             " emptied at every run)")
    parser.add_argument("--devtools", nargs="?", const=DEVTOOLS_PORT, type=parse_port, metavar="PORT",
                        help="open the page's DevTools on 127.0.0.1:PORT (default %d)" % DEVTOOLS_PORT)
    parser.add_argument("--no-watch", action="store_true",
                        help="do not reload the page when a file in its folder changes")
    args = parser.parse_args(argv)
    args.page_folder = os.path.abspath(args.page_folder)
    if not os.path.isfile(os.path.join(args.page_folder, "index.html")):
        parser.error("%s has no index.html" % args.page_folder)
    if args.doc is not None:
        args.doc = os.path.abspath(args.doc)
        if os.path.exists(args.doc) and not os.path.isdir(args.doc):
            parser.error("--doc %s is not a folder" % args.doc)
        os.makedirs(args.doc, exist_ok=True)
    if args.command and not args.screenshot:
        parser.error("--command goes with --screenshot; in the interactive preview, type the commands")
    return args


def start_scene(args):
    name = os.path.basename(args.page_folder.rstrip(os.sep)) or "page"
    env = {}
    if args.devtools:
        # The way a page author on Windows opens DevTools: the program's loader appends these.
        env["WEBVIEW2_ADDITIONAL_BROWSER_ARGUMENTS"] = "--remote-debugging-port=%d" % args.devtools
    scene = FullStackScene("preview", mode=args.mode, scale=args.scale, web=args.page_folder, game_size=args.size,
                           title="Preview - %s" % name, game_place=(40, 40), port=args.port,
                           game_exe=framed_game_exe(), doc=args.doc, env=env)
    scene.start()
    say("the program's log: %s" % os.path.abspath(scene.overlay.log_path))
    if args.doc:
        say("the page's files: %s (kept between runs)" % scene.overlay.doc_dir)
    else:
        say("the page's files: %s (a scratch folder, emptied at every run; --doc FOLDER keeps them)"
            % os.path.abspath(scene.overlay.doc_dir))
    return scene


def say(text, stream=None):
    print("preview: %s" % text, file=stream or sys.stdout, flush=True)


def send_checked(scene, line):
    """Sends a typed or scripted game command if the game's kit would send it; says why not otherwise."""
    try:
        text = datagram_text(line)
    except Refused as refusal:
        say("not sent: %r: %s" % (line, refusal))
        return False
    scene.game_says(text)
    return True


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


def take_screenshot(scene, path, ready_timeout, commands):
    wait_ready(scene, ready_timeout)
    before = frames_painted(scene)
    for command in commands or ["show"]:
        send_checked(scene, command)
    # A page that the commands do not change sends no new frame: the one it had drawn is then the picture.
    changed = wait_until(lambda: frames_painted(scene) > before, UNCHANGED_AFTER, interval=0.05)
    if not changed and not wait_until(lambda: frames_painted(scene) > 0, FIRST_FRAME_TIMEOUT, interval=0.05):
        raise PreviewError("no frame of the page came within %d s of the commands" % FIRST_FRAME_TIMEOUT)
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


class PageLines:
    """The bridge's lines about the page ("page: error: index.html:3:1 ..."), each once, whole lines only."""

    def __init__(self, scene):
        self.path = scene.bridge.output_path
        self.offset = 0

    def new(self):
        try:
            with open(self.path, "rb") as f:
                f.seek(self.offset)
                data = f.read()
        except FileNotFoundError:
            return []
        end = data.rfind(b"\n") + 1
        self.offset += end
        lines = data[:end].decode("utf-8", "replace").splitlines()
        return [line for line in lines if line.startswith("page: ")]


class Printer(threading.Thread):
    """Prints what the page says as it comes; in the interactive preview also what the program sends
    the game and its new log lines."""

    def __init__(self, scene, everything):
        super().__init__(daemon=True)
        self.scene = scene
        self.everything = everything
        self.page_lines = PageLines(scene)
        self.stop = False
        self.seen = 0

    def run(self):
        while not self.stop:
            self.print_new()
            if self.everything:
                for data in self.scene.link.receive_all(0.2):
                    print("program -> game: %s" % data.decode("utf-8", "replace"), flush=True)
            else:
                time.sleep(0.1)

    def print_new(self):
        for line in self.page_lines.new():
            print(line, flush=True)
        if self.everything:
            lines = self.scene.overlay.messages()
            for line in lines[self.seen:]:
                print("log: %s" % line, flush=True)
            self.seen = len(lines)


class Watcher(threading.Thread):
    """Reloads the page, as the game's "reload" does, when a file in the page folder changes."""

    def __init__(self, scene, folder):
        super().__init__(daemon=True)
        self.scene = scene
        self.folder = folder
        self.stop = False

    def snapshot(self):
        files = {}
        for here, dirs, names in os.walk(self.folder):
            dirs[:] = [d for d in dirs if not d.startswith(".") and d != "node_modules"]
            for name in names:
                path = os.path.join(here, name)
                try:
                    info = os.stat(path)
                except OSError:
                    continue  # gone between the listing and the look
                files[os.path.relpath(path, self.folder)] = (info.st_mtime_ns, info.st_size)
        return files

    def run(self):
        known = self.snapshot()
        while not self.stop:
            time.sleep(WATCH_INTERVAL)
            now = self.snapshot()
            if now == known:
                continue
            # An editor may write a file in steps: the reload waits until the folder holds still.
            while True:
                time.sleep(WATCH_INTERVAL)
                settled = self.snapshot()
                if settled == now:
                    break
                now = settled
            changed = sorted(name for name in set(known) | set(now) if known.get(name) != now.get(name))
            known = now
            if self.stop:
                return
            say("%s changed; reloading the page" % ", ".join(changed))
            self.scene.game_says("reload")


def interact(scene, watch):
    say("the game's client area at %s" % client_area(scene))
    say("type game commands (show TEXT, note JSON, hide, toggle, reload, window borderless|framed, ...);"
        " close the game window or press Ctrl-C to end")
    if scene.mode == "child":
        say("child mode - Wine does not draw a window that is the child of another process's window,"
            " so the page will not be seen")
    watcher = None
    if watch:
        watcher = Watcher(scene, scene.web)
        watcher.start()
        say("watching %s: a changed file reloads the page (--no-watch: not)" % scene.web)
    reader = threading.Thread(target=read_commands, args=(scene,), daemon=True)
    reader.start()
    try:
        while scene.game.proc.poll() is None and scene.overlay.running():
            time.sleep(0.2)
    finally:
        if watcher:
            watcher.stop = True
            watcher.join(2)
    return "the %s ended" % ("game" if scene.game.proc.poll() is not None else "program")


def read_commands(scene):
    for line in sys.stdin:
        command = line.rstrip("\r\n")
        if command.strip():
            send_checked(scene, command)


def devtools_targets(port):
    try:
        with urllib.request.urlopen("http://127.0.0.1:%d/json/list" % port, timeout=2) as reply:
            return json.loads(reply.read().decode("utf-8"))
    except (OSError, ValueError):
        return None


def announce_devtools(port):
    """Waits until the page's target is listed on the DevTools port, then says where to open it."""
    def page_target():
        return next((t for t in devtools_targets(port) or [] if t.get("url", "").startswith(PAGE_ADDRESS)), None)
    target = wait_until(page_target, DEVTOOLS_TIMEOUT, interval=0.2)
    if not target:
        say("no DevTools on 127.0.0.1:%d within %d s (is the port taken?)" % (port, DEVTOOLS_TIMEOUT), sys.stderr)
        return
    say("DevTools on http://127.0.0.1:%d: in Chromium open chrome://inspect, Configure..., add 127.0.0.1:%d,"
        " then inspect %s (targets: http://127.0.0.1:%d/json/list)" % (port, port, target["url"], port))


def finish_printing(printer):
    """Stops the printer and prints what came in the last moments."""
    printer.stop = True
    printer.join(2)
    printer.print_new()


def main(argv):
    args = arguments(argv)
    # Ended from outside, the preview still ends its game, program and browser on the way out.
    signal.signal(signal.SIGTERM, lambda number, frame: sys.exit(0))
    scene = None
    printer = None
    try:
        scene = start_scene(args)
        printer = Printer(scene, everything=not args.screenshot)
        printer.start()
        if args.devtools:
            threading.Thread(target=announce_devtools, args=(args.devtools,), daemon=True).start()
        if args.screenshot:
            take_screenshot(scene, args.screenshot, args.ready_timeout, args.command)
        else:
            ended = interact(scene, watch=not args.no_watch)
            # The program's last lines (its "exit ...") come before the word that it ended.
            finish_printing(printer)
            say(ended)
        return 0
    except PreviewError as error:
        print("preview: %s" % error, file=sys.stderr, flush=True)
        return 1
    except KeyboardInterrupt:
        return 0
    finally:
        if printer is not None:
            finish_printing(printer)
        if scene is not None:
            scene.stop()


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
