"""The base of the page message and page file tests: gra-overlay.exe under
Wine with the stand-in WebView2 runtime playing the page, and (when asked) a
UDP socket playing the game's end of the game link.

No game window is started: the page's messages need only the host window,
which exists from start-up on. The program ends by itself 60 s after start
without a game window, which is far more than any of these tests takes."""

import unittest

from harness import GameLink, Overlay, unique, wait_until
from standin_runtime import StandinPage

HOST_MESSAGE = '{"type":"host","through":true,"hit":true}'


class PageCase(unittest.TestCase):
    """Each test starts its own program; everything is stopped on cleanup."""

    def start(self, name, **options):
        """Starts the program and the page's link; returns (overlay, page)
        once the program listens for page messages."""
        overlay = Overlay(unique(name), game=unique("no game"), **options)
        self.addCleanup(overlay.stop)
        overlay.start()
        if not overlay.wait_for_log(r"^WebView2 ready, page ", 30):
            self.fail("the web view never became ready: %r" % overlay.messages())
        page = StandinPage(overlay.page_port)
        self.addCleanup(page.close)
        self.assertTrue(page.hello(30), "the stand-in runtime does not answer")
        return overlay, page

    def game_link(self, overlay, expect_state="hidden"):
        """The game's end of the link. Its first datagram ("state") gives the
        program an address to send to; the answer is checked here."""
        link = GameLink(overlay.port)
        self.addCleanup(link.close)
        link.send("GRAO state")
        self.assertEqual(link.receive(15), ("GRAO state " + expect_state).encode())
        return link

    def say(self, page, text):
        """The page posts text; returns once the program's handler returned
        (everything it posted back has then reached page.posted())."""
        self.assertEqual(page.post(text, timeout=20), "done", text[:200])

    def log_after(self, overlay, since):
        """The log messages written after the first `since` ones."""
        return overlay.messages()[since:]

    def wait_log_count(self, overlay, line, count, timeout=15):
        """Waits until line has been logged exactly count times or more."""
        return wait_until(lambda: overlay.messages().count(line) >= count, timeout)

    def wait_posted(self, page, count, timeout=15):
        """Everything posted so far, once there are at least count messages."""
        return page.posted(timeout=timeout, count=count)
