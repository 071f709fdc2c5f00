#!/usr/bin/env python3
"""Tests of check_promises.py over a small tree: it passes, and each of its parts can fail."""
import pathlib
import subprocess
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True  # nothing is left in the source tree
import check_promises  # noqa: E402
from test_sources import EXPORTS, SOURCE, TEST  # noqa: E402

PROMISES = """# A list.
Open_It
  Suite.Case
  abi: exports
Read_It
  Suite.Case
g_open
  Suite.Case
"""
MESSAGES = r"""# Messages

| function | outside a section |

## sample

| message | said by | it means | what to do |
|---|---|---|---|
| error: `Can't open \"%s\"! (%d)\n` | `Open_It` | No file: a \| b. | Make it. |
| debug: `read %ld bytes of 1'000 (%d)` | `Read_It` | It is read. | Nothing. |
"""
QUIRKS = """## sample

| function | what it does | shown by |
|---|---|---|
| `Open_It`, `g_open` | Opens it twice. | `Suite.Case`, `abi: exports` |
"""
LISTING = 'add_test("sample: Suite.Case" true)\nadd_test("abi: exports" true)\n'
TREE = {"tests/promises/promises.txt": PROMISES, "docs/messages.md": MESSAGES, "docs/quirks.md": QUIRKS,
        "lib/exports.map": EXPORTS, "lib/sample/sample.cpp": SOURCE, "tests/sample/test_sample.cpp": TEST,
        "build/CTestTestfile.cmake": LISTING}
NO_ROW_OF_OPEN = r"""lib/sample/sample.cpp:5: no row of error: `Can't open \"%s\"! (%d)\n`"""
NO_ROW_OF_READ = "lib/sample/sample.cpp:6: no row of debug: `read %ld bytes of 1'000 (%d)`"
NO_STATEMENT_OF_OPEN = r"""lib/sample/sample.cpp:5: in no statement of the tests: `Can't open \"%s\"! (%d)\n`"""
NO_MESSAGE_OF_READ = "docs/messages.md:10: no message of lib/sample: debug: `read %ld bytes of 1'000 (%d)`"


class WholeCheck(unittest.TestCase):
    """The program over a source tree and a build folder that it asks CTest about."""

    def problems_after(self, name=None, old="", new=""):
        with tempfile.TemporaryDirectory() as folder:
            for path, text in TREE.items():
                pathlib.Path(folder, path).parent.mkdir(parents=True, exist_ok=True)
                if path == name:
                    self.assertIn(old, text)
                    text = text.replace(old, new, 1)
                pathlib.Path(folder, path).write_text(text)
            run = subprocess.run([sys.executable, check_promises.__file__, "--build", f"{folder}/build",
                                  "--source", folder], stdout=subprocess.PIPE, text=True)
        *problems, sums = run.stdout.splitlines()
        self.assertEqual(run.returncode, 1 if problems else 0)
        self.assertIn(f" {len(problems)} problems", sums)
        return problems

    def expect(self, name, changes):
        for old, new, problems in changes:
            self.assertEqual(self.problems_after(name, old, new), problems, (old, new))

    def test_passes(self):
        self.assertEqual(self.problems_after(), [])

    def test_fails_for_a_test(self):
        self.expect("build/CTestTestfile.cmake", [
            ("abi: exports", "abi: other", ["tests/promises/promises.txt:2: no test abi: exports",
                                            "docs/quirks.md:5: no test abi: exports"])])

    def test_fails_for_a_program_that_is_not_built(self):
        problems = self.problems_after("build/CTestTestfile.cmake", "sample: Suite.Case", "test_sample_NOT_BUILT")
        self.assertIn("tests/promises/promises.txt:2: no test Suite.Case", problems)
        self.assertIn("test_sample is not built: its tests are unknown", problems)

    def test_fails_for_an_exported_name(self):
        self.expect("lib/exports.map", [
            ("Read_It;", "Read_It;\n    Other;", ["exports.map: Other (sample) is not in promises.txt"]),
            ("    Open_It;\n", "", ["tests/promises/promises.txt:2: Open_It is not exported",
                                    "docs/messages.md:9: Open_It is not exported",
                                    "docs/quirks.md:5: Open_It is not exported"])])

    def test_fails_for_a_line_of_the_list(self):
        path = "tests/promises/promises.txt"
        self.expect(path, [
            ("g_open\n  Suite.Case\n", "", ["exports.map: g_open (sample) is not in promises.txt"]),
            ("g_open\n", "g_opened\n", [f"{path}:7: g_opened is not exported",
                                        "exports.map: g_open (sample) is not in promises.txt"]),
            ("g_open\n  Suite.Case\n", "g_open\n", [f"{path}:7: names no test"]),
            ("Read_It\n", "Open_It\n", ["exports.map: Read_It (sample) is not in promises.txt",
                                        f"{path}:5: Open_It again"]),
            ("  abi: exports\n", "  Suite.Case\n", [f"{path}:2: Suite.Case again"]),
            ("  Suite.Case\n", "  Suite.Other\n", [f"{path}:2: no test Suite.Other"]),
            ("# A list.\n", "  Suite.Case\n", [f"{path}:1: neither a function nor a test of one"]),
            ("  abi: exports\n", "abi: exports\n", [f"{path}:4: neither a function nor a test of one"])])

    def test_fails_for_a_message(self):
        self.expect("lib/sample/sample.cpp", [
            ("LOG_DEBUG_AS(", "LOG_OTHER_AS(", [NO_MESSAGE_OF_READ]),
            ('n, \'"\');', 'n, \'"\'); LOG_ERROR(kFormat);', ["lib/sample/sample.cpp:7: the format is no literal"])])

    def test_fails_for_a_row_of_a_message(self):
        path = "docs/messages.md"
        read = MESSAGES.splitlines()[-1] + "\n"
        no_message_of_open = r"no message of lib/sample: error: `Can't open \"%s\"! (%d)`"
        self.expect(path, [
            (read, "", [NO_ROW_OF_READ]),
            ("debug: `", "error: `", [NO_ROW_OF_READ, NO_MESSAGE_OF_READ.replace("debug:", "error:")]),
            (r"(%d)\n`", "(%d)`", [NO_ROW_OF_OPEN, f"{path}:9: {no_message_of_open}"]),
            ("## sample", "## other", [NO_ROW_OF_OPEN, NO_ROW_OF_READ,
                                       f"{path}:9: {no_message_of_open.replace('sample', 'other')[:-1]}" r"\n`",
                                       NO_MESSAGE_OF_READ.replace("lib/sample", "lib/other")]),
            ("debug: `", "note: `", [NO_ROW_OF_READ, f"{path}:10: no message"]),
            ("`Read_It`", "`Read_Them`", [f"{path}:10: Read_Them is not exported"]),
            ("`Read_It`", "Read_It", [f"{path}:10: names no function"]),
            (" Make it. ", " ", [f"{path}:9: not a row of 4 cells", NO_ROW_OF_OPEN])])

    def test_fails_for_a_message_that_no_test_shows(self):
        for old, new in (('"! (', '"? ('), ("Can't open", "can't open"), ("// here;", ";"), ('"! ("', '"\\n! ("')):
            self.expect("tests/sample/test_sample.cpp", [(old, new, [NO_STATEMENT_OF_OPEN])])

    def test_fails_for_a_quirk(self):
        path = "docs/quirks.md"
        row = f"{path}:5: not a row of 3 cells"
        self.expect(path, [
            (" Opens it twice. ", " ", [row]), ("| Opens it twice. ", "", [row]),
            ("`Suite.Case`, `abi: exports`", "no test", [f"{path}:5: names no test"]),
            ("`Suite.Case`", "`Suite.Other`", [f"{path}:5: no test Suite.Other"]),
            ("`g_open`", "`g_opened`", [f"{path}:5: g_opened is not exported"]),
            ("`Open_It`, `g_open`", "All", [f"{path}:5: names no function"])])


class Shown(unittest.TestCase):
    def test_message_without_a_word(self):
        messages = [check_promises.sources.Message("sample", "error", text, "a.cpp:1") for text in (r"\n", "%2X, %c, ")]
        self.assertEqual(check_promises.check_shown(messages, ["[error] F(#): \n", "[error] F(#): 5A, Z, \n"]), [])
        self.assertEqual(len(check_promises.check_shown(messages, ["a\n[error] F(#): Read 1, 2, 3\n"])), 2)


if __name__ == "__main__":
    unittest.main()
