#!/usr/bin/env python3
"""Runs tools that change configuration files on the same files, and writes what each of them did as docs/peers.md.

Usage: peers.py KORVEX PAGE, as root, in a mount namespace of its own (./run peers makes one)
"""
import os
import shutil
import struct
import subprocess
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor

# All of these tools read it.
TEXT = """# made by hand

[other]
a   =   b
# about s
[s]
; the old value was 5
k = old
z=1
"""
WRITERS, KEYS = 8, 25


class Tool:
    """A tool by its name, and how it sets a key of [s] and adds one; `text` is what it is given on standard input."""

    def __init__(self, name, version, set_key, add_key=None, text=lambda *_: ""):
        self.name, self.version, self.set_key, self.add_key, self.text = name, version, set_key, add_key or set_key, text

    def run(self, file, key, value, adds=False):
        words = (self.add_key if adds else self.set_key)(file, key, value)
        return subprocess.run(words, input=self.text(file, key, value), capture_output=True, text=True).returncode


def tools(korvex):
    return [
        Tool("korvex", [korvex, "--version"], lambda f, k, v: [korvex, "conf", "set", f, k, v, "-s", "s"]),
        Tool("crudini", ["crudini", "--version"], lambda f, k, v: ["crudini", "--set", f, "s", k, v]),
        Tool("git config", ["git", "--version"], lambda f, k, v: ["git", "config", "-f", f, f"s.{k}", v]),
        Tool("augtool", ["augtool", "--version"],
             lambda f, k, v: ["augtool", "--noautoload", "--transform", f"PHP incl {f}", "--autosave"],
             text=lambda f, k, v: f"set /files{f}/s/{k} {v}\n"),
        Tool("sed -i", ["sed", "--version"], lambda f, k, v: ["sed", "-i", f"s/^{k} = .*/{k} = {v}/", f],
             lambda f, k, v: ["sed", "-i", f"/^\\[s\\]/a {k} = {v}", f]),
    ]


def read(path):
    with open(path, "rb") as file:
        return file.read()


def write(path, content):
    with open(path, "wb") as file:
        file.write(content.encode() if isinstance(content, str) else content)
    return path


def access_list(user):
    """Its owner reads and writes, one more user and the group read."""
    nobody = 0xFFFFFFFF
    entries = [(1, 6, nobody), (2, 4, user), (4, 4, nobody), (16, 4, nobody), (32, 0, nobody)]
    return struct.pack("<I", 2) + b"".join(struct.pack("<HHI", *entry) for entry in entries)


def attribute(path, name):
    try:
        return os.getxattr(path, name)
    except OSError:
        return None


class Unchanged(Exception):
    """The tool left the file as it was; the words for that."""


def change(tool, file):
    """Sets the key k of [s]."""
    before = read(file)
    status = tool.run(file, "k", "new")
    if read(file) == before:
        raise Unchanged("refused" if status != 0 else "nothing is changed, in silence")
    return file


# --- what is looked at: each takes a tool and an empty folder and returns the words of a cell ---

def link(tool, folder):
    target = write(f"{folder}/target", TEXT)
    os.symlink("target", f"{folder}/link")
    change(tool, f"{folder}/link")
    if not os.path.islink(f"{folder}/link"):
        return "becomes a file; the one it led to stays old"
    return "stays, its file is changed" if b"new" in read(target) else "leads elsewhere"


def owner(tool, folder):
    file = write(f"{folder}/f", TEXT)
    os.chown(file, 1234, 4321)
    now = os.stat(change(tool, file))
    return "kept" if (now.st_uid, now.st_gid) == (1234, 4321) else "lost"


def bits(tool, folder):
    file = write(f"{folder}/f", TEXT)
    os.chmod(file, 0o600)
    now = os.stat(change(tool, file)).st_mode & 0o7777
    return "kept" if now == 0o600 else f"become {now:04o}"


def acl(tool, folder):
    file = write(f"{folder}/f", TEXT)
    os.chmod(file, 0o640)
    os.setxattr(file, "system.posix_acl_access", access_list(2345))
    return "kept" if attribute(change(tool, file), "system.posix_acl_access") == access_list(2345) else "lost"


def extended(tool, folder):
    file = write(f"{folder}/f", TEXT)
    os.setxattr(file, "trusted.note", b"kept")
    return "kept" if attribute(change(tool, file), "trusted.note") == b"kept" else "lost"


def line_ends(tool, folder):
    file = change(tool, write(f"{folder}/f", TEXT.replace("\n", "\r\n")))
    lines = read(file).splitlines(keepends=True)
    plain = sum(not line.endswith(b"\r\n") for line in lines)
    return "kept" if plain == 0 else "all become LF" if plain == len(lines) else "mixed with LF"


def mark(tool, folder):
    now = read(change(tool, write(f"{folder}/f", b"\xef\xbb\xbf[s]\nk = old\n")))
    if now.count(b"[s]") > 1:
        return "hides the section; a second one is added"
    return "kept" if now.startswith(b"\xef\xbb\xbf") else "lost"


def layout(tool, folder):
    new = read(change(tool, write(f"{folder}/f", TEXT))).splitlines()
    old = TEXT.encode().splitlines()
    changed = sum(line not in new for line in old if line != b"k = old")
    added = sum(line not in old and b"new" not in line for line in new)
    return "stay" if changed + added == 0 else f"{changed + added} other lines differ"


def full_disk(tool, folder):
    text = "[s]\nk = old\n" + "# a line\n" * 2000
    file = write(f"{folder}/f", text)
    with open(f"{folder}/filler", "wb", buffering=0) as filler:
        try:
            while filler.write(b"x" * 4096):
                pass
        except OSError:
            pass
    status = tool.run(file, "k", "n" * 5000)
    now = read(file)
    left = sorted(set(os.listdir(folder)) - {"f", "filler"})
    words = "the old file stays" if now == text.encode() else f"the file is cut to {len(now)} bytes"
    words += ", said" if status != 0 else ", in silence"
    return words + (f"; {len(left)} file left over" if left else "")


def writers(tool, folder):
    file = write(f"{folder}/f", "[s]\nk = old\n")

    def add(writer):
        return sum(tool.run(file, f"w{writer}k{key}", "v", adds=True) == 0 for key in range(KEYS))

    with ThreadPoolExecutor(WRITERS) as pool:
        told = sum(pool.map(add, range(WRITERS)))
    kept = sum(f"w{writer}k{key} = v" in read(file).decode() for writer in range(WRITERS) for key in range(KEYS))
    if kept == WRITERS * KEYS:
        return "nothing is lost"
    refused = "some are refused" if told < WRITERS * KEYS else ""
    lost = "some are lost in silence" if kept < told else ""
    return ", ".join(filter(None, [refused, lost]))


ROWS = [
    ("a symbolic link", link),
    ("owner and group", owner),
    ("permission bits (0600)", bits),
    ("access list", acl),
    ("extended attributes", extended),
    ("lines that end in CR LF", line_ends),
    ("a byte order mark", mark),
    ("comments and layout of other lines", layout),
    ("a full disk", full_disk),
    (f"{WRITERS} writers, {KEYS} keys each", writers),
]


def cell(look, tool):
    """In a folder on a small disk of its own: what there is of room and attributes does not depend on the machine."""
    folder = tempfile.mkdtemp()
    size = "64k" if look is full_disk else "1m"
    subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={size},mode=0755", "peers", folder], check=True)
    try:
        return look(tool, folder)
    except Unchanged as words:
        return str(words)
    finally:
        subprocess.run(["umount", folder], check=True)
        shutil.rmtree(folder)


PAGE = """# Beside other tools

What a change of one key by each tool does to the file. `./run peers` runs all of them, as root, on the same files and
writes this page anew; no cell is written by hand.

{table}

"refused": the tool fails, and the file is as it was. "in silence": the exit status is 0.

The tools: {versions}.

augtool has the lens of PHP, the one of its lenses that reads this file; sed is given `s/^KEY = .*/KEY = VALUE/`.
"""


def main(korvex, page):
    known = tools(korvex)
    rows = ["| | " + " | ".join(f"`{tool.name}`" for tool in known) + " |", "|---" * (len(known) + 1) + "|"]
    for title, look in ROWS:
        rows.append(f"| {title} | " + " | ".join(cell(look, tool) for tool in known) + " |")
    versions = []
    for tool in known:
        output = subprocess.run(tool.version, capture_output=True, text=True, check=True)
        line = (output.stdout or output.stderr).splitlines()[0]
        versions.append(f"{tool.name.split()[0]} {next(word for word in line.split() if word[0].isdigit())}")
    write(page, PAGE.format(table="\n".join(rows), versions=", ".join(versions)))


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    main(*sys.argv[1:])
