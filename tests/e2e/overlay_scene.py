"""One scene for the mode, region and show tests: a stand-in game window,
gra-overlay.exe attached to it, the page played through the stand-in
runtime, and a UDP socket that plays the game's end of the game link.

    with OverlayScene("modes-x") as scene:
        scene.page_says('{"type":"mode","mode":"active"}')
        scene.host_info()["visible"]
"""

import re

from harness import BUILD_DIR, GameLink, Overlay, free_udp_port, unique, wait_until
from standin_game import StandinGame
from standin_runtime import StandinPage

WS_VISIBLE = 0x10000000
WS_CLIPCHILDREN = 0x02000000
WS_EX_LAYERED = 0x00080000
WS_EX_TRANSPARENT = 0x00000020
MOUSE_TO_GAME = "mouse: the game's (the window out of the hit test)"
HOST_MESSAGE = '{"type":"host","through":true,"hit":true}'


def hex_value(text):
    return int(text, 16)


class OverlayScene:
    """Starts the game (unless start_game is False), the overlay, the page's
    link and the game link. The game link sends one "state" datagram first, so
    that the program has an address to send its state reports to; that first
    reply is kept in first_report."""

    def __init__(self, name, mode="child", start_game=True, show=False, env=None, extra_args=(),
                 game_size=(640, 480)):
        self.name = name
        self.title = unique(name)
        self.game_class = "G1_" + re.sub(r"[^A-Za-z0-9]", "_", self.title)
        self.game_size = game_size
        self.game = None
        self.overlay = Overlay(name, mode=mode, game=self.title, game_class=self.game_class, show=show,
                               env=env, extra_args=extra_args)
        self.page = None
        self.link = None
        self.first_report = None
        self._start_game_first = start_game

    # -- life cycle -----------------------------------------------------------

    def start(self):
        try:
            if self._start_game_first:
                self.start_game()
            self.overlay.start()
            if self._start_game_first:
                self.wait_found()
            if not self.overlay.wait_for_journal(r"^webview\.Navigate ", 30):
                raise AssertionError("the page was never navigated: %r" % self.overlay.messages())
            self.page = StandinPage(self.overlay.page_port)
            if not self.page.hello(30):
                raise AssertionError("the stand-in runtime does not answer")
            self.link = GameLink(self.overlay.port)
            self.link.send("GRAO state")
            self.first_report = self.link.receive(15)
            return self
        except BaseException:
            self.stop()
            raise

    def start_game(self):
        width, height = self.game_size
        self.game = StandinGame().start(BUILD_DIR, self.title, self.game_class, free_udp_port())
        self.game.set_client(width, height)
        return self.game

    def wait_found(self, timeout=20):
        found = self.overlay.wait_for_log(r"^game window [0-9A-Fa-f]+ found \((child|owned)\)", timeout)
        if not found:
            raise AssertionError("the game window was not found: %r" % self.overlay.messages())
        return found

    def stop(self):
        for closing in (self.page, self.link):
            if closing is not None:
                closing.close()
        self.overlay.stop()
        if self.game is not None:
            self.game.stop()

    def __enter__(self):
        return self.start()

    def __exit__(self, *exc):
        self.stop()

    # -- acting -----------------------------------------------------------------

    def page_says(self, json_text):
        """The page posts a message; returns once the program's handler returned."""
        answer = self.page.post(json_text, timeout=15)
        if answer != "done":
            raise AssertionError("the page message %s was not handled: %r" % (json_text, answer))

    def game_says(self, text):
        self.link.send("GRAO " + text)

    # -- looking ------------------------------------------------------------------

    def host_hwnd(self):
        return self.overlay.host_window()

    def host_info(self):
        """The host window as the system sees it (style, exstyle, visibility,
        region in window coordinates, layered attributes, parent, owner)."""
        return self.game.window(self.host_hwnd())

    def game_info(self):
        return self.game.info()

    def reports(self, quiet=1.0):
        """The datagrams the program sent to the game, until the link is quiet."""
        return [d.decode("utf-8", "replace") for d in self.link.receive_all(quiet)]

    def messages(self):
        return self.overlay.messages()

    def journal(self):
        return self.overlay.journal()

    def journal_count(self, line):
        return sum(1 for entry in self.journal() if entry == line)

    def wait_log(self, pattern, timeout=15, after=0):
        return self.overlay.wait_for_log(pattern, timeout, after)

    def posted(self, count=0, timeout=10):
        """What the program posted to the page, in order, leaving out the
        foreground's "away" and "back", which depend on whatever else is on
        the screen. Waits up to timeout seconds until there are count."""
        def own():
            return [p for p in self.page.posted() if p not in ('{"type":"away"}', '{"type":"back"}')]
        if count:
            wait_until(lambda: len(own()) >= count, timeout)
        return own()

    def wait_posted(self, text, timeout=10):
        return self.page.wait_posted(lambda posted: posted == text, timeout)

    def wait_host(self, predicate, timeout=10):
        """The host window's description once predicate holds for it, else None."""
        return wait_until(lambda: (lambda info: info if predicate(info) else None)(self.host_info()), timeout)
