#!/usr/bin/env python3
"""Lays out a built gra-overlay as a game ships it and zips it:

    gra-overlay-<version>-win64.zip
        gra-overlay.exe         the program
        web/                    the default page, gra-overlay.js, gra-overlay.d.ts
        gra-overlay-page-<version>.tgz
                                the page author's npm package (npm pack of web/)
        sdk/                    gra_link.h, gra-send.exe, GraLink.cs, gra_link.py
        sdk/unity/com.gra-overlay.link/
                                GraLink.cs as a Unity package (from sdk/unity)
        docs/                   the game's and the page's side
        check/                  gra-overlay-check.exe, the self-check for a Windows
                                machine, and its page (check/page/)
        README.md               the studio's README (release/README.md)
        LICENSE
        SHA256SUMS              the sums of every other file (sha256sum -c)

Beside the zip, gra-overlay-<version>-win64-symbols/ holds the symbols of
the two programs (gra-overlay.debug, gra-send.debug; each exe names its file
in its .gnu_debuglink section), for reading crash dumps; the zip carries
none of them.

The version comes from the VERSION file. Entries are sorted and dated with
the last commit's time (or SOURCE_DATE_EPOCH), so that packing the same
build again makes the same zip. Prints the zip's path.

    python3 scripts/package.py --build BUILD_DIR [--out FOLDER]
"""

import argparse
import hashlib
import json
import os
import shutil
import subprocess
import sys
import tempfile
import time
import zipfile

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))


def version():
    with open(os.path.join(ROOT, "VERSION"), encoding="ascii") as f:
        return f.readline().strip()


def tree(folder):
    """(name in the zip, path) for every file under a folder of the sources."""
    found = []
    for here, dirs, names in os.walk(os.path.join(ROOT, folder)):
        dirs[:] = [d for d in dirs if not d.startswith(".")]
        for name in names:
            if not name.startswith("."):
                path = os.path.join(here, name)
                found.append((os.path.relpath(path, ROOT).replace(os.sep, "/"), path))
    return found


UNITY_PACKAGE = "sdk/unity/com.gra-overlay.link/"


def unity_package():
    """(name in the zip, path on disk) for the Unity package: the folder
    sdk/unity with the C# link in Runtime/ and the license beside the
    manifest. The manifest itself is made by unity_manifest."""
    files = [(UNITY_PACKAGE + name[len("sdk/unity/"):], path) for name, path in tree("sdk/unity")
             if name != "sdk/unity/package.json"]
    files += [(UNITY_PACKAGE + "Runtime/GraLink.cs", os.path.join(ROOT, "sdk", "GraLink.cs")),
              (UNITY_PACKAGE + "LICENSE.md", os.path.join(ROOT, "LICENSE"))]
    return files


def unity_manifest():
    """sdk/unity/package.json with the release's version."""
    with open(os.path.join(ROOT, "sdk", "unity", "package.json"), encoding="utf-8") as f:
        manifest = json.load(f)
    manifest["version"] = version()
    return (json.dumps(manifest, indent=2, ensure_ascii=False) + "\n").encode("utf-8")


def page_package(folder):
    """npm pack of web/ into the folder; the package file's path."""
    out = subprocess.run(["npm", "pack", "--pack-destination", folder, "--json"], cwd=os.path.join(ROOT, "web"),
                         capture_output=True, text=True)
    if out.returncode != 0:
        sys.exit("package: npm pack of web/ failed: %s" % out.stderr.strip())
    return os.path.join(folder, json.loads(out.stdout)[0]["filename"])


def check_files(build):
    """(name in the zip, path) for the self-check: its exe, its page and the
    page author's library that the page uses."""
    files = [("check/gra-overlay-check.exe", os.path.join(build, "bin", "check", "gra-overlay-check.exe"))]
    files += tree("check/page")
    files += [("check/page/gra-overlay.js", os.path.join(ROOT, "web", "gra-overlay.js"))]
    return files


def layout(build, scratch):
    """(name in the zip, path on disk or the bytes themselves) for every file
    of the package."""
    files = [("gra-overlay.exe", os.path.join(build, "bin", "gra-overlay.exe"))]
    files += tree("web")
    npm_package = page_package(scratch)
    files += [(os.path.basename(npm_package), npm_package)]
    files += [("sdk/gra_link.h", os.path.join(ROOT, "sdk", "gra_link.h")),
              ("sdk/gra-send.exe", os.path.join(build, "bin", "gra-send.exe")),
              ("sdk/GraLink.cs", os.path.join(ROOT, "sdk", "GraLink.cs")),
              ("sdk/gra_link.py", os.path.join(ROOT, "sdk", "gra_link.py"))]
    files += unity_package()
    files += check_files(build)
    docs = os.path.join(ROOT, "docs")
    files += [("docs/" + name, os.path.join(docs, name)) for name in sorted(os.listdir(docs))
              if name.endswith(".md")]
    files += [("README.md", os.path.join(ROOT, "release", "README.md")),
              ("LICENSE", os.path.join(ROOT, "LICENSE"))]
    missing = [path for _, path in files if not os.path.isfile(path)]
    if missing:
        sys.exit("package: missing %s (build first: bash scripts/build.sh)" % ", ".join(missing))
    files.append((UNITY_PACKAGE + "package.json", unity_manifest()))
    return files


def source_date():
    if os.environ.get("SOURCE_DATE_EPOCH"):
        return int(os.environ["SOURCE_DATE_EPOCH"])
    try:
        out = subprocess.run(["git", "-C", ROOT, "log", "-1", "--format=%ct"], capture_output=True,
                             text=True, check=True).stdout.strip()
        return int(out)
    except (OSError, subprocess.CalledProcessError, ValueError):
        return int(time.time())


def add(archive, name, data, stamp, executable=False):
    info = zipfile.ZipInfo(name, date_time=time.gmtime(max(stamp, 315532800))[:6])
    info.compress_type = zipfile.ZIP_DEFLATED
    info.external_attr = (0o755 if executable else 0o644) << 16
    archive.writestr(info, data)


SYMBOLS = ["gra-overlay.debug", "gra-send.debug"]


def keep_symbols(build, out):
    """Copies the programs' symbol files into their own folder beside the zip."""
    folder = os.path.join(out, "gra-overlay-%s-win64-symbols" % version())
    os.makedirs(folder, exist_ok=True)
    for name in SYMBOLS:
        path = os.path.join(build, "bin", name)
        if not os.path.isfile(path):
            sys.exit("package: missing %s (build first: bash scripts/build.sh)" % path)
        shutil.copyfile(path, os.path.join(folder, name))
    return folder


def make(build, out):
    name = "gra-overlay-%s-win64.zip" % version()
    os.makedirs(out, exist_ok=True)
    keep_symbols(build, out)
    target = os.path.join(out, name)
    stamp = source_date()
    sums = []
    partial = target + ".part"
    with tempfile.TemporaryDirectory() as scratch, zipfile.ZipFile(partial, "w") as archive:
        for entry, source in sorted(layout(build, scratch), key=lambda item: item[0]):
            if isinstance(source, bytes):
                data = source
            else:
                with open(source, "rb") as f:
                    data = f.read()
            add(archive, entry, data, stamp, executable=entry.endswith(".exe"))
            sums.append("%s  %s\n" % (hashlib.sha256(data).hexdigest(), entry))
        add(archive, "SHA256SUMS", "".join(sums).encode("ascii"), stamp)
    os.replace(partial, target)
    return target


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--build", default=os.path.join(ROOT, "build"), help="the Windows build folder")
    parser.add_argument("--out", default=os.path.join(ROOT, "dist"), help="where the zip goes")
    args = parser.parse_args()
    print(make(os.path.abspath(args.build), os.path.abspath(args.out)))


if __name__ == "__main__":
    main()
