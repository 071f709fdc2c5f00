"""Documentation comments of the public headers: from their text to blocks that a page can set.

The comments are written for people who read the header, and for Doxygen. What they use of its language is little, and
anything else is an error here, so that no page shows raw markup: paragraphs, lists with "-", indented blocks taken as
they stand, tables with "|", `names in backticks`, @param and @return.
"""
import re
from dataclasses import dataclass, field

LABELS = ("Ownership", "Errors", "Threads", "Signals", "Reports", "Logs", "Results", "Texts", "Messages", "TLS",
          "Lock files")
_LABEL = re.compile(r"((?:%s)[:.]) +(?=\S)" % "|".join(LABELS))
_NEXT_LABEL = re.compile(r"(?<=\.) (?=(?:Logs|Threads): )")
_ITEM = re.compile(r"- +")
_RESULT = re.compile(r"(-E[A-Z0-9]+)  +")


class CommentError(Exception):
    """A comment holds what a page can't show."""


@dataclass
class Paragraph:
    text: str
    label: str = ""  # "Threads:", "Lock files."


@dataclass
class Literal:
    lines: list


@dataclass
class Bullets:
    items: list


@dataclass
class Table:
    head: list
    rows: list


@dataclass
class Tagged:
    """Values, each with its meaning."""
    items: list


@dataclass
class Argument:
    names: list
    text: str


@dataclass
class Comment:
    blocks: list = field(default_factory=list)
    arguments: list = field(default_factory=list)
    result: list = field(default_factory=list)
    notes: list = field(default_factory=list)  # what stands behind these: messages, threads

    def first_sentence(self):
        for block in self.blocks:
            if isinstance(block, Paragraph):
                return block.text.partition(". ")[0].rstrip(".:")
        return ""


def strip_markers(comment):
    """The lines of a /** comment */, without its frame."""
    text = re.sub(r"\A/\*\*<?|\*/\Z", "", comment)
    lines = [re.sub(r"^\s*\* ?", "", line) if number else line.lstrip()
             for number, line in enumerate(text.split("\n"))]
    return [line.rstrip() for line in lines]


def parse(lines):
    """Splits a comment's lines into what it says, its arguments, its result, and what follows."""
    comment = Comment()
    for kind, chunk in _split_at_tags(lines):
        if kind == "text":
            (comment.notes if comment.arguments or comment.result else comment.blocks).extend(blocks(chunk))
        elif kind == "param":
            comment.arguments.append(_argument(chunk))
        elif kind == "return":
            if comment.result:
                raise CommentError("two results")
            comment.result = _result(chunk)
    return comment


def _split_at_tags(lines):
    """A tag's text ends at an empty line or at the next tag."""
    chunks = [("text", [])]
    for line in lines:
        before, tag, behind = re.match(r"(.*?)(?:(?:^|(?<=\s))@(\w+)(?:\s+|$)(.*))?$", line).groups()
        if tag not in (None, "param", "return"):
            raise CommentError(f"@{tag}")
        if tag is None:
            if line == "" and chunks[-1][0] != "text":
                chunks.append(("text", []))
            chunks[-1][1].append(line)
            continue
        if before.strip():
            chunks[-1][1].append(before.rstrip())
        chunks.append((tag, [behind]))
    return [(kind, chunk) for kind, chunk in chunks if any(chunk)]


def _argument(chunk):
    match = re.match(r"(\w+(?:, ?\w+)*)\s+(.+)", " ".join(line.strip() for line in chunk))
    if match is None:
        raise CommentError(f"@param without a text: {chunk}")
    return Argument(re.split(r", ?", match[1]), _closed(match[2]))


def _result(chunk):
    """A sentence, and where there is one result per line, a list of them and what follows it."""
    result = []
    for line in (line.strip() for line in chunk):
        match = _RESULT.match(line)
        if match:
            if not isinstance(result[-1], Tagged):
                result.append(Tagged([]))
            result[-1].items.append([match[1], line[match.end():]])
        elif result and isinstance(result[-1], Tagged) and not line.startswith("else "):
            result[-1].items[-1][1] += " " + line
        elif result and isinstance(result[-1], Paragraph):
            result[-1].text += " " + line
        else:
            result.append(Paragraph(line))
    return result


def _closed(text):
    return text if text.endswith((".", ":", ")")) and not text.endswith("...") else text + "."


def blocks(lines):
    """Paragraphs, lists, tables and literal blocks of some lines."""
    result = []
    chunk = []
    for line in [*lines, ""]:
        if line.strip():
            chunk.append(line)
            continue
        if chunk:
            _add_chunk(result, chunk)
            chunk = []
    return result


def _add_chunk(result, chunk):
    if all(line.startswith("    ") for line in chunk) and not _ITEM.match(chunk[0].lstrip()):
        lines = [line[4:] for line in chunk]
        if result and isinstance(result[-1], Literal):
            lines = ["", *lines]
            result[-1].lines.extend(lines)
        else:
            result.append(Literal(lines))
    elif chunk[0].startswith("|"):
        rows = [[cell.strip() for cell in line.strip("|").split("|")] for line in chunk]
        result.append(Table(rows[0], rows[2:]))
    else:
        _add_text(result, chunk)


def _add_text(result, chunk):
    """Lines without an empty one between them: a paragraph, several with labels, or one with a list behind it."""
    opened = None
    for line in _NEXT_LABEL.sub("\n", "\n".join(chunk)).split("\n"):
        text = line.strip()
        label = _LABEL.match(text) if line == text else None
        if _ITEM.match(text):
            if not isinstance(opened, Bullets):
                opened = Bullets([])
                result.append(opened)
            opened.items.append(_ITEM.sub("", text, count=1))
        elif label:
            opened = Paragraph(text[label.end():], label[1])
            result.append(opened)
        elif isinstance(opened, Bullets):
            opened.items[-1] += " " + text
        elif opened is None:
            opened = Paragraph(text)
            result.append(opened)
        else:
            opened.text += " " + text
