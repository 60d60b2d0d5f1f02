"""When the overlay cannot work, the program says why: a game that runs
elevated while the program does not, told to the log, the game and the page;
and a crash, which leaves a minidump and a log line and ends the process
without a dialog box or a debugger.

Wine gives every process the full, elevated administrator token.
run-limited.exe starts the program with the limited token linked to it,
which reports TokenElevation false (its integrity level stays high, as Wine
fixes it), while the stand-in game keeps the full one. Exclusive fullscreen
cannot be staged under Wine (SHQueryUserNotificationState always answers
QUNS_ACCEPTS_NOTIFICATIONS); the unit tests drive that decision."""

import os
import re
import struct
import unittest

from harness import BUILD_DIR, GameLink, Overlay, free_udp_port, unique, wait_until, wine_path
from standin_game import StandinGame
from standin_runtime import StandinPage

GAME_CLASS = "GraWarnGame"
ELEVATED_LINE = ("game runs elevated and this program does not - Windows keeps the overlay from the game's "
                 "window and input (start both elevated, or neither)")
ELEVATED_PAGE = '{"type":"warn","what":"elevated"}'
FOUND = r"^game window [0-9A-F]{16} found "


class WarningTest(unittest.TestCase):

    def start_game(self, title):
        game = StandinGame().start(BUILD_DIR, title, GAME_CLASS, free_udp_port())
        self.addCleanup(game.stop)
        return game

    def start_overlay(self, name, title, limited_token):
        overlay = Overlay(name, game=title, game_class=GAME_CLASS, limited_token=limited_token)
        self.addCleanup(overlay.stop)
        return overlay.start()

    def open_page(self, overlay):
        page = StandinPage(overlay.page_port)
        self.addCleanup(page.close)
        self.assertTrue(page.hello(), overlay.messages())
        # The program adds its page-message handler before it navigates: a "ready" posted
        # before that would be answered "nohandler".
        self.assertTrue(overlay.wait_for_journal(r"^webview\.Navigate ", 30), overlay.journal())
        return page

    def open_link(self, overlay):
        link = GameLink(overlay.port)
        self.addCleanup(link.close)
        return link

    def ready_and_posted(self, overlay, page):
        """The page says it is ready; everything posted up to the host's
        reply, which comes after whatever was held for the page."""
        self.assertEqual(page.post('{"type":"ready"}'), "done")
        self.assertTrue(page.wait_posted(lambda text: '"type":"host"' in text, 10), page.posted())
        self.assertTrue(overlay.wait_for_log(r"^page ready$", 10), overlay.messages())
        return page.posted()


class ElevatedGame(WarningTest):

    def test_told_at_once_to_a_game_that_spoke_before_the_attach(self):
        title = unique("Elevated Game")
        overlay = self.start_overlay("elevated-spoke-first", title, limited_token=True)
        page = self.open_page(overlay)
        link = self.open_link(overlay)
        link.send("GRAO state")
        self.assertEqual(link.receive(10), b"GRAO state hidden")
        self.start_game(title)
        self.assertTrue(overlay.wait_for_log(FOUND, 15), overlay.messages())
        self.assertEqual(link.receive(10), b"GRAO warn elevated")
        self.assertTrue(overlay.wait_for_log("^" + re.escape(ELEVATED_LINE) + "$", 5), overlay.messages())
        posted = self.ready_and_posted(overlay, page)
        self.assertEqual(posted.count(ELEVATED_PAGE), 1, posted)
        self.assertEqual(link.receive_all(), [])

    def test_told_right_after_the_first_datagram_of_a_game_that_speaks_later(self):
        title = unique("Elevated Game")
        self.start_game(title)
        overlay = self.start_overlay("elevated-spoke-later", title, limited_token=True)
        page = self.open_page(overlay)
        found = overlay.wait_for_log(FOUND, 15)
        self.assertTrue(found, overlay.messages())
        self.assertTrue(overlay.wait_for_log("^" + re.escape(ELEVATED_LINE) + "$", 5), overlay.messages())
        messages = overlay.messages()
        self.assertEqual(messages.index(ELEVATED_LINE), messages.index(found.string) + 1, messages)
        link = self.open_link(overlay)
        link.send("GRAO state")
        self.assertEqual(link.receive(10), b"GRAO state hidden")
        self.assertEqual(link.receive(10), b"GRAO warn elevated")
        link.send("GRAO state")
        self.assertEqual(link.receive_all(), [b"GRAO state hidden"])
        posted = self.ready_and_posted(overlay, page)
        self.assertEqual(posted.count(ELEVATED_PAGE), 1, posted)

    def test_nothing_is_said_when_both_run_alike(self):
        title = unique("Alike Game")
        self.start_game(title)
        overlay = self.start_overlay("elevated-alike", title, limited_token=False)
        page = self.open_page(overlay)
        self.assertTrue(overlay.wait_for_log(FOUND, 15), overlay.messages())
        link = self.open_link(overlay)
        link.send("GRAO state")
        self.assertEqual(link.receive_all(), [b"GRAO state hidden"])
        posted = self.ready_and_posted(overlay, page)
        self.assertFalse([text for text in posted if '"warn"' in text], posted)
        self.assertFalse([m for m in overlay.messages() if "elevated" in m or "token" in m], overlay.messages())


def exception_code_of_dump(data):
    """The exception code in a minidump's exception stream, or None."""
    signature, _version, streams, directory = struct.unpack_from("<4sIII", data, 0)
    if signature != b"MDMP":
        return None
    for index in range(streams):
        kind, _size, rva = struct.unpack_from("<III", data, directory + 12 * index)
        if kind == 6:  # ExceptionStream: thread id, alignment, then the exception record
            return struct.unpack_from("<I", data, rva + 8)[0]
    return None


def debuggers_in_prefix():
    """Processes of winedbg that run in this test run's Wine prefix."""
    prefix = os.environ.get("WINEPREFIX", "")
    found = []
    for pid in filter(str.isdigit, os.listdir("/proc")):
        try:
            with open("/proc/%s/cmdline" % pid, "rb") as f:
                command = f.read().replace(b"\0", b" ").decode("utf-8", "replace")
            if "winedbg" not in command.lower():
                continue
            with open("/proc/%s/environ" % pid, "rb") as f:
                environment = f.read().split(b"\0")
        except OSError:
            continue
        if ("WINEPREFIX=" + prefix).encode() in environment:
            found.append(command)
    return found


class Crash(unittest.TestCase):

    def crash(self, name, how, code):
        overlay = Overlay(name)
        self.addCleanup(overlay.stop)
        dump_path = os.path.join(overlay.dir, "gra_overlay.dmp")
        with open(dump_path, "wb") as old:
            old.write(b"a dump from the run before")
        overlay.start()
        page = StandinPage(overlay.page_port)
        self.addCleanup(page.close)
        self.assertTrue(page.hello(), overlay.messages())
        page.crash(how)
        self.assertTrue(overlay.wait_for_journal(r"^page\.crash %s$" % how, 30), overlay.journal())
        # Wine hands Linux the low 8 bits of the exception code. The crashed thread gives the dump
        # writer 60 s before it ends the process itself: the wait is longer than that.
        self.assertEqual(overlay.wait_exit(120), code & 0xFF, overlay.messages())
        last = overlay.messages()[-1]
        self.assertRegex(last, r"^crashed - exception 0x%08x at EmbeddedBrowserWebView\.dll\+0x[0-9a-f]+ - "
                               r"a dump is in (.*)$" % code)
        self.assertEqual(last.split(" - a dump is in ")[1], wine_path(dump_path))
        with open(dump_path, "rb") as f:
            data = f.read()
        self.assertEqual(data[:4], b"MDMP")
        self.assertEqual(exception_code_of_dump(data), code)
        self.assertEqual(debuggers_in_prefix(), [])

    def test_an_access_violation_leaves_a_dump_and_a_line(self):
        self.crash("crash-access", "access", 0xC0000005)

    def test_a_stack_overflow_leaves_a_dump_and_a_line(self):
        self.crash("crash-stack", "stack", 0xC00000FD)


if __name__ == "__main__":
    unittest.main()
