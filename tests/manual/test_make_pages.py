#!/usr/bin/env python3
"""What the makers of the manual pages read, refuse and write: comments, headers, and the mdoc language.

Usage: test_make_pages.py MAN_SOURCE_DIR [unittest arguments]
"""
import pathlib
import sys
import tempfile
import unittest

SOURCES = sys.argv.pop(1)
sys.path.insert(0, SOURCES)
sys.dont_write_bytecode = True

import comments  # noqa: E402
import headers  # noqa: E402
import mdoc  # noqa: E402

FUNCTION = """/** @file
 * A header. */
/**
 * Does it.
 *
 * @param nFirst   first one.
 * @param pszLast  last one.
 * @return 0, or -EINVAL.
 */
KORVEX_API int32_t Do_It(int32_t nFirst, const char *pszLast);
"""


def read_header(text):
    with tempfile.TemporaryDirectory() as folder:
        path = pathlib.Path(folder) / "module.h"
        path.write_text(text, encoding="utf-8")
        return headers.read(path)


def page_lines(*blocks, functions=()):
    page = mdoc.Page("TITLE", 3, "January 31, 2024", set(functions))
    page.section("Name")
    start = len(page.text().split("\n"))
    page.blocks(blocks)
    return page.text().split("\n")[start - 1:-1]


class Comments(unittest.TestCase):
    def parse(self, *lines):
        return comments.parse(list(lines))

    def test_a_tag_ends_at_an_empty_line(self):
        comment = self.parse("Does it.", "", "@return 0, or", "        -EIO.", "", "Logs: errors. Threads: safe.")
        self.assertEqual(comment.blocks, [comments.Paragraph("Does it.")])
        self.assertEqual(comment.result, [comments.Paragraph("0, or -EIO.")])
        self.assertEqual(comment.notes, [comments.Paragraph("errors.", "Logs:"),
                                         comments.Paragraph("safe.", "Threads:")])

    def test_several_arguments_share_a_text(self):
        comment = self.parse("@param nA, nB  both", "              of them")
        self.assertEqual(comment.arguments, [comments.Argument(["nA", "nB"], "both of them.")])

    def test_results_one_a_line_are_a_list(self):
        comment = self.parse("@return 0, or:", "        -EINVAL  bad;", "                 very;",
                             "        -EIO     short;", "        else what it was.")
        self.assertEqual(comment.result, [comments.Paragraph("0, or:"),
                                          comments.Tagged([["-EINVAL", "bad; very;"], ["-EIO", "short;"]]),
                                          comments.Paragraph("else what it was.")])

    def test_lists_tables_and_blocks_keep_their_kind(self):
        comment = self.parse("Text:", "  - one", "    more", "  - two", "", "    code {", "        deep", "",
                             "| a | b |", "|---|---|", "| 1 | 2 |")
        self.assertEqual(comment.blocks, [comments.Paragraph("Text:"), comments.Bullets(["one more", "two"]),
                                          comments.Literal(["code {", "    deep"]),
                                          comments.Table(["a", "b"], [["1", "2"]])])

    def test_what_it_does_not_know_is_refused(self):
        for lines in (["@note Mind."], ["@param nFirst"], ["@return 0.", "", "@return 1."]):
            with self.subTest(lines), self.assertRaises(comments.CommentError):
                self.parse(*lines)


class Headers(unittest.TestCase):
    def test_a_function_has_its_types_and_texts(self):
        function, = read_header(FUNCTION).functions()
        self.assertEqual((function.name, function.result), ("Do_It", "int32_t"))
        self.assertEqual(function.parameters, [("int32_t nFirst", "nFirst"), ("const char *pszLast", "pszLast")])

    def test_what_is_not_told_is_refused(self):
        untold = {
            "an argument": FUNCTION.replace(" * @param nFirst   first one.\n", ""),
            "an argument that is none": FUNCTION.replace("nFirst   first", "nSecond  first"),
            "a result": FUNCTION.replace(" * @return 0, or -EINVAL.\n", ""),
            "a function": FUNCTION + "KORVEX_API void Undo_It(void);\n",
            "a field": FUNCTION + "/** One. */\ntypedef struct One {\n    int a; /**< a */\n    int b;\n} One;\n",
            "a declaration": FUNCTION + "/** A comment at the end. */\n",
            "what a declaration is": FUNCTION + "/** Odd. */\nint odd(void);\n",
        }
        for what, text in untold.items():
            with self.subTest(what), self.assertRaises(headers.HeaderError):
                read_header(text)

    def test_records_globals_and_constants_have_their_remarks(self):
        header = read_header(FUNCTION + """
/** A record. */
typedef struct One {
    struct One *pNext; /**< next */
    char szName[];     /**< name; or none */
} One;
extern KORVEX_API int32_t g_idOne; /**< a global */
/** @name Flags */
/**@{*/
#define ONE_FLAG 0x1u /**< a flag */
/**@}*/
""")
        record, = header.records
        self.assertEqual([(field.declaration, field.text) for field in record.fields],
                         [("struct One *pNext", "next"), ("char szName[]", "name; or none")])
        self.assertEqual(header.variables[0].declaration, "extern int32_t g_idOne")
        self.assertEqual(header.groups[1].constants[0].declaration, "ONE_FLAG 0x1u")


class Pages(unittest.TestCase):
    def test_names_are_set_by_what_they_are(self):
        self.assertEqual(page_lines(comments.Paragraph("As `Do_It`, `NULL` or -EIO."), functions=["Do_It"]),
                         [r"As \%\fBDo_It\fP(), \%\fBNULL\fP or \%\fB\-EIO\fP."])

    def test_text_can_not_be_a_request(self):
        self.assertEqual(page_lines(comments.Paragraph(".Sh is text"), comments.Literal(["'quoted' \\n", ".x"])),
                         [r"\&.Sh is text", ".Bd -literal -offset indent", r"\(aqquoted\(aq \en",
                          r"\&.x", ".Ed"])

    def test_each_sentence_has_a_line(self):
        self.assertEqual(page_lines(comments.Paragraph("One. Two (e) more. `x` ends.")),
                         ["One.", "Two (e) more.", r"\%\fBx\fP ends."])

    def test_paragraphs_are_parted_and_lists_too(self):
        blocks = comments.Paragraph("One."), comments.Bullets(["two"]), comments.Paragraph("Three.")
        self.assertEqual(page_lines(*blocks),
                         ["One.", ".Pp", ".Bl -dash -compact -offset indent", ".It", "two", ".El", ".Pp", "Three."])


if __name__ == "__main__":
    unittest.main()
