#!/usr/bin/env python3
"""Finds inline functions of headers that nobody calls: the compiler warns of none of them.

Usage: check_uncalled.py FOLDER[,CALLERS...]...

A function of a folder's headers counts as called where its name stands in the code of that folder, or of its callers',
and is not being defined. So one of two functions of the same name is not found while the other one is called.
"""
import pathlib
import re
import sys

SOURCES = {".h", ".hpp", ".c", ".cpp"}
HEADERS = {".h", ".hpp"}
NOT_CODE = re.compile(r'//[^\n]*|/\*.*?\*/|R"\((?:.*?)\)"|"(?:\\.|[^"\\\n])*"|(?<![0-9a-fA-F])\'(?:\\.|[^\'\\\n])*\''
                      r"|^[ \t]*#(?:\\\n|[^\n])*", re.DOTALL | re.MULTILINE)
TOKEN = re.compile(r"[A-Za-z_]\w*|::|->|[^\s\w]")
# Behind these a name is called, not defined.
NO_TYPE = {"return", "else", "case", "throw", "new", "delete", "co_return", "goto", "do"}
BEFORE_BODY = {"const", "noexcept"}  # what overrides is called by its base
DEFINE = re.compile(r"^[ \t]*#[ \t]*define((?:\\\n|[^\n])*)", re.MULTILINE)
NAME = re.compile(r"[A-Za-z_]\w*")


def behind_parentheses(tokens, opening):
    """The place behind the one that closes the parenthesis at `opening`."""
    depth = 0
    for at in range(opening, len(tokens)):
        depth += {"(": 1, ")": -1}.get(tokens[at], 0)
        if depth == 0:
            return at + 1
    return len(tokens)


def is_definition(tokens, at):
    """Whether the name at `at` has a type before it, and parameters and a body behind it."""
    if at == 0 or at + 1 >= len(tokens) or tokens[at + 1] != "(":
        return False
    before = tokens[at - 1]
    if before in NO_TYPE or not re.fullmatch(r"[A-Za-z_]\w*|[*&>]", before):
        return False
    at = behind_parentheses(tokens, at + 1)
    while at < len(tokens) and tokens[at] in BEFORE_BODY:
        at += 1
    return at < len(tokens) and tokens[at] == "{"


def uncalled(texts, is_looked_at=lambda path: True):
    """Of texts by path: (path, name) of each inline function of the headers looked at that no text calls."""
    defined = {}
    said = set()
    for path, text in texts.items():
        for macro in DEFINE.findall(text):
            said.update(NAME.findall(macro))
        tokens = TOKEN.findall(NOT_CODE.sub(" ", text))
        for at, token in enumerate(tokens):
            if not NAME.match(token):
                continue
            if not is_definition(tokens, at):
                said.add(token)
            elif path.suffix in HEADERS and is_looked_at(path):
                defined.setdefault(token, path)
    # A loop over a range calls these two.
    return sorted((str(path), name) for name, path in defined.items() if name not in said | {"begin", "end"})


def texts_of(folder):
    return {path: path.read_text() for path in pathlib.Path(folder).rglob("*") if path.suffix in SOURCES}


def main(arguments):
    found = []
    for argument in arguments:
        folder, *callers = argument.split(",")
        own = texts_of(folder)
        if not any(path.suffix in HEADERS for path in own):
            sys.exit(f"{folder}: no headers")
        texts = dict(own)
        for caller in callers:
            texts.update(texts_of(caller))
        found += uncalled(texts, own.__contains__)
    for path, name in found:
        print(f"{path}: nobody calls {name}")
    print(f"{len(found)} uncalled inline functions")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
