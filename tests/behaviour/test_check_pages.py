#!/usr/bin/env python3
"""Tests of check_pages.py: each of its parts can fail."""
import sys
import unittest

sys.dont_write_bytecode = True  # nothing is left in the source tree
import check_behaviour  # noqa: E402
import check_pages  # noqa: E402

MESSAGES = "## sample\n\n| message | said by | it means | what to do |\n|---|---|---|---|\n" \
           "| error: `Can't open! (%d)\\n` | `Open_It` | No file. | Make it. |\n"
QUIRKS = "## sample\n\n| function | what it does | shown by |\n|---|---|---|\n" \
         "| `Open_It` | Opens it twice. | `Suite.Case` |\n"
PROMISES = 'Open_It\tSuite.Case "abi: exports"\n'
SOURCE = 'LOG_ERROR("Can\'t open! (%d)\\n", n);'


class Pages(unittest.TestCase):
    def problems(self, messages=MESSAGES, quirks=QUIRKS, promises=PROMISES, source=SOURCE):
        return check_pages.problems_of(messages, quirks, promises, [("Open_It", "sample")],
                                       list(check_behaviour.messages_in(source, "sample", "lib/sample/a.cpp")),
                                       {"Suite.Case", "abi: exports"})

    def test_passes(self):
        self.assertEqual(self.problems(), [])

    def test_each_fault_is_told(self):
        for change in ({"messages": MESSAGES.replace("error:", "debug:")}, {"source": ""},
                       {"source": SOURCE + 'LOG_DEBUG("more\\n");'}, {"messages": MESSAGES.replace("Open_It", "Open")},
                       {"messages": MESSAGES.replace(" Make it. ", " ")}, {"quirks": QUIRKS.replace("Opens it twice.", "")},
                       {"quirks": QUIRKS.replace("Case", "Other")}, {"quirks": QUIRKS.replace("`Suite.Case`", "no test")},
                       {"promises": PROMISES.replace("exports", "other")}, {"promises": ""},
                       {"promises": "Open_It\t\n"}, {"promises": PROMISES + "Open\tSuite.Case\n"}):
            self.assertTrue(self.problems(**change), change)


if __name__ == "__main__":
    unittest.main()
