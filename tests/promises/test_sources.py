#!/usr/bin/env python3
"""Tests of sources.py over small samples."""
import json
import pathlib
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True  # nothing is left in the source tree
import sources  # noqa: E402

SOURCE = r"""
#define LOG_ERROR(...) LOG_ERROR_AS(__func__, __VA_ARGS__)
// LOG_ERROR("in a comment\n");
void f(int n) {
    LOG_ERROR("Can't open \"%s\"! (%d)\n", path, n);
    LOG_DEBUG_AS(name_of(a, "b"), "read %" PRId64
                 " bytes of 1'000 (%d)", n, '"');
}
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


def tests_of(*names):
    return sources.tests_of(json.dumps({"tests": [{"name": name} for name in names]}))


class Library(unittest.TestCase):
    def test_messages_of_a_source(self):
        error, debug = sources.messages_in(SOURCE, "sample", "lib/sample/sample.cpp")
        self.assertEqual(error[:3], ("sample", "error", r"Can't open \"%s\"! (%d)\n"))
        self.assertEqual(error.place, "lib/sample/sample.cpp:5")
        self.assertEqual(debug[:3], ("sample", "debug", "read %ld bytes of 1'000 (%d)"))

    def test_format_that_is_no_literal(self):
        for call in ("LOG_ERROR(kFormat, 1)", "LOG_ERROR_AS(name, kFormat)", 'LOG_ERROR("a" kFormat, 1)'):
            message, = sources.messages_in(call, "sample", "lib/sample/sample.cpp")
            self.assertIsNone(message.format, call)

    def test_exported_names(self):
        self.assertEqual(list(sources.exported_names(EXPORTS)),
                         [("Open_It", "sample"), ("Read_It", "sample"), ("g_open", "sample")])


class Tests(unittest.TestCase):
    def test_names(self):
        self.assertLessEqual({"Suite.Case", "sample:Suite.Case", "abi: exports"},
                             tests_of("sample:Suite.Case", "abi: exports"))

    def test_names_of_a_test_of_many_values(self):
        entry = "sample:All/Suite.Case/first  # GetParam() = 4-byte object <00-00 00-00>"
        known = tests_of(entry)
        self.assertLessEqual({"Suite.Case", "All/Suite.Case/first", entry}, known)
        self.assertNotIn("Suite.Case/first", known)

    def test_names_of_a_test_of_many_types(self):
        self.assertLessEqual({"Suite.Case", "Suite.Case<lists::OnPairs>"},
                             tests_of("sample: Suite.Case<lists::OnPairs>"))

    def test_statements(self):
        with tempfile.TemporaryDirectory() as folder:
            pathlib.Path(folder, "sample").mkdir()
            pathlib.Path(folder, "sample/test_sample.cpp").write_text(TEST)
            pathlib.Path(folder, "sample/check.sh").write_text('echo "no C"; exit')
            self.assertEqual(sources.statements_of(pathlib.Path(folder)), [
                "[error] Open_It(#): Can't open \"\"! ()\n", "[debug] Read_It(#): read 7 bytes of 1'000 (7)"])


if __name__ == "__main__":
    unittest.main()
