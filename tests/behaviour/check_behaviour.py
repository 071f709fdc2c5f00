#!/usr/bin/env python3
"""Checks docs/behaviour.md against the tests, the exported names and the messages of the library.

The document has a section `## module` for each module and in it one table: function, behaviour, shown by. A row whose
behaviour begins with "error: `format`" or "debug: `format`" is about a message. What is checked:

  tests     each test that a row names exists, as CTest lists it: `Suite.Case`, which stands for all its types and
            values, `All/Suite.Case/value` for one of them, or the entry's whole name
  exports   each exported name (lib/exports.map) has a row
  messages  each message of lib/ has a row with its level and format in its module's section; no such row is stale
  shown     each message stands in one statement of the tests, byte for byte between its conversions
"""
import argparse
import collections
import json
import pathlib
import re
import subprocess
import sys

# The length that the format macros of <inttypes.h> stand for on x86-64.
LENGTH_OF_MACRO = {"8": "hh", "16": "h", "32": "", "64": "l", "MAX": "j", "PTR": "l"}

TOKEN = re.compile(
    r"""(?P<comment>//[^\n]*|/\*.*?\*/)
       |(?P<directive>^[ \t]*\#(?:\\.|[^\\\n])*)
       |(?P<raw>R"(?P<fence>[^()\s\\]*)\((?P<body>.*?)\)(?P=fence)")
       |"(?P<string>(?:\\.|[^"\\\n])*)"
       |(?P<character>'(?:\\.|[^'\\\n])+')
       |(?P<number>\b\d[\w'.]*)
       |(?P<word>[A-Za-z_]\w*)
       |(?P<mark>\S)""",
    re.VERBOSE | re.DOTALL | re.MULTILINE)
CONVERSION = re.compile(r"%[-+ #0]*(?:\d+|\*)?(?:\.(?:\d+|\*)?)?(?:hh|h|ll|l|j|z|t|L)?[A-Za-z]")
ESCAPE = re.compile(r"\\(x[0-9A-Fa-f]+|[0-7]{1,3}|.)", re.DOTALL)
# A test of many types or values: `All/Suite.Case/value`, `Suite.Case<type>`.
CASE_OF_MANY = re.compile(r"(?:\w+/)?(\w+\.\w+)(?:/\w+|<.*>)")
ESCAPED = {"n": "\n", "t": "\t", "r": "\r", "a": "\a", "b": "\b", "f": "\f", "v": "\v"}

Token = collections.namedtuple("Token", "kind text line")
Row = collections.namedtuple("Row", "place folder functions behaviour tests")
Message = collections.namedtuple("Message", "folder level format place")


def tokens_of(text):
    """The tokens of a C++ source without comments and preprocessor lines; strings as they are written inside."""
    for match in TOKEN.finditer(text):
        kind = match.lastgroup
        if kind not in ("comment", "directive"):
            written = match.group("body") if match.group("raw") is not None else match.group(kind)
            kind = "raw" if match.group("raw") is not None else kind
            yield Token(kind, written, text.count("\n", 0, match.start()) + 1)


def literal_of(token):
    """What a token adds to a format string, as the source writes it; None where it is no part of one."""
    if token.kind == "string":
        return token.text
    macro = re.fullmatch(r"PRI([dioxXu])(\d+|MAX|PTR)", token.text)
    return LENGTH_OF_MACRO[macro.group(2)] + macro.group(1) if macro else None


def unescaped(text):
    def value(match):
        code = match.group(1)
        if code[0] == "x" and len(code) > 1:
            return chr(int(code[1:], 16))
        return chr(int(code, 8)) if code.isdigit() else ESCAPED.get(code, code)

    return ESCAPE.sub(value, text)


# The library

def exported_names(export_map):
    """Each exported name with its module, which a comment in the list tells."""
    module = None
    for entry in re.finditer(r"/\* *(\w+) *\*/|^ +(\w+);", export_map, re.MULTILINE):
        if entry.group(1):
            module = entry.group(1)
        else:
            yield entry.group(2), module


def skip_argument(tokens, at):
    """The place behind the comma that ends the argument which begins at `at`."""
    depth = 0
    while depth > 0 or tokens[at].text != "," or tokens[at].kind != "mark":
        if tokens[at].kind == "mark":
            depth += (tokens[at].text in "([{") - (tokens[at].text in ")]}")
        at += 1
    return at + 1


def messages_in(text, folder, name):
    """The messages of one source. The format of one that is not written as a literal is None."""
    tokens = list(tokens_of(text))
    for at, token in enumerate(tokens):
        call = re.fullmatch(r"LOG_(ERROR|DEBUG)(_AS)?", token.text) if token.kind == "word" else None
        if not call:
            continue
        at = skip_argument(tokens, at + 2) if call.group(2) else at + 2
        pieces = []
        while (piece := literal_of(tokens[at])) is not None:
            pieces.append(piece)
            at += 1
        whole = pieces and tokens[at].text in (",", ")")
        yield Message(folder, call.group(1).lower(), "".join(pieces) if whole else None, f"{name}:{token.line}")


def messages_of(library):
    sources = sorted(path for path in library.glob("*/*") if path.suffix in (".cpp", ".h"))
    return [message for path in sources
            for message in messages_in(path.read_text(), path.parent.name, path.relative_to(library.parent))]


# The document

def rows_of(text, name, problems):
    folder = None
    for number, line in enumerate(text.splitlines(), 1):
        if line.startswith("## "):
            folder = line[3:].strip()
        if folder is None or not line.startswith("|") or re.match(r"\| function|\|[ :|-]*-[ :|-]*$", line):
            continue
        cells = [cell.strip().replace(r"\|", "|") for cell in re.split(r"(?<!\\)\|", line)][1:-1]
        functions, tests = (re.findall(r"`([^`]+)`", cell) for cell in (cells[0], cells[-1]))
        if len(cells) != 3 or not functions or not cells[1] or not tests:
            problems.append(f"{name}:{number}: not a row of function, behaviour and tests")
            continue
        yield Row(f"{name}:{number}", folder, functions, cells[1], tests)


def message_of(row):
    match = re.match(r"(?:Kept: )?(error|debug): `([^`]+)`", row.behaviour)
    return match and Message(row.folder, match.group(1), match.group(2), row.place)


# The tests

def tests_of(listing):
    """The names by which a row may call a test, from CTest's JSON."""
    names = set()
    for test in json.loads(listing)["tests"]:
        listed = test["name"].partition(":")[2].strip()  # some CMakes drop the blank
        name = listed.partition("  # GetParam()")[0]  # the value is told as memory may have it
        case = CASE_OF_MANY.fullmatch(name)
        names |= {test["name"], listed, name, case.group(1) if case else name}
    return names


def statements_in(text):
    """The texts of each statement of a test, joined."""
    texts = []
    for token in tokens_of(text):
        if token.kind in ("string", "raw"):
            texts.append(unescaped(token.text) if token.kind == "string" else token.text)
        elif token.text == ";" and texts:
            yield "".join(texts)
            texts = []


def pattern_of(message_format):
    """Finds the message in a statement. Its line's end need not stand there: the log adds it where it is missing."""
    text = unescaped(message_format)
    pieces = [piece.replace("%%", "%") for piece in CONVERSION.split(text.removesuffix("\n"))]
    if re.search("[A-Za-z]", "".join(pieces)):
        return re.compile("[^\n]*?".join(map(re.escape, pieces)))
    # A message without a word is found by what stands before it.
    return re.compile(r"\(#\): " + r"[^\s,]*".join(map(re.escape, pieces)) + ("" if any(pieces) else "\n"))


# The checks

def check_tests(rows, known):
    problems = [f"{row.place}: no test {test}" for row in rows for test in row.tests if test not in known]
    not_built = sorted(name for name in known if name.endswith("_NOT_BUILT")) if problems else []
    return problems + [f"{name.removesuffix('_NOT_BUILT')} is not built: its tests are unknown" for name in not_built]


def check_exports(rows, exports):
    described = {function for row in rows for function in row.functions}
    return [f"exports.map: {name} ({module}) has no row" for name, module in exports if name not in described]


def check_messages(rows, messages):
    described = [message for row in rows if (message := message_of(row))]
    there = {message[:3] for message in messages}
    told = {message[:3] for message in described}
    return ([f"{message.place}: the format is no literal" for message in messages if message.format is None]
            + [f"{message.place}: no row of {message.level}: `{message.format}`" for message in messages
               if message.format is not None and message[:3] not in told]
            + [f"{message.place}: no message of lib/{message.folder}: {message.level}: `{message.format}`"
               for message in described if message[:3] not in there])


def check_shown(messages, statements):
    formats = {}
    for message in messages:
        if message.format is not None:
            formats.setdefault(message.format, message.place)
    return [f"{place}: in no statement of the tests: `{text}`" for text, place in formats.items()
            if not any(map(pattern_of(text).search, statements))]


def arguments():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", required=True, help="folder of a build with all tests")
    parser.add_argument("--source", required=True, type=pathlib.Path, help="folder of the source tree")
    parser.add_argument("--ctest", default="ctest", help="the ctest program")
    parser.add_argument("--only", action="append", help="look at this folder of lib/ alone; may be repeated")
    parser.add_argument("documents", nargs="*", type=pathlib.Path, help="instead of docs/behaviour.md")
    return parser.parse_args()


def main():
    options = arguments()
    problems = []
    documents = options.documents or [options.source / "docs/behaviour.md"]
    rows = [row for path in documents for row in rows_of(path.read_text(), path.name, problems)]
    listing = subprocess.run([options.ctest, "--test-dir", options.build, "--show-only=json-v1"], check=True,
                             stdout=subprocess.PIPE, text=True).stdout
    exports = list(exported_names((options.source / "lib/exports.map").read_text()))
    messages = messages_of(options.source / "lib")
    if options.only:
        rows = [row for row in rows if row.folder in options.only]
        exports = [export for export in exports if export[1] in options.only]
        messages = [message for message in messages if message.folder in options.only]
    sources = [path for path in (options.source / "tests").rglob("*") if path.suffix in (".cpp", ".h", ".c")]
    statements = [statement for path in sources for statement in statements_in(path.read_text())]

    problems += check_tests(rows, tests_of(listing))
    problems += check_exports(rows, exports)
    problems += check_messages(rows, messages)
    problems += check_shown(messages, statements)
    for problem in problems:
        print(problem)
    print(f"{len(rows)} rows, {len(exports)} exported names, {len(messages)} messages: {len(problems)} problems")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
