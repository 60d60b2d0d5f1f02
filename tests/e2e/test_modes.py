"""The interaction modes, the click-through, the cover and the hit region end
to end: the real program under Wine over a stand-in game window, driven by
page messages and game datagrams, and checked by the log, the state reports
on the game link, the stand-in runtime's journal and the host window's real
state (visibility, styles, region, layered attributes, parent, focus)."""

import time
import unittest

from harness import Overlay, wait_until
from overlay_scene import (HOST_MESSAGE, MOUSE_TO_GAME, WS_CLIPCHILDREN, WS_EX_LAYERED, WS_EX_TRANSPARENT,
                           WS_VISIBLE, OverlayScene, hex_value)

LAYERED_AND_TRANSPARENT = WS_EX_LAYERED | WS_EX_TRANSPARENT
# The colour key RGB(1, 0, 1) with LWA_COLORKEY (1). The alpha of 255 that the
# program passes along cannot be observed under Wine 8, which reports 0 for it
# whenever LWA_ALPHA is not among the flags (the unit tests cannot read it
# either).
COLOUR_KEY = {"key": "00010001", "alpha": 0, "flags": 1}
ACTIVE = '{"type":"mode","mode":"active"}'
PASSIVE = '{"type":"mode","mode":"passive"}'
COVER_OFF = '{"type":"cover","on":false}'
THROUGH_ON = '{"type":"through","on":true}'
THROUGH_OFF = '{"type":"through","on":false}'


def mode_lines(messages):
    return [m for m in messages if m.startswith("mode ")]


def mouse_lines(messages):
    return [m for m in messages if m.startswith("mouse: ") or m.startswith("layered window refused")]


def client_region(scene):
    client = scene.game_info()["client"]
    return [[0, 0, client[2], client[3]]]


def focus_after(scene, steps, expected, attempts=5):
    """Brings the game to the front, runs each step (each returns the focus of
    the game's thread after it) and gives the list of focuses, trying again
    until it is the expected one. Another test's game window may take the
    foreground at any moment, which clears the thread's focus."""
    for _ in range(attempts):
        scene.game.front()
        seen = [step() for step in steps]
        if seen == expected:
            break
        time.sleep(0.5)
    return seen


class ModeReports(unittest.TestCase):
    def test_active_twice_logs_once_reports_twice_and_moves_focus_twice(self):
        with OverlayScene("modes-active-twice") as scene:
            self.assertEqual(scene.first_report, b"GRAO state hidden")
            scene.page_says(ACTIVE)
            scene.page_says(ACTIVE)
            self.assertEqual(scene.reports(), ["GRAO state active", "GRAO state active"])
            self.assertEqual(mode_lines(scene.messages()), ["mode active"])
            self.assertEqual(scene.journal_count("controller.MoveFocus 0"), 2)
            host = scene.host_info()
            self.assertTrue(host["visible"])
            self.assertEqual(host["parent"], scene.game.hwnd())
            self.assertEqual(hex_value(host["style"]), 0x56000000)  # child, clip siblings and children, visible

    def test_the_page_names_the_mode_and_anything_else_hides(self):
        with OverlayScene("modes-page-values") as scene:
            scene.page_says(PASSIVE)
            scene.page_says('{"type":"mode","mode":"Active"}')
            scene.page_says(PASSIVE)
            scene.page_says('{"type":"mode"}')
            self.assertEqual(scene.reports(), ["GRAO state passive", "GRAO state hidden", "GRAO state passive",
                                               "GRAO state hidden"])
            self.assertEqual(mode_lines(scene.messages()),
                             ["mode passive", "mode hidden", "mode passive", "mode hidden"])


class Focus(unittest.TestCase):
    needs_foreground = True  # the game thread's focus is there only while the game is in front

    def test_active_moves_the_focus_into_the_host_and_leaving_gives_it_back(self):
        with OverlayScene("modes-focus") as scene:
            host, game = scene.host_hwnd(), scene.game.hwnd()

            def switch(message):
                def run():
                    scene.page_says(message)
                    return scene.game_info()["focus"]
                return run
            # The host's thread input is attached to the game's: the game's
            # thread sees the host window as its focus while active.
            self.assertEqual(focus_after(scene, [switch(ACTIVE), switch(PASSIVE)], [host, game]), [host, game])
            self.assertEqual(scene.host_info()["parent"], game)


class OwnedMode(unittest.TestCase):
    def test_active_in_owned_mode_never_attaches_input_nor_moves_focus(self):
        # The rates report could show "SetFocus 0" only after 30 s; the
        # journal and the game thread's focus show it at once.
        with OverlayScene("modes-owned", mode="owned") as scene:
            scene.game.front()
            scene.page_says(ACTIVE)
            scene.page_says(ACTIVE)
            self.assertEqual(scene.reports(), ["GRAO state active", "GRAO state active"])
            self.assertEqual(mode_lines(scene.messages()), ["mode active"])
            # SetFocus and MoveFocus go together: no MoveFocus, no SetFocus.
            self.assertFalse([l for l in scene.journal() if l.startswith("controller.MoveFocus")])
            self.assertNotEqual(scene.game_info()["focus"], scene.host_hwnd())
            host = scene.host_info()
            self.assertTrue(host["visible"])
            self.assertEqual(host["owner"], scene.game.hwnd())
            self.assertEqual(hex_value(host["exstyle"]) & 0x08000080, 0x08000080)  # no-activate tool window

    def test_click_through_in_owned_mode(self):
        with OverlayScene("modes-owned-through", mode="owned") as scene:
            scene.page_says(COVER_OFF)
            scene.page_says(PASSIVE)
            scene.page_says(THROUGH_ON)
            self.assertEqual(mouse_lines(scene.messages()), [MOUSE_TO_GAME])
            host = scene.host_info()
            self.assertEqual(hex_value(host["exstyle"]) & LAYERED_AND_TRANSPARENT, LAYERED_AND_TRANSPARENT)
            self.assertEqual(hex_value(host["style"]) & WS_CLIPCHILDREN, 0)
            self.assertEqual(host["layered"], COLOUR_KEY)


class Cover(unittest.TestCase):
    def test_hidden_while_the_cover_is_up_keeps_the_window_until_the_cover_comes_down(self):
        with OverlayScene("modes-hidden-cover") as scene:
            scene.page_says(PASSIVE)
            before_hide = len(scene.journal())
            scene.page_says('{"type":"hide"}')
            self.assertEqual(mode_lines(scene.messages()), ["mode passive", "mode hidden"])
            host = scene.host_info()
            self.assertTrue(host["visible"])
            self.assertEqual(host["region"], client_region(scene))
            self.assertNotIn("controller.put_IsVisible 0", scene.journal()[before_hide:])

            scene.page_says(COVER_OFF)
            self.assertIn("cover off (the page has drawn)", scene.messages())
            host = scene.host_info()
            self.assertFalse(host["visible"])
            self.assertEqual(host["region"], [])
            journal = scene.journal()
            transparent = journal.index("controller2.put_DefaultBackgroundColor 0 0 0 0")
            self.assertIn("controller.put_IsVisible 0", journal[transparent:])
            self.assertEqual(scene.reports(), ["GRAO state passive", "GRAO state hidden"])

    def test_cover_on_true_changes_nothing_and_the_cover_comes_down_once(self):
        with OverlayScene("modes-cover-once") as scene:
            scene.page_says('{"type":"cover","on":true}')
            self.assertFalse([m for m in scene.messages() if m.startswith("cover off")])
            self.assertTrue(scene.host_info()["visible"])
            scene.page_says(COVER_OFF)
            scene.page_says(COVER_OFF)
            self.assertEqual([m for m in scene.messages() if m.startswith("cover off")],
                             ["cover off (the page has drawn)"])
            self.assertEqual(scene.journal_count("controller2.put_DefaultBackgroundColor 0 0 0 0"), 1)

    def test_the_cover_covers_the_whole_client_area_and_follows_its_size(self):
        with OverlayScene("modes-cover-size") as scene:
            host = scene.host_info()
            self.assertTrue(host["visible"])
            self.assertEqual(host["region"], client_region(scene))
            # The page's rectangles wait for the cover to come down.
            scene.page_says('{"type":"region","rects":[10,10,20,20]}')
            self.assertEqual(scene.host_info()["region"], client_region(scene))
            scene.game.set_client(500, 300)
            self.assertTrue(scene.wait_host(lambda h: h["region"] == [[0, 0, 500, 300]], 10),
                            scene.host_info())
            self.assertEqual(scene.host_info()["client"], [0, 0, 500, 300])
            scene.page_says(COVER_OFF)
            self.assertEqual(scene.host_info()["region"], [[10, 10, 30, 30]])


class PageDeadline(unittest.TestCase):
    def test_the_cover_comes_down_ten_seconds_after_start_when_the_page_never_says(self):
        scene = OverlayScene("modes-deadline")
        try:
            scene.start_game()
            scene.overlay.start()
            began = time.monotonic()
            line = "cover off (the page never said - 10 s)"
            self.assertTrue(scene.wait_log("^" + line.replace("(", r"\(").replace(")", r"\)") + "$", 25),
                            scene.messages())
            waited = time.monotonic() - began
            # 10 to 10.1 s after the window's creation, which follows the start
            # line closely; the margins allow for polling and a busy machine.
            self.assertGreaterEqual(waited, 9.7)
            self.assertLessEqual(waited, 15)
            # the line comes first, then the background and the window
            self.assertTrue(wait_until(
                lambda: "controller2.put_DefaultBackgroundColor 0 0 0 0" in scene.journal(), 10))
            journal = scene.journal()
            opaque = journal.index("controller2.put_DefaultBackgroundColor 255 11 11 24")
            self.assertGreater(journal.index("controller2.put_DefaultBackgroundColor 0 0 0 0"), opaque)
            # the mode is hidden
            self.assertTrue(scene.wait_host(lambda h: not h["visible"] and h["region"] == [], 10),
                            scene.host_info())
            time.sleep(1)
            self.assertEqual(scene.messages().count(line), 1)
        finally:
            scene.stop()

    def test_the_deadline_applies_without_a_game_window(self):
        overlay = Overlay("modes-deadline-nogame", game="no such game window")
        with overlay:
            began = time.monotonic()
            self.assertTrue(overlay.wait_for_log(r"^cover off \(the page never said - 10 s\)$", 25))
            self.assertGreaterEqual(time.monotonic() - began, 9.7)


class ClickThrough(unittest.TestCase):
    def test_through_while_active_waits_for_passive_and_comes_back(self):
        with OverlayScene("modes-through") as scene:
            scene.page_says(COVER_OFF)
            scene.page_says(ACTIVE)
            scene.page_says(THROUGH_ON)
            self.assertIn("through on", scene.messages())
            self.assertEqual(mouse_lines(scene.messages()), [])
            host = scene.host_info()
            self.assertEqual(hex_value(host["exstyle"]) & LAYERED_AND_TRANSPARENT, 0)
            self.assertIsNone(host["layered"])

            scene.page_says(PASSIVE)
            messages = scene.messages()
            self.assertEqual(messages[messages.index("mode passive") + 1], MOUSE_TO_GAME)
            host = scene.host_info()
            self.assertTrue(host["visible"])
            self.assertEqual(hex_value(host["exstyle"]) & LAYERED_AND_TRANSPARENT, LAYERED_AND_TRANSPARENT)
            self.assertEqual(hex_value(host["style"]) & WS_CLIPCHILDREN, 0)
            self.assertEqual(host["layered"], COLOUR_KEY)

            scene.page_says(THROUGH_OFF)
            messages = scene.messages()
            self.assertEqual(messages[-2:], ["through off", "mouse: ours"])
            host = scene.host_info()
            self.assertEqual(hex_value(host["exstyle"]) & LAYERED_AND_TRANSPARENT, 0)
            self.assertEqual(hex_value(host["style"]) & WS_CLIPCHILDREN, WS_CLIPCHILDREN)
            self.assertEqual(mouse_lines(scene.messages()), [MOUSE_TO_GAME, "mouse: ours"])

    def test_through_twice_logs_once(self):
        with OverlayScene("modes-through-twice") as scene:
            scene.page_says(THROUGH_ON)
            scene.page_says(THROUGH_ON)
            scene.page_says('{"type":"through","on":"true"}')
            self.assertEqual([m for m in scene.messages() if m.startswith("through ")], ["through on"])

    def test_under_the_cover_passive_through_waits_for_the_cover(self):
        with OverlayScene("modes-through-cover") as scene:
            scene.page_says(PASSIVE)
            scene.page_says(THROUGH_ON)
            self.assertEqual(mouse_lines(scene.messages()), [])
            scene.page_says(COVER_OFF)
            messages = scene.messages()
            self.assertEqual(messages[messages.index("cover off (the page has drawn)") + 1], MOUSE_TO_GAME)
            self.assertEqual(scene.host_info()["layered"], COLOUR_KEY)

    def test_attached_while_the_host_has_the_mouse_keeps_clip_children(self):
        with OverlayScene("modes-attach-ours") as scene:
            host = scene.host_info()
            self.assertEqual(host["parent"], scene.game.hwnd())
            self.assertEqual(hex_value(host["style"]) & ~WS_VISIBLE, 0x46000000)

    def test_attached_while_the_game_has_the_mouse_drops_clip_children(self):
        scene = OverlayScene("modes-attach-through", start_game=False)
        with scene:
            scene.page_says(COVER_OFF)
            scene.page_says(PASSIVE)
            scene.page_says(THROUGH_ON)
            self.assertEqual(mouse_lines(scene.messages()), [MOUSE_TO_GAME])
            scene.start_game()
            scene.wait_found()
            host = scene.host_info()
            self.assertEqual(host["parent"], scene.game.hwnd())
            self.assertEqual(hex_value(host["style"]), 0x44000000)
            self.assertEqual(hex_value(host["exstyle"]) & LAYERED_AND_TRANSPARENT, LAYERED_AND_TRANSPARENT)
            # The new style carries no WS_VISIBLE and, with the cover down,
            # nothing shows the window again until the next mode change.
            self.assertFalse(host["visible"])
            scene.page_says(ACTIVE)
            host = scene.host_info()
            self.assertTrue(host["visible"])
            self.assertEqual(hex_value(host["style"]), 0x56000000)


class HitRegion(unittest.TestCase):
    def test_no_rectangles_after_the_cover_make_the_window_empty_in_every_mode(self):
        with OverlayScene("modes-region-empty") as scene:
            scene.page_says(COVER_OFF)
            scene.page_says(PASSIVE)
            scene.page_says('{"type":"region","rects":[[10,10,40,40]]}')
            self.assertEqual(scene.host_info()["region"], [[10, 10, 50, 50]])
            scene.page_says('{"type":"region","rects":[]}')
            host = scene.host_info()
            self.assertEqual(host["region"], [])
            self.assertTrue(host["visible"])
            scene.page_says(ACTIVE)
            time.sleep(0.5)  # a few ticks in active mode fit the window but leave the region alone
            self.assertEqual(scene.host_info()["region"], [])
            scene.page_says('{"type":"region"}')
            self.assertEqual(scene.host_info()["region"], [])

    def test_a_scale_of_one_and_a_half(self):
        with OverlayScene("modes-region-scale") as scene:
            self.assertEqual(scene.page.set_scale(1.5), "ok")
            scene.page_says(COVER_OFF)
            scene.page_says(PASSIVE)
            scene.page_says('{"type":"region","rects":[10,10,101,1]}')
            self.assertEqual(scene.host_info()["region"], [[15, 15, 166, 16]])
            self.assertIn("controller3.get_RasterizationScale 1.5", scene.journal())

    def test_the_scale_of_the_runtime_from_the_start(self):
        with OverlayScene("modes-region-scale-env", env={"GRA_STANDIN_SCALE": "1.5"}) as scene:
            scene.page_says(COVER_OFF)
            scene.page_says('{"type":"region","rects":[{"x":10,"y":10,"w":101,"h":1}]}')
            self.assertEqual(scene.host_info()["region"], [[15, 15, 166, 16]])

    def test_overlapping_and_outside_rectangles_are_united_unclipped(self):
        with OverlayScene("modes-region-union") as scene:
            self.assertEqual(client_region(scene), [[0, 0, 640, 480]])
            scene.page_says(COVER_OFF)
            scene.page_says(PASSIVE)
            scene.page_says('{"type":"region","rects":[[0,0,100,100],[50,50,100,100],'
                            '[600,400,200,200],[-20,-20,10,10]]}')
            self.assertEqual(scene.host_info()["region"], [
                [-20, -20, -10, -10], [0, 0, 100, 50], [0, 50, 150, 100], [50, 100, 150, 150],
                [600, 400, 800, 600]])


class Following(unittest.TestCase):
    def test_only_active_mode_or_the_cover_makes_the_tick_follow_the_game(self):
        with OverlayScene("modes-following") as scene:
            scene.page_says(COVER_OFF)
            scene.page_says(PASSIVE)
            self.assertEqual(scene.host_info()["client"], [0, 0, 640, 480])
            scene.game.set_client(500, 300)
            time.sleep(1)  # ten ticks: passive with the cover down does not fit
            self.assertEqual(scene.host_info()["client"], [0, 0, 640, 480])
            scene.page_says(ACTIVE)  # fitted at once by the mode switch
            self.assertEqual(scene.host_info()["client"], [0, 0, 500, 300])
            scene.game.set_client(560, 360)
            self.assertTrue(scene.wait_host(lambda h: h["client"] == [0, 0, 560, 360], 10), scene.host_info())


class GameCommands(unittest.TestCase):
    def test_show_twice_over_the_game_link(self):
        with OverlayScene("modes-link-show") as scene:
            scene.game_says("show")
            scene.game_says("show")
            self.assertEqual(scene.reports(), ["GRAO state active", "GRAO state active"])
            self.assertEqual(mode_lines(scene.messages()), ["mode active"])
            self.assertTrue(wait_until(lambda: scene.journal_count("controller.MoveFocus 0") == 2, 10))

    def test_hide_before_the_page_is_ready_hides_at_once(self):
        with OverlayScene("modes-link-hide") as scene:
            scene.page_says(COVER_OFF)
            scene.game_says("show")
            scene.game_says("hide")
            self.assertEqual(scene.reports(), ["GRAO state active", "GRAO state hidden"])
            self.assertEqual(mode_lines(scene.messages()), ["mode active", "mode hidden"])
            self.assertFalse(scene.host_info()["visible"])

    def test_hide_while_the_page_is_ready_asks_the_page(self):
        with OverlayScene("modes-link-close") as scene:
            scene.page_says('{"type":"ready"}')
            scene.game_says("show")
            self.assertEqual(scene.reports(), ["GRAO state active"])
            scene.game_says("hide")
            self.assertTrue(scene.wait_posted('{"type":"close"}'))
            self.assertEqual(scene.reports(), [])
            self.assertEqual(mode_lines(scene.messages()), ["mode active"])
            scene.page_says('{"type":"hide"}')
            self.assertEqual(scene.reports(), ["GRAO state hidden"])
            self.assertEqual(scene.posted(), [HOST_MESSAGE, '{"type":"show"}', '{"type":"close"}'])

    def test_toggle_shows_unless_active(self):
        with OverlayScene("modes-link-toggle") as scene:
            scene.game_says("toggle")
            self.assertEqual(scene.reports(), ["GRAO state active"])
            scene.page_says(PASSIVE)
            scene.game_says("toggle")
            self.assertEqual(scene.reports(), ["GRAO state passive", "GRAO state active"])
            scene.game_says("toggle")
            self.assertEqual(scene.reports(), ["GRAO state hidden"])
            self.assertEqual(mode_lines(scene.messages()), ["mode active", "mode passive", "mode active",
                                                            "mode hidden"])


if __name__ == "__main__":
    unittest.main()
