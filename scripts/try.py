"""Try the program in minutes, under Wine, with your own sender.

    python3 scripts/try.py [--no-game] [--screenshot FILE] [program options]

Starts the Chromium-backed WebView2 runtime's bridge, the stand-in game
(unless --no-game) and gra-overlay.exe with the program options given (for
example --game TITLE --game-class CLASS --port N), then prints the program's
log lines and what it sends the game until Ctrl-C, and ends everything it
started. A sender of your own (gra-send, a C, C# or Python program) talks to
the program on 127.0.0.1 at once. Lines typed on the terminal are sent as game
commands too ("show hello", "state").

Without your options the program looks for the stand-in game by its own
defaults, title "Gravos Arena" and class "Win32Window", and listens on port
47632. The log, the documents folder and the browser's data go to build/try/
unless --log, --doc or --data name others; --mode is owned unless given (Wine
does not draw a window that is the child of another process's window).

--screenshot FILE saves the screen as a PNG once the page has drawn, and again
every few seconds while it runs (scripts/try.sh gives it under Xvfb).

DISPLAY must name an X display with Wine's services running: scripts/try.sh
arranges that (the user's display, or Xvfb)."""

import os
import signal
import subprocess
import sys
import threading
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "tests", "e2e"))

from chromium_bridge import Bridge  # noqa: E402
from full_stack_scene import framed_game_exe  # noqa: E402
from harness import BUILD_DIR, GameLink, Overlay, free_udp_port, wine_path  # noqa: E402
from standin_game import StandinGame  # noqa: E402

TRY_DIR = os.path.join(BUILD_DIR, "try")
DEFAULT_TITLE = "Gravos Arena"
DEFAULT_CLASS = "Win32Window"
DEFAULT_PORT = 47632
# The program's options that take a value (all others are single words).
VALUED = ("--mode", "--game", "--game-class", "--port", "--web", "--doc", "--data", "--log")
SCREENSHOT_EVERY = 3.0
# Until the program's first report, "state" is asked again this often: it may
# not listen yet when the first one goes out.
ASK_EVERY = 0.5


class Usage(Exception):
    pass


def option(words, name):
    """The value of the last occurrence of an option of the program, or None
    (the program lets a later one win)."""
    value = None
    i = 0
    while i < len(words):
        if words[i] in VALUED and i + 1 < len(words):
            if words[i] == name:
                value = words[i + 1]
            i += 2
        else:
            i += 1
    return value


def parse(argv):
    """(own settings, the program's options with try's defaults added)."""
    own = {"game": True, "screenshot": None}
    program = []
    i = 0
    while i < len(argv):
        word = argv[i]
        if word == "--no-game":
            own["game"] = False
        elif word == "--screenshot":
            if i + 1 >= len(argv):
                raise Usage("--screenshot needs a file name")
            own["screenshot"] = os.path.abspath(argv[i + 1])
            i += 1
        elif word in ("-h", "--help"):
            raise Usage(None)
        else:
            program.append(word)
        i += 1
    port_text = option(program, "--port")
    try:
        own["port"] = int(port_text) if port_text is not None else DEFAULT_PORT
    except ValueError:
        raise Usage("--port takes a number: %r" % port_text)
    if option(program, "--mode") is None:
        program += ["--mode", "owned"]
    for name, path in (("--log", os.path.join(TRY_DIR, "gra_overlay.log")),
                       ("--doc", os.path.join(TRY_DIR, "Documents")),
                       ("--data", os.path.join(TRY_DIR, "webdata"))):
        if option(program, name) is None:
            program += [name, wine_path(path)]
    own["doc"] = linux_path(option(program, "--doc"))
    own["title"] = option(program, "--game") or DEFAULT_TITLE
    own["class"] = option(program, "--game-class") or DEFAULT_CLASS
    own["log"] = linux_path(option(program, "--log"))
    own["mode"] = option(program, "--mode")
    return own, program


def linux_path(windows_path):
    """Z:\\x\\y is /x/y; other paths are left to Wine (and the log is not read)."""
    if windows_path.upper().startswith("Z:"):
        return windows_path[2:].replace("\\", "/")
    return None


def say(text):
    print("try: " + text, flush=True)


class Session:
    def __init__(self, own, program):
        self.own = own
        self.program = program
        self.bridge = None
        self.game = None
        self.overlay = None
        self.link = None
        self.stopping = threading.Event()

    def start(self):
        if self.own["doc"]:
            os.makedirs(self.own["doc"], exist_ok=True)  # the program does not make it
        self.bridge = Bridge("try").start()
        say("the Chromium runtime's bridge listens on 127.0.0.1:%d" % self.bridge.port)
        if self.own["game"]:
            self.game = StandinGame().start(BUILD_DIR, self.own["title"], self.own["class"], free_udp_port(),
                                            exe=framed_game_exe(), log_dir=TRY_DIR)
            self.game.set_client(960, 600)
            self.game.move(40, 40)
            self.game.front()
            say('the stand-in game runs: title "%s", class "%s" (control port %d)'
                % (self.own["title"], self.own["class"], self.game.port))
        log = self.own["log"] or os.path.join(TRY_DIR, "unread.log")
        self.overlay = Overlay("try", port=self.own["port"], runtime="chromium", env=self.bridge.program_env(),
                               log=log, raw_args=self.program)
        if os.path.exists(log):
            os.remove(log)
        self.overlay.start(wait_started=False)
        say("gra-overlay.exe %s" % " ".join(quoted(w) for w in self.program))
        if self.own["log"] is None:
            say("the log is not on drive Z:, so its lines are not printed here")
        if self.own["mode"] == "child":
            say("child mode: Wine does not draw a window that is the child of another process's window, "
                "so the page will not be seen (the link works all the same)")
        self.link = GameLink(self.own["port"])
        say("send it commands on 127.0.0.1:%d: gra-send %sstate, your own game or tool, or type them here "
            "(show hello, note \"hi\", hide, state, bye); Ctrl-C ends it all"
            % (self.own["port"], "" if self.own["port"] == DEFAULT_PORT else "--port %d " % self.own["port"]))

    def stop(self):
        self.stopping.set()
        for close in (lambda: self.link and self.link.close(), lambda: self.overlay and self.overlay.stop(),
                      lambda: self.game and self.game.stop(), lambda: self.bridge and self.bridge.stop()):
            try:
                close()
            except Exception as error:  # keep on ending the others
                say("while ending: %s" % error)

    def print_forever(self):
        """Prints log lines and reports until the program or the game ends."""
        seen = 0
        shot_at = None
        asked_at = None
        heard = False
        while not self.stopping.is_set():
            # The first report comes here; later ones too, until your own
            # sender speaks (the program answers its latest sender).
            if not heard and (asked_at is None or time.monotonic() - asked_at >= ASK_EVERY):
                self.link.send("GRAO state")
                asked_at = time.monotonic()
            for data in self.link.receive_all(0.2):
                heard = True
                print("program -> game: %s" % data.decode("utf-8", "replace"), flush=True)
            if self.own["log"]:
                lines = self.overlay.messages()
                for line in lines[seen:]:
                    print("log: %s" % line, flush=True)
                seen = len(lines)
            if self.own["screenshot"] and self.page_drawn() and (
                    shot_at is None or time.monotonic() - shot_at >= SCREENSHOT_EVERY):
                if not self.screenshot():
                    continue
                if shot_at is None:
                    say("the screen is in %s (taken again every %g s)" % (self.own["screenshot"], SCREENSHOT_EVERY))
                shot_at = time.monotonic()
            if not self.overlay.running():
                say("the program ended")
                return 0
            if self.game is not None and self.game.proc.poll() is not None:
                say("the stand-in game ended")
                return 0
        return 0

    def screenshot(self):
        """Saves the screen; the file is replaced whole, so a reader never
        sees half a picture. False when it could not be taken."""
        path = self.own["screenshot"]
        os.makedirs(os.path.dirname(path), exist_ok=True)
        part = path + ".part.png"
        taken = subprocess.run(["import", "-window", "root", part], stdin=subprocess.DEVNULL,
                               stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL).returncode == 0
        if taken:
            os.replace(part, path)
        return taken

    def page_drawn(self):
        return (self.bridge.state() or {}).get("framesPainted", 0) > 0

    def read_commands(self):
        for line in sys.stdin:
            command = line.strip()
            if command and not self.stopping.is_set():
                self.link.send(("GRAO " + command[5:] if command.startswith("GRAO ") else "GRAO " + command)
                               .encode("utf-8"))


def quoted(word):
    return word if word and not any(c in word for c in " \t\"'\\") else "'%s'" % word.replace("'", "'\\''")


def main(argv):
    try:
        own, program = parse(argv)
    except Usage as problem:
        if problem.args[0]:
            print("try: %s" % problem.args[0], file=sys.stderr)
        print(__doc__, file=sys.stderr if problem.args[0] else sys.stdout)
        return 2 if problem.args[0] else 0
    session = Session(own, program)
    # Ctrl-C reaches every process of the terminal's group (Wine's, the
    # bridge's, Xvfb); SIGTERM is taken the same way. Either ends everything
    # through the one path below.
    def interrupted(*_):
        session.stopping.set()
        raise KeyboardInterrupt()
    signal.signal(signal.SIGINT, interrupted)
    signal.signal(signal.SIGTERM, interrupted)
    try:
        session.start()
        if sys.stdin.isatty():
            threading.Thread(target=session.read_commands, daemon=True).start()
        return session.print_forever()
    except KeyboardInterrupt:
        print("", flush=True)
        say("ending")
        return 0
    except Exception as error:
        if not session.stopping.is_set():
            raise
        say("ending (%s)" % error)
        return 0
    finally:
        signal.signal(signal.SIGINT, signal.SIG_IGN)
        session.stop()
        say("everything it started has ended")


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
