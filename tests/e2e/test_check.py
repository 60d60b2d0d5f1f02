"""The self-check, gra-overlay-check.exe, run under Wine as scripts/check.sh
runs it (scripts/check.py: the Chromium-backed runtime's bridge, then the
check), once per test class: it must pass here, name every check of the
issue in its report with a reason for each skip, and show at least four
screenshots; and a broken set-up must make it fail with a reason a person
can act on.

Wine differs from Windows in what the check can see, and the check says so
itself: the overlay in child mode is not drawn under Wine (a window that is
the child of another process's window), so the child-mode pixel checks are
skipped with that reason; typing into the page in owned mode is skipped on
every system (the program leaves the keyboard with the game there)."""

import os
import re
import subprocess
import sys
import unittest

from harness import BUILD_DIR, RUNTIME_FOLDER, scratch_dir, unique, wine_path

ROOT = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", ".."))
CHECK_PY = os.path.join(ROOT, "scripts", "check.py")
CHECK_EXE = os.path.join(BUILD_DIR, "bin", "check", "gra-overlay-check.exe")

RUNS = ["owned, game first", "owned, program first", "child, game first", "child, program first"]
CHECKS = ["game found and attached", "page ready and cover down", "box seen over the game after show",
          "active: typed text reaches the page's field", "passive: click outside the box reaches the game",
          "passive: click inside the box reaches the page", "overlay follows a move and a resize",
          "box seen after the move and resize", "away and back reach the page", "page file saved and loaded back",
          "window borderless and framed", "hide answered", "bye ends the program with exit code 0"]
SET_UP = ["gra-overlay.exe found", "WebView2 runtime found", "check page present"]
# What Wine cannot show, and what no system does: skipped, never passed.
EXPECTED_SKIPS = {("child, game first", "box seen over the game after show"),
                  ("child, game first", "box seen after the move and resize"),
                  ("child, program first", "box seen over the game after show"),
                  ("child, program first", "box seen after the move and resize"),
                  ("owned, game first", "active: typed text reaches the page's field"),
                  ("owned, program first", "active: typed text reaches the page's field")}
RESULT = re.compile(r"^  \[([^\]]+)\] (.+?): (pass(?: \(.*\))?|FAIL: .*|skipped: .*)$")


def results(lines):
    """{(group, check): result text} from the check's printed lines."""
    found = {}
    for line in lines:
        m = RESULT.match(line)
        if m:
            found[(m.group(1), m.group(2))] = "pass" if m.group(3).startswith("pass") else m.group(3)
    return found


class CheckUnderWine(unittest.TestCase):
    # The check moves the mouse, types, and looks at the whole screen; it keeps both cores busy.
    needs_foreground = True
    loads_the_machine = True

    @classmethod
    def setUpClass(cls):
        cls.dir = scratch_dir(unique("check"))
        run = subprocess.run([sys.executable, CHECK_PY, "--out", cls.dir], stdin=subprocess.DEVNULL,
                             capture_output=True, text=True, timeout=600)
        cls.status = run.returncode
        cls.lines = run.stdout.splitlines()
        cls.errors = run.stderr
        cls.report = os.path.join(cls.dir, "gra-overlay-check-report")

    def test_check_passes_under_wine_names_every_check_and_shows_its_screenshots(self):
        output = "\n".join(self.lines[-60:]) + self.errors[-2000:]
        self.assertEqual(self.status, 0, output)
        self.assertRegex(self.lines[-1], r"^gra-overlay check: works here - \d+ passed, 0 failed, 6 skipped, "
                                         r"\d+ screenshots - report: .*index\.html$")
        found = results(self.lines)
        expected = {("set-up", name) for name in SET_UP} | {(run, name) for run in RUNS for name in CHECKS}
        self.assertEqual(set(found), expected, output)
        skipped = {key for key, result in found.items() if result.startswith("skipped: ")}
        self.assertEqual(skipped, EXPECTED_SKIPS, output)
        for key in skipped:
            reason = found[key][len("skipped: "):]
            self.assertRegex(reason, r"Wine does not draw a window that is the child of another process's window"
                             if key[0].startswith("child") else r"owned mode leaves the keyboard with the game", key)
        environment = "\n".join(self.lines[:12])
        self.assertIn("  Wine: yes, ", environment)
        self.assertRegex(environment, r"  WebView2 runtime folder: Z:\\.*chromium-runtime - fixed version")
        self.assertRegex(environment, r"  monitor 1: .* 96 DPI \(scale 100%\)")
        for run in ("owned, game first", "owned, program first"):
            for figure in ("start to page ready", "show to the box on screen"):
                self.assertTrue([l for l in self.lines if re.match(r"^  \[%s\] %s: \d+ ms" % (run, figure), l)],
                                (run, figure))
        self.assertTrue([l for l in self.lines if re.match(r'^  \[child, game first\] "GRAO state" round trip: '
                                                           r"median \d+\.\d+ ms, p99 \d+\.\d+ ms \(200 rounds\)$", l)])
        self.assertTrue([l for l in self.lines if re.match(r"^  \[owned, game first\] memory of gra-overlay\.exe: "
                                                           r"working set \d+\.\d MiB, private (\d+\.\d MiB|not reported by the system)$", l)])

        with open(os.path.join(self.report, "index.html"), encoding="utf-8") as f:
            page = f.read()
        for run, name in expected:
            self.assertIn("<h2>%s</h2>" % run, page)
            self.assertIn("<td>%s</td>" % name, page)
        shots = sorted(n for n in os.listdir(self.report) if n.endswith(".png"))
        self.assertGreaterEqual(len(shots), 4, shots)
        for shot in shots:
            self.assertIn('<img src="%s"' % shot, page)
            with open(os.path.join(self.report, shot), "rb") as f:
                self.assertEqual(f.read(8), b"\x89PNG\r\n\x1a\n", shot)
        self.assertIn("owned-game-first-shown.png", shots)
        self.assertIn("owned-program-first-moved.png", shots)


def run_check(folder, arguments=(), env=None):
    """Runs the check once under Wine in folder (its report goes there): its exit status and lines."""
    output_path = os.path.join(folder, "output.txt")
    with open(output_path, "wb") as output:
        status = subprocess.run(["wine", CHECK_EXE] + list(arguments), cwd=folder, env=dict(os.environ, **(env or {})),
                                stdin=subprocess.DEVNULL, stdout=output, stderr=subprocess.STDOUT,
                                timeout=120).returncode
    with open(output_path, "rb") as f:
        return status, f.read().decode("utf-8", "replace").replace("\r\n", "\n").splitlines()


class BrokenSetUp(unittest.TestCase):
    """A broken set-up stops the check before any run, with a reason a person can act on."""

    def test_check_without_a_webview2_runtime_fails_and_says_what_to_do(self):
        folder = scratch_dir(unique("check-no-runtime"))
        empty = os.path.join(folder, "no-runtime")
        os.makedirs(empty)
        status, lines = run_check(folder, env={"WEBVIEW2_BROWSER_EXECUTABLE_FOLDER": wine_path(empty)})
        self.assertEqual(status, 1, lines)
        found = results(lines)
        library = wine_path(empty) + "\\EBWebView\\x64\\EmbeddedBrowserWebView.dll"
        self.assertEqual(found[("set-up", "WebView2 runtime found")],
                         "FAIL: the runtime folder %s holds no %s - repair or reinstall the WebView2 runtime, or "
                         "correct WEBVIEW2_BROWSER_EXECUTABLE_FOLDER" % (wine_path(empty), library))
        for run in RUNS:
            for name in CHECKS:
                self.assertEqual(found[(run, name)], 'skipped: not run - the set-up check "WebView2 runtime found" '
                                                     "failed", (run, name))
        self.assertRegex(lines[-1], r"^gra-overlay check: FAILED - 2 passed, 1 failed, 52 skipped, 0 screenshots")
        self.assertTrue(os.path.isfile(os.path.join(folder, "gra-overlay-check-report", "index.html")))

    def test_check_with_a_page_folder_without_its_box_fails_and_says_what_to_do(self):
        folder = scratch_dir(unique("check-no-box"))
        page = os.path.join(folder, "page")
        os.makedirs(page)
        for name in ("check.js", "gra-overlay.js"):
            with open(os.path.join(page, name), "w", encoding="utf-8") as f:
                f.write("// present\n")
        with open(os.path.join(page, "index.html"), "w", encoding="utf-8") as f:
            f.write('<!doctype html><div id="panel" data-hit></div>\n')
        # A runtime is there (the stand-in's client library), so the page is the one thing wrong.
        status, lines = run_check(folder, ["--page", wine_path(page)],
                                  env={"WEBVIEW2_BROWSER_EXECUTABLE_FOLDER": wine_path(RUNTIME_FOLDER)})
        self.assertEqual(status, 1, lines)
        found = results(lines)
        self.assertEqual(found[("set-up", "check page present")],
                         'FAIL: %s\\index.html has no data-hit element with the id "box": it is not the check\'s own '
                         "page - put the release's check\\page folder back" % wine_path(page))
        self.assertEqual(found[("owned, game first", "box seen over the game after show")],
                         'skipped: not run - the set-up check "check page present" failed')
        self.assertRegex(lines[-1], r"^gra-overlay check: FAILED - 2 passed, 1 failed, 52 skipped, 0 screenshots")


if __name__ == "__main__":
    unittest.main()
