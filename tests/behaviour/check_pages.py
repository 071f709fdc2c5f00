#!/usr/bin/env python3
"""Checks docs/messages.md, docs/quirks.md and promises.tsv against the tests, the exported names and the messages.

  messages.md   each message of lib/ has a row in its module's section, with its level and format; no row is stale
  quirks.md     each row names tests that exist
  promises.tsv  each exported name has a line, and the tests in it exist
  all three     name exported functions alone
"""
import argparse
import pathlib
import re
import shlex
import subprocess
import sys

sys.dont_write_bytecode = True  # nothing is left in the source tree
import check_behaviour as check  # noqa: E402


def rows_of(text, name, columns, problems):
    """The rows of a page: of messages (message, functions, meaning, advice), or of quirks (function, what, tests)."""
    folder = None
    for number, line in enumerate(text.splitlines(), 1):
        if line.startswith("## "):
            folder = line[3:].strip()
        if folder is None or not line.startswith("|") or re.match(r"\| (function|message) \||\|-", line):
            continue
        cells = [cell.strip().replace(r"\|", "|") for cell in re.split(r"(?<!\\)\|", line)][1:-1]
        if len(cells) != columns or not all(cells):
            problems.append(f"{name}:{number}: not a row of {columns} cells")
            continue
        message = re.match(r"(error|debug): `", cells[0])
        functions, tests = (1, None) if message else (0, 2)
        yield check.Row(f"{name}:{number}", folder, re.findall(r"`([^`]+)`", cells[functions]), cells[0],
                        re.findall(r"`([^`]+)`", cells[tests]) if tests else [])


def promises_of(text, name):
    for number, line in enumerate(text.splitlines(), 1):
        function, _, tests = line.partition("\t")
        yield check.Row(f"{name}:{number}", None, [function], "", shlex.split(tests))


def check_names(rows, exports):
    known = {name for name, _ in exports}
    return [f"{row.place}: {function} is not exported" for row in rows for function in row.functions
            if function not in known]


def check_empty(rows):
    return [f"{row.place}: names no test" for row in rows if not row.tests]


def problems_of(messages_page, quirks_page, promises, exports, messages, known):
    problems = []
    told = list(rows_of(messages_page, "messages.md", 4, problems))
    quirks = list(rows_of(quirks_page, "quirks.md", 3, problems))
    lines = list(promises_of(promises, "promises.tsv"))
    return (problems + check.check_messages(told, messages) + check_names(told + quirks + lines, exports)
            + check_empty(quirks + lines) + check.check_tests(quirks + lines, known)
            + check.check_exports(lines, exports))


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", required=True)
    parser.add_argument("--source", required=True, type=pathlib.Path)
    parser.add_argument("--ctest", default="ctest")
    options = parser.parse_args()
    listing = subprocess.run([options.ctest, "--test-dir", options.build, "--show-only=json-v1"], check=True,
                             stdout=subprocess.PIPE, text=True).stdout
    source = options.source
    problems = problems_of((source / "docs/messages.md").read_text(), (source / "docs/quirks.md").read_text(),
                           (source / "tests/behaviour/promises.tsv").read_text(),
                           list(check.exported_names((source / "lib/exports.map").read_text())),
                           check.messages_of(source / "lib"), check.tests_of(listing))
    for problem in problems:
        print(problem)
    print(f"{len(problems)} problems")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
