"""Runs the self-check, gra-overlay-check.exe, under Wine with the
Chromium-backed WebView2 runtime, and prints what it prints as it goes; its
summary line comes last and its exit code is this script's.

    python3 scripts/check.py [--out FOLDER] [check options]

The report folder, gra-overlay-check-report/, and the check's whole output
(check-output.txt) go to FOLDER (default build/check). The bridge starts
one browser ahead and another whenever one is taken, since the check starts
the program four times and the program's cover gives the page 10 s.

DISPLAY must name an X display with Wine's services running:
scripts/check.sh arranges that under Xvfb, after building what is missing."""

import os
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "tests", "e2e"))

from chromium_bridge import Bridge  # noqa: E402
from harness import BUILD_DIR  # noqa: E402

CHECK_EXE = os.path.join(BUILD_DIR, "bin", "check", "gra-overlay-check.exe")
# The check's own deadlines end it long before this; it only stops a hang.
LIMIT = 900


def follow(path, process):
    """Prints the lines of a file as they are written, until the process ends."""
    done = 0
    deadline = time.monotonic() + LIMIT
    while True:
        ended = process.poll() is not None
        with open(path, "rb") as f:
            f.seek(done)
            data = f.read()
        # Only whole lines while it runs; everything once it has ended.
        chunk = data if ended else data[:data.rfind(b"\n") + 1]
        done += len(chunk)
        for line in chunk.decode("utf-8", "replace").splitlines():
            sys.stdout.write(line.rstrip("\r") + "\n")
        sys.stdout.flush()
        if ended:
            return process.returncode
        if time.monotonic() > deadline:
            process.kill()
            process.wait()
            print("check.py: the check ran longer than %d s and was ended" % LIMIT)
            return 1
        time.sleep(0.2)


def main(argv):
    out = os.path.join(BUILD_DIR, "check")
    if argv[:1] == ["--out"] and len(argv) > 1:
        out, argv = os.path.abspath(argv[1]), argv[2:]
    os.makedirs(out, exist_ok=True)
    if not os.path.isfile(CHECK_EXE):
        print("check.py: %s is missing (bash scripts/check.sh builds it)" % CHECK_EXE)
        return 1
    bridge = Bridge("check", spare="always").start()
    try:
        env = dict(os.environ, **bridge.program_env())
        output_path = os.path.join(out, "check-output.txt")
        # Wine's output goes to a file, never to a pipe that someone waits on.
        with open(output_path, "wb") as output:
            process = subprocess.Popen(["wine", CHECK_EXE] + argv, cwd=out, env=env, stdin=subprocess.DEVNULL,
                                       stdout=output, stderr=subprocess.STDOUT)
        return follow(output_path, process)
    finally:
        bridge.stop()


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
