"""The demo: a stand-in game window with the overlay over it, under Wine.

It starts the stand-in game, starts gra-overlay.exe attached to it (owned
mode, whose window Wine draws in a screenshot of Xvfb), plays the page through
the stand-in WebView2 runtime, drives the overlay with game commands sent by
gra-send (the game maker's command-line sender), follows the game window as it
moves and grows, saves a screenshot, ends the program with "bye" and prints
its log."""

import os
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "tests", "e2e"))

from harness import BUILD_DIR, Overlay, free_udp_port  # noqa: E402
from standin_game import StandinGame  # noqa: E402
from standin_runtime import StandinPage  # noqa: E402

GRA_SEND = os.path.join(BUILD_DIR, "native", "gra-send")
TITLE = "GRA Demo Game"
CLASS = "GRADemoGame"


def say(text):
    print(text, flush=True)


def placement(game):
    """Where the game's client area is, and where the overlay's window is."""
    info = game.info()
    owned = [w for w in game.owned() if w.get("class") == "GRAOverlayHost"]
    client = "client area at %s, %dx%d" % (tuple(info["clientOrigin"]), info["client"][2], info["client"][3])
    if not owned:
        return client + "; no overlay window yet"
    rect = owned[0]["rect"]
    return client + "; overlay window at (%d, %d), %dx%d, %s" % (
        rect[0], rect[1], rect[2] - rect[0], rect[3] - rect[1], "visible" if owned[0]["visible"] else "hidden")


def gra_send(port, *words):
    """One game command through gra-send; prints what it printed."""
    say("$ gra-send --port %d %s" % (port, " ".join(words)))
    result = subprocess.run([GRA_SEND, "--port", str(port)] + list(words), capture_output=True, text=True)
    for line in (result.stdout + result.stderr).splitlines():
        say("  " + line)


def posted(page, seen):
    for message in page.posted()[seen:]:
        say("overlay -> page: %s" % message)
    return len(page.posted())


def screenshot():
    folder = os.path.join(BUILD_DIR, "demo")
    os.makedirs(folder, exist_ok=True)
    target = os.path.join(folder, "screenshot.png")
    with open(os.path.join(folder, "screen.xwd"), "wb") as raw:
        subprocess.run(["xwd", "-root", "-display", os.environ["DISPLAY"]], stdout=raw, check=True)
    subprocess.run(["convert", "xwd:" + raw.name, target], check=True)
    return target


def main():
    game = StandinGame()
    overlay = Overlay("demo", mode="owned", game=TITLE, game_class=CLASS)
    try:
        say("== the stand-in game '%s' (class %s)" % (TITLE, CLASS))
        game.start(BUILD_DIR, TITLE, CLASS, free_udp_port(), ["--x", "80", "--y", "60", "--w", "800", "--h", "600"])
        say("== gra-overlay.exe --mode owned --game '%s' --game-class %s --port %d" % (TITLE, CLASS, overlay.port))
        overlay.start()
        overlay.wait_for_log(r"^game window .* found", 15)
        overlay.wait_for_journal(r"^webview\.Navigate ", 20)
        say(placement(game))

        say("== the page says it is ready, has drawn, and where it wants the mouse")
        page = StandinPage(overlay.page_port)
        seen = 0
        for message in ('{"type":"ready"}', '{"type":"cover","on":false}',
                        '{"type":"region","rects":[[24,24,360,140],[24,500,200,60]]}'):
            say("page -> overlay: %s" % message)
            page.post(message)
        seen = posted(page, seen)

        say("== the game shows the overlay with a pad text and sends a note")
        gra_send(overlay.port, "show", "Press F1 for the map")
        gra_send(overlay.port, "note", '{"text":"Boss arrives in 30 s"}')
        gra_send(overlay.port, "state")
        seen = posted(page, seen)
        say(placement(game))

        say("== the game window moves and grows; the overlay follows")
        game.move(200, 120)
        time.sleep(0.5)
        say(placement(game))
        game.set_client(960, 600)
        time.sleep(0.5)
        say(placement(game))

        say("== borderless over the whole screen, and framed again")
        gra_send(overlay.port, "window", "borderless")
        time.sleep(0.5)
        say(placement(game))
        gra_send(overlay.port, "window", "framed")
        time.sleep(0.5)
        say(placement(game))
        say("screenshot of the game with the overlay's two page panels over it: %s" % screenshot())

        say("== the game listens for reports; the page asks the game for something")
        say("$ gra-send --port %d --count 2 listen" % overlay.port)
        listener = subprocess.Popen([GRA_SEND, "--port", str(overlay.port), "--count", "2", "listen"],
                                    stdout=subprocess.PIPE, text=True)
        time.sleep(0.5)
        say("page -> overlay: {\"type\":\"game\",\"cmd\":\"open_map\",\"arg\":\"north\"}")
        page.post('{"type":"game","cmd":"open_map","arg":"north"}')
        for line in listener.communicate(timeout=10)[0].splitlines():
            say("  " + line)

        say("== goodbye")
        gra_send(overlay.port, "bye")
        code = overlay.wait_exit(20)
        say("gra-overlay.exe ended with exit code %s" % code)
        say("== its log (%s)" % overlay.log_path)
        for line in overlay.log_lines():
            say(line)
        return 0 if code == 0 else 1
    finally:
        overlay.stop()
        game.stop()


if __name__ == "__main__":
    sys.exit(main())
