"""The host window and the game window end to end: finding the game's window
by exact title and class, attaching to it as a child or as an owned window,
sitting exactly over its client area, what the 100 ms tick does with the
cover up and in each mode, and every way the host ends with (or without) a
game window.

Window state is read through Win32 queries (testctl and the stand-in game),
never from pixels. Every test has its own game title, so that tests running
side by side never find each other's games."""

import re
import time
import unittest

from harness import BUILD_DIR, WM_CLOSE, Overlay, free_udp_port, unique, wait_until
from standin_game import StandinGame, testctl
from standin_runtime import StandinPage

GAME_CLASS = "GraTestGame"
IMAGE = "standin-game.exe"
WM_MOUSEACTIVATE = 0x0021
WS_VISIBLE = 0x10000000
CHILD_TEXT = " - with its parent, the game window"
COVER_OFF = "cover off (the page never said - 10 s)"


def found_line(hwnd, mode, pid):
    return "game window %s found (%s), process %s pid %d" % (hwnd, mode, IMAGE, pid)


def destroy_line(how, hwnd, window, process):
    return "host window destroyed (WM_DESTROY%s; game window %s %s, game process %s)" % (how, hwnd, window, process)


def client_on_screen(info):
    """The client area of a window description as a screen rectangle."""
    x, y = info["clientOrigin"]
    return [x, y, x + info["client"][2], y + info["client"][3]]


def logged_seconds_between(overlay, first, second):
    """Seconds between the log times (whole seconds) of the first lines
    matching two patterns."""
    def when(pattern):
        for line in overlay.log_lines():
            m = re.match(r"^\[gra-overlay\] (\d\d):(\d\d):(\d\d) (.*)$", line)
            if m and re.search(pattern, m.group(4)):
                return int(m.group(1)) * 3600 + int(m.group(2)) * 60 + int(m.group(3))
        raise AssertionError("no line matches %r" % pattern)
    return (when(second) - when(first)) % 86400


def window_info(hwnd):
    """testctl's description of a window (asked again should a run print no JSON)."""
    for _ in range(3):
        info = testctl(BUILD_DIR, "info", hwnd)
        if isinstance(info, dict):
            return info
    raise AssertionError("testctl info %s printed %r" % (hwnd, info))


class GameWindowTest(unittest.TestCase):
    """Starting games and overlays that are cleaned up whatever happens."""

    def start_game(self, title, cls=GAME_CLASS, extra_args=()):
        game = StandinGame().start(BUILD_DIR, title, cls, free_udp_port(), extra_args=extra_args)
        self.addCleanup(game.stop)
        return game

    def start_overlay(self, name, title, mode=None, cls=GAME_CLASS):
        overlay = Overlay(name, game=title, game_class=cls, mode=mode)
        self.addCleanup(overlay.stop)
        return overlay.start()

    def wait_found(self, overlay, timeout=10):
        found = overlay.wait_for_log(r"^game window [0-9A-F]{16} found ", timeout)
        self.assertTrue(found, overlay.messages())
        return found.string

    def follow_move_and_resize(self, name, mode, position, size):
        """While the cover is up the tick fits the host to the game: it sits
        over the moved game's client area and takes its new size, and the web
        view fills it."""
        title = unique("Follow Game")
        game = self.start_game(title)
        overlay = self.start_overlay(name, title, mode=mode)
        self.wait_ready(overlay)
        host = overlay.host_window()
        game.move(*position)
        info = self.wait_window(host, lambda i: i["rect"] == client_on_screen(game.info()))
        self.assertEqual(info["rect"], client_on_screen(game.info()))
        game.set_client(*size)
        info = self.wait_window(host, lambda i: i["client"] == [0, 0, size[0], size[1]])
        self.assertEqual(info["client"], [0, 0, size[0], size[1]])
        self.assertEqual(info["rect"], client_on_screen(game.info()))
        self.assertTrue(overlay.wait_for_journal(r"^controller\.put_Bounds 0 0 %d %d$" % size, 3))

    def found_lines(self, overlay):
        return [m for m in overlay.messages() if re.match(r"^game window [0-9A-F]{16} found ", m)]

    def wait_ready(self, overlay):
        self.assertTrue(overlay.wait_for_log(r"^WebView2 ready, page ", 20), overlay.messages())

    def wait_window(self, hwnd, predicate, timeout=10):
        """The window's description once predicate accepts it (or the last one seen)."""
        seen = {}

        def check():
            seen["info"] = window_info(hwnd)
            return predicate(seen["info"])
        wait_until(check, timeout, interval=0.1)
        return seen["info"]


class FirstTick(GameWindowTest):
    """The first tick, sent by hand at start-up, already attaches to a game
    window that exists, before the web view does."""

    def check_first_find(self, mode):
        title = unique("First Tick Game")
        game = self.start_game(title)
        overlay = self.start_overlay("first-tick-" + mode, title, mode=None if mode == "child" else mode)
        self.wait_ready(overlay)
        ids = game.cmd("hwnd")
        messages = overlay.messages()
        self.assertEqual(messages[1], found_line(ids["hwnd"], mode, ids["pid"]))
        self.assertEqual(len(self.found_lines(overlay)), 1)
        web_lines = [i for i, m in enumerate(messages) if m.startswith("WebView2 ")]
        self.assertTrue(web_lines and web_lines[0] > 1, messages)
        # The first bounds the web view gets already have the game's client size.
        client = game.info()["client"]
        bounds = [line for line in overlay.journal() if line.startswith("controller.put_Bounds ")]
        self.assertEqual(bounds[0], "controller.put_Bounds 0 0 %d %d" % (client[2], client[3]))

    def test_child_mode_finds_the_existing_game_window_at_once(self):
        self.check_first_find("child")

    def test_owned_mode_finds_the_existing_game_window_at_once(self):
        self.check_first_find("owned")


class Finding(GameWindowTest):
    """Which window is the game window: visible, exact title and class, the
    highest in the Z order, and names no longer than the buffers."""

    def test_a_hidden_game_window_is_ignored_until_it_is_shown(self):
        title = unique("Hidden Game")
        game = self.start_game(title, extra_args=["--hidden"])
        overlay = self.start_overlay("hidden-game", title, mode="owned")
        self.wait_ready(overlay)
        time.sleep(1.5)  # fifteen ticks or more
        self.assertEqual(self.found_lines(overlay), [])
        game.cmd("show")
        self.wait_found(overlay, 5)
        self.assertEqual(self.found_lines(overlay), [found_line(game.hwnd(), "owned", game.pid())])

    def test_of_two_matching_windows_the_higher_one_in_the_z_order_wins(self):
        title = unique("Two Windows")
        game = self.start_game(title)
        first = game.hwnd()
        second = game.second(GAME_CLASS, title)  # made on top of the first
        upper = self.start_overlay("two-windows-upper", title, mode="owned")
        self.wait_found(upper)
        self.assertEqual(self.found_lines(upper), [found_line(second, "owned", game.pid())])
        game.raise_window(first)
        lower = self.start_overlay("two-windows-lower", title, mode="owned")
        self.wait_found(lower)
        self.assertEqual(self.found_lines(lower), [found_line(first, "owned", game.pid())])

    def test_a_title_that_differs_only_in_case_is_not_chosen(self):
        title = unique("Case Game")
        game = self.start_game(title)
        overlay = self.start_overlay("case-title", title.upper(), mode="owned")
        self.wait_ready(overlay)
        time.sleep(1.5)
        self.assertEqual(self.found_lines(overlay), [])
        game.set_title(title.upper())
        self.wait_found(overlay, 5)
        self.assertEqual(self.found_lines(overlay), [found_line(game.hwnd(), "owned", game.pid())])

    def test_a_class_that_differs_only_in_case_is_not_chosen(self):
        title = unique("Class Case Game")
        game = self.start_game(title)
        wrong = self.start_overlay("case-class-wrong", title, mode="owned", cls=GAME_CLASS.lower())
        right = self.start_overlay("case-class-right", title, mode="owned")
        self.wait_found(right)
        self.wait_ready(wrong)
        time.sleep(1.5)
        self.assertEqual(self.found_lines(wrong), [])
        self.assertEqual(self.found_lines(right), [found_line(game.hwnd(), "owned", game.pid())])

    def test_a_70_character_class_never_matches_but_its_first_63_characters_do(self):
        cls = ("GraLongClass%s" % unique("").split("-")[-1]).ljust(70, "x")
        self.assertEqual(len(cls), 70)
        title = unique("Long Class Game")
        game = self.start_game(title, cls=cls)
        self.assertEqual(game.info()["class"], cls)
        whole = self.start_overlay("long-class-whole", title, mode="owned", cls=cls)
        # the class name is read into 64 characters: only 63 of them take part
        cut = self.start_overlay("long-class-cut", title, mode="owned", cls=cls[:63])
        self.wait_found(cut)
        self.assertEqual(self.found_lines(cut), [found_line(game.hwnd(), "owned", game.pid())])
        self.wait_ready(whole)
        time.sleep(1.5)
        self.assertEqual(self.found_lines(whole), [])


class ChildMode(GameWindowTest):
    """The host window as a child window of the game window."""

    def test_the_host_is_a_child_at_the_client_origin_with_the_client_size(self):
        title = unique("Child Game")
        game = self.start_game(title)
        overlay = self.start_overlay("child-place", title)
        self.wait_ready(overlay)
        hwnd = game.hwnd()
        host = overlay.host_window()
        info = window_info(host)
        # 0x46000000 (WS_CHILD | WS_CLIPSIBLINGS | WS_CLIPCHILDREN), shown over the game while the cover is up
        self.assertEqual(int(info["style"], 16), 0x46000000 | WS_VISIBLE)
        self.assertEqual(info["exstyle"], "00000000")
        self.assertEqual(info["parent"], hwnd)
        self.assertTrue(info["visible"])
        game_info = game.info()
        self.assertEqual(info["rect"], client_on_screen(game_info))
        self.assertEqual(info["client"], game_info["client"])
        self.assertEqual([w["hwnd"] for w in game.children()], [host])
        self.assertEqual(game.owned(), [])
        client = game_info["client"]
        self.assertIn("controller.put_Bounds 0 0 %d %d" % (client[2], client[3]), overlay.journal())
        # a click on the overlay activates it in child mode
        self.assertEqual(game.send(host, WM_MOUSEACTIVATE, int(hwnd, 16), 0x02010001)["result"], 1)

    def test_the_host_follows_a_move_and_a_resize_of_the_game_window(self):
        self.follow_move_and_resize("child-follow", "child", (260, 170), (420, 310))

    def let_go_and_find_again(self, name, mouse_to_game):
        """The first game lets go of the host window (makes it top-level
        again) and closes: the host window lives on, and the next tick that
        finds a game window attaches to it. Returns the host's description
        and the second game."""
        title = unique("Child Again Game")
        first = self.start_game(title)
        overlay = self.start_overlay(name, title)
        self.wait_ready(overlay)
        page = StandinPage(overlay.page_port)
        self.addCleanup(page.close)
        self.assertTrue(page.hello())
        page.post('{"type":"cover"}')  # the page has drawn: the cover goes down
        if mouse_to_game:
            page.post('{"type":"through","on":true}')
            page.post('{"type":"mode","mode":"passive"}')
            self.assertTrue(overlay.wait_for_log(r"^mouse: the game's \(the window out of the hit test\)$", 5))
        host = overlay.host_window()
        first_line = found_line(first.hwnd(), "child", first.pid())
        first.cmd("setparent %s 0" % host)
        first.close()
        self.assertTrue(wait_until(lambda: not first.proc or first.proc.poll() is not None, 10))
        second = self.start_game(title, extra_args=["--x", "300", "--y", "150", "--w", "500", "--h", "400"])
        self.assertTrue(overlay.wait_for_log(r"^game window %s found " % second.hwnd(), 5), overlay.messages())
        time.sleep(0.3)
        self.assertTrue(overlay.running())
        self.assertEqual(self.found_lines(overlay), [first_line, found_line(second.hwnd(), "child", second.pid())])
        self.assertFalse(any(m.startswith("host window destroyed") for m in overlay.messages()))
        return window_info(host), second

    def test_a_host_let_go_by_its_game_attaches_to_the_next_game_window(self):
        info, second = self.let_go_and_find_again("child-again", mouse_to_game=False)
        # the new style without WS_VISIBLE: with the cover down and the mode
        # hidden, nothing shows the host after this find
        self.assertEqual(info["style"], "46000000")
        self.assertEqual(info["parent"], second.hwnd())
        self.assertFalse(info["visible"])
        # fitted once after the find, to the new game's client size
        self.assertEqual(info["rect"], client_on_screen(second.info()))

    def test_with_the_mouse_given_to_the_game_the_next_attachment_leaves_out_clip_children(self):
        info, second = self.let_go_and_find_again("child-again-through", mouse_to_game=True)
        self.assertEqual(info["style"], "44000000")  # WS_CHILD | WS_CLIPSIBLINGS
        self.assertEqual(info["exstyle"], "00080020")  # still layered and transparent to the mouse
        self.assertEqual(info["parent"], second.hwnd())
        self.assertFalse(info["visible"])
        self.assertEqual(info["rect"], client_on_screen(second.info()))

    def test_the_game_closed_ends_the_host_with_its_parent(self):
        title = unique("Child Closed Game")
        game = self.start_game(title)
        overlay = self.start_overlay("child-closed", title)
        self.wait_ready(overlay)
        hwnd = game.hwnd()
        game.close()
        self.assertEqual(overlay.wait_exit(20), 0)
        # Wine destroys a child window of another process while the parent's
        # DestroyWindow waits for it: at the host's WM_DESTROY the game window
        # is still a window and its process still runs.
        line = destroy_line(CHILD_TEXT, hwnd, "still valid (it may be mid-destroy)", "running")
        self.assertEqual(overlay.messages()[-2:], [line, "exit (%s)" % line])

    def test_wm_close_to_the_host_ends_it_and_leaves_the_game(self):
        title = unique("Child WM_CLOSE Game")
        game = self.start_game(title)
        overlay = self.start_overlay("child-wm-close", title)
        self.wait_ready(overlay)
        hwnd = game.hwnd()
        game.post(overlay.host_window(), WM_CLOSE)
        self.assertEqual(overlay.wait_exit(20), 0)
        line = destroy_line(" after WM_CLOSE", hwnd, "still valid (it may be mid-destroy)", "running")
        self.assertEqual(overlay.messages()[-2:], [line, "exit (%s)" % line])
        self.assertTrue(game.info()["exists"])
        self.assertEqual(game.children(), [])

    def test_the_game_process_ending_without_closing_its_window_takes_the_host_window_silently(self):
        # Under Wine, when the game's process ends without destroying its
        # window, the host window (a child of that window, in another
        # process) is removed without a WM_DESTROY. Its timer goes with it:
        # no destroy line, no more ticks (so no cover deadline, no search
        # and no 60 s end). The host process keeps running until something
        # else ends it.
        title = unique("Child Ended Game")
        game = self.start_game(title)
        overlay = self.start_overlay("child-ended", title)
        started = time.monotonic()
        self.wait_ready(overlay)
        host = overlay.host_window()
        game.exit()
        ended = time.monotonic() - started
        self.assertTrue(wait_until(lambda: not window_info(host)["exists"], 5))
        if ended < 8:
            # a tick would take the cover down 10 s after start-up
            time.sleep(max(0, started + 12 - time.monotonic()))
            self.assertNotIn(COVER_OFF, overlay.messages())
        else:
            # a slow start: a tick would write the rates report of the fits made while the cover was up
            time.sleep(max(0, started + 33 - time.monotonic()))
            self.assertFalse([m for m in overlay.messages() if m.startswith("rates ")])
        self.assertTrue(overlay.running())
        self.assertFalse([m for m in overlay.messages()
                          if m.startswith(("host window destroyed", "no game window", "exit ("))])


class OwnedMode(GameWindowTest):
    """The host window as a popup owned by the game window."""

    def test_the_host_is_owned_by_the_game_at_the_client_areas_screen_position(self):
        title = unique("Owned Game")
        game = self.start_game(title)
        overlay = self.start_overlay("owned-place", title, mode="owned")
        self.wait_ready(overlay)
        hwnd = game.hwnd()
        host = overlay.host_window()
        info = window_info(host)
        self.assertEqual(info["owner"], hwnd)
        self.assertNotEqual(info["parent"], hwnd)  # a top-level window
        self.assertEqual(info["exstyle"], "08000080")  # WS_EX_NOACTIVATE | WS_EX_TOOLWINDOW
        style = int(info["style"], 16)
        self.assertEqual(style & 0xC2000000, 0x82000000)  # still the popup of creation, not a child
        self.assertTrue(info["visible"])
        game_info = game.info()
        self.assertEqual(info["rect"], client_on_screen(game_info))
        self.assertEqual([w["hwnd"] for w in game.owned()], [host])
        self.assertEqual(game.children(), [])
        # a click on the overlay never activates it in owned mode
        self.assertEqual(game.send(host, WM_MOUSEACTIVATE, int(hwnd, 16), 0x02010001)["result"], 3)

    def test_the_host_follows_a_move_and_a_resize_while_the_cover_is_up(self):
        self.follow_move_and_resize("owned-follow", "owned", (300, 210), (380, 290))

    def test_wm_close_to_the_host_ends_it_and_leaves_the_game(self):
        title = unique("Owned WM_CLOSE Game")
        game = self.start_game(title)
        overlay = self.start_overlay("owned-wm-close", title, mode="owned")
        self.wait_ready(overlay)
        hwnd = game.hwnd()
        game.post(overlay.host_window(), WM_CLOSE)
        self.assertEqual(overlay.wait_exit(20), 0)
        line = destroy_line(" after WM_CLOSE", hwnd, "still valid (it may be mid-destroy)", "running")
        self.assertEqual(overlay.messages()[-2:], [line, "exit (%s)" % line])
        self.assertTrue(game.info()["exists"])

    def test_after_its_game_windows_are_gone_the_host_ends_60_seconds_later(self):
        # Wine 8 does not destroy an owned window of another process with its
        # owner. So a closed game does not take the
        # host along here (on Windows it would, with the empty first text in
        # the destroy line; the unit tests check that line). The host then
        # does what it does whenever its game window handle stops being a
        # window: it searches again, attaches to the next game window, and
        # ends 60 s after the last one went.
        title = unique("Owned Gone Game")
        first = self.start_game(title)
        overlay = self.start_overlay("owned-gone", title, mode="owned")
        self.wait_ready(overlay)
        host = overlay.host_window()
        first_hwnd = first.hwnd()
        first_line = found_line(first_hwnd, "owned", first.pid())
        first.close()
        self.assertTrue(wait_until(lambda: not window_info(first_hwnd)["exists"], 5))
        time.sleep(0.5)
        self.assertTrue(window_info(host)["exists"])
        second = self.start_game(title)
        second_line = found_line(second.hwnd(), "owned", second.pid())
        self.assertTrue(overlay.wait_for_log("^" + re.escape(second_line) + "$", 5), overlay.messages())
        self.assertEqual(window_info(host)["owner"], second.hwnd())
        # the second game's process ends without closing its window
        second.exit()
        gone = time.monotonic()
        self.assertEqual(overlay.wait_exit(80), 0)
        waited = time.monotonic() - gone
        self.assertGreater(waited, 59.5)
        self.assertLess(waited, 66)
        messages = overlay.messages()
        self.assertEqual(self.found_lines(overlay), [first_line, second_line])
        self.assertEqual(messages[-2:], ["no game window for 60 s - exiting", "exit (no game window for 60 s)"])
        self.assertFalse(any(m.startswith("host window destroyed") for m in messages), messages)


class Tick(GameWindowTest):
    """What the 100 ms tick does: with the cover up it fits the host and
    its region to the game; after the page deadline the cover goes; in
    passive mode it neither fits nor touches the region; in active mode it
    fits on every tick but leaves the region alone."""

    def test_cover_passive_and_active_ticks(self):
        title = unique("Tick Game")
        game = self.start_game(title)
        launched = time.monotonic()
        overlay = self.start_overlay("tick-modes", title, mode="owned")
        self.wait_ready(overlay)
        host = overlay.host_window()

        # the cover is the whole client area and follows the game's size
        game.set_client(500, 350)
        # the tick places the host, then sets its region: wait for both
        info = self.wait_window(host, lambda i: i["region"] == [[0, 0, 500, 350]]
                                and i["rect"] == client_on_screen(game.info()))
        self.assertEqual(info["region"], [[0, 0, 500, 350]])
        self.assertEqual(info["rect"], client_on_screen(game.info()))

        # no word from the page: the cover goes 10 s after start-up
        self.assertTrue(overlay.wait_for_log("^" + re.escape(COVER_OFF) + "$", 15))
        self.assertGreater(time.monotonic() - launched, 9.9)
        self.assertIn(logged_seconds_between(overlay, r"^started, ", "^" + re.escape(COVER_OFF)), (10, 11))
        self.assertFalse(self.wait_window(host, lambda i: not i["visible"])["visible"])  # the mode is hidden

        page = StandinPage(overlay.page_port)
        self.addCleanup(page.close)
        self.assertTrue(page.hello())
        page.post('{"type":"mode","mode":"passive"}')
        page.post('{"type":"region","rects":[0,0,100,50]}')
        info = self.wait_window(host, lambda i: i["region"] == [[0, 0, 100, 50]])
        self.assertEqual(info["region"], [[0, 0, 100, 50]])
        self.assertTrue(info["visible"])
        placed = info["rect"]

        # passive: a move and a resize of the game are not followed
        game.move(330, 240)
        game.set_client(450, 320)
        time.sleep(1)
        info = window_info(host)
        self.assertEqual(info["rect"], placed)
        self.assertEqual(info["region"], [[0, 0, 100, 50]])

        # active: every tick fits, the region stays the page's
        page.post('{"type":"mode","mode":"active"}')
        info = self.wait_window(host, lambda i: i["rect"] == client_on_screen(game.info()))
        self.assertEqual(info["rect"], client_on_screen(game.info()))
        game.move(120, 140)
        info = self.wait_window(host, lambda i: i["rect"] == client_on_screen(game.info()))
        self.assertEqual(info["rect"], client_on_screen(game.info()))
        self.assertEqual(info["region"], [[0, 0, 100, 50]])
        self.assertEqual(overlay.messages().count(COVER_OFF), 1)


class NoGameWindow(GameWindowTest):
    def test_without_a_game_window_the_host_ends_after_60_seconds(self):
        title = unique("Nobody's Game")
        overlay = Overlay("no-game", game=title, game_class=GAME_CLASS)
        self.addCleanup(overlay.stop)
        overlay.start()
        began = time.monotonic()
        self.assertEqual(overlay.wait_exit(90), 0)
        self.assertGreater(time.monotonic() - began, 59.5)
        messages = [m for m in overlay.messages() if not m.startswith("WebView2 ")]
        self.assertRegex(messages[0], r"^started, build ")
        self.assertEqual(messages[1], 'looking for the game window "%s" of class "%s" - none yet '
                                      '(it must match exactly)' % (title, GAME_CLASS))
        self.assertEqual(messages[2], COVER_OFF)
        # The only event of the first 30 s is the cover's one region (the
        # host window stays hidden without a game); the next 30 s are idle
        # and write no line.
        rates = re.match(r"^rates (\d+)s (.*)$", messages[3])
        self.assertTrue(rates, messages)
        self.assertIn(int(rates.group(1)), (30, 31))
        self.assertEqual(rates.group(2),
                         "(avg/s, busiest 1 s): page->host 0.0/0 host->page 0.0/0 game->host 0.0/0 "
                         "host->game 0.0/0 | SetWindowRgn 0.0/1, mode changes 0, mouse-owner switches 0 | "
                         "fit_to_game 0.0/0 (rect changed 0, same 0) | SetFocus 0, MoveFocus 0 | WM_SETCURSOR 0.0/0")
        self.assertEqual(messages[4:], ["no game window for 60 s - exiting", "exit (no game window for 60 s)"])


if __name__ == "__main__":
    unittest.main()
