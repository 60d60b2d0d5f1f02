"""scripts/try.py, the trial of scripts/try.sh: with the stand-in game and the
Chromium-backed runtime it starts the program with the options given, prints
the program's log and its first report, lets a sender of one's own (here
sdk/gra_link.py) drive it at once, saves a screenshot, and ends everything it
started on Ctrl-C (SIGINT to its process group, as a terminal sends it)."""

import os
import signal
import subprocess
import sys
import unittest

from harness import free_udp_port, scratch_dir, unique, wait_until, wine_path

ROOT = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", ".."))
sys.path.insert(0, os.path.join(ROOT, "sdk"))
import gra_link  # noqa: E402

TRY = os.path.join(ROOT, "scripts", "try.py")


class Try(unittest.TestCase):
    needs_foreground = True  # the stand-in game brings itself to the front

    def test_a_session_with_a_sender_of_ones_own_ends_cleanly_on_ctrl_c(self):
        folder = scratch_dir(unique("try"))
        port, title, cls = free_udp_port(), unique('Try "Game"'), "TryGameClass"
        shot = os.path.join(folder, "screen.png")
        out_path = os.path.join(folder, "try-output.txt")
        with open(out_path, "wb") as out:
            session = subprocess.Popen(
                [sys.executable, TRY, "--screenshot", shot, "--game", title, "--game-class", cls,
                 "--port", str(port), "--log", wine_path(os.path.join(folder, "gra_overlay.log")),
                 "--doc", wine_path(folder), "--data", wine_path(os.path.join(folder, "webdata"))],
                stdin=subprocess.DEVNULL, stdout=out, stderr=subprocess.STDOUT, start_new_session=True)

        def end():
            if session.poll() is None:
                os.killpg(session.pid, signal.SIGKILL)
                session.wait()
        self.addCleanup(end)

        def printed():
            with open(out_path, "rb") as f:
                return f.read().decode("utf-8", "replace").splitlines()

        def shows(line):
            return wait_until(lambda: line in printed(), 90)
        started = 'try: the stand-in game runs: title "%s", class "%s" ' % (title, cls)
        self.assertTrue(wait_until(lambda: any(l.startswith(started) for l in printed()), 90), printed())
        self.assertTrue(shows("program -> game: GRAO state hidden"), printed())
        self.assertTrue(wait_until(lambda: any(l.startswith("log: game window ") and " found (owned), process "
                                               "gra-demo-game.exe" in l for l in printed()), 30), printed())
        self.assertTrue(shows("log: page ready"), printed())

        # a sender of one's own: from 47630 when free, else from any port
        with gra_link.open(port) as link:
            self.assertIsNotNone(link.wait_ready(20000))
            link.show("Wave 3")
            report = link.next_report(20000)
            while report is not None and report.text != "state active":
                report = link.next_report(20000)
            self.assertIsNotNone(report)
        self.assertTrue(shows("log: mode active"), printed())
        self.assertTrue(wait_until(lambda: os.path.exists(shot), 60), printed())
        with open(shot, "rb") as f:
            self.assertEqual(f.read(8), b"\x89PNG\r\n\x1a\n")

        os.killpg(session.pid, signal.SIGINT)
        self.assertEqual(session.wait(60), 0, printed())
        self.assertEqual(printed()[-1], "try: everything it started has ended")
        # nothing of the session is left: the program's port is free again
        self.assertTrue(wait_until(lambda: port_free(port), 20))


def port_free(port):
    try:
        with gra_link.open_port(1, port):
            return True
    except gra_link.LinkError:
        return False


if __name__ == "__main__":
    unittest.main()
