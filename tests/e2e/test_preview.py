"""The page author's preview, --screenshot path: scripts/preview.py runs the
real program with a small page folder over the stand-in game, shows the page
once it is ready, and saves the screen; the page's box must be in the picture
where the page put it, and the game everywhere else."""

import os
import re
import subprocess
import sys
import unittest

from full_stack_scene import page_folder, screen_pixels
from harness import scratch_dir, unique

PREVIEW = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", "..", "scripts", "preview.py"))
BOX = (100, 80, 200, 150)  # the fixture's #box in CSS pixels: left, top, width, height
BOX_COLOUR = (255, 120, 0)
COVER_BLUE = (11, 11, 24)


def near(colour, expected, tolerance):
    return all(abs(a - b) <= tolerance for a, b in zip(colour, expected))


class Preview(unittest.TestCase):
    needs_foreground = True  # a screenshot of the whole display

    def run_preview(self, folder, *options, timeout=150):
        shot = os.path.join(scratch_dir(unique("preview-shot")), "preview.png")
        result = subprocess.run([sys.executable, PREVIEW, folder, "--screenshot", shot] + list(options),
                                capture_output=True, text=True, timeout=timeout)
        return result, shot

    def screenshot_of(self, fixture, *options):
        result, shot = self.run_preview(page_folder(unique("preview"), fixture), *options)
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)
        said = re.search(r"^preview: (.*\.png) \(the game's client area at \((\d+), (\d+)\), (\d+)x(\d+)",
                         result.stdout, re.M)
        self.assertTrue(said, result.stdout)
        self.assertEqual(said.group(1), shot)
        self.assertTrue(os.path.isfile(shot))
        origin = (int(said.group(2)), int(said.group(3)))
        size = (int(said.group(4)), int(said.group(5)))
        return shot, origin, size

    def pixels(self, path, points):
        colours = screen_pixels(path, points)
        self.assertEqual(len(colours), len(points))
        return colours

    def check_box_over_the_game(self, scale, *options):
        shot, (ox, oy), size = self.screenshot_of("box.html", "--scale", str(scale), *options)
        left, top = ox + int(BOX[0] * scale), oy + int(BOX[1] * scale)
        right, bottom = ox + int((BOX[0] + BOX[2]) * scale), oy + int((BOX[1] + BOX[3]) * scale)
        inside = [(left + 2, top + 2), (right - 3, bottom - 3), ((left + right) // 2, (top + bottom) // 2)]
        outside = [(left - 4, top + 10), (right + 3, bottom - 10), ((left + right) // 2, bottom + 3),
                   (ox + size[0] - 20, oy + size[1] - 20), (ox + size[0] // 2, oy + 10)]
        colours = self.pixels(shot, inside + outside)
        for colour in colours[:len(inside)]:
            self.assertTrue(near(colour, BOX_COLOUR, 2), "not the box's colour inside it: %r (%s)" % (colours, shot))
        for colour in colours[len(inside):]:
            self.assertFalse(near(colour, BOX_COLOUR, 40), "the box's colour outside it: %r (%s)" % (colours, shot))
            self.assertFalse(near(colour, COVER_BLUE, 4), "the host's background outside: %r (%s)" % (colours, shot))
            self.assertFalse(near(colour, (0, 0, 0), 3), "nothing drawn outside the box: %r (%s)" % (colours, shot))
        return shot, colours[len(inside):]

    def test_a_box_marked_data_hit_is_drawn_over_the_game_and_the_game_round_it(self):
        self.check_box_over_the_game(1.0, "--size", "640x400")

    def test_at_scale_one_and_a_half_the_box_is_drawn_in_device_pixels(self):
        self.check_box_over_the_game(1.5, "--size", "800x500")

    def test_a_page_that_never_says_ready_ends_the_preview_with_the_reason(self):
        result, shot = self.run_preview(page_folder(unique("preview-silent"), "silent.html"),
                                        "--ready-timeout", "8")
        self.assertEqual(result.returncode, 1, result.stdout + result.stderr)
        self.assertIn("preview: the page did not say ready within 8 s", result.stderr)
        self.assertFalse(os.path.exists(shot))

    def test_game_commands_typed_on_the_terminal_reach_the_program_and_what_it_says_is_printed(self):
        folder = page_folder(unique("preview-typed"), "buttons.html")
        preview = subprocess.Popen([sys.executable, PREVIEW, folder], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                   stderr=subprocess.STDOUT, text=True)
        try:
            lines = []
            for line in preview.stdout:
                lines.append(line.rstrip("\n"))
                if line.startswith("log: cover off"):
                    preview.stdin.write("show\n")
                    preview.stdin.flush()
                if line.startswith("program -> game: GRAO state active"):
                    preview.stdin.write("GRAO bye\n")
                    preview.stdin.flush()
            self.assertEqual(preview.wait(30), 0, lines)
        finally:
            if preview.poll() is None:
                preview.kill()
        self.assertIn("log: mode active", lines)
        self.assertIn("program -> game: GRAO state active", lines)
        self.assertTrue(any(line.startswith("log: 'bye' from UDP port ") for line in lines), lines)
        self.assertEqual(lines[-1], "preview: the program ended")

    def test_a_folder_without_an_index_page_is_refused(self):
        empty = scratch_dir(unique("preview-empty"))
        result, _ = self.run_preview(empty, timeout=30)
        self.assertEqual(result.returncode, 2, result.stdout + result.stderr)
        self.assertIn("has no index.html", result.stderr)


if __name__ == "__main__":
    unittest.main()
