#!/usr/bin/env python3
"""Tests of check_behaviour.py over small samples: what it reads, and that each of its parts can fail."""
import json
import pathlib
import subprocess
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True  # nothing is left in the source tree
import check_behaviour as check  # noqa: E402

SOURCE = r"""
#define LOG_ERROR(...) LOG_ERROR_AS(__func__, __VA_ARGS__)
// LOG_ERROR("in a comment\n");
void f(int n) {
    LOG_ERROR("Can't open \"%s\"! (%d)\n", path, n);
    LOG_DEBUG_AS(name_of(a, "b"), "read %" PRId64
                 " bytes of 1'000 (%d)", n, '"');
}
"""
DOCUMENT = r"""# Behaviour

| function | behaviour |
|---|---|
| `Not_Yet` | outside a section |

## sample

| function | behaviour | shown by |
|---|---|---|
| `Open_It`, `g_open` | Opens it: a \| b. | `Suite.Case`, `abi: exports` |
| `Open_It` | error: `Can't open \"%s\"! (%d)\n` when it can't. | `Suite.Case` |
| `Read_It` | Kept: debug: `read %ld bytes of 1'000 (%d)` always. | `Suite.Case` |
"""
EXPORTS = """KORVEX_UTIL_1.0 {
  global:
    /* sample */
    Open_It;
    Read_It;
    g_open;
  local:
    *;
};
"""
TEST = r"""
const std::string kOpen = "[error] Open_It(#): Can't open \"" + path + "\"" // here;
                          "! (" + std::to_string(code) + ")\n";
EXPECT_EQ(log.messages(), R"([debug] Read_It(#): read 7 bytes of 1'000 (7))");
"""
LISTING = json.dumps({"tests": [{"name": "sample:Suite.Case"}, {"name": "abi: exports"}]})


def rows_of(document, problems=None):
    return list(check.rows_of(document, "sample.md", [] if problems is None else problems))


def messages_of(source):
    return list(check.messages_in(source, "sample", "lib/sample/sample.cpp"))


class Reading(unittest.TestCase):
    def test_messages_of_a_source(self):
        error, debug = messages_of(SOURCE)
        self.assertEqual(error[:3], ("sample", "error", r"Can't open \"%s\"! (%d)\n"))
        self.assertEqual(error.place, "lib/sample/sample.cpp:5")
        self.assertEqual(debug[:3], ("sample", "debug", "read %ld bytes of 1'000 (%d)"))

    def test_exported_names(self):
        self.assertEqual(list(check.exported_names(EXPORTS)),
                         [("Open_It", "sample"), ("Read_It", "sample"), ("g_open", "sample")])

    def test_rows_of_a_document(self):
        first, second, third = rows_of(DOCUMENT)
        self.assertEqual(first, ("sample.md:11", "sample", ["Open_It", "g_open"], "Opens it: a | b.",
                                 ["Suite.Case", "abi: exports"]))
        self.assertIsNone(check.message_of(first))
        self.assertEqual(check.message_of(second)[:3], ("sample", "error", r"Can't open \"%s\"! (%d)\n"))
        self.assertEqual(check.message_of(third).level, "debug")

    def test_rows_that_are_none(self):
        for broken in ("| `Open_It` | opens it |", "| Open_It | opens it | `Suite.Case` |",
                       "| `Open_It` | opens it | |", "| `Open_It` | | `Suite.Case` |",
                       "| `Open_It` | a | b | `Suite.Case` |"):
            problems = []
            self.assertEqual(len(rows_of(DOCUMENT + broken + "\n", problems)), 3)
            self.assertEqual(problems, ["sample.md:14: not a row of function, behaviour and tests"])

    def test_statements_of_a_test(self):
        self.assertEqual(list(check.statements_in(TEST)),
                         ["[error] Open_It(#): Can't open \"\"! ()\n", "[debug] Read_It(#): read 7 bytes of 1'000 (7)"])


class Checks(unittest.TestCase):
    def test_each_test_exists(self):
        self.assertEqual(check.check_tests(rows_of(DOCUMENT), check.tests_of(LISTING)), [])

    def test_names_of_a_test_of_many_values(self):
        entry = "sample:All/Suite.Case/first  # GetParam() = 4-byte object <00-00 00-00>"
        known = check.tests_of(json.dumps({"tests": [{"name": entry}]}))
        self.assertLessEqual({"Suite.Case", "All/Suite.Case/first", entry}, known)
        self.assertNotIn("Suite.Case/first", known)

    def test_names_of_a_test_of_many_types(self):
        known = check.tests_of(json.dumps({"tests": [{"name": "sample: Suite.Case<lists::OnPairs>"}]}))
        self.assertLessEqual({"Suite.Case", "Suite.Case<lists::OnPairs>"}, known)

    def test_missing_test(self):
        known = check.tests_of(LISTING.replace("Suite.Case", "Suite.Other"))
        self.assertEqual(check.check_tests(rows_of(DOCUMENT)[:1], known), ["sample.md:11: no test Suite.Case"])

    def test_program_that_is_not_built(self):
        known = check.tests_of(LISTING.replace("sample:Suite.Case", "test_sample_NOT_BUILT"))
        self.assertEqual(check.check_tests(rows_of(DOCUMENT)[:1], known), [
            "sample.md:11: no test Suite.Case", "test_sample is not built: its tests are unknown"])

    def test_each_export_has_a_row(self):
        self.assertEqual(check.check_exports(rows_of(DOCUMENT), check.exported_names(EXPORTS)), [])

    def test_missing_function_and_global(self):
        for name in ("Read_It", "g_open"):
            rows = rows_of(DOCUMENT.replace(f"`{name}`", "`Other`"))
            self.assertEqual(check.check_exports(rows, check.exported_names(EXPORTS)),
                             [f"exports.map: {name} (sample) has no row"])

    def test_each_message_has_a_row(self):
        self.assertEqual(check.check_messages(rows_of(DOCUMENT), messages_of(SOURCE)), [])

    def test_missing_message(self):
        rows = rows_of(DOCUMENT)
        self.assertEqual(check.check_messages(rows[:2], messages_of(SOURCE)),
                         ["lib/sample/sample.cpp:6: no row of debug: `read %ld bytes of 1'000 (%d)`"])

    def test_stale_message(self):
        self.assertEqual(check.check_messages(rows_of(DOCUMENT), messages_of(SOURCE)[:1]),
                         ["sample.md:13: no message of lib/sample: debug: `read %ld bytes of 1'000 (%d)`"])

    def test_message_told_otherwise(self):
        for change in (("error: `Can't", "debug: `Can't"), (r"(%d)\n`", "(%d)`"), ("## sample", "## other")):
            problems = check.check_messages(rows_of(DOCUMENT.replace(*change)), messages_of(SOURCE)[:1])
            self.assertIn(r'lib/sample/sample.cpp:5: no row of error: `Can' "'" r't open \"%s\"! (%d)\n`', problems)

    def test_format_that_is_no_literal(self):
        for call in ("LOG_ERROR(kFormat, 1)", "LOG_ERROR_AS(name, kFormat)", 'LOG_ERROR("a" kFormat, 1)'):
            self.assertEqual(check.check_messages([], messages_of(call)),
                             ["lib/sample/sample.cpp:1: the format is no literal"])

    def test_each_message_is_shown(self):
        self.assertEqual(check.check_shown(messages_of(SOURCE), list(check.statements_in(TEST))), [])

    def test_message_that_no_test_shows(self):
        open_it = r"lib/sample/sample.cpp:5: in no statement of the tests: `Can't open \"%s\"! (%d)\n`"
        for change in (('"! (', '"? ('), ("Can't open", "can't open"), ("// here;", ";"), ('"! ("', '"\\n! ("')):
            statements = list(check.statements_in(TEST.replace(*change)))
            self.assertEqual(check.check_shown(messages_of(SOURCE), statements), [open_it], change)

    def test_message_without_a_word(self):
        messages = messages_of(r'LOG_ERROR("\n"); LOG_ERROR("%2X, %c, ");')
        self.assertEqual(check.check_shown(messages, ["[error] F(#): \n", "[error] F(#): 5A, Z, \n"]), [])
        self.assertEqual(len(check.check_shown(messages, ["a\n[error] F(#): Read 1, 2, 3\n"])), 2)


class WholeCheck(unittest.TestCase):
    """The program over a source tree and a build folder that it asks CTest about."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = pathlib.Path(folder.name)
        for name, text in (("lib/exports.map", EXPORTS), ("lib/sample/sample.cpp", SOURCE),
                           ("docs/behaviour.md", DOCUMENT), ("tests/sample/test_sample.cpp", TEST),
                           ("build/CTestTestfile.cmake", 'add_test("sample: Suite.Case" true)\n'
                                                         'add_test("abi: exports" true)\n')):
            path = self.root / name
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(text)

    def run_check(self, *arguments):
        return subprocess.run([sys.executable, check.__file__, "--build", self.root / "build", "--source", self.root,
                               *arguments], stdout=subprocess.PIPE, text=True)

    def expect_failure_after(self, name, old, new, problems=1):
        path = self.root / name
        path.write_text(path.read_text().replace(old, new))
        run = self.run_check()
        self.assertEqual(run.returncode, 1)
        self.assertTrue(run.stdout.endswith(f"3 rows, 3 exported names, 2 messages: {problems} problems\n"), run.stdout)

    def test_passes(self):
        run = self.run_check()
        self.assertEqual((run.returncode, run.stdout), (0, "3 rows, 3 exported names, 2 messages: 0 problems\n"))

    def test_fails_for_a_test(self):
        self.expect_failure_after("build/CTestTestfile.cmake", "abi: exports", "abi: other")

    def test_fails_for_an_export(self):
        self.expect_failure_after("docs/behaviour.md", "`g_open`", "`g_opened`")

    def test_fails_for_a_message(self):
        self.expect_failure_after("docs/behaviour.md", "(%d)` always", "(%u)` always", problems=2)

    def test_fails_for_a_message_not_shown(self):
        self.expect_failure_after("tests/sample/test_sample.cpp", "read 7 bytes", "read 7 Bytes")

    def test_looks_at_one_folder_alone(self):
        self.assertEqual(self.run_check("--only", "other").stdout,
                         "0 rows, 0 exported names, 0 messages: 0 problems\n")
        self.assertEqual(self.run_check("--only", "sample").stdout, self.run_check().stdout)

    def test_several_documents(self):
        other = self.root / "docs/other.md"
        other.write_text("## sample\n| `Open_It` | more | `Suite.Case` |\n")
        self.assertIn("4 rows", self.run_check(self.root / "docs/behaviour.md", other).stdout)


if __name__ == "__main__":
    unittest.main()
