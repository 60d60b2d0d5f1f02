"""The game maker's kit against the real program under Wine: the Linux
gra-send (built on sdk/gra_link.h) drives gra-overlay.exe over the game link,
and its effects are read from the program's log, the stand-in runtime's
journal and the page's side of the stand-in runtime. Wine's sockets are real
Linux sockets, so a Linux sender reaches the program directly.

GRA_NATIVE_BUILD names the native build folder holding the Linux gra-send;
GRA_BUILD_DIR the Windows build with bin/gra-send.exe."""

import json
import os
import re
import socket
import subprocess
import unittest

from harness import BUILD_DIR, GameLink, Overlay, unique, wait_until
from standin_game import StandinGame
from standin_runtime import StandinPage

NATIVE_BUILD = os.environ.get("GRA_NATIVE_BUILD", "")
GRA_SEND = os.path.join(NATIVE_BUILD, "gra-send") if NATIVE_BUILD else ""
GRA_SEND_EXE = os.path.join(BUILD_DIR, "bin", "gra-send.exe")
GAME_PORT = 47630


def gra_send(overlay, *words, source="0", timeout=30):
    """Runs the Linux gra-send aimed at the overlay's port; source "0" sends
    from any free port, None lets gra-send take 47630 when it is free.
    Returns (exit status, stdout, stderr)."""
    command = [GRA_SEND, "--port", str(overlay.port)]
    if source is not None:
        command += ["--from", source]
    result = subprocess.run(command + list(words), stdin=subprocess.DEVNULL, capture_output=True,
                            timeout=timeout)
    return result.returncode, result.stdout.decode("utf-8"), result.stderr.decode("utf-8")


class KitTest(unittest.TestCase):
    """Starts one overlay per test, with the stand-in runtime and its page."""

    game = None

    def setUp(self):
        if not GRA_SEND or not os.path.exists(GRA_SEND):
            self.skipTest("the Linux gra-send is not built (GRA_NATIVE_BUILD=%r)" % NATIVE_BUILD)

    def start(self, name, **options):
        self.overlay = Overlay(unique(name), **options)
        self.addCleanup(self.overlay.stop)
        self.page = StandinPage(self.overlay.page_port)
        self.addCleanup(self.page.close)
        self.overlay.start()
        self.assertTrue(self.page.hello(), "the stand-in runtime never answered")
        # The page's messages are heard once the program has added its handler, which it does
        # before it navigates: a "ready" posted before that is answered "nohandler".
        self.assertTrue(self.overlay.wait_for_journal(r"^webview\.Navigate ", 30), self.overlay.journal())

    def make_page_ready(self):
        self.assertEqual(self.page.post('{"type":"ready"}'), "done")
        self.assertTrue(self.overlay.wait_for_log(r"^page ready$", 10))

    def send_ok(self, *words):
        status, out, err = gra_send(self.overlay, *words)
        self.assertEqual(status, 0, "gra-send %s: %s" % (" ".join(words), err))
        return out

    def state(self):
        return self.send_ok("state")

    def check_listener(self, command, name, arg, game_line, timeout):
        """Runs a listening sender, plays the page's "modal" and "game"
        messages, and checks the reports it printed, in order."""
        out_path = os.path.join(self.overlay.dir, name + ".txt")
        with open(out_path, "wb") as out:
            listener = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=out, stderr=subprocess.DEVNULL)
        self.addCleanup(lambda: listener.poll() is None and listener.kill())

        def printed():
            with open(out_path, "rb") as f:
                return f.read().decode("utf-8")
        # listen first asks for the state, which makes it the reply address
        self.assertTrue(wait_until(lambda: printed() == "state hidden\n", timeout), printed())
        for message in ('{"type":"modal","on":true}', '{"type":"game","cmd":"jump","arg":"%s"}' % arg,
                        '{"type":"modal","on":false}'):
            self.assertEqual(self.page.post(message), "done")
        self.assertEqual(listener.wait(timeout=timeout), 0)
        self.assertEqual(printed(), "state hidden\nmodal on\n%s\nmodal off\n" % game_line)

    def mark(self):
        """The number of log messages so far, to look only at later ones."""
        return len(self.overlay.messages())

    def expect_log(self, pattern, after):
        self.assertTrue(self.overlay.wait_for_log(pattern, 10, after=after),
                        "no %r in %r" % (pattern, self.overlay.messages()[after:]))

    def expect_posted(self, text):
        self.assertEqual(self.page.wait_posted(lambda posted: posted == text, 10), text,
                         "posted: %r" % self.page.posted())


class StateAndModes(KitTest):
    def test_state_prints_state_hidden(self):
        self.start("sdk-state")
        status, out, err = gra_send(self.overlay, "state")
        self.assertEqual((status, out), (0, "state hidden\n"), err)

    def test_show_hide_and_toggle_with_a_ready_page(self):
        self.start("sdk-show-hide")
        self.make_page_ready()

        before = self.mark()
        self.send_ok("show", "Wave 3:", '"go"')
        self.expect_log(r"^mode active$", before)
        self.expect_posted('{"type":"show","pad":"Wave 3: \\"go\\""}')
        self.assertEqual(self.state(), "state active\n")

        # a ready page is asked to close and hides itself when it likes
        self.send_ok("hide")
        self.expect_posted('{"type":"close"}')
        self.assertEqual(self.state(), "state active\n")
        before = self.mark()
        self.assertEqual(self.page.post('{"type":"hide"}'), "done")
        self.expect_log(r"^mode hidden$", before)
        self.assertEqual(self.state(), "state hidden\n")

        closes = self.page.posted().count('{"type":"close"}')
        self.send_ok("toggle", "again")
        self.expect_posted('{"type":"show","pad":"again"}')
        self.assertEqual(self.state(), "state active\n")
        self.send_ok("toggle")
        self.assertTrue(wait_until(lambda: self.page.posted().count('{"type":"close"}') == closes + 1, 10))

    def test_hide_before_the_page_is_ready_hides_at_once(self):
        self.start("sdk-hide-early")
        self.send_ok("show")
        self.assertEqual(self.state(), "state active\n")
        before = self.mark()
        self.send_ok("hide")
        self.expect_log(r"^mode hidden$", before)
        self.assertEqual(self.state(), "state hidden\n")


class NotesAndPages(KitTest):
    def test_note_is_inserted_unescaped_and_shows_a_hidden_overlay(self):
        self.start("sdk-note")
        self.make_page_ready()
        before = self.mark()
        self.send_ok("note-text", 'say "hi"\\')
        self.expect_log(r"^mode passive$", before)
        self.expect_posted('{"type":"note","note":"say \\"hi\\"\\\\"}')
        self.assertEqual(self.state(), "state passive\n")
        self.send_ok("note", '{"kills": 3}')
        self.expect_posted('{"type":"note","note":{"kills": 3}}')
        self.assertEqual(self.state(), "state passive\n")

    def test_notes_before_the_page_is_ready_arrive_in_order(self):
        self.start("sdk-note-early")
        self.send_ok("note", "1")
        self.send_ok("note", '"two"')
        self.assertEqual(self.state(), "state passive\n")
        self.assertEqual([p for p in self.page.posted() if '"note"' in p], [])
        self.make_page_ready()
        self.assertTrue(wait_until(lambda: len([p for p in self.page.posted() if '"note"' in p]) == 2, 10))
        notes = [p for p in self.page.posted() if '"note"' in p]
        self.assertEqual(notes, ['{"type":"note","note":1}', '{"type":"note","note":"two"}'])

    def test_a_note_that_is_not_json_is_refused_before_sending(self):
        self.start("sdk-note-refused")
        status, out, err = gra_send(self.overlay, "note", "hello")
        self.assertEqual((status, out, err), (3, "", "gra-send: the argument is not valid JSON\n"))
        self.assertEqual(self.state(), "state hidden\n")  # the program never saw the note

    def test_page_passes_its_json_unchanged_and_reload_reloads(self):
        self.start("sdk-page")
        self.send_ok("page", '{"type":"score","value":7}')
        self.assertTrue(self.overlay.wait_for_journal(
            r'^webview\.PostWebMessageAsJson \{"type":"score","value":7\}$', 10), self.overlay.journal())
        self.assertEqual(self.state(), "state hidden\n")  # page never changes the mode
        self.send_ok("reload")
        self.assertTrue(self.overlay.wait_for_journal(r"^webview\.Reload$", 10), self.overlay.journal())


class Reports(KitTest):
    def test_listen_prints_the_pages_modal_and_game_reports(self):
        self.start("sdk-listen")
        self.check_listener([GRA_SEND, "--port", str(self.overlay.port), "--from", "0", "--count", "4", "listen"],
                            "listen", "3", "game jump 3", timeout=10)


class ReplyAddress(KitTest):
    def test_a_game_on_47630_keeps_the_replies(self):
        self.start("sdk-reply-rule")
        # before any datagram from 47630, the last sender gets the answer
        self.assertEqual(self.state(), "state hidden\n")
        try:
            game = GameLink(self.overlay.port, source_port=GAME_PORT)
        except OSError:
            self.skipTest("port 47630 is taken by another process; the reply-address rule is not checked")
        self.addCleanup(game.close)
        game.send("GRAO state")
        self.assertEqual(game.receive(), b"GRAO state hidden")

        # gra-send now falls back to another port: its commands are carried
        # out, but the answers go to the game
        status, out, err = gra_send(self.overlay, "--wait", "1500", "--verbose", "state", source=None)
        self.assertEqual((status, out), (1, ""), err)
        self.assertNotIn("127.0.0.1:47630 to", err)
        self.assertEqual(game.receive(), b"GRAO state hidden")
        self.send_ok("show")
        self.assertEqual(game.receive(), b"GRAO state active")
        status, out, _ = gra_send(self.overlay, "--wait", "500", "state")
        self.assertEqual((status, out), (1, ""))
        self.assertEqual(game.receive(), b"GRAO state active")


class Window(KitTest):
    # the game window jumps to the top and covers its monitor
    needs_foreground = True

    def test_window_borderless_then_framed_again(self):
        title, cls = unique("SDK Game"), "SdkGameClass"
        game_port = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        game_port.bind(("127.0.0.1", 0))
        control_port = game_port.getsockname()[1]
        game_port.close()
        self.game = StandinGame().start(BUILD_DIR, title, cls, control_port)
        self.addCleanup(self.game.stop)
        framed = self.game.info()
        self.start("sdk-window", game=title, game_class=cls)
        self.expect_log(r"^game window [0-9A-Fa-f]+ found \(child\)", 0)

        before = self.mark()
        self.send_ok("window", "borderless")
        m = self.overlay.wait_for_log(r"^window: borderless (\d+)x(\d+)$", 10, after=before)
        self.assertTrue(m, self.overlay.messages()[before:])
        width, height = int(m.group(1)), int(m.group(2))
        borderless = self.game.info()
        style = int(borderless["style"], 16)
        self.assertEqual(style & 0x00CF0000, 0, borderless["style"])
        self.assertEqual(style & 0x80000000, 0x80000000, borderless["style"])
        self.assertEqual(borderless["rect"], [0, 0, width, height])

        before = self.mark()
        self.send_ok("window", "framed")
        self.expect_log(r"^window: framed again$", before)
        restored = self.game.info()
        self.assertEqual((restored["style"], restored["rect"]), (framed["style"], framed["rect"]))


class Bye(KitTest):
    def test_bye_ends_the_program_and_logs_the_senders_port(self):
        self.start("sdk-bye")
        status, _, err = gra_send(self.overlay, "--verbose", "bye")
        self.assertEqual(status, 0, err)
        port = re.search(r"sending from 127\.0\.0\.1:(\d+) ", err).group(1)
        self.assertEqual(self.overlay.wait_exit(20), 0)
        messages = self.overlay.messages()
        self.assertIn("'bye' from UDP port %s" % port, messages)
        self.assertEqual(messages[-1], "exit ('bye' from UDP port %s)" % port)


class WindowsTool(KitTest):
    def test_gra_send_exe_under_wine_prints_the_state(self):
        if not os.path.exists(GRA_SEND_EXE):
            self.skipTest("bin/gra-send.exe is not built")
        self.start("sdk-exe")
        out_path = os.path.join(self.overlay.dir, "gra-send-exe.txt")
        with open(out_path, "wb") as out:
            status = subprocess.run(["wine", GRA_SEND_EXE, "--port", str(self.overlay.port), "--from", "0",
                                     "state"], stdin=subprocess.DEVNULL, stdout=out,
                                    stderr=subprocess.DEVNULL, timeout=60).returncode
        with open(out_path, "rb") as f:
            printed = f.read().decode("utf-8")
        self.assertEqual((status, printed.replace("\r\n", "\n")), (0, "state hidden\n"))


if __name__ == "__main__":
    unittest.main()
