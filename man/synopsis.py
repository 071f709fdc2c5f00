#!/usr/bin/env python3
"""Makes korvex(1) of its template and of the tool's own description of its commands.

The first heading of each command, ".Ss conf get", becomes the command's synopsis, whatever else stands in its line;
headings of a command's other forms stay as they are written. The line '.\\" @commands@' becomes the list of all
commands. A command that the template does not know is in that list alone: tests/manual/check_commands.py tells.

Usage: synopsis.py TEMPLATE KORVEX PAGE
"""
import json
import subprocess
import sys


def escaped(text):
    return text.replace("\\", "\\e").replace("-", "\\-").replace("'", "\\(aq").replace('"', "\\(dq")


def own_options(command):
    return [option for option in command["options"] if "--help" not in option["names"]]


def all_commands(command, names=()):
    """Each command that does something, by its words; not those that only hold others."""
    found = {}
    if names and (not command["commands"] or command["words"] or own_options(command)):
        found[" ".join(names)] = command
    for below in command["commands"]:
        found |= all_commands(below, (*names, below["name"]))
    return found


# Where the parser's own name of a value says less than the option.
VALUES = {"--section": "section", "--type": "type", "--clock": "hours", "--date": "format"}
USUAL = {"": "value", "INT": "number", "UINT": "number", "FLOAT": "number"}


def argument(name, repeats):
    """The name of a value as the page writes it. A command to run stands behind the dashes."""
    words = USUAL.get(name, name).lower().replace("|", " | ")
    dashes = "Fl \\- " if name == "COMMAND" else ""
    return f"{dashes}Ar {escaped(words)}" + (" ..." if repeats else "")


def in_brackets(text, required):
    return text if required else f"Oo {text} Oc"


def option_text(option):
    name = escaped(option["names"][0][1:])
    value = ""
    if option["value"] is not None:
        value = " " + argument(VALUES.get(option["names"][-1], option["value"]), option["repeats"])
    return in_brackets(f"Fl {name}{value}", option["required"])


def synopsis(name, command):
    """The heading of a command: its name, options and words."""
    pieces = [option_text(option) for option in own_options(command)]
    pieces += [in_brackets(argument(word["name"], word["repeats"]), word["required"]) for word in command["words"]]
    return " ".join([f".Ss {escaped(name)}", *pieces])


def command_list(commands):
    lines = [".Bl -tag -width \"conf section replace\" -compact"]
    for name, command in commands.items():
        lines += [f".It Cm {escaped(name)}", escaped(command["summary"])]
    return [*lines, ".El"]


def heading_of(line, names):
    """The command that a heading is for; None for other lines."""
    words = line[4:].split() if line.startswith(".Ss ") else []
    return next((name for name in names if words and words[:len(name.split())] == name.split()), None)


def page(template, description):
    commands = all_commands(description)
    names = sorted(commands, key=len, reverse=True)
    seen = set()
    lines = []
    for line in template.splitlines():
        name = heading_of(line, names)
        if line == '.\\" @commands@':
            lines += command_list(commands)
        elif name is None or name in seen:
            lines.append(line)
        else:
            seen.add(name)
            lines.append(synopsis(name, commands[name]))
    return "\n".join(lines) + "\n"


def description_of(program):
    """What the tool says of its commands."""
    said = subprocess.run([program, "--describe"], check=True, capture_output=True, text=True).stdout
    return json.loads(said)


def main(template, program, made):
    with open(template, encoding="utf-8") as text:
        made_page = page(text.read(), description_of(program))
    with open(made, "w", encoding="utf-8") as file:
        file.write(made_page)


if __name__ == "__main__":
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    main(*sys.argv[1:])
