"""The show message and its pad text end to end: "show" and "toggle" from
the game link before and after the page is ready, the exact JSON texts that
reach the page, and "--show" at start-up, before the page can have loaded."""

import json
import time
import unittest

from overlay_scene import HOST_MESSAGE, OverlayScene

READY = '{"type":"ready"}'


def show(pad=None):
    return '{"type":"show"}' if pad is None else '{"type":"show","pad":%s}' % pad


class ShowWhileReady(unittest.TestCase):
    def test_pad_texts_reach_the_page_exactly(self):
        with OverlayScene("show-ready-pads") as scene:
            scene.page_says(READY)
            self.assertEqual(scene.posted(), [HOST_MESSAGE])
            for datagram in ("show hi", "show", "show -", 'show say "hi" \\ now\r\nnext\tcol',
                             "show  x", "show caf\u00e9"):
                scene.game_says(datagram)
            expected = [HOST_MESSAGE, show('"hi"'), show(), show('"-"'),
                        show(r'"say \"hi\" \\ now\r\nnext\tcol"'), show('" x"'), show('"caf\u00e9"')]
            self.assertEqual(scene.posted(len(expected)), expected)
            # Every one of them is valid JSON carrying the pad as sent.
            self.assertEqual(json.loads(expected[4])["pad"], 'say "hi" \\ now\r\nnext\tcol')
            self.assertEqual(scene.reports(), ["GRAO state active"] * 6)
            self.assertIn("webview.PostWebMessageAsJson " + show('"hi"'), scene.journal())

    def test_toggle_while_hidden_shows_with_its_pad(self):
        with OverlayScene("show-ready-toggle") as scene:
            scene.page_says(READY)
            scene.game_says("toggle map")
            self.assertTrue(scene.wait_posted(show('"map"')))
            self.assertEqual(scene.reports(), ["GRAO state active"])


class ShowBeforeReady(unittest.TestCase):
    def ready_and_collect(self, scene, count):
        scene.page_says(READY)
        return scene.posted(count)

    def test_the_pad_waits_for_ready(self):
        with OverlayScene("show-before-pad") as scene:
            scene.game_says("show x")
            self.assertEqual(scene.reports(), ["GRAO state active"])
            self.assertEqual(scene.posted(), [])
            self.assertEqual(self.ready_and_collect(scene, 2), [show('"x"'), HOST_MESSAGE])

    def test_a_show_without_pad_arrives_without_pad(self):
        with OverlayScene("show-before-empty") as scene:
            scene.game_says("show")
            self.assertEqual(scene.reports(), ["GRAO state active"])
            self.assertEqual(self.ready_and_collect(scene, 2), [show(), HOST_MESSAGE])

    def test_a_dash_before_ready_arrives_as_no_pad_at_all(self):
        with OverlayScene("show-before-dash") as scene:
            scene.game_says("show -")
            self.assertEqual(scene.reports(), ["GRAO state active"])
            self.assertEqual(self.ready_and_collect(scene, 2), [show(), HOST_MESSAGE])
            # Asked while ready, the same dash is a pad.
            scene.game_says("show -")
            self.assertTrue(scene.wait_posted(show('"-"')))

    def test_a_later_show_replaces_the_pad(self):
        with OverlayScene("show-before-replace") as scene:
            scene.game_says("show first")
            scene.game_says('show "second"')
            self.assertEqual(scene.reports(), ["GRAO state active"] * 2)
            self.assertEqual(self.ready_and_collect(scene, 2), [show(r'"\"second\""'), HOST_MESSAGE])

    def test_show_then_hide_before_ready_sends_no_show(self):
        with OverlayScene("show-before-hide") as scene:
            scene.game_says("show x")
            scene.game_says("hide")
            self.assertEqual(scene.reports(), ["GRAO state active", "GRAO state hidden"])
            self.assertEqual(self.ready_and_collect(scene, 1), [HOST_MESSAGE])
            time.sleep(1)
            self.assertEqual(scene.posted(), [HOST_MESSAGE])

    def test_every_ready_while_active_shows_again_without_the_kept_pad(self):
        with OverlayScene("show-before-twice") as scene:
            scene.game_says("show x")
            self.assertEqual(scene.reports(), ["GRAO state active"])
            self.assertEqual(self.ready_and_collect(scene, 2), [show('"x"'), HOST_MESSAGE])
            self.assertEqual(self.ready_and_collect(scene, 4), [show('"x"'), HOST_MESSAGE, show(), HOST_MESSAGE])


class ShowAtStart(unittest.TestCase):
    def test_show_option_runs_show_before_the_page_has_loaded(self):
        with OverlayScene("show-at-start", show=True) as scene:
            self.assertEqual(scene.first_report, b"GRAO state active")
            messages = scene.messages()
            self.assertLess(messages.index("mode active"),
                            next(i for i, m in enumerate(messages) if m.startswith("WebView2 ready, page ")))
            # The controller arrived while the mode was already active: visible from the start.
            visible = [l for l in scene.journal() if l.startswith("controller.put_IsVisible ")]
            self.assertEqual(visible[0], "controller.put_IsVisible 1")
            self.assertEqual(scene.posted(), [])
            scene.page_says(READY)
            self.assertEqual(scene.posted(2), [show(), HOST_MESSAGE])
            self.assertTrue(scene.host_info()["visible"])

    def test_without_the_option_the_web_view_starts_invisible(self):
        with OverlayScene("show-not-at-start") as scene:
            self.assertEqual(scene.first_report, b"GRAO state hidden")
            visible = [l for l in scene.journal() if l.startswith("controller.put_IsVisible ")]
            self.assertEqual(visible[0], "controller.put_IsVisible 0")
            scene.page_says(READY)
            self.assertEqual(scene.posted(1), [HOST_MESSAGE])


if __name__ == "__main__":
    unittest.main()
