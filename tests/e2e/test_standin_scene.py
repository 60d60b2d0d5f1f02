"""The stand-in game's own scene: the game window draws an animated game a
few times a second (or, started --still, one unchanging picture), and a
click leaves a marker for a few seconds. The counts come from the game's
"scene" command; the pictures are checked in screenshots (saved under
build/screenshots/standin-scene/)."""

import time
import unittest

from full_stack_scene import wait_for_screen
from harness import BUILD_DIR, free_udp_port, unique, wait_until
from standin_game import StandinGame

GAME_CLASS = "GraSceneGame"
WM_LBUTTONDOWN = 0x0201
MK_LBUTTON = 0x0001
FRAME_MS = 150
MARKER_SECONDS = 3.0
MARKERS_KEPT = 6


def point_lparam(x, y):
    return (y << 16) | x


class SceneTest(unittest.TestCase):
    def start_game(self, name, still=False):
        extra = ["--still"] if still else []
        game = StandinGame().start(BUILD_DIR, unique(name), GAME_CLASS, free_udp_port(), extra_args=extra)
        self.addCleanup(game.stop)
        return game

    def click(self, game, x, y):
        game.post(game.hwnd(), WM_LBUTTONDOWN, MK_LBUTTON, point_lparam(x, y))

    def wait_scene(self, game, predicate, timeout=5):
        found = wait_until(lambda: predicate(game.scene()) and game.scene(), timeout, interval=0.1)
        self.assertTrue(found, game.scene())
        return found


class Animation(SceneTest):
    def test_the_scene_is_drawn_a_few_times_a_second(self):
        game = self.start_game("Scene Animated")
        first = self.wait_scene(game, lambda s: s["frames"] > 0)
        self.assertFalse(first["still"])
        started = time.monotonic()
        # not stuck: frames keep coming (how fast is the timer's business, and
        # the machine's: a busy one only makes them fewer) ...
        later = self.wait_scene(game, lambda s: s["frames"] >= first["frames"] + 5, timeout=20)
        elapsed = time.monotonic() - started
        # ... and one timer drives them: never more than it allows
        self.assertLessEqual(later["frames"] - first["frames"], elapsed * 1000 / FRAME_MS + 3)

    def test_a_still_scene_is_drawn_again_only_for_a_click(self):
        game = self.start_game("Scene Still", still=True)
        first = self.wait_scene(game, lambda s: s["frames"] > 0)
        self.assertTrue(first["still"])
        time.sleep(1.5)
        self.assertEqual(game.scene()["frames"], first["frames"])
        self.click(game, 120, 90)
        clicked = self.wait_scene(game, lambda s: s["markers"] == 1)
        self.assertEqual(clicked["frames"], first["frames"] + 1)
        self.assertEqual(game.cmd("clicks")["clicks"], [[120, 90]])
        # the still scene's time does not move, so its marker stays
        time.sleep(MARKER_SECONDS + 0.5)
        self.assertEqual(game.scene(), clicked)

    def test_a_click_marker_goes_after_a_few_seconds(self):
        game = self.start_game("Scene Marker")
        self.click(game, 200, 150)
        clicked = time.monotonic()
        self.wait_scene(game, lambda s: s["markers"] == 1)
        time.sleep(max(0.0, clicked + MARKER_SECONDS - 1.0 - time.monotonic()))
        self.assertEqual(game.scene()["markers"], 1)
        self.wait_scene(game, lambda s: s["markers"] == 0, timeout=15)
        self.assertGreaterEqual(time.monotonic() - clicked, MARKER_SECONDS - 1.0)

    def test_only_the_latest_clicks_keep_their_markers(self):
        # Still: the markers stay however long the clicks take to arrive.
        game = self.start_game("Scene Many Clicks", still=True)
        for i in range(MARKERS_KEPT + 3):
            self.click(game, 40 + 50 * i, 100)
        # Six markers are there as soon as six clicks have arrived: wait for all of them.
        self.assertTrue(wait_until(lambda: len(game.cmd("clicks")["clicks"]) == MARKERS_KEPT + 3, 10),
                        game.cmd("clicks"))
        self.assertEqual(game.scene()["markers"], MARKERS_KEPT)


def bluish(colour):
    r, g, b = colour
    return b > r + 40 and b >= g


def earthy(colour):
    r, g, b = colour
    return r > b + 40 and r > g


def grassy(colour):
    r, g, b = colour
    return g > r + 40 and g > b + 40


class Picture(SceneTest):
    needs_foreground = True  # the game must be the window on top where the screenshot is read

    def test_the_still_scene_shows_sky_grass_and_earth_and_a_marker_where_clicked(self):
        game = self.start_game("Scene Picture", still=True)
        game.set_client(640, 480)
        game.front()
        # the scene is laid out in units of a 640 x 480 client area: the ground
        # begins at 78 % of the height, the clouds and the sun stay above 170
        sky, grass, earth, click = (320, 210), (320, 380), (320, 450), (420, 215)
        ox, oy = game.info()["clientOrigin"]
        on_screen = [(ox + x, oy + y) for x, y in (sky, grass, earth, click)]

        def the_scene(colours):
            return bluish(colours[0]) and grassy(colours[1]) and earthy(colours[2]) and bluish(colours[3])
        shot, before = wait_for_screen("standin-scene", "still", on_screen, the_scene)
        self.assertTrue(bluish(before[0]), "the sky is %r (%s)" % (before, shot))
        self.assertTrue(grassy(before[1]), "the grass is %r (%s)" % (before, shot))
        self.assertTrue(earthy(before[2]), "the earth is %r (%s)" % (before, shot))
        self.assertTrue(bluish(before[3]), "the sky to be clicked is %r (%s)" % (before, shot))
        self.click(game, *click)
        self.wait_scene(game, lambda s: s["markers"] == 1)

        # the marker's middle is a vivid pink dot, nothing the scene has in its sky
        def pink(colour):
            r, g, b = colour
            return r > 200 and g < 100 and 100 < b < 200
        shot, after = wait_for_screen("standin-scene", "still-clicked", on_screen, lambda c: pink(c[3]))
        self.assertTrue(pink(after[3]), "the marker is %r (%s)" % (after[3], shot))
        self.assertEqual(after[:3], before[:3])


if __name__ == "__main__":
    unittest.main()
