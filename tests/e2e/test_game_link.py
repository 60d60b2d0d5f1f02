"""The game link end to end: real datagrams from real Linux sockets to the
program under Wine, its replies, its log, the stand-in runtime's journal (what
reached the page) and the stand-in game's window."""

import re
import socket
import subprocess
import time
import unittest

from harness import GameLink, Overlay, free_udp_port, unique, wait_until
from standin_game import StandinGame
from harness import BUILD_DIR
from standin_runtime import StandinPage

PREFERRED_PORT = 47630


def posts(overlay):
    """What the program posted to the page, from the journal, in order."""
    prefix = "webview.PostWebMessageAsJson "
    return [line[len(prefix):] for line in overlay.journal() if line.startswith(prefix)]


def wait_posts(overlay, count, timeout=15):
    return wait_until(lambda: len(posts(overlay)) >= count and posts(overlay), timeout)


class LinkTestCase(unittest.TestCase):
    """An overlay without a game window, its web view created, and a game link."""

    def start_overlay(self, name, **options):
        self.overlay = Overlay(name, **options).start()
        self.addCleanup(self.overlay.stop)
        self.assertTrue(self.overlay.wait_for_journal(r"^webview\.Navigate ", 20), self.overlay.journal())
        self.link = GameLink(self.overlay.port)
        self.addCleanup(self.link.close)
        return self.overlay

    def page(self):
        page = StandinPage(self.overlay.page_port)
        self.addCleanup(page.close)
        return page

    def mode_lines(self):
        return [m for m in self.overlay.messages() if m.startswith("mode ")]

    def expect_reply(self, link, expected):
        self.assertEqual(link.receive(10), expected)


class Magic(LinkTestCase):
    def test_malformed_datagrams_are_dropped(self):
        self.start_overlay("link-magic")
        for data in (b"GRAO", b"GRA", b"GRAO ", b"grao show", b"GRAO Show", b"GRAO  show", b"GRAOshow"):
            self.link.send(data)
        self.link.send("GRAO state")
        # the state answer shows that everything before it was read and did nothing
        self.expect_reply(self.link, b"GRAO state hidden")
        self.assertEqual(self.mode_lines(), [])
        self.assertEqual(self.link.receive_all(0.5), [])

    def test_show_without_argument_with_one_space_and_with_two_spaces(self):
        self.start_overlay("link-show-spaces")
        page = self.page()
        self.assertEqual(page.post('{"type":"ready"}'), "done")
        self.link.send("GRAO show")
        self.expect_reply(self.link, b"GRAO state active")
        self.link.send("GRAO show ")
        self.expect_reply(self.link, b"GRAO state active")
        self.link.send("GRAO show  x")
        self.expect_reply(self.link, b"GRAO state active")
        expected = ['{"type":"show"}', '{"type":"show"}', '{"type":"show","pad":" x"}']

        def shows():
            return [p for p in posts(self.overlay) if p.startswith('{"type":"show"')]
        wait_until(lambda: len(shows()) >= 3, 10)
        self.assertEqual(shows(), expected)
        self.assertEqual(self.mode_lines(), ["mode active"])

    def test_text_after_a_zero_byte_is_ignored(self):
        self.start_overlay("link-zero-byte")
        self.assertEqual(self.page().post('{"type":"ready"}'), "done")
        self.link.send(b'GRAO page {"type":"x"}\x00,"tail":1}')
        self.link.send(b"GRAO state\x00 and more")
        self.expect_reply(self.link, b"GRAO state hidden")
        self.assertIn('{"type":"x"}', posts(self.overlay))

    def test_datagrams_waiting_together_are_all_dispatched_in_order(self):
        self.start_overlay("link-burst-order")
        for i in range(50):
            self.link.send('GRAO page {"n":%d}' % i)
        self.link.send("GRAO state")
        self.expect_reply(self.link, b"GRAO state hidden")
        self.assertEqual(posts(self.overlay), ['{"n":%d}' % i for i in range(50)])


class ReplyAddress(LinkTestCase):
    def test_replies_stay_with_port_47630_once_it_was_seen(self):
        self.start_overlay("link-reply-address")
        try:
            preferred = GameLink(self.overlay.port, source_port=PREFERRED_PORT)
        except OSError as error:
            self.skipTest("port %d cannot be bound here (%s): the rule cannot be shown" % (PREFERRED_PORT, error))
        self.addCleanup(preferred.close)
        other = GameLink(self.overlay.port)
        self.addCleanup(other.close)

        self.link.send("GRAO state")                 # port A: the first sender gets the reply
        self.expect_reply(self.link, b"GRAO state hidden")
        preferred.send("GRAO state")                 # 47630
        self.expect_reply(preferred, b"GRAO state hidden")
        other.send("GRAO state")                     # port B: the reply still goes to 47630
        self.expect_reply(preferred, b"GRAO state hidden")
        self.assertIsNone(other.receive(1))
        other.send("GRAO bye")                       # gamePort is B all the same
        self.assertEqual(self.overlay.wait_exit(20), 0)
        self.assertEqual(self.overlay.messages()[-2:], [
            "'bye' from UDP port %d" % other.port, "exit ('bye' from UDP port %d)" % other.port])

    def test_a_malformed_datagram_moves_the_reply_address_too(self):
        self.start_overlay("link-malformed-address")
        page = self.page()
        self.link.send("GRAO state")
        self.expect_reply(self.link, b"GRAO state hidden")
        other = GameLink(self.overlay.port)
        self.addCleanup(other.close)
        other.send("nonsense")
        self.assertTrue(self.overlay.wait_datagrams_read())
        self.assertEqual(page.post('{"type":"modal","on":true}'), "done")
        self.expect_reply(other, b"GRAO modal on")
        self.assertIsNone(self.link.receive(0.5))

    def test_nothing_is_sent_before_the_first_datagram(self):
        self.start_overlay("link-nothing-before")
        page = self.page()
        for message in ('{"type":"mode","mode":"active"}', '{"type":"modal","on":true}',
                        '{"type":"game","cmd":"jump","arg":""}', '{"type":"hide"}'):
            self.assertEqual(page.post(message), "done")
        self.assertEqual(self.mode_lines(), ["mode active", "mode hidden"])
        # the first datagram opens the way back; nothing earlier was kept for it
        self.link.send("GRAO x")
        self.assertEqual(self.link.receive_all(1.0), [])
        self.assertEqual(page.post('{"type":"modal","on":false}'), "done")
        self.expect_reply(self.link, b"GRAO modal off")


class Commands(LinkTestCase):
    def test_state_reports_the_mode(self):
        self.start_overlay("link-state")
        self.link.send("GRAO state")
        self.expect_reply(self.link, b"GRAO state hidden")
        self.link.send("GRAO state ignored words")
        self.expect_reply(self.link, b"GRAO state hidden")

    def test_toggle_shows_from_passive_and_hides_from_active(self):
        self.start_overlay("link-toggle")
        self.link.send('GRAO note "hello"')            # hidden -> passive
        self.expect_reply(self.link, b"GRAO state passive")
        self.link.send("GRAO toggle pad text")        # passive counts as not shown
        self.expect_reply(self.link, b"GRAO state active")
        self.link.send("GRAO toggle")                 # page not ready: hidden at once
        self.expect_reply(self.link, b"GRAO state hidden")
        self.assertEqual(self.mode_lines(), ["mode passive", "mode active", "mode hidden"])

    def test_hide_and_toggle_ask_a_ready_page_to_close(self):
        self.start_overlay("link-close")
        page = self.page()
        self.assertEqual(page.post('{"type":"ready"}'), "done")
        self.link.send("GRAO show")
        self.expect_reply(self.link, b"GRAO state active")
        self.link.send("GRAO toggle")
        self.link.send("GRAO hide whatever")
        self.link.send("GRAO state")
        self.expect_reply(self.link, b"GRAO state active")  # the page decides when to hide
        self.assertEqual([p for p in posts(self.overlay) if p == '{"type":"close"}'], ['{"type":"close"}'] * 2)
        self.assertEqual(page.post('{"type":"hide"}'), "done")
        self.expect_reply(self.link, b"GRAO state hidden")

    def test_note_while_hidden_goes_passive_and_is_held_until_ready(self):
        self.start_overlay("link-notes")
        self.link.send('GRAO note {"text":"first"}')
        self.expect_reply(self.link, b"GRAO state passive")
        self.link.send('GRAO note "second \\"quoted\\""')
        self.link.send("GRAO state")
        self.expect_reply(self.link, b"GRAO state passive")   # no second mode change
        self.assertEqual([p for p in posts(self.overlay) if '"note"' in p], [])
        page = self.page()
        self.assertEqual(page.post('{"type":"ready"}'), "done")
        self.assertEqual(posts(self.overlay), [
            '{"type":"note","note":{"text":"first"}}',
            '{"type":"note","note":"second \\"quoted\\""}',
            '{"type":"host","through":true,"hit":true}'])
        self.link.send("GRAO note 3")
        self.assertTrue(wait_until(lambda: '{"type":"note","note":3}' in posts(self.overlay), 10))
        self.assertEqual(self.mode_lines(), ["mode passive"])

    def test_page_is_posted_at_once_even_before_ready(self):
        self.start_overlay("link-page")
        self.link.send('GRAO page {"type":"custom","value":[1,2]}')
        self.assertTrue(wait_until(lambda: posts(self.overlay) == ['{"type":"custom","value":[1,2]}'], 10))
        self.assertEqual(self.mode_lines(), [])

    def test_reload_reloads_the_web_view(self):
        self.start_overlay("link-reload")
        self.link.send("GRAO reload now")
        self.assertTrue(self.overlay.wait_for_journal(r"^webview\.Reload$", 10))

    def test_unknown_commands_do_nothing(self):
        self.start_overlay("link-unknown")
        for word in ("shows", "SHOW", "noted", "exit", "quit"):
            self.link.send("GRAO " + word)
        self.link.send("GRAO state")
        self.expect_reply(self.link, b"GRAO state hidden")
        self.assertTrue(self.overlay.running())
        self.assertEqual(posts(self.overlay), [])

    def test_nothing_after_bye_is_carried_out(self):
        self.start_overlay("link-bye-twice")
        other = GameLink(self.overlay.port)
        self.addCleanup(other.close)
        # whether they wait in the socket together or not, a program that is
        # quitting carries out nothing more: no second "bye", no window shown
        self.link.send("GRAO bye")
        other.send("GRAO bye now")
        self.link.send("GRAO show")
        self.assertEqual(self.overlay.wait_exit(20), 0)
        messages = self.overlay.messages()
        byes = [m for m in messages if m.startswith("'bye'")]
        self.assertEqual(byes, ["'bye' from UDP port %d" % self.link.port])
        self.assertEqual(self.mode_lines(), [])
        self.assertEqual(messages[-1], "exit ('bye' from UDP port %d)" % self.link.port)


class WithoutWebView(LinkTestCase):
    def test_reload_page_and_note_need_the_web_view(self):
        overlay = Overlay("link-no-web-view", runtime="empty").start()
        self.addCleanup(overlay.stop)
        self.assertTrue(overlay.wait_for_log(r"^CreateCoreWebView2EnvironmentWithOptions: 0x80070002$", 20))
        link = GameLink(overlay.port)
        self.addCleanup(link.close)
        link.send("GRAO reload")
        link.send('GRAO page {"a":1}')
        link.send("GRAO note 1")
        self.assertEqual(link.receive(10), b"GRAO state passive")
        link.send("GRAO state")
        self.assertEqual(link.receive(10), b"GRAO state passive")
        self.assertTrue(overlay.running())


class GameWindowCase(LinkTestCase):
    """An overlay attached to a stand-in game's window."""

    def start_with_game(self, name):
        title = unique("link window game")
        self.game = StandinGame()
        self.addCleanup(self.game.stop)
        self.game.start(BUILD_DIR, title, "LinkWindowGame", free_udp_port(),
                        ["--x", "120", "--y", "90", "--w", "640", "--h", "480"])
        self.original = self.game.info()
        overlay = self.start_overlay(name, game=title, game_class="LinkWindowGame")
        self.assertTrue(overlay.wait_for_log(r"^game window [0-9A-F]{16} found \(child\)", 15))
        return overlay

    def window_lines(self):
        return [m for m in self.overlay.messages() if m.startswith("window: ")]

    def send_and_settle(self, text):
        self.link.send(text)
        self.link.send("GRAO state")
        self.assertIsNotNone(self.link.receive(10))


class Window(GameWindowCase):
    def test_borderless_covers_the_monitor_and_framed_restores_the_first_saved_state(self):
        self.start_with_game("link-window")
        self.send_and_settle("GRAO window borderless")
        info = self.game.info()
        style = int(info["style"], 16)
        self.assertEqual(style & 0x00CF0000, 0)
        self.assertEqual(style & 0x80000000, 0x80000000)
        self.assertEqual(info["rect"], [0, 0, 1280, 1024])
        self.assertEqual(self.window_lines(), ["window: borderless 1280x1024"])
        # the host follows the game's new client area
        host = [w for w in self.game.children() if w["class"] == "GRAOverlayHost"][0]
        self.assertEqual(host["rect"], [0, 0, 1280, 1024])

        self.send_and_settle("GRAO window borderless")     # already borderless over the monitor: nothing
        self.assertEqual(self.window_lines(), ["window: borderless 1280x1024"])

        self.game.move(10, 10)                              # no longer over the whole monitor
        self.send_and_settle("GRAO window borderless")     # borderless again; the first saved state is kept
        self.assertEqual(self.window_lines(), ["window: borderless 1280x1024"] * 2)

        self.send_and_settle("GRAO window framed")
        info = self.game.info()
        self.assertEqual(info["style"], self.original["style"])
        self.assertEqual(info["rect"], self.original["rect"])
        self.assertEqual(self.window_lines()[-1], "window: framed again")

    def test_only_the_exact_word_means_borderless(self):
        self.start_with_game("link-window-words")
        for argument in ("Borderless", "borderless ", "", " borderless"):
            self.send_and_settle("GRAO window " + argument)
        self.send_and_settle("GRAO window")
        info = self.game.info()
        self.assertEqual(info["style"], self.original["style"])
        self.assertEqual(info["rect"], self.original["rect"])
        # a framed window that was never borderless is only refitted
        self.assertEqual(self.window_lines(), [])

    def test_window_without_a_game_window_does_nothing(self):
        self.start_overlay("link-window-no-game")
        self.send_and_settle("GRAO window borderless")
        self.send_and_settle("GRAO window")
        self.assertEqual(self.window_lines(), [])


def socket_receive_buffer(port):
    """The receive buffer Linux really gave the program's socket ("rb" of ss)."""
    out = subprocess.run(["ss", "-uamn", "sport = :%d" % port], capture_output=True, text=True).stdout
    m = re.search(r"rb(\d+)", out)
    return int(m.group(1)) if m else None


def socket_drops(port):
    """Datagrams the kernel dropped for the program's socket (the last column
    of /proc/net/udp): they never reached the program."""
    with open("/proc/net/udp") as f:
        for line in f.readlines()[1:]:
            fields = line.split()
            local = fields[1]
            if local.upper() == "0100007F:%04X" % port:
                return int(fields[-1])
    return None


class FrozenGame(GameWindowCase):
    needs_foreground = True  # the game holds the focus that moving it would take away

    def freeze_game(self):
        """The game, in front with the keyboard focus, stops pumping
        messages (a long load, a debugger) for 20 s; returns once the system
        calls it hung."""
        self.link.send("GRAO state")
        self.assertEqual(self.link.receive(10), b"GRAO state hidden")
        self.game.front()
        self.game.freeze(20)
        # Windows (and Wine) call a window hung once its thread has not
        # looked for messages for 5 s.
        time.sleep(6)

    def test_a_frozen_game_does_not_hold_up_the_window_command(self):
        self.start_with_game("link-frozen-window")
        self.freeze_game()
        self.link.send("GRAO window borderless")
        self.link.send("GRAO state")
        self.assertEqual(self.link.receive(5), b"GRAO state hidden")
        self.assertEqual(self.window_lines(), ["window: the game does not answer - left as it is"])
        # The frozen game's window was left as it was.
        self.assertEqual(self.game.cmd("info", timeout=60)["rect"], self.original["rect"])

    def test_a_frozen_game_does_not_hold_up_the_keyboard_focus(self):
        overlay = self.start_with_game("link-frozen-focus")
        self.freeze_game()
        self.link.send("GRAO show")
        self.assertEqual(self.link.receive(5), b"GRAO state active")
        self.assertTrue(overlay.wait_for_log(r"^the game does not answer - the keyboard focus is left where it is$",
                                             5), overlay.messages())
        self.link.send("GRAO hide")
        self.assertEqual(self.link.receive(5), b"GRAO state hidden")
        self.link.send("GRAO state")
        self.assertEqual(self.link.receive(5), b"GRAO state hidden")


class Burst(LinkTestCase):
    def test_ten_thousand_datagrams_as_fast_as_linux_sends_them(self):
        overlay = self.start_overlay("link-burst")
        buffer = socket_receive_buffer(overlay.port)
        # The program asks for a 4 MiB receive buffer; Linux caps it at
        # net.core.rmem_max (doubled for its own bookkeeping).
        with open("/proc/sys/net/core/rmem_max") as f:
            rmem_max = int(f.read())
        print("receive buffer under Wine on Linux: %s bytes (rmem_max %d)" % (buffer, rmem_max))
        self.assertEqual(buffer, min(4194304, rmem_max) * 2)
        drops_before = socket_drops(overlay.port) or 0

        sent = 10000
        for i in range(sent):
            self.link.send('GRAO page {"n":%d}' % i)
        # still responsive: the answer comes as soon as the queue is worked off
        self.link.send("GRAO state")
        deadline = time.monotonic() + 60
        while time.monotonic() < deadline:
            reply = self.link.receive(1)
            if reply == b"GRAO state hidden":
                break
        self.assertEqual(reply, b"GRAO state hidden")
        dropped = socket_drops(overlay.port) - drops_before
        received = posts(overlay)
        print("sent %d, dropped by the kernel %d, dispatched %d" % (sent, dropped, len(received)))
        # every datagram that reached the socket was read and dispatched, in order
        self.assertEqual(len(received), sent - dropped)
        numbers = [int(re.match(r'\{"n":(\d+)\}', p).group(1)) for p in received]
        self.assertEqual(numbers, sorted(numbers))
        # and counted: the first rates report shows them as game->host
        report = overlay.wait_for_log(r"^rates (\d+)s .* game->host ([\d.]+)/(\d+) ", 45)
        self.assertTrue(report, overlay.messages())
        seconds, average = int(report.group(1)), float(report.group(2))
        counted = sent - dropped + 1  # and the "state" datagram
        # the period printed is rounded to whole seconds, the average to 0.1
        self.assertGreaterEqual(average, counted / (seconds + 0.5) - 0.05)
        self.assertLessEqual(average, counted / (seconds - 0.5) + 0.05)


FLOOD_SENDER = """
import socket, sys, time
port, seconds = int(sys.argv[1]), float(sys.argv[2])
s = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
end = time.monotonic() + seconds
data = b"GRAO flood"
while time.monotonic() < end:
    for _ in range(1000):
        try:
            s.sendto(data, ("127.0.0.1", port))
        except OSError:
            pass
"""


class Flood(LinkTestCase):
    """Senders that keep the program's socket full all the time."""

    # The senders keep both cores busy: a test beside them would be starved.
    loads_the_machine = True

    def flood(self, port, seconds, senders=2):
        processes = [subprocess.Popen(["/usr/bin/python3", "-c", FLOOD_SENDER, str(port), str(seconds)])
                     for _ in range(senders)]
        for process in processes:
            self.addCleanup(process.wait)
            self.addCleanup(process.kill)
        return processes

    def test_a_flood_starves_neither_the_tick_nor_the_exit(self):
        overlay = self.start_overlay("link-flood", game=unique("no game"))
        senders = self.flood(overlay.port, 90)
        # The tick runs on: the cover's 10 s deadline is met while the flood
        # goes on.
        self.assertTrue(overlay.wait_for_log(r"^cover off \(the page never said - 10 s\)$", 40),
                        overlay.messages())
        self.assertTrue(all(sender.poll() is None for sender in senders), "the flood ended too early")
        # And the exit is not held up either. The kernel drops what comes
        # while the socket is full, and the room a read makes goes to whoever
        # sends next: a lone "bye" now and then would seldom get in, so "bye"
        # is sent as fast as the flood, until it is heard.
        def bye_heard():
            until = time.monotonic() + 0.2
            while time.monotonic() < until:
                self.link.send("GRAO bye")
            return overlay.wait_for_log(r"^'bye' from UDP port %d$" % self.link.port, 0)
        self.assertTrue(wait_until(bye_heard, 40), overlay.messages()[-3:])
        # Once it has decided to end, it ends, whatever the socket still
        # receives: no pile of socket notifications stands before its WM_QUIT
        # (the unit tests count them).
        self.assertIsNotNone(overlay.wait_exit(30), overlay.messages()[-3:])
        self.assertEqual(overlay.wait_exit(1), 0)
        self.assertTrue(all(sender.poll() is None for sender in senders), "the flood ended too early")
        self.assertEqual(overlay.messages()[-1], "exit ('bye' from UDP port %d)" % self.link.port)


if __name__ == "__main__":
    unittest.main()
