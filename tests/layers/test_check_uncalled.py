#!/usr/bin/env python3
"""Tests of check_uncalled.py: what it finds, and what it leaves alone."""
import pathlib
import sys
import unittest

sys.dont_write_bytecode = True  # nothing is left in the source tree
import check_uncalled  # noqa: E402

HEADER = """
// uses of told(1) in a comment count for nothing
class Set final {
  public:
    explicit Set(int size) : size_(size) {}
    bool contains(int number) const { return number < size_; }
    bool has(int number) const noexcept { return contains(number); }
    void SetUp() override { size_ = 0; }
    int *begin() { return &size_; }

  private:
    int size_;
};
template <class Type>
Type told(Type (*of)(int), int number = limit()) {
    if (is_known(number)) {
        return of(number);
    }
    return {};
}
#define PUT(value) \\
    written(value)
inline int written(int value) { return value; }
"""


class Uncalled(unittest.TestCase):
    def names(self, source, header=HEADER, is_looked_at=lambda path: True):
        texts = {pathlib.Path("lib/set.h"): header, pathlib.Path("lib/set.cpp"): source}
        return [name for _, name in check_uncalled.uncalled(texts, is_looked_at)]

    def test_functions_that_nobody_calls_are_found(self):
        self.assertEqual(self.names("int main() { return Set(1) ? 1 : 0; }"), ["has", "told"])

    def test_a_call_of_any_kind_counts(self):
        self.assertEqual(self.names("int main() { if (set.has(1)) { return &told<int> != 0; } }"), [])

    def test_comments_and_literals_do_not_count(self):
        self.assertEqual(self.names('/* has(1) */ const char *text = "told(2)";  // has(3)'), ["has", "told"])

    def test_functions_of_sources_are_the_compilers_own_concern(self):
        self.assertEqual(self.names("static int lonely() { return has(told(1)); }"), [])

    def test_headers_of_callers_are_not_looked_at(self):
        self.assertEqual(self.names("", is_looked_at=lambda path: False), [])

    def test_a_folder_without_headers_is_a_mistake(self):
        with self.assertRaises(SystemExit):
            check_uncalled.main([str(pathlib.Path(__file__).parent)])


if __name__ == "__main__":
    unittest.main()
