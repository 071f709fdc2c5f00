#!/usr/bin/env python3
"""What the maker of korvex(1) writes, and that the built page is what it makes of the tool at hand.

Usage: test_synopsis.py MAN_SOURCE_DIR PAGE KORVEX [unittest arguments]
"""
import pathlib
import sys
import unittest

SOURCES, PAGE, KORVEX = (pathlib.Path(sys.argv.pop(1)) for _ in range(3))
sys.path.insert(0, str(SOURCES))
sys.dont_write_bytecode = True

import synopsis  # noqa: E402

HELP = {"names": ["-h", "--help"], "value": None, "required": False, "repeats": False, "summary": "Help"}


def option(*names, value=None, required=False, repeats=False):
    return {"names": list(names), "value": value, "required": required, "repeats": repeats, "summary": ""}


def word(name, required=True, repeats=False):
    return {"name": name, "required": required, "repeats": repeats, "summary": ""}


def command(name, options=(), words=(), below=()):
    return {"name": name, "summary": f"Does {name}", "needs_command": False, "options": [HELP, *options],
            "words": list(words), "commands": list(below)}


TREE = command("korvex", below=[
    command("conf", below=[
        command("get", [option("-s", "--section", value="TEXT"), option("--kind", value="")], [word("FILE")])]),
    command("snap", [option("--figures")], below=[command("diff", words=[word("A|B", repeats=True)])]),
    command("put", [option("--to", value="DIR", required=True, repeats=True)], [word("TEXT", required=False)])])


class Synopses(unittest.TestCase):
    def test_a_group_is_no_command_unless_it_does_something_itself(self):
        self.assertEqual(list(synopsis.all_commands(TREE)), ["conf get", "snap", "snap diff", "put"])

    def page(self, *lines):
        return synopsis.page("\n".join(lines), TREE).splitlines()

    def test_the_first_heading_of_a_command_becomes_its_synopsis(self):
        self.assertEqual(self.page(".Ss conf get Fl x", "Text.", ".Ss conf get Fl \\-other"),
                         [".Ss conf get Oo Fl s Ar section Oc Oo Fl \\-kind Ar value Oc Ar file", "Text.",
                          ".Ss conf get Fl \\-other"])

    def test_a_longer_name_is_not_taken_for_a_shorter_one(self):
        self.assertEqual(self.page(".Ss snap diff", ".Ss snap"),
                         [".Ss snap diff Ar a | b ...", ".Ss snap Oo Fl \\-figures Oc"])

    def test_what_is_required_has_no_brackets_and_what_repeats_has_dots(self):
        self.assertEqual(self.page(".Ss put"), [".Ss put Fl \\-to Ar dir ... Oo Ar text Oc"])

    def test_a_command_to_run_stands_behind_dashes(self):
        tree = command("korvex", below=[command("lock", words=[word("COMMAND", required=False, repeats=True)])])
        self.assertEqual(synopsis.page(".Ss lock", tree), ".Ss lock Oo Fl \\- Ar command ... Oc\n")

    def test_the_list_has_every_command(self):
        lines = self.page('.\\" @commands@')
        self.assertEqual(lines[1:3], [".It Cm conf get", "Does get"])
        self.assertEqual(len(lines), 10)

    def test_other_headings_and_lines_stay(self):
        self.assertEqual(self.page(".Ss other", ".Sh put", "put"), [".Ss other", ".Sh put", "put"])


class Page(unittest.TestCase):
    def test_the_built_page_is_of_this_template_and_this_tool(self):
        template = (SOURCES / "korvex.1.in").read_text(encoding="utf-8")
        self.assertEqual(PAGE.read_text(encoding="utf-8"), synopsis.page(template, synopsis.description_of(KORVEX)))


if __name__ == "__main__":
    unittest.main()
