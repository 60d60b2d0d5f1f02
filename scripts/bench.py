"""Benchmarks of the running program under Wine: what a game and a page feel
(round trips), how fast datagrams are worked off, what the idle 100 ms tick
costs, and how much memory the process holds. Prints figures; asserts nothing.

Run with scripts/bench.sh (it builds first and provides Xvfb and Wine)."""

import os
import socket
import statistics
import subprocess
import sys
import threading
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "tests", "e2e"))

from harness import BUILD_DIR, TEST_BIN, GameLink, Overlay, free_udp_port, unique  # noqa: E402
from standin_game import StandinGame  # noqa: E402
from standin_runtime import StandinPage  # noqa: E402
from full_stack_scene import FullStackScene  # noqa: E402

TICKS_PER_SECOND = os.sysconf("SC_CLK_TCK")


def process_status(pid):
    fields = {}
    with open("/proc/%d/status" % pid) as f:
        for line in f:
            key, _, value = line.partition(":")
            fields[key] = value.strip()
    return fields


def cpu_seconds(pid):
    with open("/proc/%d/stat" % pid) as f:
        parts = f.read().rsplit(")", 1)[1].split()
    return (int(parts[11]) + int(parts[12])) / TICKS_PER_SECOND


def percentiles(samples):
    samples = sorted(samples)
    return (statistics.median(samples) * 1000, samples[int(len(samples) * 0.99) - 1] * 1000)


def report(name, value):
    print("%-58s %s" % (name, value), flush=True)


def main():
    title = unique("bench game")
    game = StandinGame()
    game.start(BUILD_DIR, title, "BenchGame", free_udp_port())
    overlay = Overlay("bench", game=title, game_class="BenchGame").start()
    link = GameLink(overlay.port)
    page = None
    try:
        overlay.wait_for_log(r"^WebView2 ready", 20)
        pid = overlay.process.pid
        page = StandinPage(overlay.page_port)
        page.post('{"type":"ready"}')
        page.post('{"type":"cover","on":false}')
        time.sleep(1)

        status = process_status(pid)
        report("memory after start (VmRSS / VmHWM)", "%s / %s" % (status["VmRSS"], status["VmHWM"]))

        before = cpu_seconds(pid)
        time.sleep(10)
        idle = cpu_seconds(pid) - before
        report("CPU of the idle program (hidden, cover down, game attached)", "%.1f ms per second" % (idle * 100))

        samples = []
        for _ in range(500):
            began = time.perf_counter()
            link.send("GRAO state")
            if link.receive(5) is None:
                raise SystemExit("no answer to state")
            samples.append(time.perf_counter() - began)
        median, p99 = percentiles(samples)
        report("game round trip 'state' -> reply (500 times)", "median %.3f ms, p99 %.3f ms" % (median, p99))

        samples = []
        for i in range(300):
            began = time.perf_counter()
            page.post('{"type":"region","rects":[%d,10,200,100]}' % (i % 50))
            samples.append(time.perf_counter() - began)
        median, p99 = percentiles(samples)
        report("page round trip 'region' (SetWindowRgn) -> handled (300 times)",
               "median %.3f ms, p99 %.3f ms" % (median, p99))

        count = 5000
        began = time.perf_counter()
        for i in range(count):
            link.send("GRAO unknown %d" % i)
            if i % 200 == 199:
                time.sleep(0.002)  # paced so that Linux's receive buffer never overflows
        link.send("GRAO state")
        if link.receive(60) is None:
            raise SystemExit("no answer after the burst")
        elapsed = time.perf_counter() - began
        report("datagrams worked off (5000 unknown commands, paced)", "%.0f per second" % (count / elapsed))

        status = process_status(pid)
        report("memory after the traffic (VmRSS / VmHWM)", "%s / %s" % (status["VmRSS"], status["VmHWM"]))
        return 0
    finally:
        if page:
            page.close()
        link.close()
        overlay.stop()
        game.stop()


def frame_latency(changes=120):
    """The real page in Chromium through the Chromium-backed runtime: the time
    from a DOM change in the page to the runtime's word that the host window
    shows the changed pixels."""
    with FullStackScene("bench-frames") as scene:
        scene.wait_ready()
        scene.game_says("show")
        scene.wait_eval("!document.getElementById('panel').hidden")
        latencies = scene.bridge.request({"op": "measure-frames", "count": changes}, timeout=300)
    shown = [value / 1000 for value in latencies if value is not None]
    if len(shown) < changes:
        report("DOM change -> pixels in the host window", "%d of %d changes never shown" % (changes - len(shown), changes))
    if shown:
        median, p99 = percentiles(shown)
        report("DOM change -> pixels in the host window (%d changes)" % len(shown),
               "median %.1f ms, p99 %.1f ms" % (median, p99))


# ---- the program beside the floor ---------------------------------------------
#
# The floor (tests/tools/floor.cpp) is the least a program of this kind does:
# one UDP socket with WSAAsyncSelect to a hidden window, a 100 ms timer and
# an answer to "GRAO state". Absolute figures drift on shared machines; the
# ratio of the program's figure to the floor's, measured in the same run in
# alternating rounds, is the figure to quote.

FLOOR_ROUNDS = 3
FLOOR_TRIPS = 300
FLOOR_BURST = 20000
FLOOR_IDLE_SECONDS = 60


class FloorProgram:
    """floor.exe under Wine on a port of its own."""

    def __init__(self):
        self.port = free_udp_port()
        self.process = subprocess.Popen(["wine", os.path.join(TEST_BIN, "floor.exe"), "--port", str(self.port)],
                                        stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                        stderr=subprocess.DEVNULL)
        self.pid = self.process.pid

    def stop(self):
        self.process.kill()
        self.process.wait(10)


def answers_state(port, timeout=30):
    with GameLink(port) as link:
        deadline = time.monotonic() + timeout
        while time.monotonic() < deadline:
            link.send("GRAO state")
            if link.receive(0.5):
                return True
    return False


def round_trips(port, count):
    samples = []
    with GameLink(port) as link:
        for _ in range(count):
            began = time.perf_counter()
            link.send("GRAO state")
            if link.receive(5) is None:
                raise SystemExit("no answer to state on port %d" % port)
            samples.append(time.perf_counter() - began)
    return samples


def answers_per_second(port, count):
    """Sends count "GRAO state" datagrams as fast as Linux takes them and
    counts the answers; the rate is answers over the time from the first
    send to the last answer."""
    with GameLink(port) as link:
        link.sock.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 8 * 1024 * 1024)
        answered = {"count": 0, "last": 0.0}

        def collect():
            while True:
                if link.receive(2) is None:
                    return
                answered["count"] += 1
                answered["last"] = time.perf_counter()

        began = time.perf_counter()
        collector = threading.Thread(target=collect)
        collector.start()
        for _ in range(count):
            link.send("GRAO state")
        collector.join()
    return answered["count"] / max(answered["last"] - began, 1e-6), answered["count"]


def resident_and_private_kib(pid):
    status = process_status(pid)
    return int(status["VmRSS"].split()[0]), int(status["RssAnon"].split()[0])


def compare_with_floor():
    title = unique("floor bench game")
    game = StandinGame()
    game.start(BUILD_DIR, title, "FloorBenchGame", free_udp_port())
    overlay = Overlay("floor-bench", game=title, game_class="FloorBenchGame").start()
    floor = FloorProgram()
    page = None
    try:
        overlay.wait_for_log(r"^WebView2 ready", 20)
        page = StandinPage(overlay.page_port)
        page.post('{"type":"ready"}')
        page.post('{"type":"cover","on":false}')
        if not answers_state(overlay.port) or not answers_state(floor.port):
            raise SystemExit("the program or the floor does not answer")
        subjects = {"program": (overlay.process.pid, overlay.port), "floor": (floor.pid, floor.port)}
        trips = {name: [] for name in subjects}
        rates = {name: [] for name in subjects}
        for _ in range(FLOOR_ROUNDS):
            for name, (_, port) in subjects.items():
                trips[name] += round_trips(port, FLOOR_TRIPS)
                rate, _ = answers_per_second(port, FLOOR_BURST)
                rates[name].append(rate)
                time.sleep(1)
        time.sleep(2)
        before = {name: cpu_seconds(pid) for name, (pid, _) in subjects.items()}
        time.sleep(FLOOR_IDLE_SECONDS)
        idle = {name: (cpu_seconds(pid) - before[name]) * 1e6 / FLOOR_IDLE_SECONDS
                for name, (pid, _) in subjects.items()}
        memory = {name: resident_and_private_kib(pid) for name, (pid, _) in subjects.items()}

        def row(figure, program, floor_value, unit):
            ratio = program / floor_value if floor_value else float("inf")
            report(figure, "%10.3f %-6s floor %10.3f %-6s ratio %.2f" % (program, unit, floor_value, unit, ratio))

        print("the program beside the floor (%d alternating rounds)" % FLOOR_ROUNDS, flush=True)
        program_trips, floor_trips = percentiles(trips["program"]), percentiles(trips["floor"])
        row("round trip 'state' median", program_trips[0], floor_trips[0], "ms")
        row("round trip 'state' p99", program_trips[1], floor_trips[1], "ms")
        row("answers per second, unpaced burst of %d" % FLOOR_BURST, statistics.median(rates["program"]),
            statistics.median(rates["floor"]), "/s")
        # Linux counts CPU time in clock ticks: over the idle period the
        # figures move in steps of one tick per period.
        row("idle CPU over %d s (steps of %.0f us/s)" % (FLOOR_IDLE_SECONDS, 1e6 / TICKS_PER_SECOND /
                                                        FLOOR_IDLE_SECONDS),
            idle["program"], idle["floor"], "us/s")
        row("memory resident (VmRSS)", memory["program"][0] / 1024, memory["floor"][0] / 1024, "MiB")
        row("memory private (RssAnon)", memory["program"][1] / 1024, memory["floor"][1] / 1024, "MiB")
    finally:
        if page:
            page.close()
        floor.stop()
        overlay.stop()
        game.stop()


if __name__ == "__main__":
    status = main()
    compare_with_floor()
    frame_latency()
    sys.exit(status)
