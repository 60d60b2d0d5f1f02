"""sdk/GraLink.cs against the real program under Wine. Debian ships no
Wine Mono, so a .NET program cannot run inside Wine here; instead the
mono-built sender (GRA_NATIVE_BUILD/gralink-send.exe, built on GraLink.cs)
runs with mono on Linux, and its UDP datagrams on 127.0.0.1 reach the program
under Wine as a game's would (Wine's sockets are Linux sockets). Its effects
are read from the program's log, the stand-in runtime's journal and the
page's side of the stand-in runtime."""

import os
import shutil
import subprocess
import unittest

import test_sdk
from harness import BUILD_DIR, PROGRAM, GameLink, Overlay, free_udp_port, unique, wait_until, wine_path
from standin_game import StandinGame

NATIVE_BUILD = os.environ.get("GRA_NATIVE_BUILD", "")
SENDER = os.path.join(NATIVE_BUILD, "gralink-send.exe") if NATIVE_BUILD else ""
MONO = shutil.which("mono")


def gralink_send(overlay, *words, timeout=30):
    """Runs the C# sender aimed at the overlay's port, from an ephemeral port.
    Returns (exit status, stdout, stderr)."""
    result = subprocess.run([MONO, SENDER, "--port", str(overlay.port)] + list(words),
                            stdin=subprocess.DEVNULL, capture_output=True, timeout=timeout)
    return result.returncode, result.stdout.decode("utf-8"), result.stderr.decode("utf-8")


class CSharpLink(test_sdk.KitTest):
    def setUp(self):
        if not MONO or not SENDER or not os.path.exists(SENDER):
            self.skipTest("mono or the C# sender is missing (GRA_NATIVE_BUILD=%r)" % NATIVE_BUILD)

    def send_ok(self, *words):
        status, out, err = gralink_send(self.overlay, *words)
        self.assertEqual(status, 0, "gralink-send %s: %s" % (" ".join(words), err))
        return out

    def state(self):
        return self.send_ok("state")

    def test_state_show_note_page_and_hide(self):
        self.start("cs-commands")
        self.assertEqual(self.state(), "state hidden\n")
        self.make_page_ready()

        before = self.mark()
        self.send_ok("show", 'Wave 3: "go" \u00c4')
        self.expect_log(r"^mode active$", before)
        self.expect_posted('{"type":"show","pad":"Wave 3: \\"go\\" \u00c4"}')
        self.assertEqual(self.state(), "state active\n")

        self.send_ok("note-text", 'say "hi"\\')
        self.expect_posted('{"type":"note","note":"say \\"hi\\"\\\\"}')
        self.send_ok("note", '{"kills": 3}')
        self.expect_posted('{"type":"note","note":{"kills": 3}}')

        self.send_ok("page", '{"type":"score","value":7}')
        self.assertTrue(self.overlay.wait_for_journal(
            r'^webview\.PostWebMessageAsJson \{"type":"score","value":7\}$', 10), self.overlay.journal())

        self.send_ok("hide")
        self.expect_posted('{"type":"close"}')
        before = self.mark()
        self.assertEqual(self.page.post('{"type":"hide"}'), "done")
        self.expect_log(r"^mode hidden$", before)
        self.assertEqual(self.state(), "state hidden\n")

        self.send_ok("reload")
        self.assertTrue(self.overlay.wait_for_journal(r"^webview\.Reload$", 10), self.overlay.journal())

    def test_what_the_program_would_misread_is_refused_and_never_arrives(self):
        self.start("cs-refused")
        self.make_page_ready()
        for words, why in ((("note", '0,"type":"close"'), "the argument is not valid JSON"),
                           (("note", "hello"), "the argument is not valid JSON"),
                           (("page", '{"type":'), "the argument is not valid JSON"),
                           (("window", "Borderless"), 'the window argument must be "borderless" or "framed"'),
                           (("jump",), "unknown command")):
            status, out, err = gralink_send(self.overlay, *words)
            self.assertEqual((status, out, err), (3, "", "gralink-send: %s\n" % why), words)
        # the program never saw them: still hidden, no close asked of the page
        self.assertEqual(self.state(), "state hidden\n")
        self.assertNotIn('{"type":"close"}', self.page.posted())
        self.assertFalse([m for m in self.overlay.messages() if m.startswith("window:")])

    def test_poll_reads_the_pages_modal_and_game_reports(self):
        self.start("cs-listen")
        self.check_listener([MONO, SENDER, "--port", str(self.overlay.port), "--wait", "20000", "--count", "4", "listen"],
                            "cs-listen", "3 high", "game 'jump' '3 high'", timeout=20)

    def test_bye_ends_the_program(self):
        self.start("cs-bye")
        self.send_ok("bye")
        self.assertEqual(self.overlay.wait_exit(20), 0)
        self.assertRegex(self.overlay.messages()[-1], r"^exit \('bye' from UDP port \d+\)$")



class CSharpLaunch(unittest.TestCase):
    """GraLink.Launch starts the real program (through wine, as it does off
    Windows) for a game whose title needs quoting, and WaitReady sees it
    listen."""

    def test_launch_finds_a_game_whose_title_needs_quoting_and_wait_ready_sees_it_listen(self):
        if not MONO or not SENDER or not os.path.exists(SENDER):
            self.skipTest("mono or the C# sender is missing (GRA_NATIVE_BUILD=%r)" % NATIVE_BUILD)
        title = unique('Cs "Launched" \\"Game\\" it\'s') + " 2\\"
        cls = "Cs Class \\"
        game = StandinGame().start(BUILD_DIR, title, cls, free_udp_port())
        self.addCleanup(game.stop)
        overlay = Overlay(unique("cs-launch"))  # its folders and port; Launch starts the program
        out_path = os.path.join(overlay.dir, "launcher.txt")
        with open(out_path, "wb") as out:
            launcher = subprocess.Popen(
                [MONO, SENDER, "launch", PROGRAM, str(overlay.port), title, cls, wine_path(overlay.log_path),
                 wine_path(overlay.doc_dir), wine_path(overlay.data_dir)],
                stdin=subprocess.DEVNULL, stdout=out, stderr=subprocess.STDOUT)

        def end():
            if launcher.poll() is None:
                with GameLink(overlay.port) as link:
                    link.send("GRAO bye")
                try:
                    launcher.wait(timeout=30)
                except subprocess.TimeoutExpired:
                    launcher.kill()
                    launcher.wait()
        self.addCleanup(end)

        def printed():
            with open(out_path, "rb") as f:
                return f.read().decode("utf-8")
        self.assertTrue(wait_until(lambda: "\n" in printed(), 90), printed())
        self.assertEqual(printed(), "ready hidden\n")
        self.assertTrue(overlay.wait_for_log(r"^game window [0-9A-Fa-f]+ found \(child\), process ", 20),
                        overlay.messages())
        with GameLink(overlay.port) as link:
            link.send("GRAO bye")
        self.assertEqual(launcher.wait(timeout=60), 0, printed())
        self.assertEqual(printed(), "ready hidden\nexit 0\n")
        self.assertEqual(overlay.messages()[-1], "exit ('bye' from UDP port %d)" % link.port)


if __name__ == "__main__":
    unittest.main()
