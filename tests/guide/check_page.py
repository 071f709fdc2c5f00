#!/usr/bin/env python3
"""Runs one block of docs/guide.md or README.md, and compares what it prints with what the page says.

Usage: check_page.py PAGE --list                            SECTION|LANGUAGE, a line for each block
       check_page.py PAGE SECTION LANGUAGE [FLAG...]        FLAG: for the compiler, which CC or CXX names

What a section prepares is run first. The block has a folder, a network, a /var/lock and a /var/log of its own.
"""
import dataclasses
import os
import pathlib
import re
import signal
import subprocess
import sys
import tempfile

LANGUAGES = {"c", "cpp", "python", "sh"}
WARNINGS = ["-Wall", "-Wextra", "-Wconversion", "-Wpedantic", "-Werror"]
OWN_WORLD = 'mount -t tmpfs none /var/lock && mount -t tmpfs none /var/log && ip link set lo up && exec "$@"'
STAMP = re.compile(r"^\[\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\]", re.M)
LONGEST = 60  # seconds


@dataclasses.dataclass
class Block:
    language: str
    code: str
    command: str = ""  # what prints `expected`, if it is not the block itself
    expected: str = ""


def sections_of(page):
    """The fenced blocks of each section: those to prepare, those to run, what happens meanwhile."""
    sections = {}
    for part in re.split(r"^## ", pathlib.Path(page).read_text(), flags=re.M)[1:]:
        title, text = part.split("\n", 1)
        prepare, blocks, meanwhile, waiting = "", [], "", []
        for match in re.finditer(r"^```(\w*) ?(\w*)\n(.*?)^```$", text, re.M | re.S):
            language, role, code = match.groups()
            if language == "text":
                command = re.search(r"Then `([^`]+)` prints:\s*\Z", text[:match.start()])
                for block in waiting:
                    block.command, block.expected = command.group(1) if command else "", code
                waiting = []
            elif role == "prepare":
                prepare += code
            elif role == "meanwhile":
                meanwhile += code
            elif language in LANGUAGES:
                waiting.append(Block(language, code))
                blocks.append(waiting[-1])
        if waiting:
            sys.exit(f"FAILED: section '{title}' does not say what its last blocks print")
        if blocks:
            sections[title] = (prepare, blocks, meanwhile)
    return sections


def command_of(block, flags):
    """Makes a block a program in the current folder. Returns how it is run."""
    if block.language == "python":
        pathlib.Path("app.py").write_text(block.code)
        return [os.environ.get("PYTHON", sys.executable), "app.py"]
    if block.language == "sh":
        pathlib.Path("app.sh").write_text(block.code)
        return ["sh", "-e", "app.sh"]
    compiler = [os.environ["CC"], "-std=gnu11"] if block.language == "c" else [os.environ["CXX"], "-std=c++20"]
    source = f"app.{block.language}"
    pathlib.Path(source).write_text(block.code)
    subprocess.run([*compiler, *WARNINGS, source, "-o", "app", "-pthread", *flags], check=True)
    return ["./app"]


def shell(text, **variables):
    """Runs lines of the page; what they leave in the background goes on."""
    with open("shell.log", "a", encoding="utf-8") as log:
        subprocess.run(["bash", "-e", "-c", text], check=True, stdin=subprocess.DEVNULL, stdout=log, stderr=log,
                       env={**os.environ, **variables}, timeout=LONGEST)


def run(block, prepare, meanwhile, flags):
    command = command_of(block, flags)
    shell(prepare)
    with subprocess.Popen(command, stdout=subprocess.PIPE, text=True) as program:
        try:
            if meanwhile:
                shell(meanwhile, daemon=str(program.pid))
            printed, _ = program.communicate(timeout=LONGEST)
        except BaseException:
            program.kill()
            raise
    if block.command:
        printed = subprocess.run(["sh", "-c", block.command], capture_output=True, text=True, check=False).stdout
    if program.returncode != 0 or STAMP.sub("[stamp]", printed) != STAMP.sub("[stamp]", block.expected):
        sys.exit(f"FAILED ({program.returncode}): it prints\n{printed}but the page says\n{block.expected}")


def main():
    page, *rest = sys.argv[1:]
    sections = sections_of(page)
    if rest == ["--list"]:
        for title, (_, blocks, _) in sections.items():
            for block in blocks:
                print(f"{title}|{block.language}")
        return

    title, language, *flags = rest
    if "KORVEX_OWN_WORLD" not in os.environ:
        os.environ["KORVEX_OWN_WORLD"] = "1"
        own = ["unshare", "-m", "-n", "--propagation", "private", "sh", "-c", OWN_WORLD, "sh"]
        # A session of its own, so that what a block leaves in the background ends with it.
        with subprocess.Popen([*own, sys.executable, "-B", *sys.argv], start_new_session=True) as ran:
            try:
                ran.wait()
            finally:
                try:
                    os.killpg(ran.pid, signal.SIGKILL)
                except ProcessLookupError:
                    pass
        sys.exit(ran.returncode)

    prepare, blocks, meanwhile = sections[title]
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        for block in blocks:
            if block.language == language:
                run(block, prepare, meanwhile, flags)
        os.chdir("/")
    print(f"{title} ({language}): as the page says")


if __name__ == "__main__":
    main()
