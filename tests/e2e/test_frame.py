"""The runtime frame end to end: the start line, the program folder and its
derived paths, the port claim that keeps a second copy out, the log file, and
the ways the message loop ends."""

import os
import re
import shutil
import socket
import time
import unittest

from harness import (PROGRAM, WM_CLOSE, WM_QUIT, Overlay, free_udp_port, read_log_file, messages_of,
                     scratch_dir, unique, wait_until, wine_path)

BUILD = "2026-10-12 v11 keyboard layout kept across alt-tab"
START_LINE = re.compile(r"^started, build " + re.escape(BUILD) + r", pid (\d+), mode (child|owned), web (.*)$")
CLOSED = ("host window destroyed (WM_DESTROY after WM_CLOSE; game window 0000000000000000 gone, "
          "game process ended)")


def copy_program(folder):
    """A copy of the program in a folder of its own, so that its default
    (derived) paths land in a scratch folder."""
    os.makedirs(folder, exist_ok=True)
    target = os.path.join(folder, "gra-overlay.exe")
    shutil.copy(PROGRAM, target)
    return target


class StartLine(unittest.TestCase):
    def test_start_line_names_build_pid_mode_and_web_folder(self):
        web = os.path.join(scratch_dir("start-web"), "my pages")
        with Overlay("start-line", extra_args=["--web", wine_path(web)]) as overlay:
            first = overlay.messages()[0]
            m = START_LINE.match(first)
            self.assertIsNotNone(m, first)
            self.assertEqual(m.group(2), "child")
            self.assertEqual(m.group(3), wine_path(web))
            self.assertGreater(int(m.group(1)), 0)

    def test_owned_mode_in_the_start_line(self):
        with Overlay("start-owned", mode="owned") as overlay:
            self.assertEqual(START_LINE.match(overlay.messages()[0]).group(2), "owned")

    def test_empty_web_folder_prints_as_nothing(self):
        with Overlay("start-empty-web", extra_args=["--web", ""]) as overlay:
            self.assertTrue(overlay.messages()[0].endswith(", mode child, web "), overlay.messages()[0])


class ProgramFolder(unittest.TestCase):
    def test_no_options_use_the_folder_of_the_executable(self):
        folder = scratch_dir("defaults")
        program = copy_program(os.path.join(folder, "bin"))
        documents = os.path.join(folder, "package", "Documents")
        os.makedirs(documents)
        with open(os.path.join(documents, "gra_keys.txt"), "wb") as f:
            f.write(b"an earlier run's keys\n")
        overlay = Overlay("defaults-run", exe=program, raw_args=[], port=47632)
        overlay.log_path = os.path.join(folder, "bin", "gra_overlay.log")
        try:
            overlay.start()
            bin_folder = wine_path(os.path.join(folder, "bin"))
            self.assertEqual(START_LINE.match(overlay.messages()[0]).group(3), bin_folder + "\\web")
            # the keys file in <program>\..\package\Documents was emptied after the claim
            self.assertTrue(wait_until(lambda: os.path.getsize(os.path.join(documents, "gra_keys.txt")) == 0, 60))
            # the default port is 47632 on 127.0.0.1
            with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
                with self.assertRaises(OSError):
                    probe.bind(("127.0.0.1", 47632))
            overlay.post_message(WM_CLOSE)
            self.assertEqual(overlay.wait_exit(20), 0)
            self.assertEqual(overlay.messages()[-1], "exit (%s)" % CLOSED)
        finally:
            overlay.stop()

    def test_no_keep_layout_txt_beside_the_program_turns_asking_off(self):
        folder = scratch_dir("no-keep")
        program = copy_program(folder)
        open(os.path.join(folder, "no_keep_layout.txt"), "w").close()
        with Overlay("no-keep-run", exe=program) as overlay:
            self.assertTrue(overlay.wait_for_journal(r"^webview\.Navigate ", 20))
            messages = overlay.messages()
            self.assertEqual(messages[1],
                             "keys: no_keep_layout.txt - the keyboard layout is only noted, never asked back")

    def test_a_folder_named_no_keep_layout_txt_counts_too(self):
        folder = scratch_dir("no-keep-folder")
        program = copy_program(folder)
        os.makedirs(os.path.join(folder, "no_keep_layout.txt"))
        with Overlay("no-keep-folder-run", exe=program) as overlay:
            self.assertTrue(overlay.wait_for_log(r"^keys: no_keep_layout\.txt - ", 10))

    def test_doc_option_does_not_move_no_keep_layout_txt(self):
        folder = scratch_dir("no-keep-doc")
        program = copy_program(folder)
        overlay = Overlay("no-keep-doc-run", exe=program)
        open(os.path.join(overlay.doc_dir, "no_keep_layout.txt"), "w").close()
        with overlay:
            self.assertTrue(overlay.wait_for_journal(r"^webview\.Navigate ", 20))
            self.assertFalse(any(m.startswith("keys:") for m in overlay.messages()), overlay.messages())
            self.assertEqual(overlay.keys_file(), b"")


class LogFile(unittest.TestCase):
    def test_lines_end_with_cr_lf_and_carry_the_time(self):
        with Overlay("log-crlf") as overlay:
            overlay.wait_for_log(r"^WebView2 ready, page ", 20)
            with open(overlay.log_path, "rb") as f:
                data = f.read()
            self.assertTrue(data.endswith(b"\r\n"))
            self.assertNotIn(b"\n", data.replace(b"\r\n", b""))
            for line in data.split(b"\r\n")[:-1]:
                self.assertRegex(line.decode(), r"^\[gra-overlay\] \d\d:\d\d:\d\d \S")

    def test_the_second_of_two_log_options_is_written(self):
        folder = scratch_dir("two-logs")
        first = os.path.join(folder, "first.log")
        second = os.path.join(folder, "second.log")
        overlay = Overlay("two-logs-run", extra_args=["--log", wine_path(first), "--log", wine_path(second)])
        overlay.log_path = second
        with overlay:
            self.assertFalse(os.path.exists(first))
            self.assertTrue(START_LINE.match(overlay.messages()[0]))

    def test_an_unwritable_log_path_changes_nothing_else(self):
        folder = scratch_dir("unwritable-log")
        missing = os.path.join(folder, "no such folder", "gra.log")
        overlay = Overlay("unwritable-log-run", log=missing)
        with overlay.start(wait_started=False):
            self.assertTrue(overlay.wait_for_journal(r"^webview\.Navigate https://", 30))
            self.assertFalse(os.path.exists(os.path.dirname(missing)))
            overlay.post_message(WM_CLOSE)
            self.assertEqual(overlay.wait_exit(20), 0)

    def test_the_log_is_emptied_at_start(self):
        overlay = Overlay("log-emptied")
        with open(overlay.log_path, "wb") as f:
            f.write(b"an old line\r\n")
        with overlay:
            self.assertTrue(START_LINE.match(overlay.messages()[0]))


class Ending(unittest.TestCase):
    def test_wm_close_to_the_host_window_ends_it(self):
        with Overlay("end-close") as overlay:
            overlay.post_message(WM_CLOSE)
            self.assertEqual(overlay.wait_exit(20), 0)
            messages = overlay.messages()
            self.assertEqual(messages[-2], CLOSED)
            self.assertEqual(messages[-1], "exit (%s)" % CLOSED)
            self.assertIn("controller.Close", overlay.journal())

    def test_wm_quit_from_elsewhere_ends_it_with_the_default_reason(self):
        with Overlay("end-quit") as overlay:
            overlay.post_message(WM_QUIT)
            self.assertEqual(overlay.wait_exit(20), 0)
            self.assertEqual(overlay.messages()[-1],
                             "exit (the message loop ended - WM_QUIT from elsewhere, no reason recorded)")


class PortClaim(unittest.TestCase):
    def test_the_port_is_the_low_16_bits_of_the_option(self):
        port = free_udp_port()
        with Overlay("port-low-bits", port=port + 65536) as overlay:
            # "started" is logged before the port is claimed; the web view comes after it.
            self.assertTrue(overlay.wait_for_log(r"^WebView2 ready, page ", 20), overlay.messages())
            with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
                with self.assertRaises(OSError):
                    probe.bind(("127.0.0.1", port))

    def test_a_second_host_waits_and_takes_the_port_when_the_first_ends(self):
        first = Overlay("claim-first").start()
        second = Overlay("claim-second", port=first.port, log=first.log_path)
        try:
            self.assertTrue(first.wait_for_log(r"^WebView2 ready, page ", 20))
            second.start(wait_started=False)
            taken = "port %d is taken - waiting for it (up to 30 s)" % first.port
            self.assertTrue(second.wait_for_log("^" + re.escape(taken) + "$", 20), second.messages())
            # the second host emptied the shared log first: the first host's lines are gone
            messages = second.messages()
            self.assertEqual(len([m for m in messages if m.startswith("started, ")]), 1, messages)
            self.assertEqual(messages[1], taken)
            time.sleep(1.5)
            first.post_message(WM_CLOSE)
            self.assertEqual(first.wait_exit(20), 0)
            free = second.wait_for_log(r"^port %d free after (\d+) ms$" % first.port, 20)
            self.assertTrue(free, second.messages())
            waited = int(free.group(1))
            self.assertEqual(waited % 250, 0)
            self.assertGreaterEqual(waited, 1500)
            # the first host's own later lines follow the second host's first lines
            messages = second.messages()
            after = messages.index(taken)
            self.assertEqual(messages[after + 1:after + 3], [CLOSED, "exit (%s)" % CLOSED])
            self.assertTrue(second.wait_for_journal(r"^webview\.Navigate ", 20))
        finally:
            first.stop()
            second.stop()

    def test_a_second_host_gives_up_after_30_seconds(self):
        first = Overlay("giveup-first").start()
        second = Overlay("giveup-second", port=first.port, doc=first.doc_dir)
        try:
            self.assertTrue(first.wait_for_log(r"^WebView2 ready, page ", 20))
            keys = os.path.join(first.doc_dir, "gra_keys.txt")
            with open(keys, "wb") as f:
                f.write(b"the running host's line\n")
            began = time.monotonic()
            second.start(wait_started=False)
            # 30 s of waiting, and the start of a Wine process on a busy machine
            self.assertEqual(second.wait_exit(120), 0)
            self.assertGreater(time.monotonic() - began, 29)
            port = first.port
            self.assertEqual(second.messages()[1:], [
                "port %d is taken - waiting for it (up to 30 s)" % port,
                "port %d still taken after 30 s - another overlay runs; exiting" % port,
                "exit (port %d taken)" % port,
            ])
            self.assertTrue(START_LINE.match(second.messages()[0]))
            # no window and no web view: the stand-in runtime was never asked for anything
            self.assertEqual(second.journal(), [])
            # the keys file is emptied only after the claim: left alone
            with open(keys, "rb") as f:
                self.assertEqual(f.read(), b"the running host's line\n")
            self.assertTrue(first.running())
        finally:
            first.stop()
            second.stop()


if __name__ == "__main__":
    unittest.main()
