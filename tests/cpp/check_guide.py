#!/usr/bin/env python3
"""Runs the program of one section of docs/cpp.md, and compares what it prints with what the page says.

Usage: check_guide.py PAGE SECTION COMPILER FLAG...    compiles it first
       check_guide.py PAGE SECTION --built PROGRAM     takes one that was compiled from the page
       check_guide.py PAGE --extract FOLDER            writes the program of each section to FOLDER/SECTION.cpp

The program runs in a folder of its own, with certificates in it, and with a /var/lock of its own.
"""
import pathlib
import re
import subprocess
import sys
import tempfile

WARNINGS = ["-Wall", "-Wextra", "-Wconversion", "-Wpedantic", "-Werror"]
# Not the machine's locks, nor their places.
IN_OWN_WORLD = 'mount -t tmpfs none /var/lock && exec "$0"'


def titles_of(text):
    return re.findall(r"^## (.*)$", text, re.M)


def program_of(text, title):
    """A section's program, and what it prints."""
    section = re.search(rf"^## {re.escape(title)}\n(.*?)(?=^## |\Z)", text, re.M | re.S)
    if not section:
        sys.exit(f"FAILED: the page has no section '{title}'")
    found = re.fullmatch(r".*?```cpp\n(.*?)```\s+```text\n(.*?)```\s*", section.group(1), re.S)
    if not found:
        sys.exit(f"FAILED: section '{title}' needs one program and what it prints")
    return found.groups()


def run(program, title, expected, folder):
    if title == "tls":
        subprocess.run([pathlib.Path(__file__).with_name("make_certificates.sh"), folder], check=True)
    ran = subprocess.run(["unshare", "-m", "--propagation", "private", "sh", "-c", IN_OWN_WORLD, program],
                         cwd=folder, capture_output=True, text=True, timeout=60)
    if ran.returncode != 0 or ran.stdout != expected:
        sys.exit(f"FAILED ({ran.returncode}): it prints\n{ran.stdout}{ran.stderr}\nbut the page says\n{expected}")
    print(f"{title}: as the page says")


def main():
    text = pathlib.Path(sys.argv[1]).read_text()
    title, *rest = sys.argv[2:]
    if title == "--extract":
        for each in titles_of(text):
            pathlib.Path(rest[0], f"{each}.cpp").write_text(program_of(text, each)[0])
        return

    program, expected = program_of(text, title)
    with tempfile.TemporaryDirectory() as folder:
        if rest[0] == "--built":
            return run(rest[1], title, expected, folder)
        compiler, *flags = rest
        source = pathlib.Path(folder, "program.cpp")
        source.write_text(program)
        subprocess.run([compiler, "-std=c++20", *WARNINGS, str(source), "-o", f"{folder}/program", "-pthread", *flags],
                       check=True)
        run("./program", title, expected, folder)


if __name__ == "__main__":
    main()
