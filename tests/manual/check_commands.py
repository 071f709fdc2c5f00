#!/usr/bin/env python3
"""Compares korvex(1) with what the tool says of its commands: each command has a heading, and each option of a command
an entry below it.

Usage: check_commands.py TEMPLATE KORVEX
"""
import pathlib
import re
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "man"))

import synopsis  # noqa: E402


def names_of(command):
    return {name for option in command["options"] for name in option["names"]}


def options_in(lines):
    text = "\n".join(lines).replace("\\-", "-")
    return {f"-{name}" for name in re.findall(r"\bFl (-?\w[\w-]*)", text)}


def page_commands(path, names):
    """Each command that has a heading of its own, with the options that stand below it; "" is what no heading has.

    Headings without a text between them share what follows. What stands between a section's heading and the first
    command holds for all commands of the section."""
    found = {"": []}
    current, shared, after_heading = [""], [], False
    with open(path, encoding="utf-8") as page:
        for line in page:
            is_heading = line.startswith(".Ss ")
            if line.startswith(".Sh "):
                current, shared = [""], []
            elif is_heading:
                command = synopsis.heading_of(line, names)
                if command is None:
                    raise SystemExit(f"the page has a heading for no command: {line.strip()}")
                current = [*current, command] if after_heading else [command]
                found.setdefault(command, []).extend(shared)
            for command in current:
                found[command].append(line)
            if current == [""]:
                shared.append(line)
            after_heading = is_heading
    return {name: options_in(lines) for name, lines in found.items()}


def main(page, program):
    tree = synopsis.description_of(program)
    shown = {name: names_of(command) for name, command in synopsis.all_commands(tree).items()}
    everywhere = {"-h", "--help"}
    own = names_of(tree)
    # What the page says of no command of its own may name any option.
    any_option = own.union(*shown.values())
    described = page_commands(page, sorted(shown, key=len, reverse=True))
    complaints = [f"{option} of the program is not in the page" for option in own - described[""]]
    complaints += [f"the page has {option}, the tool has not" for option in described[""] - any_option]
    for command, options in shown.items():
        if command not in described:
            complaints.append(f"no command '{command}' in the page")
            continue
        extra = described[command] - (options | own | described[""])
        missing = options - everywhere - described[command]
        complaints += [f"'korvex {command}': {option} is not in the page" for option in missing]
        complaints += [f"'korvex {command}': the page has {option}, the tool has not" for option in extra]
    print("\n".join(sorted(complaints)) or f"{len(shown)} commands")
    return bool(complaints)


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    sys.exit(main(*sys.argv[1:]))
