#!/usr/bin/env python3
"""Checks promises.txt, docs/messages.md and docs/quirks.md against the tests, the exported names and the messages.

  promises.txt  each exported name stands in it once, with its tests below it
  messages.md   each message of lib/ has a row in its module's section, with its level and format; no row is stale
  quirks.md     each row names its tests
  all three     the functions named are exported, and the tests named exist: `Suite.Case`, which stands for all its
                types and values, `All/Suite.Case/value` for one of them, or the entry's whole name, as CTest lists it
  the tests     each message stands in one of their statements, byte for byte between its conversions
"""
import argparse
import collections
import pathlib
import re
import subprocess
import sys

sys.dont_write_bytecode = True  # nothing is left in the source tree
import sources  # noqa: E402

Row = collections.namedtuple("Row", "place folder functions text tests")
Library = collections.namedtuple("Library", "exports messages")
Tests = collections.namedtuple("Tests", "names statements")


# The pages and the list

def cells_of(text, name, columns, problems):
    """The rows of a page's tables with their place and section, the tables' heads left out."""
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
        yield f"{name}:{number}", folder, cells


def names_in(cell):
    return re.findall(r"`([^`]+)`", cell)


def messages_page(text, name, problems):
    return [Row(place, folder, names_in(functions), message, [])
            for place, folder, (message, functions, _, _) in cells_of(text, name, 4, problems)]


def quirks_page(text, name, problems):
    return [Row(place, folder, names_in(functions), quirk, names_in(tests))
            for place, folder, (functions, quirk, tests) in cells_of(text, name, 3, problems)]


def promises_list(text, name, problems):
    """The exported names, each with the tests that stand indented below it."""
    rows = []
    for number, line in enumerate(text.splitlines(), 1):
        if line.startswith("#"):
            continue
        if re.fullmatch(r"\w+", line):
            rows.append(Row(f"{name}:{number}", None, [line], "", []))
        elif rows and re.match(r"  \S", line):
            rows[-1].tests.append(line.strip())
        else:
            problems.append(f"{name}:{number}: neither a function nor a test of one")
    return rows


def message_of(row):
    match = re.match(r"(error|debug): `([^`]+)`", row.text)
    return match and sources.Message(row.folder, match.group(1), match.group(2), row.place)


# The checks

def check_functions(rows, exports):
    known = {name for name, _ in exports}
    return ([f"{row.place}: {function} is not exported" for row in rows for function in row.functions
             if function not in known]
            + [f"{row.place}: names no function" for row in rows if not row.functions])


def check_tests(rows, known):
    problems = [f"{row.place}: no test {test}" for row in rows for test in row.tests if test not in known]
    not_built = sorted(name for name in known if name.endswith("_NOT_BUILT")) if problems else []
    return (problems + [f"{name.removesuffix('_NOT_BUILT')} is not built: its tests are unknown" for name in not_built]
            + [f"{row.place}: names no test" for row in rows if not row.tests])


def check_exports(promises, exports):
    listed = [function for row in promises for function in row.functions]
    return ([f"exports.map: {name} ({module}) is not in promises.txt" for name, module in exports
             if name not in listed]
            + [f"{row.place}: {row.functions[0]} again" for at, row in enumerate(promises)
               if row.functions[0] in listed[:at]]
            + [f"{row.place}: {test} again" for row in promises for at, test in enumerate(row.tests)
               if test in row.tests[:at]])


def check_messages(rows, messages):
    described = [message for row in rows if (message := message_of(row))]
    there = {message[:3] for message in messages}
    told = {message[:3] for message in described}
    return ([f"{message.place}: the format is no literal" for message in messages if message.format is None]
            + [f"{message.place}: no row of {message.level}: `{message.format}`" for message in messages
               if message.format is not None and message[:3] not in told]
            + [f"{message.place}: no message of lib/{message.folder}: {message.level}: `{message.format}`"
               for message in described if message[:3] not in there]
            + [f"{row.place}: no message" for row in rows if not message_of(row)])


def check_shown(messages, statements):
    formats = {}
    for message in messages:
        if message.format is not None:
            formats.setdefault(message.format, message.place)
    return [f"{place}: in no statement of the tests: `{text}`" for text, place in formats.items()
            if not any(map(sources.pattern_of(text).search, statements))]


def check(promises, messages, quirks, library, tests):
    return (check_functions(promises + messages + quirks, library.exports)
            + check_exports(promises, library.exports)
            + check_tests(promises + quirks, tests.names)
            + check_messages(messages, library.messages)
            + check_shown(library.messages, tests.statements))


def arguments():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", required=True, help="folder of a build with all tests")
    parser.add_argument("--source", required=True, type=pathlib.Path, help="folder of the source tree")
    parser.add_argument("--ctest", default="ctest", help="the ctest program")
    return parser.parse_args()


def main():
    options = arguments()
    problems = []
    promises, messages, quirks = (
        rows_of((options.source / path).read_text(), path, problems)
        for rows_of, path in ((promises_list, "tests/promises/promises.txt"), (messages_page, "docs/messages.md"),
                              (quirks_page, "docs/quirks.md")))
    library = Library(list(sources.exported_names((options.source / "lib/exports.map").read_text())),
                      sources.messages_of(options.source / "lib"))
    listing = subprocess.run([options.ctest, "--test-dir", options.build, "--show-only=json-v1"], check=True,
                             stdout=subprocess.PIPE, text=True).stdout
    tests = Tests(sources.tests_of(listing), sources.statements_of(options.source / "tests"))

    problems += check(promises, messages, quirks, library, tests)
    for problem in problems:
        print(problem)
    print(f"{len(promises)} exported names with {sum(len(row.tests) for row in promises)} tests, "
          f"{len(messages)} rows of messages, {len(quirks)} quirks: {len(problems)} problems")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
