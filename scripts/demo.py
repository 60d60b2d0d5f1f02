"""The demo: the real program with the real default page over a game, under
Wine, told step by step with a screenshot for each step.

The game is the project's stand-in game (a small animated scene that marks
where it is clicked), run as gra-demo-game.exe so that Wine draws its window
frame. The program is attached to it in owned mode (Wine does not
draw a window that is the child of another process's window) and shows the
default page through the Chromium-backed WebView2 runtime. This script plays
the game's end of the link: it sends the game's commands and prints what the
program sends back.

    python3 scripts/demo.py [--fast]

DISPLAY must name an X display with Wine's services running: scripts/demo.sh
arranges that, on the user's display or under Xvfb. With GRA_DEMO_VISIBLE=1
(someone is watching) each step waits a moment unless --fast is given."""

import argparse
import json
import os
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "tests", "e2e"))

from full_stack_scene import FullStackScene, framed_game_exe, screenshot  # noqa: E402
from harness import BUILD_DIR, wait_until  # noqa: E402

DEMO_DIR = os.path.join(BUILD_DIR, "demo")
TITLE = "Sky Runner"
PAD_LINE = "Meet the smith at dawn"


def say(text=""):
    print(text, flush=True)


class Story:
    """Numbers the steps, keeps their screenshots and sets the pace."""

    def __init__(self, scene, pause):
        self.scene = scene
        self.pause = pause
        self.step = 0
        self.shots = []

    def begin(self, title):
        self.step += 1
        say()
        say("%d. %s" % (self.step, title))

    def shot(self, label, what, whole_screen=False):
        """Saves the screen (cropped round the game unless whole_screen) and prints its path."""
        path = os.path.join(DEMO_DIR, "%02d-%s.png" % (self.step, label))
        screenshot(path)
        if not whole_screen:
            crop_round_game(self.scene, path)
        self.shots.append(path)
        say("   screenshot: %s" % path)
        say("   (%s)" % what)
        if self.pause:
            time.sleep(self.pause)
        return path


def crop_round_game(scene, path, margin=24):
    left, top, right, bottom = scene.game.info()["rect"]
    size = subprocess.run(["identify", "-format", "%w %h", path], capture_output=True, text=True,
                          check=True).stdout.split()
    width, height = int(size[0]), int(size[1])
    left, top = max(0, left - margin), max(0, top - margin)
    right, bottom = min(width, right + margin), min(height, bottom + margin)
    subprocess.run(["convert", path, "-crop", "%dx%d+%d+%d" % (right - left, bottom - top, left, top), "+repage",
                    path], check=True)


def clear_old_screenshots():
    os.makedirs(DEMO_DIR, exist_ok=True)
    for old in os.listdir(DEMO_DIR):
        if old.endswith(".png"):
            os.remove(os.path.join(DEMO_DIR, old))


def game_says(scene, text):
    say("   game -> program: GRAO %s" % text)
    scene.game_says(text)


def print_datagrams(scene, quiet=1.0):
    for text in scene.reports(quiet):
        say("   program -> game: %s" % text)


def log_since(scene, seen):
    lines = scene.overlay.messages()
    for line in lines[seen:]:
        say("   log: %s" % line)
    return len(lines)


def host_visible(scene):
    host = scene.host_window()
    return bool(host and host.get("visible"))


def centre_of(scene, selector):
    """The screen point at the middle of an element of the page."""
    box = scene.eval("(() => { const r = document.querySelector(%s).getBoundingClientRect();"
                     " return [r.left + r.width / 2, r.top + r.height / 2]; })()" % json.dumps(selector))
    ox, oy = scene.client_origin()
    return ox + int(box[0]), oy + int(box[1])


def wait_panel_drawn(scene):
    if not scene.wait_eval("!document.getElementById('panel').hidden && "
                           "!document.getElementById('panel').classList.contains('closing')", 15):
        raise RuntimeError("the page's panel never opened")
    time.sleep(0.8)  # the panel's opening animation and the region that follows it


def tell(story, scene, docs):
    scene.overlay.wait_for_log(r"^game window ", 20)
    seen = 0

    story.begin("The program finds the game's window and lays its own window over the client area.")
    wait_until(lambda: host_visible(scene), 15, interval=0.05)
    covered = not any(m.startswith("cover off") for m in scene.overlay.messages())
    seen = log_since(scene, seen)
    story.shot("cover", "the overlay's cover, dark blue, hides the game until the page has drawn"
               if covered else "the page drew before this screenshot: the cover is already down")

    scene.wait_ready()
    scene.overlay.wait_for_log(r"^cover off", 15)
    seen = log_since(scene, seen)

    story.begin("A note from the game: the page shows it as a card, in passive mode.")
    game_says(scene, 'note {"title":"Quest","text":"Find the silver key"}')
    scene.wait_eval("document.querySelector('#toasts .toast') !== null", 15)
    time.sleep(1.0)
    seen = log_since(scene, seen)
    print_datagrams(scene, 0.3)
    story.shot("note", "the note card over the running game; the mouse goes through to the game")

    story.begin("The game says \"show\" with a text: active mode, the panel opens.")
    game_says(scene, "show Press F1 for the map")
    wait_panel_drawn(scene)
    seen = log_since(scene, seen)
    print_datagrams(scene, 0.3)
    story.shot("panel", "the default page's panel with the game's text and the note; the game runs round it")

    story.begin("A click into the notepad and a line typed there: the page saves it in the documents folder.")
    x, y = centre_of(scene, "#notepad")
    say("   click at (%d, %d), then typing %r" % (x, y, PAD_LINE))
    scene.click(x, y)
    scene.wait_eval("document.activeElement && document.activeElement.id === 'notepad'", 10)
    # In owned mode the program never takes the keyboard from the game (that is child mode's work,
    # and Wine does not draw child mode): the line goes to the web view as its window hands on keys.
    scene.bridge.type_text(PAD_LINE)
    pad_file = os.path.join(docs, "gra_pad.json")

    def saved():
        try:
            with open(pad_file, encoding="utf-8") as f:
                return PAD_LINE in json.load(f).get("text", "")
        except (OSError, ValueError):
            return False
    if not wait_until(saved, 15):
        raise RuntimeError("gra_pad.json never held the typed line")
    with open(pad_file, encoding="utf-8") as f:
        say("   %s now holds: %s" % (pad_file, f.read().strip()))
    seen = log_since(scene, seen)
    story.shot("notepad", "the line in the notepad; the page saved it through the program")

    story.begin("A click on the page's close button: the page closes and the game hears of it.")
    x, y = centre_of(scene, "#close")
    say("   click at (%d, %d)" % (x, y))
    before = len(scene.overlay.messages())
    scene.click(x, y)
    scene.overlay.wait_for_log(r"^mode hidden$", 15, after=before)
    time.sleep(0.5)
    print_datagrams(scene)
    seen = log_since(scene, seen)
    story.shot("closed", "the panel has closed; the game alone")

    story.begin("The game opens the overlay again, then moves and grows; the overlay follows.")
    game_says(scene, "show")
    wait_panel_drawn(scene)
    scene.game.move(140, 110)
    scene.game.set_client(1000, 640)
    time.sleep(1.5)
    info = scene.game.info()
    host = scene.host_info()
    say("   game client area at %s, %dx%d; overlay window at (%d, %d), %dx%d"
        % (tuple(info["clientOrigin"]), info["client"][2], info["client"][3], host["rect"][0], host["rect"][1],
           host["rect"][2] - host["rect"][0], host["rect"][3] - host["rect"][1]))
    gx, gy = scene.client_origin()
    say("   a click on the game at (%d, %d), outside the panel" % (gx + 200, gy + 420))
    scene.click(gx + 200, gy + 420)
    time.sleep(0.5)
    say("   the game saw clicks at %s" % scene.game.cmd("clicks").get("clicks"))
    print_datagrams(scene, 0.3)
    seen = log_since(scene, seen)
    story.shot("moved", "the overlay over the moved, larger game; the game marks the click it got")

    story.begin("The game says \"hide\": the page closes itself and tells the program.")
    before = len(scene.overlay.messages())
    game_says(scene, "hide")
    scene.overlay.wait_for_log(r"^mode hidden$", 15, after=before)
    time.sleep(0.8)
    print_datagrams(scene)
    seen = log_since(scene, seen)
    say("   the overlay's window is %s" % ("shown" if host_visible(scene) else "hidden"))
    story.shot("hidden", "the page has answered the close: the game alone")

    # Last, since under Wine a window owned by a game that went borderless stays on screen once hidden.
    story.begin("The game shows the overlay and goes \"window borderless\": the overlay fills the screen with it.")
    game_says(scene, "show")
    wait_panel_drawn(scene)
    game_says(scene, "window borderless")
    scene.overlay.wait_for_log(r"^window: borderless ", 10)
    time.sleep(1.5)
    print_datagrams(scene, 0.3)
    seen = log_since(scene, seen)
    story.shot("borderless", "the game borderless over the whole screen, the panel over it", whole_screen=True)

    game_says(scene, "window framed")
    game_says(scene, "bye")
    code = scene.overlay.wait_exit(20)
    log_since(scene, seen)
    say()
    say("gra-overlay.exe ended with exit code %s; its log: %s" % (code, scene.overlay.log_path))
    return code


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--fast", action="store_true", help="no pauses between the steps")
    args = parser.parse_args()
    pause = 0 if args.fast or os.environ.get("GRA_DEMO_VISIBLE") != "1" else 2.5

    clear_old_screenshots()
    began = time.monotonic()
    scene = FullStackScene("demo", title=TITLE, game_exe=framed_game_exe(), game_size=(900, 560), game_place=(60, 50))
    docs = None
    try:
        say("gra-overlay demo: the stand-in game '%s' with the program's default page over it" % TITLE)
        scene.start()
        docs = scene.overlay.doc_dir
        story = Story(scene, pause)
        code = tell(story, scene, docs)
    finally:
        scene.stop()
    say("%d screenshots in %s, %.0f s" % (len(story.shots), DEMO_DIR, time.monotonic() - began))
    return 0 if code == 0 else 1


if __name__ == "__main__":
    sys.exit(main())
