"""The tests of sdk/gra_link.py, run natively against a UDP peer on 127.0.0.1
that plays the program's side of the link. They read the tables that
gra_link.h and GraLink.cs are tested with (tests/sdk_cases), and take the
error numbers and texts from gra_link.h itself.

    python3 -m unittest tests/native/python/test_gra_link.py
"""

import os
import re
import socket
import sys
import threading
import time
import unittest

ROOT = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", "..", ".."))
sys.path.insert(0, os.path.join(ROOT, "sdk"))
import gra_link  # noqa: E402

CASES = os.path.join(ROOT, "tests", "sdk_cases")
HEADER = os.path.join(ROOT, "sdk", "gra_link.h")


def unescape_case(text):
    """The link table's argument escapes: \\\\ \\t \\n \\r \\0 and \\xHH."""
    raw, out, i = text.encode("utf-8"), bytearray(), 0
    while i < len(raw):
        c = raw[i]
        if c != 0x5C or i + 1 == len(raw):
            out.append(c)
            i += 1
            continue
        e = chr(raw[i + 1])
        if e == "x":
            out.append(int(raw[i + 2:i + 4], 16))
            i += 4
            continue
        out += {"t": b"\t", "n": b"\n", "r": b"\r", "0": b"\0"}.get(e, e.encode("ascii"))
        i += 2
    return bytes(out)


def link_cases():
    cases = []
    with open(os.path.join(CASES, "link_cases.txt"), encoding="utf-8") as f:
        for number, line in enumerate(f.read().split("\n"), 1):
            if not line or line.startswith("#"):
                continue
            fields = line.split("\t")
            repeat = int(fields[3]) if len(fields) > 3 else 1
            cases.append((number, fields[0], unescape_case(fields[1]) * repeat, fields[2]))
    return cases


def c_string(literal):
    """One C string literal's text (the escapes quote_cases.h uses)."""
    out, i = bytearray(), 0
    raw = literal.encode("utf-8")
    simple = {"n": b"\n", "t": b"\t", "v": b"\v", '"': b'"', "\\": b"\\", "'": b"'"}
    while i < len(raw):
        if raw[i] != 0x5C:
            out.append(raw[i])
            i += 1
        elif chr(raw[i + 1]) == "x":
            m = re.match(rb"[0-9A-Fa-f]+", raw[i + 2:])
            out.append(int(m.group(0), 16))
            i += 2 + len(m.group(0))
        else:
            out += simple[chr(raw[i + 1])]
            i += 2
    return out.decode("utf-8")


def quote_cases():
    with open(os.path.join(CASES, "quote_cases.h"), encoding="utf-8") as f:
        text = f.read()
    literal = r'"((?:[^"\\]|\\.)*)"'
    return [(c_string(a), c_string(q)) for a, q in re.findall(r"\{" + literal + r",\s*" + literal + r"\}", text)]


OUTCOMES = {"sent": None, "zero-byte": gra_link.E_ZERO_BYTE, "too-long": gra_link.E_TOO_LONG,
            "json": gra_link.E_JSON, "command": gra_link.E_COMMAND, "window": gra_link.E_WINDOW}


class Peer:
    """The program's side: receives what a link sends, answers it."""

    def __init__(self, port=0):
        self.sock = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.sock.bind(("127.0.0.1", port))
        self.port = self.sock.getsockname()[1]

    def receive(self, timeout=2.0):
        self.sock.settimeout(timeout)
        try:
            return self.sock.recvfrom(65536)
        except socket.timeout:
            return None, None

    def data(self, timeout=2.0):
        return self.receive(timeout)[0]

    def send_to(self, port, data):
        self.sock.sendto(data, ("127.0.0.1", port))

    def close(self):
        self.sock.close()


class LinkTest(unittest.TestCase):
    def peer(self, port=0):
        peer = Peer(port)
        self.addCleanup(peer.close)
        return peer

    def link_to(self, peer):
        link = gra_link.open_port(peer.port, 0)
        self.addCleanup(link.close)
        return link

    def refused(self, code, call, *args):
        with self.assertRaises(gra_link.LinkError) as caught:
            call(*args)
        self.assertEqual(caught.exception.code, code)
        self.assertEqual(str(caught.exception), gra_link.error_text(code))


class SharedTables(LinkTest):
    def test_each_link_case_is_sent_exactly_or_refused_with_its_code(self):
        cases = link_cases()
        self.assertGreaterEqual(len(cases), 40)
        peer = self.peer()
        link = self.link_to(peer)
        for number, command, argument, outcome in cases:
            where = "link_cases.txt line %d" % number
            expected = OUTCOMES[outcome]
            try:
                link.send(command, argument)
                code = None
            except gra_link.LinkError as e:
                code = e.code
            self.assertEqual(code, expected, where)
            # the same case given as text where it is UTF-8 (the table's are)
            try:
                gra_link.build(command, argument.decode("utf-8"))
                text_code = None
            except gra_link.LinkError as e:
                text_code = e.code
            self.assertEqual(text_code, expected, where)
            link.state()  # a marker after each case shows that a refusal sent nothing
            if expected is None:
                wire = b"GRAO " + command.encode() + (b" " + argument if argument else b"")
                self.assertEqual(peer.data(), wire, where)
            self.assertEqual(peer.data(), b"GRAO state", where)

    def test_each_hard_quoting_case_gives_its_exact_text(self):
        cases = quote_cases()
        self.assertGreaterEqual(len(cases), 20)
        for argument, quoted in cases:
            self.assertEqual(gra_link.quote_argument(argument), quoted, repr(argument))

    def test_error_numbers_and_texts_are_those_of_gra_link_h(self):
        with open(HEADER, encoding="utf-8") as f:
            header = f.read()
        numbers = dict(re.findall(r"GRA_LINK_(E_\w+) = (-\d+)", header))
        texts = dict(re.findall(r'case GRA_LINK_(E_\w+|OK): return "((?:[^"\\]|\\.)*)";', header))
        self.assertEqual(len(numbers), 11)
        for name, number in numbers.items():
            self.assertEqual(getattr(gra_link, name), int(number), name)
            self.assertEqual(gra_link.error_text(int(number)), c_string(texts[name]), name)
        self.assertEqual(gra_link.error_text(0), "ok")
        self.assertEqual(gra_link.error_text(-99), "unknown error")


class Opening(LinkTest):
    def test_open_port_binds_loopback_and_an_ephemeral_port(self):
        peer = self.peer()
        link = self.link_to(peer)
        self.assertEqual(link.host_port, peer.port)
        self.assertNotIn(link.local_port, (0, gra_link.GAME_PORT))
        self.assertFalse(link.preferred)
        link.hide()
        data, sender = peer.receive()
        self.assertEqual((data, sender), (b"GRAO hide", ("127.0.0.1", link.local_port)))

    def test_open_prefers_the_game_port_and_falls_back_when_it_is_taken(self):
        try:
            holder = Peer(gra_link.GAME_PORT)
        except OSError:
            with gra_link.open(1) as fallback:
                self.assertFalse(fallback.preferred)
            self.skipTest("47630 is taken by another process: only the fall-back was checked")
        peer = self.peer()
        with gra_link.open(peer.port) as link:
            self.assertFalse(link.preferred)
            self.assertNotIn(link.local_port, (0, gra_link.GAME_PORT))
        holder.close()
        with gra_link.open(peer.port) as link:
            self.assertTrue(link.preferred)
            link.reload()
            self.assertEqual(peer.receive(), (b"GRAO reload", ("127.0.0.1", gra_link.GAME_PORT)))

    def test_open_without_a_port_aims_at_the_default_port(self):
        with gra_link.open_port(0, 0) as link:
            self.assertEqual(link.host_port, gra_link.HOST_PORT)

    def test_a_port_that_is_taken_is_a_socket_error(self):
        peer = self.peer()
        self.refused(gra_link.E_SOCKET, gra_link.open_port, 1, peer.port)
        self.refused(gra_link.E_INVALID, gra_link.open_port, 70000, 0)

    def test_a_closed_link_refuses_everything(self):
        link = gra_link.open_port(1, 0)
        link.close()
        link.close()
        self.assertFalse(link.is_open)
        self.refused(gra_link.E_INVALID, link.show, "x")
        self.refused(gra_link.E_INVALID, link.send, "jump")
        self.refused(gra_link.E_INVALID, link.poll)
        self.refused(gra_link.E_INVALID, link.wait_ready, 100)


class Commands(LinkTest):
    def test_each_command_method_sends_its_bytes(self):
        peer = self.peer()
        link = self.link_to(peer)
        for call, wire in (
                (lambda: link.show(), b"GRAO show"),
                (lambda: link.show('Wave 3: "go" \\ \u00c4'), 'GRAO show Wave 3: "go" \\ \u00c4'.encode()),
                (lambda: link.show(b"raw \xc3\x84"), b"GRAO show raw \xc3\x84"),
                (lambda: link.hide(), b"GRAO hide"),
                (lambda: link.toggle("pad"), b"GRAO toggle pad"),
                (lambda: link.toggle(""), b"GRAO toggle"),
                (lambda: link.note('{"hp":3}'), b'GRAO note {"hp":3}'),
                (lambda: link.note_text('say "hi"\\\n\u2713'), 'GRAO note "say \\"hi\\"\\\\\\n\u2713"'.encode()),
                (lambda: link.note_text("a\0b"), b'GRAO note "a\\u0000b"'),
                (lambda: link.note_text(b"\xc3\x84\x01"), b'GRAO note "\xc3\x84\\u0001"'),
                (lambda: link.page('{"type":"score","value":7}'), b'GRAO page {"type":"score","value":7}'),
                (lambda: link.reload(), b"GRAO reload"),
                (lambda: link.state(), b"GRAO state"),
                (lambda: link.window(True), b"GRAO window borderless"),
                (lambda: link.window(False), b"GRAO window framed"),
                (lambda: link.bye(), b"GRAO bye")):
            self.assertIsNone(call())
            self.assertEqual(peer.data(), wire)

    def test_text_that_is_not_utf8_and_missing_values_are_refused(self):
        peer = self.peer()
        link = self.link_to(peer)
        self.refused(gra_link.E_INVALID, link.show, "lone \ud800 surrogate")
        self.refused(gra_link.E_INVALID, link.note_text, "lone \udc00")
        self.refused(gra_link.E_INVALID, link.send, None, "x")
        self.refused(gra_link.E_JSON, link.note, None)
        self.refused(gra_link.E_JSON, link.page, "")
        self.refused(gra_link.E_WINDOW, link.send, "window")
        self.assertIsNone(peer.data(0.1))

    def test_the_largest_note_text_goes_out_whole(self):
        peer = self.peer()
        link = self.link_to(peer)
        # "GRAO note " and two quotation marks leave 65,495 characters
        text = "t" * (gra_link.MAX_DATAGRAM - 12)
        link.note_text(text)
        self.assertEqual(len(peer.data()), gra_link.MAX_DATAGRAM)
        self.refused(gra_link.E_TOO_LONG, link.note_text, text + "t")
        self.refused(gra_link.E_TOO_LONG, link.note_text, text[1:] + "\u00e9")  # two bytes in UTF-8
        self.assertIsNone(peer.data(0.1))


class Json(unittest.TestCase):
    def test_json_string_escapes_what_json_needs(self):
        self.assertEqual(gra_link.json_string(""), '""')
        self.assertEqual(gra_link.json_string(None), '""')
        self.assertEqual(gra_link.json_string('a"b\\c'), '"a\\"b\\\\c"')
        self.assertEqual(gra_link.json_string("\b\f\n\r\t"), '"\\b\\f\\n\\r\\t"')
        self.assertEqual(gra_link.json_string("\x01\x1f\x0b\0"), '"\\u0001\\u001f\\u000b\\u0000"')
        self.assertEqual(gra_link.json_string("/ \x7f \u00e9 \U0001f3ae"), '"/ \x7f \u00e9 \U0001f3ae"')
        every = "".join(chr(c) for c in range(1, 0x3000))
        self.assertTrue(gra_link.is_json(gra_link.json_string(every)))

    def test_is_json_accepts_exactly_one_value(self):
        for good in ("0", "-0", "1.5e-3", "12E+2", "true", "false", "null", '""', '"\\u00E9\\/"', "[]", "{}",
                     ' [1, [2, {"a": null}]] ', '{"a":{"b":[true,false]}}', '\t"x"\r\n', b'"\xc3\xa9"'):
            self.assertTrue(gra_link.is_json(good), good)
        for bad in ("", " ", "hello", "01", "1.", ".5", "-", "1e", "+1", "tru", "nulll", '"', '"\\x"', '"\\u12G4"',
                    '"a\tb"', "[1,]", '{"a"}', '{"a":1,}', "{1:2}", "[1] [2]", '0,"type":"close"', "'x'",
                    "NaN", '"a" "b"', "{} x", None, '"\ud800"'):
            self.assertFalse(gra_link.is_json(bad), bad)
        self.assertTrue(gra_link.is_json("[" * 256 + "]" * 256))
        self.assertFalse(gra_link.is_json("[" * 257 + "]" * 257))
        self.assertFalse(gra_link.is_json("[" * 100000))


class Reports(LinkTest):
    def test_reports_are_parsed_as_gra_link_h_parses_them(self):
        parse = gra_link.parse_report
        r = parse(b"GRAO state passive")
        self.assertEqual((r.kind, r.mode, r.mode_name), (gra_link.REPORT_STATE, gra_link.MODE_PASSIVE, "passive"))
        self.assertEqual(parse(b"GRAO state hidden").mode, gra_link.MODE_HIDDEN)
        self.assertEqual(parse(b"GRAO state active").mode, gra_link.MODE_ACTIVE)
        for other in (b"GRAO state Active", b"GRAO state active ", b"GRAO state", b"GRAO modal maybe",
                      b"GRAO modal on ", b"GRAO game ", b"GRAO game  x", b"GRAO hello"):
            self.assertEqual((parse(other).kind, parse(other).mode), (gra_link.REPORT_OTHER, gra_link.MODE_UNKNOWN),
                             other)
        self.assertEqual((parse(b"GRAO modal on").kind, parse(b"GRAO modal on").modal_on), (gra_link.REPORT_MODAL, True))
        self.assertEqual((parse(b"GRAO modal off").kind, parse(b"GRAO modal off").modal_on),
                         (gra_link.REPORT_MODAL, False))
        r = parse(b"GRAO game say hello  world ")
        self.assertEqual((r.kind, r.cmd, r.arg), (gra_link.REPORT_GAME, "say", "hello  world "))
        r = parse(b"GRAO game jump")
        self.assertEqual((r.cmd, r.arg), ("jump", ""))
        self.assertEqual(parse(b"GRAO game " + b"c" * 39 + b" " + b"a" * 199).kind, gra_link.REPORT_GAME)
        self.assertEqual(parse(b"GRAO game " + b"c" * 40).kind, gra_link.REPORT_OTHER)
        self.assertEqual(parse(b"GRAO game x " + b"a" * 200).kind, gra_link.REPORT_OTHER)
        for text, warning in ((b"GRAO warn elevated", gra_link.WARN_ELEVATED),
                              (b"GRAO warn fullscreen", gra_link.WARN_FULLSCREEN),
                              (b"GRAO warn windowed", gra_link.WARN_WINDOWED)):
            self.assertEqual((parse(text).kind, parse(text).warning), (gra_link.REPORT_WARN, warning), text)
        for other in (b"GRAO warn", b"GRAO warn Elevated", b"GRAO warn elevated ", b"GRAO warn cold"):
            self.assertEqual((parse(other).kind, parse(other).warning), (gra_link.REPORT_OTHER, gra_link.WARN_NONE),
                             other)
        r = parse(b"GRAO state hidden\0tail")
        self.assertEqual((r.text, r.mode), ("state hidden", gra_link.MODE_HIDDEN))
        for none in (b"GRAO", b"grao state hidden", b"GRAOstate", b"GRAO " + b"x" * 501):
            self.assertIsNone(parse(none), none)
        self.assertEqual(parse(b"GRAO ").text, "")
        self.assertEqual(len(parse(b"GRAO " + b"x" * 500).text), 500)

    def test_poll_reads_only_the_programs_reports_and_never_blocks(self):
        peer, stranger = self.peer(), self.peer()
        link = self.link_to(peer)
        began = time.monotonic()
        self.assertIsNone(link.poll())
        self.assertLess(time.monotonic() - began, 0.5)  # a poll with nothing waiting returns at once
        stranger.send_to(link.local_port, b"GRAO state active")
        for data in (b"no magic", b"GRAO " + b"x" * 600, b"", b"GRAO modal on", b"GRAO game jump 3"):
            peer.send_to(link.local_port, data)
        self.assertTrue(link.wait(2000))
        first = link.next_report(2000)
        self.assertEqual(first.text, "modal on")
        second = link.next_report(2000)
        self.assertEqual((second.kind, second.cmd, second.arg), (gra_link.REPORT_GAME, "jump", "3"))
        self.assertIsNone(link.poll())

    def test_next_report_gives_up_after_its_time(self):
        link = self.link_to(self.peer())
        self.assertIsNone(link.next_report(100))
        self.assertFalse(link.wait(50))

    def test_a_send_to_a_closed_port_does_not_break_polling(self):
        gone = Peer()
        port = gone.port
        gone.close()
        with gra_link.open_port(port, 0) as link:
            link.state()
            self.assertIsNone(link.next_report(100))
            link.state()


class WaitReady(LinkTest):
    def test_asks_again_until_the_program_answers(self):
        peer = self.peer()
        asks = []

        def program():
            while True:
                data, sender = peer.receive(5)
                if data is None:
                    return
                if data == b"GRAO state":
                    asks.append(sender)
                    if len(asks) == 3:
                        peer.send_to(sender[1], b"GRAO game jump")
                        peer.send_to(sender[1], b"GRAO state passive")
                        return
        thread = threading.Thread(target=program)
        thread.start()
        self.addCleanup(thread.join)
        link = self.link_to(peer)
        report = link.wait_ready(10000)
        self.assertIsNotNone(report)
        self.assertEqual(report.mode, gra_link.MODE_PASSIVE)
        self.assertEqual(len(asks), 3)

    def test_gives_up_after_the_timeout_when_nobody_answers(self):
        silent = self.peer()
        link = self.link_to(silent)
        self.assertIsNone(link.wait_ready(600))
        # a state every quarter of a second: at 0, 250 and 500 ms
        asked = 0
        while silent.data(0.1) == b"GRAO state":
            asked += 1
        self.assertIn(asked, (2, 3, 4))


class Launching(unittest.TestCase):
    def test_the_program_alone_is_quoted_as_it_is(self):
        self.assertEqual(gra_link.command_line("C:\\Games\\My Game\\overlay\\gra-overlay.exe"),
                         '"C:\\Games\\My Game\\overlay\\gra-overlay.exe"')

    def test_every_option_in_its_place_with_its_value_quoted(self):
        line = gra_link.command_line("gra-overlay.exe", web="C:\\Game\\web\\", doc="C:\\Users\\Ann\\Documents\\My Game",
                                     port=47700, game='Gravos "Arena" 2', game_class="Win32Window", mode="owned",
                                     log="", data="D:\\data\\", show=True)
        self.assertEqual(line, '"gra-overlay.exe" --web C:\\Game\\web\\ --doc "C:\\Users\\Ann\\Documents\\My Game"'
                               ' --port 47700 --game "Gravos \\"Arena\\" 2" --game-class Win32Window'
                               ' --mode owned --log "" --data D:\\data\\ --show')
        self.assertEqual(gra_link.command_line("p", port=65535), '"p" --port 65535')

    def test_a_program_that_cannot_be_quoted_is_refused(self):
        for program in ("", None, 'C:\\a"b.exe'):
            with self.assertRaises(gra_link.LinkError) as caught:
                gra_link.command_line(program)
            self.assertEqual(caught.exception.code, gra_link.E_INVALID)

    def test_launch_refuses_what_windows_cannot_take_before_starting_anything(self):
        for options, code in (({"game": "a\0b"}, gra_link.E_INVALID), ({"game": "\ud800"}, gra_link.E_INVALID),
                              ({"game": "x" * 32767}, gra_link.E_TOO_LONG)):
            with self.assertRaises(gra_link.LinkError) as caught:
                gra_link.launch("gra-overlay.exe", runner=["/nonexistent/runner"], **options)
            self.assertEqual(caught.exception.code, code)

    def test_a_program_that_cannot_start_is_a_launch_error_with_the_systems_number(self):
        with self.assertRaises(gra_link.LinkError) as caught:
            gra_link.launch("gra-overlay.exe", runner=["/nonexistent/runner"])
        self.assertEqual((caught.exception.code, caught.exception.error), (gra_link.E_LAUNCH, 2))


if __name__ == "__main__":
    unittest.main()
