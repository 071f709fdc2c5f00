#!/usr/bin/env python3
"""Checks docs/cpp_reference.md against lib/exports.map and the headers of the C++ layer.

Each exported function has one row and nothing else has. What a row names in C++ stands in the headers. A row gives a
reason exactly where no header calls the function.

Usage: check_reference.py SOURCE_DIR
"""
import pathlib
import re
import sys

ROW = re.compile(r"\| `(\w+)` \| (.*?) \| (.*?) \|")


def exported_functions(exports):
    names = re.sub(r"/\*.*?\*/", "", exports, flags=re.S).split("local:")[0]
    return [name for name in re.findall(r"^\s+(\w+);", names, re.M) if not name.startswith("g_")]


def code_of(folder):
    return "\n".join(re.sub(r"//[^\n]*", "", path.read_text()) for path in sorted(folder.rglob("*.hpp")))


def mistakes_in(rows, exported, code):
    for name in exported:
        if (count := sum(row[0] == name for row in rows)) != 1:
            yield f"{name} has {count} rows"
    for name, layer, reason in rows:
        if name not in exported:
            yield f"{name} is not exported"
        for known in re.findall(r"`([^`]+)`", layer):
            for part in known.split("::"):
                if not re.search(rf"\b{part}\b", code):
                    yield f"{name}: the layer has no {known}"
        is_called = re.search(rf"\b{name}\b", code) is not None
        if is_called and reason:
            yield f"{name} is called, but the row says why not"
        if is_called and not layer:
            yield f"{name} is called, but the row does not say by what"
        if not is_called and not reason:
            yield f"{name} is not called, and the row does not say why"


def main():
    source = pathlib.Path(sys.argv[1])
    exported = exported_functions((source / "lib/exports.map").read_text())
    rows = ROW.findall((source / "docs/cpp_reference.md").read_text())
    mistakes = list(mistakes_in(rows, exported, code_of(source / "include/korvex")))
    for mistake in mistakes:
        print("FAILED:", mistake)
    print(f"{len(exported)} functions, {len(rows)} rows")
    sys.exit(1 if mistakes or not exported else 0)


if __name__ == "__main__":
    main()
