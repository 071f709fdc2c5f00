#!/usr/bin/env python3
"""Compiles and runs the program of one section of docs/cpp.md, and compares what it prints with what the page says.

Usage: check_guide.py PAGE SECTION COMPILER FLAG...

The program runs in a folder of its own, with certificates in it, and with a /var/lock of its own.
"""
import pathlib
import re
import subprocess
import sys
import tempfile

# Not the machine's locks, nor their places.
IN_OWN_WORLD = 'mount -t tmpfs none /var/lock && exec "$0"'


def section_of(page, title):
    match = re.search(rf"^## {re.escape(title)}\n(.*?)(?=^## |\Z)", page, re.M | re.S)
    if not match:
        sys.exit(f"FAILED: the page has no section '{title}'")
    return match.group(1)


def main():
    page, title, compiler, *flags = sys.argv[1:]
    text = section_of(pathlib.Path(page).read_text(), title)
    found = re.fullmatch(r".*?```cpp\n(.*?)```\s+```text\n(.*?)```\s*", text, re.S)
    if not found:
        sys.exit(f"FAILED: section '{title}' needs one program and what it prints")
    program, expected = found.groups()

    with tempfile.TemporaryDirectory() as folder:
        source = pathlib.Path(folder, "program.cpp")
        source.write_text(program)
        subprocess.run([compiler, "-std=c++20", "-Wall", "-Wextra", "-Werror", str(source), "-o", f"{folder}/program",
                        "-pthread", *flags], check=True)
        if title == "tls":
            subprocess.run([pathlib.Path(__file__).with_name("make_certificates.sh"), folder], check=True)
        ran = subprocess.run(["unshare", "-m", "--propagation", "private", "sh", "-c", IN_OWN_WORLD, "./program"],
                             cwd=folder, capture_output=True, text=True, timeout=60)
    if ran.returncode != 0 or ran.stdout != expected:
        sys.exit(f"FAILED ({ran.returncode}): it prints\n{ran.stdout}{ran.stderr}\nbut the page says\n{expected}")
    print(f"{title}: as the page says")


if __name__ == "__main__":
    main()
