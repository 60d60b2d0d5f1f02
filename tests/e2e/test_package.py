"""The release package: scripts/package.py lays out the built program as a
game ships it; the zip is unpacked, its layout and sums checked, its version
resource read, and the unpacked program started under Wine: it answers
"GRAO state" and serves the page folder that came with it."""

import hashlib
import json
import os
import re
import shutil
import struct
import subprocess
import sys
import unittest
import zipfile
import zlib

from harness import BUILD_DIR, PROGRAM, TEST_BIN, GameLink, Overlay, scratch_dir, unique, wine_path

ROOT = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", ".."))
PACKAGE = os.path.join(ROOT, "scripts", "package.py")


def read_version():
    with open(os.path.join(ROOT, "VERSION"), encoding="ascii") as f:
        return f.readline().strip()


OBJDUMP = shutil.which("x86_64-w64-mingw32-objdump")
OBJCOPY = shutil.which("x86_64-w64-mingw32-objcopy")


def section_names(path):
    out = subprocess.run([OBJDUMP, "-h", path], capture_output=True, text=True, check=True).stdout
    return [m.split()[1] for m in out.splitlines() if m.strip()[:1].isdigit() and len(m.split()) > 1]


def debuglink(path, scratch):
    """The symbol file's name and CRC-32 that a program's .gnu_debuglink names."""
    dumped = os.path.join(scratch, os.path.basename(path) + ".debuglink")
    copy = dumped + ".exe"
    subprocess.run([OBJCOPY, "--dump-section", ".gnu_debuglink=" + dumped, path, copy], check=True,
                   capture_output=True)
    with open(dumped, "rb") as f:
        data = f.read()
    name = data[:data.index(b"\0")].decode("ascii")
    return name, struct.unpack("<I", data[-4:])[0]


UNITY = "sdk/unity/com.gra-overlay.link/"
UNITY_FILES = ["package.json", "README.md", "LICENSE.md", "Runtime/GraOverlay.Link.asmdef", "Runtime/GraLink.cs",
               "Samples~/OverlayLink/OverlayLink.cs"]
MCS = shutil.which("mcs")


def heading_anchors(markdown):
    """The anchors that GitHub makes of a Markdown text's headings."""
    anchors = set()
    for heading in re.findall(r"^#+ (.*)$", markdown, re.M):
        anchors.add(re.sub(r"[^\w\- ]", "", heading.strip().lower()).replace(" ", "-"))
    return anchors


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
                    "sdk/gra_link.h", "sdk/gra-send.exe", "sdk/GraLink.cs", "sdk/gra_link.py", "docs/game-protocol.md",
                    "README.md", "LICENSE", "SHA256SUMS", "gra-overlay-page-%s.tgz" % read_version(),
                    "check/gra-overlay-check.exe", "check/page/index.html", "check/page/gra-overlay.js"}
        self.assertEqual(set(names), required | set(source_files("web")) | set(source_files("docs", ".md"))
                         | {UNITY + name for name in UNITY_FILES} | set(source_files("check/page")))

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

    def test_the_programs_carry_no_debug_sections_and_their_symbols_lie_beside_the_zip(self):
        if not OBJDUMP or not OBJCOPY:
            self.skipTest("mingw-w64's objdump and objcopy are missing")
        folder = self.unpack()
        symbols = os.path.join(self.dir, "gra-overlay-%s-win64-symbols" % read_version())
        self.assertEqual(sorted(os.listdir(symbols)), ["gra-overlay.debug", "gra-send.debug"])
        with zipfile.ZipFile(self.zip_path) as z:
            self.assertFalse([n for n in z.namelist() if n.endswith(".debug")])
        for exe, debug in (("gra-overlay.exe", "gra-overlay.debug"), ("sdk/gra-send.exe", "gra-send.debug")):
            sections = section_names(os.path.join(folder, exe))
            self.assertIn(".text", sections, exe)
            self.assertEqual([n for n in sections if n.startswith(".debug") or n == ".stab"], [], exe)
            name, crc = debuglink(os.path.join(folder, exe), self.dir)
            self.assertEqual(name, debug)
            with open(os.path.join(symbols, debug), "rb") as f:
                self.assertEqual(zlib.crc32(f.read()), crc, debug)
            self.assertIn(".debug_info", section_names(os.path.join(symbols, debug)), debug)
        check = section_names(os.path.join(folder, "check", "gra-overlay-check.exe"))
        self.assertIn(".text", check)
        self.assertEqual([n for n in check if n.startswith(".debug") or n == ".stab"], [])

    def test_the_readme_is_the_studios_and_every_link_in_it_resolves_inside_the_zip(self):
        with zipfile.ZipFile(self.zip_path) as z:
            names = set(z.namelist())
            readme = z.read("README.md").decode("utf-8")
            texts = {name: z.read(name).decode("utf-8") for name in names if name.endswith(".md")}
        with open(os.path.join(ROOT, "release", "README.md"), encoding="utf-8") as f:
            self.assertEqual(readme, f.read())
        links = re.findall(r"\]\(([^)\s]*)\)", readme)
        self.assertGreater(len(links), 15)
        for link in links:
            self.assertNotRegex(link, r"^[a-z]+:", "a link out of the zip")
            path, _, anchor = link.partition("#")
            target = path or "README.md"
            if target.endswith("/"):
                self.assertTrue([n for n in names if n.startswith(target)], "no folder %s in the zip" % target)
            else:
                self.assertIn(target, names, link)
            if anchor:
                self.assertIn(anchor, heading_anchors(texts[target]), link)

    def test_the_unity_package_names_the_files_it_holds_and_its_sources_compile(self):
        folder = self.unpack()
        package = os.path.join(folder, *UNITY.split("/"))
        held = sorted(os.path.relpath(os.path.join(here, n), package).replace(os.sep, "/")
                      for here, _, files in os.walk(package) for n in files)
        self.assertEqual(held, sorted(UNITY_FILES))
        with open(os.path.join(package, "package.json"), encoding="utf-8") as f:
            manifest = json.load(f)
        self.assertRegex(manifest["name"], r"^com\.[a-z0-9][a-z0-9\-._]{0,200}$")
        self.assertEqual(manifest["version"], read_version())
        self.assertRegex(manifest["unity"], r"^20\d\d\.\d+$")
        self.assertTrue(manifest["displayName"] and manifest["description"])
        self.assertEqual(manifest["license"], "MIT")
        self.assertEqual([s["path"] for s in manifest["samples"]], ["Samples~/OverlayLink"])
        for sample in manifest["samples"]:
            self.assertTrue(sample["displayName"] and sample["description"])
            self.assertTrue(os.path.isdir(os.path.join(package, sample["path"])), sample["path"])
        with open(os.path.join(package, "Runtime", "GraOverlay.Link.asmdef"), encoding="utf-8") as f:
            assembly = json.load(f)
        self.assertEqual((assembly["name"], assembly["rootNamespace"]), ("GraOverlay.Link", "GraOverlay"))
        with open(os.path.join(package, "Runtime", "GraLink.cs"), "rb") as a, \
                open(os.path.join(ROOT, "sdk", "GraLink.cs"), "rb") as b:
            self.assertTrue(a.read() == b.read(), "the package's GraLink.cs is not sdk/GraLink.cs")
        with open(os.path.join(package, "LICENSE.md"), encoding="utf-8") as f:
            self.assertEqual(f.readline().strip(), "MIT License")

        if not MCS:
            self.skipTest("mcs (mono-mcs) is missing: the package's sources are not compiled")
        out = os.path.join(self.dir, "unity-build")
        os.makedirs(out, exist_ok=True)

        def mcs(*words):
            run = subprocess.run([MCS, "-langversion:6", "-warnaserror+", "-nologo"] + list(words),
                                 capture_output=True, text=True, timeout=120)
            self.assertEqual(run.returncode, 0, run.stdout + run.stderr)
        link = os.path.join(out, assembly["name"] + ".dll")
        engine = os.path.join(out, "UnityEngine.dll")
        mcs("-target:library", "-out:" + link, os.path.join(package, "Runtime", "GraLink.cs"))
        mcs("-target:library", "-out:" + engine, os.path.join(ROOT, "tests", "native", "csharp", "UnityEngineStub.cs"))
        mcs("-target:library", "-out:" + os.path.join(out, "Sample.dll"), "-r:" + link, "-r:" + engine,
            os.path.join(package, "Samples~", "OverlayLink", "OverlayLink.cs"))

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
