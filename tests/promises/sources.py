"""Reads the exported names and the messages of the library, and the names and statements of the tests."""
import collections
import json
import re

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


# The tests

def tests_of(listing):
    """The names by which a test may be called, from CTest's JSON."""
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


def statements_of(tests):
    paths = [path for path in tests.rglob("*") if path.suffix in (".cpp", ".h", ".c")]
    return [statement for path in paths for statement in statements_in(path.read_text())]
