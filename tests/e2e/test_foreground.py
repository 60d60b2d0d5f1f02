"""Foreground tracking end to end: the real program under Wine over a
stand-in game, with the stand-in WebView2 runtime recording what is posted to
the page. Minimising and restoring the game, the host's own window in front,
windows of the browser process and of its child processes in front, another
application in front, and the old root-owner rule's disagreement line.

Not observable here, and covered by tests/unit/foreground_test.cpp instead:
no window at all in the foreground (a test cannot bring that about on purpose
under Wine), the process snapshot being taken only once per change of
foreground window, a failed snapshot, a missing web view, and the old rule
saying "away" for a window of the host's own process."""

import os
import unittest

from harness import BUILD_DIR, TEST_BIN, Overlay, free_udp_port, unique, wait_until, wine_path
from standin_game import StandinGame
from standin_runtime import StandinPage

WS_POPUP = 0x80000000
WS_VISIBLE = 0x10000000
WS_CAPTION = 0x00C00000
AWAY = '{"type":"away"}'
BACK = '{"type":"back"}'
POST_PREFIX = "webview.PostWebMessageAsJson "


def describe(window):
    """The program's description of a stand-in game window (from the game's info)."""
    return "standin-game.exe pid %d class '%s' title '%s' (%s)" % (
        window["pid"], window["class"], window["title"], window["hwnd"])


def away_and_back_posts(overlay):
    """What the program posted to the page about the foreground, in order."""
    return [line[len(POST_PREFIX):] for line in overlay.journal()
            if line.startswith(POST_PREFIX) and line[len(POST_PREFIX):] in (AWAY, BACK)]


def foreground_lines(overlay):
    return [m for m in overlay.messages() if m.startswith("game away") or m.startswith("game back")
            or m.startswith("(the old GA_ROOTOWNER rule")]


class ForegroundCase(unittest.TestCase):
    """Starts a stand-in game (in front) and the program attached to it."""

    mode = None
    env = None

    def setUp(self):
        self.title = unique("Foreground Game")
        self.game = self.start_game(self.title, "GraForegroundGame")
        self.overlay = Overlay(unique("foreground"), mode=self.mode, game=self.title,
                               game_class="GraForegroundGame", env=self.env)
        self.addCleanup(self.overlay.stop)
        self.overlay.start()
        self.assertTrue(self.overlay.wait_for_log(r"^game window [0-9A-F]{16} found ", 20), self.overlay.messages())
        self.assertTrue(self.overlay.wait_for_log(r"^WebView2 browser process pid \d+$", 30), self.overlay.messages())
        self.game_window = self.game.info()

    def start_game(self, title, cls, extra_args=()):
        game = StandinGame()
        self.addCleanup(game.stop)
        return game.start(BUILD_DIR, title, cls, free_udp_port(), extra_args=extra_args)

    def another_application(self):
        """A window of a fourth process, brought to the front."""
        other = self.start_game(unique("Another Application"), "GraAnotherApplication",
                                ["--x", "500", "--y", "300", "--w", "300", "--h", "200"])
        other.front()
        return other

    def assert_in_front(self, game, hwnd):
        self.assertTrue(wait_until(lambda: game.info()["foreground"] == hwnd, 10),
                        "not in front: %s (foreground %s)" % (hwnd, game.info()["foreground"]))

    def wait_line(self, text, timeout=15):
        """Waits for one exact log message; returns its index."""
        found = wait_until(lambda: text in self.overlay.messages(), timeout)
        self.assertTrue(found, "no line %r in %r" % (text, self.overlay.messages()))
        return self.overlay.messages().index(text)

    def quiet_ticks(self, seconds=1.5):
        """Lets the 100 ms tick run for a while (used only to show that something does NOT happen)."""
        wait_until(lambda: False, seconds)


class MinimiseAndRestore(ForegroundCase):
    needs_foreground = True

    def test_minimising_posts_away_and_restoring_to_the_front_posts_back(self):
        page = StandinPage(self.overlay.page_port)
        try:
            self.assertTrue(page.hello())
            self.game.front()
            self.assert_in_front(self.game, self.game_window["hwnd"])
            # The game was in front from the start: nothing was told to the page.
            self.quiet_ticks()
            self.assertEqual(away_and_back_posts(self.overlay), [])
            self.assertEqual(foreground_lines(self.overlay), [])

            self.game.minimize()
            away = self.overlay.wait_for_log(r"^game away \(minimised\) - foreground: (.*)$", 15)
            self.assertTrue(away, self.overlay.messages())
            self.assertRegex(away.group(1), r"^(none|\S+ pid \d+ class '.*' title '.*' \([0-9A-F]{16}\))$")
            self.assertEqual(page.wait_posted(lambda text: text == AWAY, 10), AWAY)

            self.game.restore()
            self.game.front()
            self.wait_line("game back in front - foreground: " + describe(self.game_window))
            self.assertEqual(page.wait_posted(lambda text: text == BACK, 10), BACK)
            self.assertEqual(away_and_back_posts(self.overlay), [AWAY, BACK])
            self.assertEqual([m for m in foreground_lines(self.overlay) if m.startswith("game ")],
                             ["game away (minimised) - foreground: " + away.group(1),
                              "game back in front - foreground: " + describe(self.game_window)])
        finally:
            page.close()

    def test_another_application_in_front_is_away_and_the_game_in_front_again_is_back(self):
        other = self.another_application()
        other_window = other.info()
        self.assert_in_front(other, other_window["hwnd"])
        self.wait_line("game away (another application in front) - foreground: " + describe(other_window))
        self.game.front()
        self.wait_line("game back in front - foreground: " + describe(self.game_window))
        self.assertEqual(away_and_back_posts(self.overlay), [AWAY, BACK])
        # Both rules agreed all along: no disagreement line.
        self.assertFalse(any(m.startswith("(the old") for m in self.overlay.messages()), self.overlay.messages())


class HostWindowInFront(ForegroundCase):
    """Owned mode, so that the host window is a top-level window that can be
    the foreground window by itself."""

    needs_foreground = True
    mode = "owned"

    def test_the_host_window_in_front_keeps_the_game_back(self):
        host = self.overlay.host_window()
        self.game.raise_window(host)
        self.assert_in_front(self.game, host)
        self.quiet_ticks()
        self.assertEqual(self.game.info()["foreground"], host)
        self.assertEqual(foreground_lines(self.overlay), [])
        self.assertEqual(away_and_back_posts(self.overlay), [])
        # The same wait with another application in front does tell the page.
        other = self.another_application()
        self.wait_line("game away (another application in front) - foreground: " + describe(other.info()))
        self.assertEqual(away_and_back_posts(self.overlay), [AWAY])
        # And the host window in front again brings the game back.
        other.raise_window(host)
        self.assert_in_front(self.game, host)
        self.wait_line("game back in front - foreground: gra-overlay.exe pid %d class 'GRAOverlayHost' "
                       "title 'GRA overlay' (%s)" % (self.host_pid(), host))
        self.assertEqual(away_and_back_posts(self.overlay), [AWAY, BACK])

    def host_pid(self):
        m = self.overlay.wait_for_log(r"^started, build .*, pid (\d+), mode ", 5)
        return int(m.group(1))


class BrowserCase(ForegroundCase):
    """The stand-in runtime starts a command line as "the browser process";
    here a stand-in game, either as the browser process itself or as a direct
    child of it (--child-process-of-browser). Its window starts hidden, so that
    it comes to the front only once the program knows the browser's pid."""

    needs_foreground = True
    child_of_browser = True

    def setUp(self):
        self.browser_port = free_udp_port()
        self.browser_title = unique("Browser Window")
        command = '"%s" --title "%s" --class GraBrowserWindow --port %d --hidden' % (
            wine_path(os.path.join(TEST_BIN, "standin-game.exe")), self.browser_title, self.browser_port)
        if self.child_of_browser:
            command += " --child-process-of-browser"
        self.env = {"GRA_STANDIN_BROWSER_CMD": command}
        super().setUp()
        # It ends with the program (a job); "exit" makes sure of it.
        self.browser_game = StandinGame.attach(self.browser_port)
        self.addCleanup(lambda: self.browser_game.stop(timeout=5))
        self.assertTrue(wait_until(self.answers, 20), "the browser's window never answered")

    def answers(self):
        try:
            self.browser_game.cmd("ping", timeout=0.5)
            return True
        except (TimeoutError, OSError):
            return False

    def check_window_keeps_game_back(self):
        window = self.browser_game.cmd("hwnd")
        browser_pid = int(self.overlay.wait_for_log(r"^WebView2 browser process pid (\d+)$", 5).group(1))
        if self.child_of_browser:
            self.assertEqual(window["ppid"], browser_pid)
        else:
            self.assertEqual(window["pid"], browser_pid)
        self.browser_game.cmd("show")
        self.browser_game.front()
        self.assert_in_front(self.game, window["hwnd"])
        browser_window = self.browser_game.info()
        # The old rule disagrees (the window's root owner is itself, not the
        # game window) and says so once; the current rule keeps the game back.
        old_rule = ("(the old GA_ROOTOWNER rule would say away now - foreground: %s, root owner %s, game window %s)"
                    % (describe(browser_window), browser_window["hwnd"], self.game_window["hwnd"]))
        self.wait_line(old_rule)
        self.quiet_ticks()
        self.assertEqual(self.game.info()["foreground"], window["hwnd"])
        self.assertEqual(foreground_lines(self.overlay), [old_rule])
        self.assertEqual(away_and_back_posts(self.overlay), [])
        # Another application's window is away: the wait above could have seen it.
        other = self.another_application()
        self.wait_line("game away (another application in front) - foreground: " + describe(other.info()))
        # The browser's window in front again brings the game back.
        self.browser_game.front()
        self.wait_line("game back in front - foreground: " + describe(browser_window))
        self.assertEqual(away_and_back_posts(self.overlay), [AWAY, BACK])


class BrowserChildProcess(BrowserCase):
    def test_a_window_of_a_child_process_of_the_browser_keeps_the_game_back(self):
        self.check_window_keeps_game_back()


class BrowserProcessItself(BrowserCase):
    child_of_browser = False

    def test_a_window_of_the_browser_process_keeps_the_game_back(self):
        self.check_window_keeps_game_back()


class OldRootOwnerRule(ForegroundCase):
    needs_foreground = True

    def stopped_at_the_end(self, helper):
        """The helper ends with the game (a job); "exit" makes sure of it."""
        self.addCleanup(lambda: helper.stop(timeout=5))
        return helper

    def test_a_window_owned_by_the_game_in_another_process_logs_the_disagreement_once(self):
        # The line comes only when the old rule's answer changes: first both
        # rules say away, with another application in front.
        other = self.another_application()
        self.wait_line("game away (another application in front) - foreground: " + describe(other.info()))
        helper = self.stopped_at_the_end(self.game.spawn_owned())
        # A popup, as dialogs are: the root owner chain follows the owners of
        # popups only.
        helper_hwnd = helper.info()["hwnd"]
        helper.cmd("setstyle %s %d" % (helper_hwnd, WS_POPUP | WS_VISIBLE | WS_CAPTION))
        helper.front()
        helper_window = helper.info()
        self.assertEqual(helper_window["owner"], self.game_window["hwnd"])
        self.assertNotEqual(helper_window["pid"], self.game_window["pid"])
        self.assert_in_front(helper, helper_window["hwnd"])
        line = ("(the old GA_ROOTOWNER rule would say in front now - foreground: %s, root owner %s, game window %s)"
                % (describe(helper_window), self.game_window["hwnd"], self.game_window["hwnd"]))
        self.wait_line(line)
        self.quiet_ticks()
        # The current rule keeps the game away; the line came once.
        self.assertEqual(self.overlay.messages().count(line), 1)
        self.assertEqual(away_and_back_posts(self.overlay), [AWAY])
        self.assertFalse(any(m.startswith("game back") for m in self.overlay.messages()))
        # The game in front again: both rules agree, no further line.
        self.game.front()
        self.wait_line("game back in front - foreground: " + describe(self.game_window))
        self.quiet_ticks(0.5)
        self.assertEqual([m for m in foreground_lines(self.overlay) if m.startswith("(the old")], [line])


if __name__ == "__main__":
    unittest.main()
