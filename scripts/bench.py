"""Benchmarks of the running program under Wine: what a game and a page feel
(round trips), how fast datagrams are worked off, what the idle 100 ms tick
costs, and how much memory the process holds. Prints figures; asserts nothing.

Run with scripts/bench.sh (it builds first and provides Xvfb and Wine)."""

import os
import statistics
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "tests", "e2e"))

from harness import BUILD_DIR, GameLink, Overlay, free_udp_port, unique  # noqa: E402
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


if __name__ == "__main__":
    status = main()
    frame_latency()
    sys.exit(status)
