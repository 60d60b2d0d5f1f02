"""The rates report end to end: a real host with a game window, game-link
traffic and a page message writes one report 30 s after its first tick,
in the exact format, with the counts of what happened. (The time
arithmetic itself is covered by the unit tests with the time handed in;
the idle host that writes no line is seen in test_game_window's 60 s run.)"""

import re
import time
import unittest

from harness import BUILD_DIR, GameLink, Overlay, free_udp_port, unique
from standin_game import StandinGame
from standin_runtime import StandinPage

GAME_CLASS = "GraTestGame"

FIGURE = r"(\d+\.\d)/(\d+)"
REPORT = re.compile(
    r"^rates (\d+)s \(avg/s, busiest 1 s\): "
    r"page->host " + FIGURE + r" host->page " + FIGURE + r" game->host " + FIGURE + r" host->game " + FIGURE +
    r" \| SetWindowRgn " + FIGURE + r", mode changes (\d+), mouse-owner switches (\d+)"
    r" \| fit_to_game " + FIGURE + r" \(rect changed (\d+), same (\d+)\)"
    r" \| SetFocus (\d+), MoveFocus (\d+)"
    r" \| WM_SETCURSOR " + FIGURE + r"$")
NAMES = ["seconds", "pageAvg", "pageBusiest", "toPageAvg", "toPageBusiest", "gameAvg", "gameBusiest",
         "toGameAvg", "toGameBusiest", "rgnAvg", "rgnBusiest", "modeChanges", "mouseSwitches",
         "fitAvg", "fitBusiest", "rectChanged", "rectSame", "setFocus", "moveFocus", "cursorAvg", "cursorBusiest"]


def parse_report(line):
    m = REPORT.match(line)
    if not m:
        return None
    return dict(zip(NAMES, m.groups()))


class RealReport(unittest.TestCase):
    def run_host_for_one_report(self, mode):
        """Starts a game and a host, moves the game window once while the
        cover is up, makes traffic of each kind (page messages, a burst of
        ten game datagrams, two mode changes and a mouse-owner switch), and
        returns the first report's fields and the seconds from the start
        line to it."""
        title = unique("Rates Game")
        game = StandinGame().start(BUILD_DIR, title, GAME_CLASS, free_udp_port())
        self.addCleanup(game.stop)
        overlay = Overlay("rates-" + mode, game=title, game_class=GAME_CLASS, mode=mode)
        self.addCleanup(overlay.stop)
        overlay.start()
        started = time.monotonic()
        self.assertTrue(overlay.wait_for_log(r"^game window [0-9A-F]{16} found ", 10), overlay.messages())
        game.move(240, 180)  # while the cover is up, every tick fits
        time.sleep(0.3)  # a few ticks
        self.assertLess(time.monotonic() - started, 9, "the move must come before the cover goes")
        self.assertTrue(overlay.wait_for_log(r"^WebView2 ready, page ", 20), overlay.messages())

        page = StandinPage(overlay.page_port)
        self.addCleanup(page.close)
        self.assertTrue(page.hello())
        link = GameLink(overlay.port)
        self.addCleanup(link.close)
        # ten datagrams in one burst, each answered with the state report
        for _ in range(10):
            link.send("GRAO state")
        self.assertEqual([link.receive(5) for _ in range(10)], [b"GRAO state hidden"] * 10)

        for message in ('{"type":"nothing to do"}', '{"type":"cover"}', '{"type":"mode","mode":"active"}',
                        '{"type":"through","on":true}', '{"type":"mode","mode":"passive"}'):
            self.assertEqual(page.post(message), "done")
        self.assertEqual([link.receive(5) for _ in range(2)], [b"GRAO state active", b"GRAO state passive"])
        self.assertTrue(overlay.wait_for_log(r"^mouse: the game's \(the window out of the hit test\)$", 5))
        self.assertIn("cover off (the page has drawn)", overlay.messages())

        found = overlay.wait_for_log(r"^rates ", 45)
        seen = time.monotonic() - started
        self.assertTrue(found, overlay.messages())
        report = parse_report(found.string)
        self.assertIsNotNone(report, "the line's format: %r" % found.string)
        self.assertEqual([m for m in overlay.messages() if m.startswith("rates ")], [found.string])
        return report, seen

    def check_common(self, report, seen):
        self.assertIn(int(report["seconds"]), (30, 31))
        self.assertGreater(seen, 29)
        self.assertLess(seen, 36)
        # five page messages in a few slices: 5 / 30 s
        self.assertEqual(report["pageAvg"], "0.2")
        self.assertIn(int(report["pageBusiest"]), range(1, 6))
        # the burst of ten in one slice
        self.assertEqual((report["gameAvg"], report["gameBusiest"]), ("0.3", "10"))
        # ten answers and two state reports: 12 / 30 s
        self.assertEqual(report["toGameAvg"], "0.4")
        self.assertIn(int(report["toGameBusiest"]), range(10, 13))
        # hidden -> active -> passive, and the mouse to the game once in passive mode
        self.assertEqual((report["modeChanges"], report["mouseSwitches"]), ("2", "1"))
        # every fit counts as either changed or same: two at the find, one per
        # tick while the cover is up, one when the web view is ready, one per
        # mode change into passive or active
        fits = int(report["rectChanged"]) + int(report["rectSame"])
        self.assertGreaterEqual(fits, 7)
        self.assertAlmostEqual(float(report["fitAvg"]), fits / float(report["seconds"]), delta=0.05)
        self.assertGreaterEqual(int(report["fitBusiest"]), 2)
        # one region at the find, one per tick while the cover is up, one when it goes
        self.assertGreaterEqual(int(report["rgnBusiest"]), 1)

    def test_child_mode_report(self):
        report, seen = self.run_host_for_one_report("child")
        self.check_common(report, seen)
        self.assertEqual(report["rectChanged"], "1")  # only the first call: the move kept the client size
        # into active mode: SetFocus on the host, MoveFocus into the web view;
        # out of it: SetFocus back on the game window
        self.assertEqual((report["setFocus"], report["moveFocus"]), ("2", "1"))

    def test_owned_mode_report(self):
        report, seen = self.run_host_for_one_report("owned")
        self.check_common(report, seen)
        self.assertEqual(report["rectChanged"], "2")  # the first call and the move
        # the keyboard is never moved in owned mode
        self.assertEqual((report["setFocus"], report["moveFocus"]), ("0", "0"))


if __name__ == "__main__":
    unittest.main()
