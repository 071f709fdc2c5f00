#!/usr/bin/env python3
"""A snippet compiles as it stands, and does not with its mistakes: lines between `#ifdef MISTAKE_n` and #endif.

The comment at a mistake, "// error: TEXT", says a part of what a compiler must answer there, so that no other mistake
passes for this one; "TEXT | TEXT" where the compilers have different words. All mistakes are compiled at once, each in
a block of its own, and every error in the snippet must belong to one of them.

Usage: check_refusals.py SOURCE_DIR SNIPPET COMPILER...
"""

import re
import subprocess
import sys

MISTAKE = re.compile(r"^#ifdef MISTAKE_\d+\n(.*?)^#endif$", re.M | re.S)
# How a place in the snippet is led to by an error in a header: g++ says so before the error, clang after it.
LEADS_BEFORE = re.compile(r"required from|required by substitution|In instantiation of")
LEADS_AFTER = re.compile(r"note: .*requested here|note: in instantiation")


def compile_text(compiler, source, text):
    command = [compiler, "-std=c++20", "-Wall", "-Wextra", "-Werror", "-fsyntax-only", "-I", f"{source}/include"]
    if "clang" in compiler:
        command.append("-ferror-limit=0")
    return subprocess.run([*command, "-x", "c++", "-"], input=text, capture_output=True, text=True, check=False,
                          env={"LC_ALL": "C", "PATH": "/usr/bin:/bin"})


def errors_by_line(output):
    """Yields each error's text and the line of the snippet that it is about, or None."""
    lines = output.splitlines()
    for index, line in enumerate(lines):
        if " error: " not in line:
            continue
        about = [line]
        before = index - 1
        while before >= 0 and LEADS_BEFORE.search(lines[before]):
            about.append(lines[before])
            before -= 1
        for after in lines[index + 1:]:
            if " error: " in after:
                break
            if LEADS_AFTER.search(after):
                about.append(after)
        places = [re.match(r"<stdin>:(\d+):", place) for place in about]
        yield line, next((int(place[1]) for place in places if place), None)


def check(compiler, source, snippet):
    text = open(snippet, encoding="utf-8").read()
    if failed := compile_text(compiler, source, text).stderr:
        return f"does not take the snippet without its mistakes:\n{failed}"

    mistakes = [(text.count("\n", 0, found.start()) + 1, found[1].count("\n") + 1, found[1])
                for found in MISTAKE.finditer(text)]
    if not mistakes:
        return "there is no mistake in it"
    together = compile_text(compiler, source, re.sub(r"(?m)^#endif$", "}", re.sub(r"(?m)^#ifdef MISTAKE_\d+$", "{", text)))
    errors = list(errors_by_line(together.stderr))
    for line, length, mistake in mistakes:
        here = [error for error, at in errors if at is not None and line < at <= line + length]
        expected = re.search(r"// error: (.*)", mistake)
        if not expected:
            return f"line {line}: the mistake says no error"
        if not here:
            return f"line {line}: lets the mistake pass:\n{mistake}"
        if not any(words in error for words in expected[1].split(" | ") for error in here):
            return f"line {line}: does not say '{expected[1]}' but\n" + "\n".join(here)
    inside = {at for line, length, _ in mistakes for at in range(line + 1, line + length + 1)}
    # What follows from a mistake may stand in a header alone.
    strays = [error for error, at in errors if at is not None and at not in inside]
    if strays:
        return "refuses what is no mistake:\n" + "\n".join(strays)
    print(f"{compiler}: refuses {len(mistakes)}")
    return None


def main():
    source, snippet, *compilers = sys.argv[1:]
    for compiler in compilers:
        if problem := check(compiler, source, snippet):
            sys.exit(f"FAILED: {compiler}: {snippet}: {problem}")


main()
