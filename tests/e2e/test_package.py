"""The release package: scripts/package.py lays out the built program as a
game ships it; the zip is unpacked, its layout and sums checked, its version
resource read, and the unpacked program started under Wine: it answers
"GRAO state" and serves the page folder that came with it."""

import hashlib
import os
import subprocess
import sys
import unittest
import zipfile

from harness import BUILD_DIR, PROGRAM, TEST_BIN, GameLink, Overlay, scratch_dir, unique, wine_path

ROOT = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", ".."))
PACKAGE = os.path.join(ROOT, "scripts", "package.py")


def read_version():
    with open(os.path.join(ROOT, "VERSION"), encoding="ascii") as f:
        return f.readline().strip()


def source_files(folder, suffix=""):
    names = []
    for here, _, files in os.walk(os.path.join(ROOT, folder)):
        names += [os.path.relpath(os.path.join(here, n), ROOT).replace(os.sep, "/")
                  for n in files if n.endswith(suffix) and not n.startswith(".")]
    return names


class Package(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.dir = scratch_dir(unique("package"))
        out = subprocess.run([sys.executable, PACKAGE, "--build", BUILD_DIR, "--out", cls.dir],
                             capture_output=True, text=True, timeout=120)
        if out.returncode != 0:
            raise AssertionError("package.py failed: %s" % out.stderr)
        cls.zip_path = out.stdout.strip()

    def unpack(self):
        folder = os.path.join(self.dir, "unpacked")
        with zipfile.ZipFile(self.zip_path) as z:
            z.extractall(folder)
        return folder

    def test_the_zip_is_named_after_the_version_and_laid_out_as_a_game_ships_it(self):
        self.assertEqual(os.path.basename(self.zip_path), "gra-overlay-%s-win64.zip" % read_version())
        with zipfile.ZipFile(self.zip_path) as z:
            names = z.namelist()
        self.assertEqual(len(names), len(set(names)))
        required = {"gra-overlay.exe", "web/index.html", "web/gra-overlay.js", "web/gra-overlay.d.ts",
                    "sdk/gra_link.h", "sdk/gra-send.exe", "sdk/GraLink.cs", "docs/game-protocol.md",
                    "README.md", "LICENSE", "SHA256SUMS", "gra-overlay-page-%s.tgz" % read_version()}
        self.assertEqual(set(names), required | set(source_files("web")) | set(source_files("docs", ".md")))

    def test_the_sums_cover_every_other_file_and_match(self):
        folder = self.unpack()
        with open(os.path.join(folder, "SHA256SUMS"), encoding="ascii") as f:
            lines = f.read().splitlines()
        summed = {}
        for line in lines:
            digest, name = line.split("  ", 1)
            self.assertNotIn(name, summed)
            summed[name] = digest
        with zipfile.ZipFile(self.zip_path) as z:
            self.assertEqual(set(summed), set(z.namelist()) - {"SHA256SUMS"})
        for name, digest in summed.items():
            with open(os.path.join(folder, name), "rb") as f:
                self.assertEqual(hashlib.sha256(f.read()).hexdigest(), digest, name)
        with open(os.path.join(folder, "gra-overlay.exe"), "rb") as a, open(PROGRAM, "rb") as b:
            self.assertTrue(a.read() == b.read(), "the packaged program is not the built one")
        with open(os.path.join(folder, "LICENSE"), encoding="utf-8") as f:
            self.assertEqual(f.readline().strip(), "MIT License")

    def test_packing_the_same_build_again_makes_the_same_zip(self):
        again = os.path.join(self.dir, "again")
        out = subprocess.run([sys.executable, PACKAGE, "--build", BUILD_DIR, "--out", again],
                             capture_output=True, text=True, timeout=120, check=True)
        with open(self.zip_path, "rb") as a, open(out.stdout.strip(), "rb") as b:
            self.assertTrue(a.read() == b.read(), "two runs made different zips")

    def test_the_program_carries_its_version_resource(self):
        folder = self.unpack()
        out_path = os.path.join(self.dir, "version.txt")
        with open(out_path, "wb") as out:
            status = subprocess.run(["wine", os.path.join(TEST_BIN, "file-version.exe"),
                                     wine_path(os.path.join(folder, "gra-overlay.exe"))],
                                    stdin=subprocess.DEVNULL, stdout=out, stderr=subprocess.DEVNULL,
                                    timeout=60).returncode
        with open(out_path, "rb") as f:
            fields = f.read().decode("utf-8").replace("\r\n", "\n").splitlines()
        version = read_version()
        self.assertEqual(status, 0)
        self.assertEqual(fields, [
            "version %s.0" % version,
            "ProductName gra-overlay",
            "FileDescription gra-overlay: a local web page over a game's window",
            "FileVersion %s" % version,
            "ProductVersion %s" % version,
            "LegalCopyright Copyright (c) 2026 the gra-overlay developers. MIT License."])

    def test_the_unpacked_program_answers_state_and_serves_its_own_page_folder(self):
        folder = self.unpack()
        overlay = Overlay(unique("package-run"), exe=os.path.join(folder, "gra-overlay.exe"))
        self.addCleanup(overlay.stop)
        overlay.start()
        with GameLink(overlay.port) as link:
            link.send("GRAO state")
            self.assertEqual(link.receive(), b"GRAO state hidden")
        start = overlay.messages()[0]
        self.assertTrue(start.endswith(", web %s" % wine_path(os.path.join(folder, "web"))), start)


if __name__ == "__main__":
    unittest.main()
