"""Soak and kill measurements of the real program under Wine, beside the
stand-in game and the stand-in WebView2 runtime (the page ready, the cover
down). Both channels are fuzzed, the same run again for the same --seed;
every few thousand datagrams the program must still answer "GRAO state".
Then, optionally, the program is killed again and again in the middle of
saves, and the page file must always be one whole saved version.

Run with scripts/soak.sh (it builds first and provides Xvfb and Wine). The
last line printed is the verdict with the figures; the exit status is 0 only
for a clean verdict."""

import argparse
import json
import os
import random
import re
import socket
import string
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "tests", "e2e"))

from harness import BUILD_DIR, TEST_BIN, Overlay, free_udp_port, scratch_dir, unique, wait_until  # noqa: E402
from standin_game import StandinGame  # noqa: E402
from standin_runtime import StandinPage  # noqa: E402
from test_page_files import SavedVersions, SavePoster, SideReader, end_kill_round, read, version_text, write  # noqa: E402

LARGEST_DATAGRAM = 65507
STATE_EVERY = 5000          # datagrams between two "state" checks
PAGE_EVERY = 20             # one page message for so many datagrams
STATE_TIMEOUT = 20          # seconds the program may take to answer a check
# Growth allowed between the start and the end of the fuzzing.
MEMORY_TOLERANCE_KIB = 64 * 1024
HANDLE_TOLERANCE = 64
GUI_OBJECT_TOLERANCE = 32

COMMANDS = ["show", "hide", "toggle", "note", "reload", "page", "state", "window"]  # all but "bye"
PAGE_TYPES = ["ready", "cover", "through", "hide", "mode", "modal", "region", "load", "save", "game", "log"]


class QuietPage(StandinPage):
    """The page's end of the stand-in runtime that counts what the program
    posts instead of keeping it: a soak posts far too much to keep."""

    posted_count = 0

    def _keep_posted(self, json_text):
        self.posted_count += 1


class Fuzz:
    """Random datagrams and page messages from one generator, started from a given number."""

    def __init__(self, start):
        self.rng = random.Random(start)

    def length(self):
        # Mostly short, now and then up to the largest datagram.
        r = self.rng.random()
        if r < 0.85:
            return self.rng.randint(0, 300)
        if r < 0.97:
            return self.rng.randint(300, 8000)
        return self.rng.randint(8000, LARGEST_DATAGRAM)

    def word(self):
        alphabet = string.ascii_letters + string.digits + "_- \t\x00"
        return "".join(self.rng.choice(alphabet) for _ in range(self.rng.randint(0, 12)))

    def text(self, most):
        """A random text: ASCII, other scripts, controls, quotes, escapes."""
        pieces = ['"', "\\", "\\u0000", "\\ud800", "\\uZZZZ", "{", "}", "[", "]", ",", ":", "\x00", "\n",
                  "\u00e9", "\u20ac", "\U0001F3AE", "\ud7ff", "null", "true", "-1e999", "1.5"]
        out = []
        size = self.rng.randint(0, most)
        while sum(len(p) for p in out) < size:
            if self.rng.random() < 0.3:
                out.append(self.rng.choice(pieces))
            else:
                out.append("".join(self.rng.choice(string.printable) for _ in range(self.rng.randint(1, 40))))
        return "".join(out)

    def argument(self):
        r = self.rng.random()
        if r < 0.2:
            return ""
        if r < 0.3:
            return self.rng.choice(["borderless", "Borderless", "framed", "borderless ", " "])
        if r < 0.5:
            return json.dumps(self.text(200))
        if r < 0.6:
            return json.dumps({"a": self.text(50), "n": self.rng.randint(-10**12, 10**12)})
        return self.text(min(self.length(), 20000))

    def datagram(self):
        r = self.rng.random()
        if r < 0.25:
            return self.rng.randbytes(self.length())
        if r < 0.35:
            body = bytearray(self.rng.randbytes(self.length()))
            for _ in range(self.rng.randint(1, 4)):
                if body:
                    body[self.rng.randrange(len(body))] = 0
            return (b"GRAO " + self.rng.choice(COMMANDS).encode() + b" " + bytes(body))[:LARGEST_DATAGRAM]
        if r < 0.5:
            return ("GRAO " + self.word() + " " + self.word()).encode("utf-8", "surrogatepass")
        command = self.rng.choice(COMMANDS)
        data = ("GRAO " + command + " " + self.argument()).encode("utf-8", "surrogatepass")
        return data[:LARGEST_DATAGRAM]

    def page_value(self):
        return self.rng.choice([True, False, None, 0, -1, 1.5, "true", "active", "passive", "hidden",
                                self.text(40)])

    def page_message(self):
        kind = self.rng.choice(PAGE_TYPES + ["unknown"])
        message = {"type": kind}
        if kind in ("cover", "through", "modal"):
            message["on"] = self.page_value()
        elif kind == "mode":
            message["mode"] = self.page_value()
        elif kind == "region":
            count = self.rng.choice([0, 1, 3, 50, 2000])
            message["rects"] = [self.rng.choice([self.rng.randint(-50, 2000), self.rng.randint(-2**40, 2**40),
                                                 self.rng.random() * 1e10])
                                for _ in range(count * 4 + self.rng.randint(0, 3))]
        elif kind in ("load", "save"):
            message["file"] = self.rng.choice(["gra_pad.json", "gra_overlay.json", "GRA_PAD.JSON", "other.json",
                                               "..\\gra_pad.json", "gra_pad.json\u0000x", self.text(20)])
            if kind == "save":
                message["text"] = self.text(self.rng.choice([10, 1000, 30000]))
        elif kind == "game":
            message["cmd"] = self.rng.choice(["jump", "x" * 40, "Jump", self.word()])
            message["arg"] = self.text(self.rng.choice([10, 199, 300]))
        elif kind == "log":
            message["text"] = self.text(self.rng.choice([10, 3000]))
        text = json.dumps(message, ensure_ascii=self.rng.random() < 0.5)
        r = self.rng.random()
        if r < 0.15:
            text = text[:self.rng.randint(0, len(text))]             # cut JSON
        elif r < 0.2:
            text = self.text(self.rng.choice([100, 40000]))          # not JSON at all
        elif r < 0.25:
            text = '"' + self.text(100) + '"'                         # a string, not an object
        return text.encode("utf-8", "surrogatepass")[:LARGEST_DATAGRAM - 100].decode("utf-8", "ignore")


def process_memory_kib(pid):
    with open("/proc/%d/status" % pid) as f:
        for line in f:
            if line.startswith("VmRSS:"):
                return int(line.split()[1])
    return 0


def system_counts(windows_pid):
    """Handles and GDI/USER objects of the program, as the system counts
    them (asked by testctl, a Windows program beside the tests)."""
    out = subprocess.run(["wine", os.path.join(TEST_BIN, "testctl.exe"), "resources", str(windows_pid)],
                         capture_output=True, timeout=60).stdout
    line = out.decode("utf-8", errors="replace").strip().splitlines()
    return json.loads(line[-1]) if line else {}


def kernel_drops(port):
    with open("/proc/net/udp") as f:
        for line in f.readlines()[1:]:
            fields = line.split()
            if fields[1].upper() == "0100007F:%04X" % port:
                return int(fields[-1])
    return 0


class Failure(Exception):
    pass


def state_answered(port, timeout):
    """Sends "GRAO state" from a socket of its own (the reply goes to the
    last sender) and waits for the state report."""
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as checker:
        checker.bind(("127.0.0.1", 0))
        checker.settimeout(0.5)
        deadline = time.monotonic() + timeout
        while time.monotonic() < deadline:
            checker.sendto(b"GRAO state", ("127.0.0.1", port))
            try:
                data, _ = checker.recvfrom(65536)
            except socket.timeout:
                continue
            if re.match(rb"^GRAO state (hidden|passive|active)$", data):
                return True
    return False


def fuzz(args, figures):
    title = unique("soak game")
    game = StandinGame()
    game.start(BUILD_DIR, title, "SoakGame", free_udp_port())
    overlay = Overlay(unique("soak"), game=title, game_class="SoakGame", env={"GRA_STANDIN_JOURNAL": ""})
    page = None
    link = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    link.bind(("127.0.0.1", 0))
    try:
        overlay.start()
        if not overlay.wait_for_log(r"^WebView2 ready, page ", 30):
            raise Failure("the web view never became ready")
        started = overlay.wait_for_log(r"^started, build .* pid (\d+),", 5)
        windows_pid = int(started.group(1))
        page = QuietPage(overlay.page_port)
        if not page.hello(30):
            raise Failure("the stand-in runtime does not answer")
        page.post('{"type":"ready"}')
        page.post('{"type":"cover","on":false}')
        if not overlay.wait_for_log(r"^cover off \(the page has drawn\)$", 10):
            raise Failure("the cover did not come down")
        if not state_answered(overlay.port, STATE_TIMEOUT):
            raise Failure("no answer to the first state check")
        pid = overlay.process.pid
        figures["memory_start"] = process_memory_kib(pid)
        figures["counts_start"] = system_counts(windows_pid)
        drops_before = kernel_drops(overlay.port)

        rng = Fuzz(args.start)
        began = time.monotonic()
        deadline = began + args.minutes * 60 if args.minutes else None
        sent = pages = checks = 0
        while (deadline is None and sent < args.datagrams) or (deadline is not None and time.monotonic() < deadline):
            if sent % PAGE_EVERY == 0:
                message = rng.page_message()
                try:
                    reply = page.post(message, timeout=STATE_TIMEOUT)
                except TimeoutError:
                    raise Failure("the page's message %d got no answer (%r...)" % (pages, message[:60]))
                if reply != "done":
                    raise Failure("the page's message %d was answered %r" % (pages, reply))
                pages += 1
            link.sendto(rng.datagram(), ("127.0.0.1", overlay.port))
            sent += 1
            if sent % STATE_EVERY == 0:
                if not overlay.running():
                    raise Failure("the program ended after %d datagrams" % sent)
                if not state_answered(overlay.port, STATE_TIMEOUT):
                    raise Failure("no answer to \"GRAO state\" after %d datagrams" % sent)
                checks += 1
                if checks % 20 == 0:
                    print("%d datagrams, %d page messages, %.0f s" % (sent, pages, time.monotonic() - began),
                          flush=True)
        if not state_answered(overlay.port, STATE_TIMEOUT):
            raise Failure("no answer to the last \"GRAO state\"")
        figures["seconds"] = time.monotonic() - began
        figures["datagrams"] = sent
        figures["pages"] = pages
        figures["drops"] = kernel_drops(overlay.port) - drops_before
        # After the last answer nothing waits in the socket: every datagram
        # the kernel did not drop was read.
        figures["read"] = sent - figures["drops"]
        figures["memory_end"] = process_memory_kib(pid)
        figures["counts_end"] = system_counts(windows_pid)
        figures["log_bytes"] = os.path.getsize(overlay.log_path)
        if not overlay.running():
            raise Failure("the program ended")
    finally:
        link.close()
        if page is not None:
            page.close()
        overlay.stop()
        game.stop()


def kill_rounds(args, figures):
    """Kills the program at a random moment while the page saves large
    texts; the file must always be one whole saved version, also for a
    reader on the side."""
    rng = random.Random(args.start + 1)
    docs = scratch_dir(unique("soak-kill-docs"))
    target = os.path.join(docs, "gra_pad.json")
    first = version_text(0).encode("utf-8")
    write(target, first)
    sent = SavedVersions(first)
    side = SideReader(target, sent)
    side.start()
    number = 1
    figures["kills"] = 0
    try:
        for round_number in range(args.kills):
            overlay = Overlay(unique("soak-kill"), game=unique("no game"), doc=docs,
                              env={"GRA_STANDIN_JOURNAL": ""})
            page = poster = None
            try:
                overlay.start()
                if not overlay.wait_for_log(r"^WebView2 ready, page ", 30):
                    raise Failure("kill round %d: the web view never became ready" % round_number)
                page = StandinPage(overlay.page_port)
                if not page.hello(30):
                    raise Failure("kill round %d: the stand-in runtime does not answer" % round_number)
                poster = SavePoster(page, number, sent)
                poster.start()
                if not wait_until(lambda: poster.done >= 1, 30):
                    raise Failure("kill round %d: no save was made" % round_number)
                time.sleep(rng.uniform(0.0, 0.6))
                overlay.process.kill()
                if overlay.wait_exit(20) is None:
                    raise Failure("kill round %d: the program was not killed" % round_number)
                poster.join(20)
                number = poster.number + 1000
            finally:
                end_kill_round(overlay, page, poster)
            if read(target) not in sent:
                raise Failure("kill round %d: the file is no whole version" % round_number)
            figures["kills"] += 1
            if (round_number + 1) % 50 == 0:
                print("%d kills" % (round_number + 1), flush=True)
    finally:
        side.finish()
        figures["side_reads"] = side.reads
    if side.missing:
        raise Failure("the file was missing for a reader %d times" % side.missing)
    if side.bad_sizes:
        raise Failure("a reader saw %d files that are no whole version" % len(side.bad_sizes))


def growth_problems(figures):
    problems = []
    if "memory_end" in figures:
        grown = figures["memory_end"] - figures["memory_start"]
        if grown > MEMORY_TOLERANCE_KIB:
            problems.append("memory grew by %d KiB (more than %d)" % (grown, MEMORY_TOLERANCE_KIB))
    start, end = figures.get("counts_start", {}), figures.get("counts_end", {})
    for name, tolerance in (("handles", HANDLE_TOLERANCE), ("gdi", GUI_OBJECT_TOLERANCE),
                            ("user", GUI_OBJECT_TOLERANCE)):
        if name in start and name in end and end[name] - start[name] > tolerance:
            problems.append("%s grew from %d to %d (more than %d)" % (name, start[name], end[name], tolerance))
    return problems


def summary(figures):
    parts = []
    if "seconds" in figures:
        parts.append("%d datagrams and %d page messages in %.0f s (%.0f datagrams/s sent; %d read, %d dropped "
                     "by the kernel)" % (figures["datagrams"], figures["pages"], figures["seconds"],
                                         figures["datagrams"] / max(figures["seconds"], 0.001), figures["read"],
                                         figures["drops"]))
    if "memory_end" in figures:
        parts.append("memory %.1f -> %.1f MiB" % (figures["memory_start"] / 1024, figures["memory_end"] / 1024))
    start, end = figures.get("counts_start", {}), figures.get("counts_end", {})
    if start and end:
        parts.append("handles %s -> %s, GDI %s -> %s, USER %s -> %s" % (
            start.get("handles"), end.get("handles"), start.get("gdi"), end.get("gdi"), start.get("user"),
            end.get("user")))
    if "log_bytes" in figures:
        parts.append("log %.1f KiB" % (figures["log_bytes"] / 1024))
    if "kills" in figures:
        parts.append("%d kills, the file whole every time (%d reads on the side)"
                     % (figures["kills"], figures.get("side_reads", 0)))
    return "; ".join(parts)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--datagrams", type=int, default=1000000, help="datagrams to send (default 1,000,000)")
    parser.add_argument("--seed", dest="start", type=int, default=14, metavar="S",
                        help="the number the random generator starts from (default 14)")
    parser.add_argument("--minutes", type=float, default=0, help="fuzz for this long instead of a count")
    parser.add_argument("--kills", type=int, default=1000, help="kill rounds during saves (default 1,000)")
    args = parser.parse_args()
    print("soak: --seed %d, %s, %d kill rounds" % (args.start, "%.1f minutes" % args.minutes if args.minutes
                                                  else "%d datagrams" % args.datagrams, args.kills), flush=True)
    figures = {}
    failure = None
    try:
        if args.datagrams > 0 or args.minutes:
            fuzz(args, figures)
        if args.kills > 0:
            kill_rounds(args, figures)
    except Failure as problem:
        failure = str(problem)
    problems = ([failure] if failure else []) + growth_problems(figures)
    if problems:
        print("soak: FAILED - %s | %s" % ("; ".join(problems), summary(figures)), flush=True)
        return 1
    print("soak: clean - %s" % summary(figures), flush=True)
    return 0


if __name__ == "__main__":
    sys.exit(main())
