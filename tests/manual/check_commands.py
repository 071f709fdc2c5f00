#!/usr/bin/env python3
"""Compares korvex(1) with what `korvex --help` and `korvex COMMAND --help` show: the commands, and the options of each.

Usage: check_commands.py PAGE KORVEX
"""
import re
import subprocess
import sys


def help_of(program, command):
    return subprocess.run([program, *command, "--help"], check=True, capture_output=True, text=True).stdout


def listed(text, title):
    """The first words of the lines of one list."""
    match = re.search(rf"^{title}:\n((?:  .*\n)+)", text, re.MULTILINE)
    return re.findall(r"^  (\S+)", match[1], re.MULTILINE) if match else []


def known_options(text):
    return {option for words in listed(text, "Options") for option in words.split(",") if option.startswith("-")}


def tool_commands(program, command=()):
    """Each command that does something, with its options."""
    text = help_of(program, command)
    below = listed(text, "Subcommands")
    if not below:
        return {" ".join(command): known_options(text)}
    found = {"": known_options(text)} if not command else {}
    for name in below:
        found |= tool_commands(program, (*command, name))
    return found


def options_in(lines):
    text = "\n".join(lines).replace("\\-", "-")
    return {f"-{name}" for name in re.findall(r"\bFl (-?\w[\w-]*)", text)}


def page_commands(path, names):
    """Each command that has a heading of its own, with the options that stand below it; "" is what no heading has."""
    found = {"": []}
    command = ""
    with open(path, encoding="utf-8") as page:
        for line in page:
            if line.startswith(".Sh "):
                command = ""
            elif line.startswith(".Ss "):
                words = line[4:].split()
                command = next((name for name in names if name and words[:len(name.split())] == name.split()), None)
                if command is None:
                    raise SystemExit(f"the page has a heading for no command: {line.strip()}")
            found.setdefault(command, []).append(line)
    return {name: options_in(lines) for name, lines in found.items()}


def main(page, program):
    shown = tool_commands(program)
    everywhere = {"-h", "--help"}
    # What the page says of no command of its own may name any option.
    any_option = set().union(*shown.values())
    described = page_commands(page, sorted(shown, key=len, reverse=True))
    complaints = []
    for command, options in shown.items():
        wanted = options if command == "" else options - everywhere
        if command not in described:
            complaints.append(f"no command '{command}' in the page")
            continue
        extra = described[command] - (any_option if command == "" else options | shown[""])
        complaints += [f"'korvex {command}': {option} is not in the page" for option in wanted - described[command]]
        complaints += [f"'korvex {command}': the page has {option}, the tool has not" for option in extra]
    print("\n".join(sorted(complaints)) or f"{len(shown) - 1} commands")
    return bool(complaints)


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    sys.exit(main(*sys.argv[1:]))
