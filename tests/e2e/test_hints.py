"""The two hints the program logs beside its usual lines: the game window it
looks for, named 5 s after start while none has been found, and a missing
WebView2 runtime after a creation failure with "file not found". Neither
appears when nothing is wrong."""

import re
import unittest

from harness import BUILD_DIR, Overlay, free_udp_port, unique, wait_until
from standin_game import StandinGame
from test_game_window import COVER_OFF, logged_seconds_between

GAME_HINT = r'^looking for the game window "(.*)" of class "(.*)" - none yet \(it must match exactly\)$'
RUNTIME_HINT = "no WebView2 runtime was found - players need the WebView2 runtime installed"


def hints(overlay):
    return [m for m in overlay.messages() if re.match(GAME_HINT, m) or m == RUNTIME_HINT]


class GameWindowHint(unittest.TestCase):
    def test_a_game_window_that_is_not_there_is_named_once_after_5_seconds(self):
        title, cls = unique('Nobody\'s "Game"'), "NoSuchGameClass"
        with Overlay("hint-no-game", game=title, game_class=cls) as overlay:
            hint = overlay.wait_for_log(GAME_HINT, 20)
            self.assertTrue(hint, overlay.messages())
            self.assertEqual((hint.group(1), hint.group(2)), (title, cls))
            self.assertIn(logged_seconds_between(overlay, r"^started, ", GAME_HINT), (5, 6))
            # once: the cover's 10 s deadline passes and no second hint follows
            self.assertTrue(overlay.wait_for_log("^" + re.escape(COVER_OFF) + "$", 20), overlay.messages())
            self.assertEqual(hints(overlay), [hint.string])

    def test_no_hint_when_the_game_window_is_found(self):
        title, cls = unique("Hint Game"), "HintGameClass"
        game = StandinGame().start(BUILD_DIR, title, cls, free_udp_port())
        self.addCleanup(game.stop)
        with Overlay("hint-game-found", game=title, game_class=cls) as overlay:
            self.assertTrue(overlay.wait_for_log(r"^game window [0-9A-Fa-f]+ found ", 20), overlay.messages())
            self.assertTrue(overlay.wait_for_log(r"^WebView2 ready, page ", 20), overlay.messages())
            # past the 5 s mark: the cover comes down at 10 s when the page never says ready
            self.assertTrue(overlay.wait_for_log("^" + re.escape(COVER_OFF) + "$", 20), overlay.messages())
            self.assertEqual(hints(overlay), [])


class RuntimeHint(unittest.TestCase):
    def test_an_empty_runtime_folder_is_named_a_missing_runtime(self):
        with Overlay("hint-empty-runtime", runtime="empty") as overlay:
            self.assertTrue(overlay.wait_for_log("^" + re.escape(RUNTIME_HINT) + "$", 20), overlay.messages())
            messages = overlay.messages()
            at = messages.index(RUNTIME_HINT)
            self.assertEqual(messages[at - 1], "CreateCoreWebView2EnvironmentWithOptions: 0x80070002")
            self.assertEqual(messages.count(RUNTIME_HINT), 1)

    def test_no_runtime_hint_for_another_failure(self):
        with Overlay("hint-env-fails", env={"GRA_STANDIN_FAIL": "environment"}) as overlay:
            self.assertTrue(overlay.wait_for_log(
                r"^WebView2 environment failed: 0x80004005 \(is the runtime installed\?\)$", 20), overlay.messages())
            self.assertTrue(wait_until(lambda: any(re.match(GAME_HINT, m) for m in overlay.messages()), 20))
            self.assertNotIn(RUNTIME_HINT, overlay.messages())


if __name__ == "__main__":
    unittest.main()
