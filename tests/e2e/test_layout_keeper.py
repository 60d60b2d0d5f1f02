"""The keyboard layout keeper end to end: the real program under Wine over a
stand-in game.

What Wine 8 lets a test do here:
- GetKeyboardLayout for another thread answers with the calling thread's own
  layout (Wine does not look the other thread up). So under Wine the keeper
  reads the layout of the program's own thread wherever it asks for the game
  thread's; the tests switch that layout to play "the game's thread on
  another layout". They do it by posting WM_INPUTLANGCHANGEREQUEST to the
  host window (from the stand-in game, over its fast control link), whose
  default handling activates the layout for the program's thread.
- A thread switches only between layouts of its current language: en-US
  04090409 and its variant F0010409.
- The keeper's asks are real: they reach the stand-in game's windows, which
  record them ("langrequests"), but honouring them switches the game's thread,
  which the keeper under Wine does not see. So a return on another layout runs
  the whole path end to end (first ask, second ask, giving up, the new played
  layout 3 s later); "the game is on ... again" is shown by switching the
  program's thread back right after the first ask.

Not shown here, and covered by tests/unit/layout_keeper_test.cpp: the exact
millisecond bounds (1.5 s, 750 ms, 3 s, 60 s), a refused ask (PostMessageW
does not fail for a live window), a return 60 s after the oldest ask, the
record staying still while away, and the tick counter's wrap-around."""

import os
import re
import shutil
import time
import unittest

from harness import BUILD_DIR, PROGRAM, Overlay, free_udp_port, read_log_file, scratch_dir, unique, wait_until
from standin_game import StandinGame

US = "en-US [04090409]"
VARIANT = "en-US [f0010409]"
US_HKL = "0000000004090409"
US_KLID = "04090409"
VARIANT_KLID = "F0010409"
WM_INPUTLANGCHANGEREQUEST = 0x0050
PLAYED_US = "keyboard layout in play: " + US
FIRST_ASK = ("back from another application with the keyboard layout %s - the game's keys would land on other "
             "actions; the game asked for %s again (the one played with)" % (VARIANT, US))
SECOND_ASK = re.compile(r"^the game is still on %s - its focus window ([0-9A-F]{16}) asked for %s(.*)$"
                        % (re.escape(VARIANT), re.escape(US)))
ON_AGAIN = "the game is on %s again" % US
KEPT = "the game kept %s - left as it is (the played one once it holds 3 s)" % VARIANT
PLAYED_VARIANT = "keyboard layout in play: %s (was %s)" % (VARIANT, US)
LIMIT = "back with %s, played with %s - asked 4 times this minute already: left as it is" % (VARIANT, US)
NOT_ASKED = " (not asked: no_keep_layout.txt)"


def seconds_of(log_line):
    """The time of a raw log line in seconds of the day."""
    clock = log_line.split(" ")[1]
    h, m, s = (int(part) for part in clock.split(":"))
    return h * 3600 + m * 60 + s


class LayoutCase(unittest.TestCase):
    needs_foreground = True
    keep_layout = True

    def assertKeysFile(self, expected):
        """The keys file holds exactly expected: it is written right after
        the log line that a test waits for."""
        wait_until(lambda: self.overlay.keys_file() == expected, 5)
        self.assertEqual(self.overlay.keys_file(), expected)

    def setUp(self):
        self.title = unique("Layout Game")
        self.game = self.start_game(self.title, "GraLayoutGame")
        self.game.front()
        self.assertEqual(self.game.info()["layout"], US_HKL, "the stand-in game does not start on en-US")
        exe = None
        if not self.keep_layout:
            folder = scratch_dir(unique("no-keep-layout"))
            exe = os.path.join(folder, "gra-overlay.exe")
            shutil.copy(PROGRAM, exe)
            open(os.path.join(folder, "no_keep_layout.txt"), "w").close()
        self.overlay = Overlay(unique("layout"), game=self.title, game_class="GraLayoutGame", exe=exe)
        self.addCleanup(self.overlay.stop)
        self.overlay.start()
        self.game_window = self.game.info()
        self.wait_keys(PLAYED_US, timeout=20)

    def start_game(self, title, cls, extra_args=()):
        game = StandinGame()
        self.addCleanup(game.stop)
        return game.start(BUILD_DIR, title, cls, free_udp_port(), extra_args=extra_args)

    # -- what the program wrote ---------------------------------------------------

    def keys_lines(self):
        """The program's "keys: " log messages without that prefix."""
        return [m[len("keys: "):] for m in self.overlay.messages() if m.startswith("keys: ")]

    def wait_keys(self, text, timeout=15, count=1):
        """Waits until the keys line `text` was logged `count` times."""
        if not wait_until(lambda: self.keys_lines().count(text) >= count, timeout):
            self.fail("no keys line %r (x%d) in %r" % (text, count, self.overlay.messages()))

    def raw_line(self, message):
        """The raw log line (with its time) of the first message equal to `message`."""
        for line in read_log_file(self.overlay.log_path):
            if line[len("[gra-overlay] hh:mm:ss "):] == message:
                return line
        self.fail("no log line %r" % message)

    # -- moving the player about ----------------------------------------------------

    def away_to_another_application(self):
        seen = len(self.overlay.messages())
        if not hasattr(self, "other"):
            self.other = self.start_game(unique("Other Application"), "GraLayoutOther",
                                         ["--x", "500", "--y", "300", "--w", "300", "--h", "200"])
        self.other.front()
        self.assertTrue(self.overlay.wait_for_log(r"^game away \(another application in front\)", 15, after=seen),
                        self.overlay.messages())

    def switch_layout(self, klid):
        """The layout the keeper reads under Wine: the program's own thread's
        (see above), asked for through the host window."""
        reply = self.game.post(self.overlay.host_window(), WM_INPUTLANGCHANGEREQUEST, 0, "0x" + klid)
        self.assertTrue(reply["ok"], reply)

    def back_to_the_game(self):
        seen = len(self.overlay.messages())
        self.game.front()
        self.assertTrue(self.overlay.wait_for_log(r"^game back in front", 15, after=seen), self.overlay.messages())

    def lang_requests(self):
        return self.game.lang_requests()

    def return_on_the_variant(self):
        """Away, the layout switched meanwhile, back in front."""
        self.away_to_another_application()
        self.switch_layout(VARIANT_KLID)
        self.back_to_the_game()

    def second_ask(self, lines, note=""):
        """The second ask's line and its target, checked against the game
        thread's focus (or active, or game) window."""
        m = SECOND_ASK.match(lines[2])
        self.assertTrue(m, lines)
        self.assertEqual(m.group(2), note)
        info = self.game.info()
        self.assertEqual(m.group(1), next(h for h in (info["focus"], info["active"], self.game_window["hwnd"])
                                          if int(h, 16)))
        return m.group(1)


class FirstPlayedLayout(LayoutCase):
    def test_the_first_played_layout_about_3_s_after_attach_in_the_log_and_the_keys_file(self):
        self.assertEqual(self.keys_lines(), [PLAYED_US])
        self.assertKeysFile((PLAYED_US + "\n").encode())
        found = self.overlay.wait_for_log(r"^game window [0-9A-F]{16} found ", 1).group(0)
        attached = next(line for line in read_log_file(self.overlay.log_path) if found in line)
        played = self.raw_line("keys: " + PLAYED_US)
        # 3 s after the first tick with the game window, in whole seconds of
        # the log's clock (the upper bound leaves room for a busy machine).
        elapsed = (seconds_of(played) - seconds_of(attached)) % 86400
        self.assertGreaterEqual(elapsed, 3)
        self.assertLessEqual(elapsed, 6)
        # Nothing asked, nothing more noted while the game stays on it.
        wait_until(lambda: False, 1.5)
        self.assertEqual(self.keys_lines(), [PLAYED_US])
        self.assertEqual(self.lang_requests(), [])


class ChangeInsideTheGame(LayoutCase):
    def test_a_layout_chosen_inside_the_game_is_played_3_s_later(self):
        started = time.monotonic()
        self.switch_layout(VARIANT_KLID)
        self.wait_keys(PLAYED_VARIANT)
        self.assertGreaterEqual(time.monotonic() - started, 3.0)
        self.assertEqual(self.keys_lines(), [PLAYED_US, PLAYED_VARIANT])
        self.assertKeysFile(("%s\n%s\n" % (PLAYED_US, PLAYED_VARIANT)).encode())
        self.assertEqual(self.lang_requests(), [])


class AltTabBack(LayoutCase):
    def test_back_on_another_layout_asks_twice_gives_up_and_plays_it_3_s_later(self):
        self.return_on_the_variant()
        self.wait_keys(PLAYED_VARIANT, timeout=20)
        lines = self.keys_lines()
        self.assertEqual(len(lines), 5, lines)
        self.assertEqual(lines[:2], [PLAYED_US, FIRST_ASK])
        target = self.second_ask(lines)
        self.assertEqual(lines[3:], [KEPT, PLAYED_VARIANT])
        # Both asks reached the game: WM_INPUTLANGCHANGEREQUEST, wParam 0,
        # lParam the played layout; first the game window, then the focus window.
        self.assertEqual(self.lang_requests(), [{"wparam": 0, "lparam": US_HKL, "hwnd": self.game_window["hwnd"]},
                                                {"wparam": 0, "lparam": US_HKL, "hwnd": target}])
        self.assertKeysFile(("\n".join(lines) + "\n").encode())
        # The new layout was played 3 s after the keeper gave up.
        elapsed = (seconds_of(self.raw_line("keys: " + PLAYED_VARIANT))
                   - seconds_of(self.raw_line("keys: " + KEPT))) % 86400
        self.assertGreaterEqual(elapsed, 3)

    def test_back_on_the_played_layout_after_the_first_ask_ends_the_episode(self):
        host = self.overlay.host_window()
        self.return_on_the_variant()
        # The game takes the played layout again right after the first ask.
        if not wait_until(lambda: FIRST_ASK in self.keys_lines(), 15, interval=0.01):
            self.fail("no first ask: %r" % self.overlay.messages())
        self.game.post(host, WM_INPUTLANGCHANGEREQUEST, 0, "0x" + US_KLID)
        self.wait_keys(ON_AGAIN)
        lines = self.keys_lines()
        if any(SECOND_ASK.match(line) for line in lines):
            self.skipTest("the machine was too slow to switch back within 750 ms: %r" % lines)
        self.assertEqual(lines, [PLAYED_US, FIRST_ASK, ON_AGAIN])
        self.assertEqual(self.lang_requests(), [{"wparam": 0, "lparam": US_HKL, "hwnd": self.game_window["hwnd"]}])
        # The episode is over: no second ask, no giving up.
        wait_until(lambda: False, 2)
        self.assertEqual(self.keys_lines(), [PLAYED_US, FIRST_ASK, ON_AGAIN])
        self.assertEqual(len(self.lang_requests()), 1)

    def test_back_on_the_played_layout_nothing_is_asked(self):
        self.away_to_another_application()
        self.back_to_the_game()
        wait_until(lambda: False, 2)
        self.assertEqual(self.keys_lines(), [PLAYED_US])
        self.assertEqual(self.lang_requests(), [])


class NoKeepLayout(LayoutCase):
    keep_layout = False

    def test_asks_are_only_noted_and_nothing_is_posted_to_the_game(self):
        self.assertEqual(self.overlay.messages()[1],
                         "keys: no_keep_layout.txt - the keyboard layout is only noted, never asked back")
        self.return_on_the_variant()
        self.wait_keys(PLAYED_VARIANT, timeout=20)
        lines = self.keys_lines()[1:]  # the start-up line above is no event of the keeper
        self.assertEqual(len(lines), 5, lines)
        self.assertEqual(lines[:2], [PLAYED_US, FIRST_ASK + NOT_ASKED])
        self.second_ask(lines, NOT_ASKED)
        self.assertEqual(lines[3:], [KEPT, PLAYED_VARIANT])
        self.assertEqual(self.lang_requests(), [])
        self.assertKeysFile(("\n".join(lines) + "\n").encode())


class AsksPerMinute(LayoutCase):
    def test_five_returns_within_a_minute_make_four_asks_and_a_line_that_says_4(self):
        host = self.overlay.host_window()
        first_return = None
        for episode in range(1, 5):
            first_return = first_return or time.monotonic()  # the first ask comes after this
            self.return_on_the_variant()
            self.wait_keys(KEPT, count=episode)
            # Back on the played layout before the other one could become it.
            self.game.post(host, WM_INPUTLANGCHANGEREQUEST, 0, "0x" + US_KLID)
        if time.monotonic() - first_return >= 50:
            self.skipTest("the machine was too slow: four returns took most of a minute")
        self.return_on_the_variant()
        self.wait_keys(LIMIT)
        lines = self.keys_lines()
        self.assertEqual([line for line in lines if not SECOND_ASK.match(line)],
                         [PLAYED_US] + [FIRST_ASK, KEPT] * 4 + [LIMIT])
        self.assertEqual(sum(1 for line in lines if SECOND_ASK.match(line)), 4)
        # Two asks per episode, none for the fifth return.
        requests = len(self.lang_requests())
        self.assertEqual(requests, 8)
        # Left as it is: played once it held 3 s, with no further ask.
        self.wait_keys(PLAYED_VARIANT)
        self.assertEqual(self.keys_lines()[-2:], [LIMIT, PLAYED_VARIANT])
        self.assertEqual(len(self.lang_requests()), requests)


if __name__ == "__main__":
    unittest.main()
