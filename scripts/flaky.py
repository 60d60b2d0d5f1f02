"""Runs the tests that match a pattern again and again in one Wine prefix and
one X display, and tells which of them failed at least once.

Run through scripts/flaky.sh, which builds first and provides the display:
    flaky.py [--runs N] [--load] [REGEX]

Each run is one ctest run (the project's own test list, in parallel as the
README's test command runs it); ctest writes a JUnit report per run, and the
failures are read from those. The table lists every test that failed at
least once: how often, and the first line that says why in its first
failure. The last line is the verdict; the exit status is 0 only when no
test failed."""

import argparse
import os
import re
import subprocess
import sys
import xml.etree.ElementTree as ElementTree

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(HERE)
BUILD = os.path.join(ROOT, "build")

# The lines that say why a test failed, in the order they are looked for:
# Python's exception line, GoogleTest's failure, ctest's own verdicts.
REASON_PATTERNS = [
    re.compile(r"^\w*(Error|Exception)\b.*"),
    re.compile(r"^.*(Failure|FAILED|Expected|Value of|Timeout|timed out|Exception).*$"),
]


def parse_arguments(argv):
    parser = argparse.ArgumentParser(prog="flaky.sh", description=__doc__.split("\n\n")[0])
    parser.add_argument("--runs", type=int, default=5, help="how many times the tests run (default 5)")
    parser.add_argument("--load", action="store_true",
                        help="keep one core busy with another process while the tests run")
    parser.add_argument("pattern", nargs="?", default="", help="a ctest -R regular expression (all tests by default)")
    arguments = parser.parse_args(argv)
    if arguments.runs < 1:
        parser.error("--runs must be at least 1")
    return arguments


def start_load():
    """A process that keeps one core busy until it is killed."""
    return subprocess.Popen(["/usr/bin/python3", "-c", "while True: pass"])


def failure_reason(output):
    """The first line of a failed test's output that says why it failed."""
    lines = [line.strip() for line in (output or "").splitlines() if line.strip()]
    for pattern in REASON_PATTERNS:
        for line in lines:
            if pattern.match(line):
                return line
    return lines[-1] if lines else "(no output)"


def failures_in(report_path):
    """{test name: reason} for every test that failed in one JUnit report."""
    failed = {}
    if not os.path.exists(report_path):
        return failed
    for case in ElementTree.parse(report_path).getroot().iter("testcase"):
        if case.get("status") not in ("fail", "failed") and case.find("failure") is None:
            continue
        output = case.findtext("system-out") or ""
        failure = case.find("failure")
        if failure is not None and failure.get("message") and not output:
            output = failure.get("message")
        failed[case.get("name")] = failure_reason(output)
    return failed


def run_once(number, pattern, report_folder):
    report = os.path.join(report_folder, "run-%d.xml" % number)
    command = ["ctest", "--test-dir", BUILD, "--timeout", "300", "-j", os.environ.get("GRA_TEST_JOBS", "3"),
               "--output-junit", report]
    if pattern:
        command += ["-R", pattern]
    completed = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    summary = [line for line in completed.stdout.splitlines() if "tests passed" in line]
    print("run %d: %s" % (number, summary[-1].strip() if summary else "ctest found no tests"), flush=True)
    if not summary:
        raise SystemExit("flaky: ctest ran nothing for %r:\n%s" % (pattern, completed.stdout[-2000:]))
    return failures_in(report)


def print_table(counts, reasons):
    if not counts:
        return
    width = max(len(name) for name in counts)
    print("%5s  %-*s  %s" % ("fails", width, "test", "first failure"))
    for name in sorted(counts, key=lambda n: (-counts[n], n)):
        print("%5d  %-*s  %s" % (counts[name], width, name, reasons[name]))


def main(argv):
    arguments = parse_arguments(argv)
    report_folder = os.path.join(BUILD, "flaky")
    os.makedirs(report_folder, exist_ok=True)
    load = start_load() if arguments.load else None
    counts, reasons = {}, {}
    try:
        for number in range(1, arguments.runs + 1):
            for name, reason in run_once(number, arguments.pattern, report_folder).items():
                counts[name] = counts.get(name, 0) + 1
                reasons.setdefault(name, reason)
    finally:
        if load:
            load.kill()
            load.wait()
    print_table(counts, reasons)
    print("flaky: %d tests failed at least once in %d runs" % (len(counts), arguments.runs))
    return 0 if not counts else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
