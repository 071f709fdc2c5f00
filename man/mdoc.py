"""Writes manual pages in the mdoc language: escapes, the typography of a comment's words, and its blocks."""
import re

import comments

_ESCAPES = {"\\": "\\e", "^": "\\(ha", "~": "\\(ti", "`": "\\(ga"}
_INLINE = re.compile(r"`([^`]+)`|(?<![\w`])(-E[A-Z][A-Z0-9]+|-\d+)\b")
_SENTENCE_END = re.compile(r"(?<=[\w)\"`/][.?!]) (?=[\w`\"])")

WIDEST_NAME = 30
WIDEST_ARGUMENT = 16


def escape(text):
    """Text as it stands, wherever roff would read it otherwise."""
    return "".join(_ESCAPES.get(letter, letter) for letter in text)


def literal(text):
    """A program's or a file's text: each of its dashes is one that can be copied."""
    return escape(text).replace("-", "\\-").replace("'", "\\(aq")


def argument(text):
    """One argument of a macro."""
    text = text.replace('"', "\\(dq")
    return f'"{text}"' if " " in text else text


class Page:
    """The lines of one page. Paragraph breaks are written where text follows, so that none stands alone."""

    def __init__(self, title, section, date, functions):
        self._functions = functions
        self._parameters = set()
        self._break = False
        self._lines = ['.\\" Made from the public header by man/make_pages.py.', f".Dd {date}",
                       # groff would write "BSD" in the heading.
                       ".ds doc-volume-operating-system korvex_util", f".Dt {title} {section}", ".Os korvex_util"]

    def text(self):
        return "\n".join(self._lines) + "\n"

    def macro(self, *words):
        """A macro with arguments that may hold blanks."""
        self._lines.append(" ".join([words[0], *(argument(word) for word in words[1:])]))

    def section(self, title):
        self._break = False
        self.macro(".Sh", *title.upper().split())

    def description(self, text):
        """The one line that whatis shows, which takes quotes for a part of it."""
        self._lines.append(f".Nd {escape(text)}")

    def subsection(self, title):
        self._break = False
        self._lines.append(f".Ss {title}")

    def within(self, function):
        """Names of this function's parameters are set as such from now on."""
        self._parameters = {name for _, name in function.parameters} if function else set()

    def break_paragraph(self):
        self._break = True

    def words(self, text):
        """Running text."""
        if self._break:
            self._lines.append(".Pp")
            self._break = False
        for sentence in _SENTENCE_END.split(text):
            self._lines.append(self._line(sentence))

    def blocks(self, parts):
        """The blocks of a comment, each a paragraph of its own."""
        for number, part in enumerate(parts):
            if number:
                self.break_paragraph()
            self.block(part)

    def block(self, part):
        if isinstance(part, comments.Paragraph):
            self.words((f"\0{part.label}\0 " if part.label else "") + part.text)
        elif isinstance(part, comments.Literal):
            self._display(part.lines)
        elif isinstance(part, comments.Bullets):
            self._bullets(part.items)
        elif isinstance(part, comments.Table):
            self._table(part)
        elif isinstance(part, comments.Tagged):
            self.tagged([(f"\\{name}", text) for name, text in part.items])

    def tagged(self, items, macro="Er", widest=WIDEST_NAME):
        """A list of names and what they mean, the texts in one column."""
        widths = [len(name.replace("\\", "")) for name, _ in items]
        # A text stands below a name that would leave it too little room.
        self.begin_list(max((width for width in widths if width <= widest), default=WIDEST_ARGUMENT // 2))
        for name, text in items:
            self._lines.append(f".It {macro} " + " , ".join(argument(part) for part in name.split(", ")))
            self.words(text)
        self.end_list()

    def begin_list(self, width):
        self._break_before_list()
        self._lines.append(f".Bl -tag -width {width}n -compact -offset indent")

    def _break_before_list(self):
        """A compact list has no empty line before it."""
        if not self._lines[-1].startswith((".Sh", ".Ss")):
            self._lines.append(".Pp")
        self._break = False

    def end_list(self):
        self._lines.append(".El")
        self.break_paragraph()

    def _display(self, lines):
        self._break = False
        self._lines.append(".Bd -literal -offset indent")
        self._lines.extend(_safe(literal(line.replace("`", ""))) for line in lines)
        self._lines.append(".Ed")
        self.break_paragraph()

    def _bullets(self, items):
        self._break_before_list()
        self._lines.append(".Bl -dash -compact -offset indent")
        for item in items:
            self._lines.append(".It")
            self.words(item)
        self._lines.append(".El")
        self.break_paragraph()

    def _table(self, table):
        widths = [max(len(row[column]) for row in [table.head, *table.rows]) for column in range(len(table.head))]
        self._break_before_list()
        self.macro(".Bl", "-column", "-compact", "-offset", "indent", *("x" * width for width in widths))
        for row in [table.head, *table.rows]:
            self._lines.append(".It " + " Ta ".join(escape(cell).replace("-", "\\-") for cell in row))
        self._lines.append(".El")
        self.break_paragraph()

    def _line(self, text):
        """One line of running text with its names set."""
        result, place = "", 0
        text = re.sub("\0(.*?)\0", lambda label: f"\1{label[1]}\2", text)
        for match in _INLINE.finditer(text):
            result += escape(text[place:match.start()]) + self._name(match[1] or match[2])
            place = match.end()
        result += escape(text[place:])
        # A word with a name in it is not hyphenated.
        words = ["\\%" + word.replace("\3", "") if "\3" in word else word for word in result.split(" ")]
        return _safe(" ".join(words).replace("\1", "\\fI").replace("\2", "\\fP"))

    def _name(self, text):
        """What stands in backticks, and codes: bold, but parameters, which are in italics."""
        if text in self._functions:
            return f"\3\\fB{text}\\fP()"
        if text.lstrip("*") in self._parameters:
            return f"\3\\fI{literal(text)}\\fP"
        if re.fullmatch(r"-\d+", text):
            return literal(text)
        return f"\3\\fB{literal(text)}\\fP"


def _safe(line):
    """A line that roff does not take for a request."""
    return "\\&" + line if line.startswith((".", "'")) else line
