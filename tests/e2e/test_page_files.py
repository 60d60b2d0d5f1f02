"""The page's files end to end: "load" and "save" posted by the page (played
by the stand-in runtime), the files in the documents folder, the replies,
the log lines; and a save that is never half visible, even when the program
is killed in the middle of a stream of saves."""

import hashlib
import json
import os
import random
import shutil
import sys
import threading
import time
import unittest

from harness import Overlay, scratch_dir, unique, wait_until
from page_case import PageCase
from standin_runtime import StandinPage

BOM = b"\xef\xbb\xbf"


def read(path):
    with open(path, "rb") as f:
        return f.read()


def write(path, data):
    with open(path, "wb") as f:
        f.write(data)


def file_reply(name, ok, text):
    """The program's reply to "load", built the way the program builds it
    (its escaping is that of json.dumps for these texts)."""
    return '{"type":"file","name":%s,"ok":%s,"text":%s}' % (
        json.dumps(name, ensure_ascii=False), "true" if ok else "false", json.dumps(text, ensure_ascii=False))


def saved_reply(name, ok):
    return '{"type":"saved","name":%s,"ok":%s}' % (json.dumps(name, ensure_ascii=False), "true" if ok else "false")


def save_message(name, text, ensure_ascii=True):
    return json.dumps({"type": "save", "file": name, "text": text}, ensure_ascii=ensure_ascii)


def of_kind(messages, prefix):
    return [m for m in messages if m.startswith(prefix)]


class Load(PageCase):
    def test_upper_case_name_is_allowed_and_echoed(self):
        overlay, page = self.start("load-upper")
        write(os.path.join(overlay.doc_dir, "gra_pad.json"), b'{"notes":["a"]}')
        self.say(page, '{"type":"load","file":"GRA_PAD.JSON"}')
        self.assertEqual(page.posted(), ['{"type":"file","name":"GRA_PAD.JSON","ok":true,"text":"{\\"notes\\":[\\"a\\"]}"}'])

    def test_missing_and_empty_files(self):
        overlay, page = self.start("load-missing-empty")
        write(os.path.join(overlay.doc_dir, "gra_overlay.json"), b"")
        self.say(page, '{"type":"load","file":"gra_pad.json"}')
        self.say(page, '{"type":"load","file":"gra_overlay.json"}')
        self.assertEqual(page.posted(), ['{"type":"file","name":"gra_pad.json","ok":false,"text":""}',
                                         '{"type":"file","name":"gra_overlay.json","ok":true,"text":""}'])

    def test_refused_names_open_nothing(self):
        overlay, page = self.start("load-refused")
        write(os.path.join(overlay.doc_dir, "other.json"), b"other")
        # the documents folder's parent holds a gra_pad.json
        write(os.path.join(os.path.dirname(overlay.doc_dir), "gra_pad.json"), b"outside")
        before = len(overlay.messages())
        self.say(page, '{"type":"load","file":"other.json"}')
        self.say(page, '{"type":"load","file":"..\\\\gra_pad.json"}')
        self.say(page, '{"type":"load","file":""}')
        self.say(page, '{"type":"load"}')
        self.assertEqual(page.posted(), ['{"type":"file","name":"other.json","ok":false,"text":""}',
                                         '{"type":"file","name":"..\\\\gra_pad.json","ok":false,"text":""}',
                                         '{"type":"file","name":"","ok":false,"text":""}',
                                         '{"type":"file","name":"","ok":false,"text":""}'])
        self.assertEqual(overlay.messages()[before:], [])

    def test_a_byte_order_mark_is_kept_as_its_character(self):
        overlay, page = self.start("load-bom")
        write(os.path.join(overlay.doc_dir, "gra_pad.json"), BOM + "{\"k\":\"\u00e9\"}".encode("utf-8"))
        self.say(page, '{"type":"load","file":"gra_pad.json"}')
        self.assertEqual(page.posted(), ['{"type":"file","name":"gra_pad.json","ok":true,"text":"\ufeff{\\"k\\":\\"\u00e9\\"}"}'])

    def test_control_characters_and_line_ends_are_escaped(self):
        overlay, page = self.start("load-escape")
        write(os.path.join(overlay.doc_dir, "gra_pad.json"), b"a\r\nb\tc\x01d\\e/f")
        self.say(page, '{"type":"load","file":"gra_pad.json"}')
        self.assertEqual(page.posted(), ['{"type":"file","name":"gra_pad.json","ok":true,'
                                         '"text":"a\\r\\nb\\tc\\u0001d\\\\e/f"}'])


class Save(PageCase):
    def test_non_ascii_text_round_trip_in_utf8_without_a_byte_order_mark(self):
        overlay, page = self.start("save-utf8")
        text = "gr\u00fc\u00dfe \u20ac \U0001F3AE \u65e5\u672c \"q\" \\ line\nbreak"
        self.say(page, save_message("gra_pad.json", text))
        path = os.path.join(overlay.doc_dir, "gra_pad.json")
        self.assertEqual(read(path), text.encode("utf-8"))
        self.assertFalse(read(path).startswith(BOM))
        self.assertFalse(os.path.exists(path + ".tmp"))
        self.assertEqual(of_kind(overlay.messages(), "save "), ["save gra_pad.json: ok"])
        self.say(page, '{"type":"load","file":"gra_pad.json"}')
        self.assertEqual(page.posted(), [saved_reply("gra_pad.json", True), file_reply("gra_pad.json", True, text)])

    def test_a_save_over_an_existing_file_replaces_it_whole(self):
        overlay, page = self.start("save-over")
        path = os.path.join(overlay.doc_dir, "gra_overlay.json")
        write(path, b"x" * 50000)
        self.say(page, save_message("gra_overlay.json", "short"))
        self.assertEqual(read(path), b"short")
        self.assertEqual(sorted(os.listdir(overlay.doc_dir)), ["gra_keys.txt", "gra_overlay.json"])
        self.assertEqual(page.posted(), [saved_reply("gra_overlay.json", True)])

    def test_the_name_keeps_its_case_on_disk(self):
        overlay, page = self.start("save-case")
        self.say(page, save_message("GRA_Pad.Json", "x"))
        self.assertEqual(sorted(os.listdir(overlay.doc_dir)), ["GRA_Pad.Json", "gra_keys.txt"])
        self.assertEqual(of_kind(overlay.messages(), "save "), ["save GRA_Pad.Json: ok"])
        self.assertEqual(page.posted(), [saved_reply("GRA_Pad.Json", True)])

    def test_refused_names_write_nothing(self):
        overlay, page = self.start("save-refused")
        self.say(page, save_message("x.json", "whatever"))
        self.say(page, save_message("other.json", ""))
        self.say(page, save_message("..\\gra_pad.json", "t"))
        self.say(page, '{"type":"save","text":"no name"}')
        self.assertEqual(of_kind(overlay.messages(), "save "), ["save x.json: FAILED", "save other.json: FAILED",
                                                                "save ..\\gra_pad.json: FAILED", "save : FAILED"])
        self.assertEqual(page.posted(), [saved_reply("x.json", False), saved_reply("other.json", False),
                                         saved_reply("..\\gra_pad.json", False), saved_reply("", False)])
        self.assertEqual(os.listdir(overlay.doc_dir), ["gra_keys.txt"])
        self.assertFalse(os.path.exists(os.path.join(os.path.dirname(overlay.doc_dir), "gra_pad.json")))

    def test_a_failed_move_leaves_the_tmp_file(self):
        overlay, page = self.start("save-failed-move")
        # a folder by the target's name: the file cannot be moved over it
        os.makedirs(os.path.join(overlay.doc_dir, "gra_overlay.json"))
        self.say(page, save_message("gra_overlay.json", "kept aside"))
        self.assertEqual(of_kind(overlay.messages(), "save "), ["save gra_overlay.json: FAILED"])
        self.assertEqual(page.posted(), [saved_reply("gra_overlay.json", False)])
        self.assertEqual(read(os.path.join(overlay.doc_dir, "gra_overlay.json.tmp")), b"kept aside")
        # the next save truncates and reuses the left-over file
        os.rmdir(os.path.join(overlay.doc_dir, "gra_overlay.json"))
        self.say(page, save_message("gra_overlay.json", "k"))
        self.assertEqual(read(os.path.join(overlay.doc_dir, "gra_overlay.json")), b"k")
        self.assertFalse(os.path.exists(os.path.join(overlay.doc_dir, "gra_overlay.json.tmp")))

    def test_a_missing_documents_folder_is_not_created(self):
        folder = os.path.join(scratch_dir(unique("save-no-doc")), "missing")
        overlay, page = self.start("save-no-doc", doc=folder)
        shutil.rmtree(folder)  # the harness made it (and the program wrote its keys file there)
        self.say(page, save_message("gra_pad.json", "t"))
        self.assertEqual(of_kind(overlay.messages(), "save "), ["save gra_pad.json: FAILED"])
        self.assertEqual(page.posted(), [saved_reply("gra_pad.json", False)])
        self.assertFalse(os.path.exists(folder))


# ---- a save is never half visible --------------------------------------------

def version_text(number):
    """A large text, different for every number and of two quite different
    lengths by turns, so that any mix or cut of two versions is seen. Posted
    in UTF-8 it stays below the 64 KiB of one datagram to the stand-in."""
    filler = "\u00e9" if number % 2 else "z"
    length = 25000 if number % 2 else 9000
    return "version %06d " % number + (filler * length) + " end %06d" % number


class SavedVersions:
    """The texts that were ever saved, kept as digests: a thousand kill rounds
    save tens of thousands of versions of up to 50 KB each."""

    def __init__(self, first):
        self._digests = set()
        self.add(first)

    def add(self, data):
        self._digests.add(hashlib.sha256(data).digest())

    def __contains__(self, data):
        return hashlib.sha256(data).digest() in self._digests


class SavePoster(threading.Thread):
    """The page saving one file over and over with new contents until the
    program no longer answers; every text it sends is kept in `sent`."""

    def __init__(self, page, first_number, sent):
        super().__init__(daemon=True)
        self.page = page
        self.number = first_number
        self.sent = sent
        self.done = 0
        self.stop = False

    def run(self):
        while not self.stop:
            text = version_text(self.number)
            self.sent.add(text.encode("utf-8"))
            self.number += 1
            try:
                reply = self.page.post(save_message("gra_pad.json", text, ensure_ascii=False), timeout=3)
            except (TimeoutError, OSError):
                return
            if reply != "done":
                return
            self.done += 1


def end_kill_round(overlay, page, poster):
    """Stops what one kill round started, whatever of it did start."""
    if poster is not None:
        poster.stop = True
    if page is not None:
        page.close()
    overlay.stop()


class SideReader(threading.Thread):
    """Reads a page file again and again while saves and kills go on, and
    counts the reads, the moments it was missing and the reads that were no
    whole saved version (their sizes; the versions are too large to keep)."""

    def __init__(self, path, sent):
        super().__init__(daemon=True)
        self.path = path
        self.sent = sent
        self.reads = 0
        self.missing = 0
        self.bad_sizes = []
        self._stop_reading = threading.Event()

    def run(self):
        while not self._stop_reading.is_set():
            try:
                data = read(self.path)
            except (FileNotFoundError, PermissionError):
                self.missing += 1
                continue
            self.reads += 1
            if data not in self.sent:
                self.bad_sizes.append(len(data))
            time.sleep(0.002)

    def finish(self):
        self._stop_reading.set()
        self.join(10)


class KilledWhileSaving(unittest.TestCase):
    """Kills the program (a process kill, nothing orderly) at a random moment
    while the page saves large texts, again and again, and checks the file:
    it always holds one whole version that was saved, never a mix or a cut.
    A reader on the side checks the same while the saves go on."""

    rounds = 6

    def test_the_file_is_always_a_whole_version(self):
        docs = scratch_dir(unique("kill-docs"))
        target = os.path.join(docs, "gra_pad.json")
        first = version_text(0).encode("utf-8")
        write(target, first)
        sent = SavedVersions(first)
        number = 1
        side = SideReader(target, sent)
        side.start()
        try:
            for round_number in range(self.rounds):
                saves = self.kill_during_saves(docs, number, sent, round_number)
                number += saves + 1000
                data = read(target)
                # assertTrue, not assertIn: the versions are too large to print
                self.assertTrue(data in sent, "round %d: the file is no whole version (%d bytes: %r...)"
                                % (round_number, len(data), data[:40]))
        finally:
            side.finish()
        self.assertEqual(side.missing, 0, "the file was missing for a moment")
        self.assertEqual(side.bad_sizes, [], "a reader saw a file that is no whole version (sizes listed)")
        self.assertGreater(side.reads, 100)
        print("a reader on the side read the file %d times" % side.reads, file=sys.stderr)

    def kill_during_saves(self, docs, first_number, sent, round_number):
        overlay = Overlay(unique("kill-round-%d" % round_number), game=unique("no game"), doc=docs)
        page = None
        poster = None
        try:
            overlay.start()
            self.assertTrue(overlay.wait_for_log(r"^WebView2 ready, page ", 30), overlay.messages())
            page = StandinPage(overlay.page_port)
            self.assertTrue(page.hello(30))
            poster = SavePoster(page, first_number, sent)
            poster.start()
            self.assertTrue(wait_until(lambda: poster.done >= 3, 30), "no saves were made")
            time.sleep(random.uniform(0.0, 1.5))
            overlay.process.kill()
            self.assertIsNotNone(overlay.wait_exit(20), "the program was not killed")
            # The poster ends by itself once the program no longer answers.
            poster.join(20)
            self.assertFalse(poster.is_alive(), "the program still answered after the kill")
            self.assertFalse(any(m.startswith("exit (") for m in overlay.messages()), "it ended in order")
            print("round %d: %d saves, killed %s" % (round_number, poster.done, "with a save under way"
                  if poster.number - first_number > poster.done else "between saves"), file=sys.stderr)
            self.assertGreaterEqual(overlay.messages().count("save gra_pad.json: ok"), 3)
            self.assertNotIn("save gra_pad.json: FAILED", overlay.messages())
            return poster.number - first_number
        finally:
            end_kill_round(overlay, page, poster)


if __name__ == "__main__":
    unittest.main()
