"""The launcher of sdk/gra_link.h against the real program under Wine: a small
launcher program (testbin/kit-launcher.exe, built on gra_link_launch and
gra_link_wait_ready) starts gra-overlay.exe for a stand-in game whose title
holds spaces, quotation marks and backslashes, knows when it listens, and
sees it end."""

import os
import subprocess
import unittest

from harness import BUILD_DIR, PROGRAM, TEST_BIN, GameLink, Overlay, free_udp_port, unique, wait_until, wine_path
from standin_game import StandinGame

LAUNCHER = os.path.join(TEST_BIN, "kit-launcher.exe")


class Launcher(unittest.TestCase):
    def start_game(self, title, cls):
        game = StandinGame().start(BUILD_DIR, title, cls, free_udp_port())
        self.addCleanup(game.stop)
        return game

    def run_launcher(self, overlay, title, cls):
        out_path = os.path.join(overlay.dir, "launcher.txt")
        out = open(out_path, "wb")
        self.addCleanup(out.close)
        # Output through a file, not a pipe: Wine's services may keep a pipe open.
        launcher = subprocess.Popen(
            ["wine", LAUNCHER, wine_path(PROGRAM), str(overlay.port), title, cls,
             wine_path(overlay.log_path), wine_path(overlay.doc_dir), wine_path(overlay.data_dir)],
            env=overlay.env, stdin=subprocess.DEVNULL, stdout=out, stderr=subprocess.DEVNULL)

        def end():
            if launcher.poll() is None:
                with GameLink(overlay.port) as link:
                    link.send("GRAO bye")
                try:
                    launcher.wait(timeout=20)
                except subprocess.TimeoutExpired:
                    launcher.kill()
        self.addCleanup(end)

        def printed():
            with open(out_path, "rb") as f:
                return f.read().decode("utf-8").replace("\r\n", "\n")
        return launcher, printed

    def test_launch_finds_a_game_whose_title_needs_quoting_and_waits_until_it_listens(self):
        title = unique('Kit "Launched" \\"Game\\" of') + " 2\\"
        cls = "Kit Class \\"
        self.start_game(title, cls)
        overlay = Overlay(unique("kit-launch"))
        launcher, printed = self.run_launcher(overlay, title, cls)

        self.assertTrue(wait_until(lambda: "\n" in printed(), 60), printed())
        self.assertEqual(printed(), "ready hidden\n")
        # the program answered, so it had started and written its start line
        self.assertTrue(overlay.wait_for_log(r"^started, build ", 1), overlay.messages())
        self.assertTrue(overlay.wait_for_log(r"^game window [0-9A-Fa-f]+ found \(child\), process ", 20),
                        overlay.messages())
        self.assertNotIn("no game window", " ".join(overlay.messages()))

        # the process handle it returned sees the program end
        with GameLink(overlay.port) as link:
            link.send("GRAO bye")
        self.assertEqual(launcher.wait(timeout=60), 0, printed())
        self.assertEqual(printed(), "ready hidden\nexit 0\n")
        self.assertEqual(overlay.messages()[-1], "exit ('bye' from UDP port %d)" % link.port)


if __name__ == "__main__":
    unittest.main()
