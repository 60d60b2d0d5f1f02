"""The page author's preview: scripts/preview.py runs the real program with a
small page folder over the stand-in game. With --screenshot it shows the page
once it is ready (or sends it the --command texts) and saves the screen; the
page's boxes must be in the picture where the page put them, and the game
everywhere else. In both modes the page's console, errors and failed loads are
printed with file, line and column; interactively, typed commands are checked
as the game's kit checks them, a changed file reloads the page, and --devtools
opens the page's DevTools on a port."""

import base64
import json
import os
import re
import socket
import struct
import subprocess
import sys
import threading
import time
import unittest
import urllib.request

from full_stack_scene import page_folder, screen_pixels, screenshot
from harness import scratch_dir, unique, wait_until

SCRIPTS = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", "..", "scripts"))
PREVIEW = os.path.join(SCRIPTS, "preview.py")
LINK_CASES = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", "sdk_cases", "link_cases.txt"))
sys.path.insert(0, SCRIPTS)

import game_command  # noqa: E402
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
        preview = subprocess.Popen([sys.executable, PREVIEW, folder, "--no-watch"], stdin=subprocess.PIPE,
                                   stdout=subprocess.PIPE,
                                   stderr=subprocess.STDOUT, text=True)
        try:
            lines = []
            for line in preview.stdout:
                lines.append(line.rstrip("\n"))
                if line.startswith("log: cover off"):
                    preview.stdin.write("note hello\nshow\n")
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
        self.assertFalse(any(line.startswith("preview: watching ") for line in lines), lines)
        self.assertIn("preview: not sent: 'note hello': the argument is not valid JSON", lines)

    def test_commands_are_sent_in_order_before_the_picture_and_a_refused_one_is_said_not_sent(self):
        folder = page_folder(unique("preview-commands"), "commands.html")
        doc = scratch_dir(unique("preview-kept-doc"))
        with open(os.path.join(doc, "gra_pad.json"), "w", encoding="utf-8") as f:
            f.write("kept from the last run")
        result, shot = self.run_preview(folder, "--size", "640x400", "--doc", doc,
                                        "--command", "Show x", "--command", "show Wave 3",
                                        "--command", "note hello",
                                        "--command", 'note {"title":"Quest","text":"Find the key"}')
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)
        out = result.stdout
        self.assertIn("preview: not sent: 'Show x': unknown command", out)
        self.assertIn("preview: not sent: 'note hello': the argument is not valid JSON", out)
        self.assertIn("preview: the page's files: %s (kept between runs)" % doc, out)
        self.assertRegex(out, r"(?m)^preview: the program's log: /\S+gra_overlay\.log$")
        received = re.findall(r"(?m)^page: log: index\.html:\d+:\d+ received (.*)$", out)
        self.assertEqual([json.loads(r)["type"] for r in received if json.loads(r)["type"] in ("show", "note")],
                         ["show", "note"], out)
        self.assertIn('{"type":"show","pad":"Wave 3"}', received)
        self.assertIn('{"type":"note","note":{"title":"Quest","text":"Find the key"}}', received)
        self.assertRegex(out, r'(?m)^page: log: index\.html:\d+:\d+ pad file "kept from the last run"$')
        with open(os.path.join(doc, "gra_pad.json"), encoding="utf-8") as f:
            self.assertEqual(f.read(), "kept from the last run")
        said = re.search(r"\(the game's client area at \((\d+), (\d+)\)", out)
        ox, oy = int(said.group(1)), int(said.group(2))
        shown, noted = self.pixels(shot, [(ox + 120, oy + 105), (ox + 300, oy + 105)])
        self.assertTrue(near(shown, (0, 200, 0), 3), "no green box for \"show Wave 3\": %r (%s)" % (shown, shot))
        self.assertTrue(near(noted, (0, 80, 255), 3), "no blue box for the note: %r (%s)" % (noted, shot))

    def check_mistakes_printed(self, out):
        expected = [
            r"page: error: index\.html:9:\d+ SyntaxError: Unexpected token ';'",
            r"page: error: index\.html:11:\d+ missing\.js could not be loaded \(404",
            r"page: log: index\.html:15:\d+ hello from the page \{quest: \"key\", step: 2\}",
            r"page: warn: index\.html:16:\d+ a warning",
            r"page: error: index\.html:17:\d+ unhandled rejection: Error: nobody waits for this",
            r"page: error: index\.html:18:\d+ TypeError: Cannot read properties of null \(reading 'quest'\)",
        ]
        for pattern in expected:
            self.assertRegex(out, "(?m)^" + pattern, out)

    def test_the_pages_errors_console_and_failed_loads_are_printed_with_file_and_line_in_a_screenshot(self):
        result, _ = self.run_preview(page_folder(unique("preview-mistakes"), "mistakes.html"))
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)
        self.check_mistakes_printed(result.stdout)

    def test_the_pages_errors_console_and_failed_loads_are_printed_with_file_and_line_interactively(self):
        folder = page_folder(unique("preview-mistakes-typed"), "mistakes.html")
        with InteractivePreview(self, folder) as preview:
            preview.wait_for(r"^page: error: index\.html:18:")
            preview.wait_for(r"^log: page ready$")
            preview.type("GRAO bye")
            preview.wait_ended()
        self.check_mistakes_printed("\n".join(preview.lines))

    def test_a_changed_page_file_reloads_the_page_and_the_change_is_seen(self):
        folder = page_folder(unique("preview-watch"), "box.html")
        with InteractivePreview(self, folder, "--size", "640x400") as preview:
            said = preview.wait_for(r"^preview: the game's client area at \((\d+), (\d+)\)")
            preview.wait_for(r"^preview: watching %s: " % re.escape(folder))
            centre = (int(said.group(1)) + 200, int(said.group(2)) + 155)
            preview.wait_for(r"^log: cover off")
            preview.type("show")
            shots = scratch_dir(unique("preview-watch-shots"))
            self.assertTrue(self.screen_shows(shots, centre, BOX_COLOUR), "the box never showed")
            index = os.path.join(folder, "index.html")
            with open(index, encoding="utf-8") as f:
                page = f.read()
            with open(index, "w", encoding="utf-8") as f:
                f.write(page.replace("rgb(255, 120, 0)", "rgb(0, 160, 90)"))
            preview.wait_for(r"^preview: index\.html changed; reloading the page$")
            self.assertTrue(self.screen_shows(shots, centre, (0, 160, 90)), "the changed box never showed")
            preview.type("GRAO bye")
            preview.wait_ended()

    def screen_shows(self, folder, point, colour, timeout=30):
        count = [0]

        def shows():
            count[0] += 1
            path = screenshot(os.path.join(folder, "shot-%d.png" % count[0]))
            return near(screen_pixels(path, [point])[0], colour, 3)
        return wait_until(shows, timeout, interval=0.3)

    def test_devtools_on_a_port_list_the_page_and_evaluate_in_it(self):
        folder = page_folder(unique("preview-devtools"), "box.html")
        port = free_tcp_port()
        with InteractivePreview(self, folder, "--devtools=%d" % port) as preview:
            preview.wait_for(r"^preview: DevTools on http://127\.0\.0\.1:%d: " % port)
            # DevTools answers as soon as the browser is up, which can be before the page has
            # loaded; the box is only there to measure once the page has said it is ready.
            preview.wait_for(r"^log: page ready$")
            with urllib.request.urlopen("http://127.0.0.1:%d/json/list" % port, timeout=10) as reply:
                targets = json.loads(reply.read().decode("utf-8"))
            page = [t for t in targets if t.get("url") == "https://gra-overlay.invalid/index.html"]
            self.assertEqual(len(page), 1, targets)
            self.assertEqual(page[0]["type"], "page")
            value = devtools_evaluate(page[0]["webSocketDebuggerUrl"],
                                      "document.title + ' ' + getComputedStyle(document.getElementById('box')).width")
            self.assertEqual(value, "box 200px")
            preview.type("GRAO bye")
            preview.wait_ended()

    def test_ended_from_outside_the_preview_leaves_nothing_running(self):
        folder = page_folder(unique("preview-terminated"), "box.html")
        with InteractivePreview(self, folder) as preview:
            log = preview.wait_for(r"^preview: the program's log: (.*)$").group(1)
            preview.wait_for(r"^log: page ready$")
            scratch = os.path.dirname(log)
            self.assertTrue(running_under(scratch), "nothing of the preview found running")
            preview.process.terminate()
            self.assertEqual(preview.process.wait(60), 0, preview.lines)
        self.assertFalse(wait_until(lambda: not running_under(scratch), 20) is None, running_under(scratch))

    def test_a_folder_without_an_index_page_is_refused(self):
        empty = scratch_dir(unique("preview-empty"))
        result, _ = self.run_preview(empty, timeout=30)
        self.assertEqual(result.returncode, 2, result.stdout + result.stderr)
        self.assertIn("has no index.html", result.stderr)



class CommandsAsTheKitChecksThem(unittest.TestCase):
    """The preview's check of typed and scripted commands answers every case of the table that the
    C and C# game links answer."""

    def cases(self):
        escapes = {"\\": b"\\", "t": b"\t", "n": b"\n", "r": b"\r", "0": b"\0"}
        with open(LINK_CASES, encoding="utf-8") as f:
            for line in f:
                line = line.rstrip("\n")
                if not line or line.startswith("#"):
                    continue
                fields = line.split("\t")
                command, argument, outcome = fields[0], fields[1], fields[2]
                data, i = b"", 0
                while i < len(argument):
                    if argument[i] == "\\" and argument[i + 1] == "x":
                        data += bytes([int(argument[i + 2:i + 4], 16)])
                        i += 4
                    elif argument[i] == "\\":
                        data += escapes[argument[i + 1]]
                        i += 2
                    else:
                        data += argument[i].encode("utf-8")
                        i += 1
                if len(fields) > 3:
                    data *= int(fields[3])
                yield command, data, outcome

    def test_the_game_links_case_table(self):
        count = 0
        for command, data, outcome in self.cases():
            count += 1
            try:
                game_command.check(command, data)
                got = "sent"
            except game_command.Refused as refusal:
                got = refusal.kind
            self.assertEqual(got, outcome, (command, data[:60]))
        self.assertGreater(count, 40)

    def test_a_typed_line_is_split_at_its_first_space(self):
        self.assertEqual(game_command.datagram_text("show Wave 3"), "show Wave 3")
        self.assertEqual(game_command.datagram_text("GRAO hide"), "hide")
        self.assertEqual(game_command.datagram_text('note {"title":"Quest"}'), 'note {"title":"Quest"}')
        for line, reason in [("Show x", "unknown command"), ("note hello", "the argument is not valid JSON"),
                             ("window Borderless", "window takes borderless or framed")]:
            with self.assertRaises(game_command.Refused) as refused:
                game_command.datagram_text(line)
            self.assertEqual(str(refused.exception), reason)


class InteractivePreview:
    """The interactive preview with its terminal: lines typed, lines read as they come."""

    def __init__(self, test, folder, *options):
        self.test = test
        self.command = [sys.executable, PREVIEW, folder] + list(options)
        self.lines = []
        self.process = None
        self.reader = None

    def __enter__(self):
        self.process = subprocess.Popen(self.command, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        stderr=subprocess.STDOUT, text=True)
        self.reader = threading.Thread(target=self.read, daemon=True)
        self.reader.start()
        return self

    def read(self):
        for line in self.process.stdout:
            self.lines.append(line.rstrip("\n"))

    def __exit__(self, *exc):
        if self.process.poll() is None:
            self.process.terminate()  # the preview ends its scene on the way out
            try:
                self.process.wait(30)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait(10)
        self.reader.join(10)
        self.process.stdin.close()
        self.process.stdout.close()

    def wait_for(self, pattern, timeout=90):
        # The first lines come after the bridge's browser and the program have started under
        # Wine, which on a busy machine takes a good part of a minute.
        found = wait_until(lambda: next((m for m in map(re.compile(pattern).search, list(self.lines)) if m), None),
                           timeout, interval=0.1)
        self.test.assertTrue(found, "no line like %r in %s" % (pattern, "\n".join(self.lines)))
        return found

    def type(self, line):
        self.process.stdin.write(line + "\n")
        self.process.stdin.flush()

    def wait_ended(self):
        self.test.assertEqual(self.process.wait(30), 0, self.lines)
        self.reader.join(10)
        self.test.assertEqual(self.lines[-1], "preview: the program ended", self.lines)


def running_under(scratch):
    """Processes whose command line names the preview's scratch folders (its bridge and its program)."""
    out = subprocess.run(["ps", "-eo", "args"], capture_output=True, text=True).stdout
    names = (scratch, scratch.replace("/", "\\"), scratch + "-bridge")
    return [line for line in out.splitlines() if any(name in line for name in names)]


def free_tcp_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def devtools_evaluate(address, expression, timeout=20):
    """Runtime.evaluate through a DevTools web socket (a client of just what this needs)."""
    match = re.fullmatch(r"ws://([^/:]+):(\d+)(/.*)", address)
    sock = socket.create_connection((match.group(1), int(match.group(2))), timeout=timeout)
    try:
        key = base64.b64encode(os.urandom(16)).decode("ascii")
        sock.sendall(("GET %s HTTP/1.1\r\nHost: %s:%s\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
                      "Sec-WebSocket-Key: %s\r\nSec-WebSocket-Version: 13\r\n\r\n"
                      % (match.group(3), match.group(1), match.group(2), key)).encode("ascii"))
        reply = b""
        while b"\r\n\r\n" not in reply:
            chunk = sock.recv(4096)
            if not chunk:
                raise AssertionError("the DevTools socket closed: %r" % reply)
            reply += chunk
        head, rest = reply.split(b"\r\n\r\n", 1)
        if b" 101 " not in head.split(b"\r\n")[0]:
            raise AssertionError("no web socket: %r" % head)
        payload = json.dumps({"id": 1, "method": "Runtime.evaluate",
                              "params": {"expression": expression, "returnByValue": True}}).encode("utf-8")
        mask = os.urandom(4)
        header = bytes([0x81]) + (bytes([0x80 | len(payload)]) if len(payload) < 126
                                  else bytes([0x80 | 126]) + struct.pack(">H", len(payload)))
        sock.sendall(header + mask + bytes(b ^ mask[i % 4] for i, b in enumerate(payload)))
        buffer = rest
        while True:
            while len(buffer) < 2 or len(buffer) < frame_length(buffer):
                chunk = sock.recv(65536)
                if not chunk:
                    raise AssertionError("the DevTools socket closed before the answer")
                buffer += chunk
            length = frame_length(buffer)
            frame, buffer = buffer[:length], buffer[length:]
            body = frame[2 + {126: 2, 127: 8}.get(frame[1] & 0x7F, 0):]
            message = json.loads(body.decode("utf-8"))
            if message.get("id") == 1:
                result = message["result"]
                if "exceptionDetails" in result:
                    raise AssertionError("the page threw: %r" % result["exceptionDetails"])
                return result["result"].get("value")
    finally:
        sock.close()


def frame_length(buffer):
    """The whole length of the unmasked server frame at the buffer's start (enough bytes assumed for its header)."""
    size = buffer[1] & 0x7F
    if size == 126:
        return 4 + struct.unpack(">H", buffer[2:4])[0] if len(buffer) >= 4 else 1 << 30
    if size == 127:
        return 10 + struct.unpack(">Q", buffer[2:10])[0] if len(buffer) >= 10 else 1 << 30
    return 2 + size


if __name__ == "__main__":
    unittest.main()
