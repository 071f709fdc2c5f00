"""What a public header declares, with the comment of each name: functions, records, types, globals and constants.

The headers are in one hand (clang-format), so a small reader does; a declaration without a comment, or one that is
not understood, is an error.
"""
import re
from dataclasses import dataclass, field

import comments


class HeaderError(Exception):
    """A header holds what this reader does not know."""


@dataclass
class Function:
    name: str
    result: str       # type of the result
    parameters: list  # (declaration, name)
    comment: comments.Comment


@dataclass
class Field:
    declaration: str
    text: str


@dataclass
class Record:
    name: str
    fields: list
    comment: comments.Comment


@dataclass
class Named:
    """A global, a type or a constant: one declaration and what it is for."""
    declaration: str
    comment: comments.Comment


@dataclass
class Group:
    title: str
    comment: comments.Comment
    functions: list = field(default_factory=list)
    constants: list = field(default_factory=list)


@dataclass
class Header:
    name: str
    comment: comments.Comment
    groups: list = field(default_factory=list)
    records: list = field(default_factory=list)
    types: list = field(default_factory=list)
    variables: list = field(default_factory=list)

    def functions(self):
        return [function for group in self.groups for function in group.functions]


_SPACE = re.compile(r"\s+")
_COMMENT = re.compile(r"/\*.*?\*/", re.DOTALL)
_TRAILING = re.compile(r"[ \t]*(/\*\*<.*?\*/)", re.DOTALL)
_C_PLUS_PLUS = re.compile(r"#ifdef __cplusplus\n.*?#endif\n", re.DOTALL)
_DIRECTIVE = re.compile(r"#(?:[^\n\\/]|/(?!\*\*<))*")
_CONSTANT = re.compile(r"#define (\w+) (\S.*?)\s*$")
_FUNCTION = re.compile(r"KORVEX_API (.*?)(\w+)\((.*?)\)(?: KORVEX_PRINTF\(\d, \d\))?$")
_VARIABLE = re.compile(r"extern KORVEX_API .*?(\w+)(?:\[\d+\])?$")
_RECORD = re.compile(r"typedef struct (\w+) \{(.*)\} (\w+)$", re.DOTALL)
_FIELD = re.compile(r"([^;]+);\s*/\*\*<(.*?)\*/\s*", re.DOTALL)
_FORWARD = re.compile(r"(?:typedef )?struct \w+(?: \w+)?$")


def read(path):
    """Reads one header."""
    with open(path, encoding="utf-8") as stream:
        text = _C_PLUS_PLUS.sub("", stream.read())
    try:
        return _Reader(path.name, text).read()
    except (HeaderError, comments.CommentError) as error:
        raise HeaderError(f"{path}: {error}") from error


def one_line(text):
    return _SPACE.sub(" ", text).strip()


class _Reader:
    def __init__(self, name, text):
        self.text = text
        self.place = 0
        self.header = Header(name, None)
        self.pending = None  # the comment that waits for its declaration

    def read(self):
        while True:
            self._match(_SPACE)
            if self.place == len(self.text):
                break
            if self.text.startswith("/*", self.place):
                self._take_comment()
            elif self.text.startswith("#", self.place):
                self._take_directive()
            else:
                self._take_declaration()
        if self.pending is not None:
            raise HeaderError("a comment without a declaration at the end")
        return self.header

    def _match(self, pattern):
        match = pattern.match(self.text, self.place)
        if match:
            self.place = match.end()
        return match

    def _take_comment(self):
        text = self._match(_COMMENT)[0]
        if not text.startswith("/**"):
            return
        lines = comments.strip_markers(text)
        words = "\n".join(lines).split()
        if words[0] == "@file":
            self.header.comment = comments.parse(lines[lines.index("@file") + 1:])
        elif "@name" in words:
            self._open_group(lines)
        elif words not in (["@{"], ["@}"]):
            if self.pending is not None:
                raise HeaderError(f"a comment without a declaration before: {words}")
            self.pending = comments.parse(lines)

    def _open_group(self, lines):
        start = next(number for number, line in enumerate(lines) if line.startswith("@name"))
        about = [line for line in lines[start + 1:] if line != "@{"]
        self.header.groups.append(Group(lines[start].removeprefix("@name").strip(), comments.parse(about)))

    def _take_directive(self):
        directive = self._match(_DIRECTIVE)[0]
        constant = _CONSTANT.match(directive)
        trailing = self._match(_TRAILING)
        if constant and trailing:
            self._group().constants.append(Named(f"{constant[1]} {constant[2]}", self._comment_of(trailing)))
        elif trailing:
            raise HeaderError(f"a comment behind {directive}")

    def _take_declaration(self):
        start = self.place
        depth = 0
        while True:
            if self.text.startswith("/*", self.place):
                self._match(_COMMENT)
                continue
            if self.place == len(self.text):
                raise HeaderError(f"no end of {self.text[start:start + 60]!r}")
            letter = self.text[self.place]
            depth += {"{": 1, "}": -1}.get(letter, 0)
            self.place += 1
            if letter == ";" and depth == 0:
                break
        declaration = self.text[start:self.place - 1]
        trailing = self._match(_TRAILING)
        if trailing:
            self.pending = self._comment_of(trailing)
        self._file(declaration)

    @staticmethod
    def _comment_of(trailing):
        return comments.parse([one_line(" ".join(comments.strip_markers(trailing[1])))])

    def _file(self, declaration):
        """Puts a declaration, with the comment that stands before or behind it, where it belongs."""
        flat = one_line(declaration)
        comment, self.pending = self.pending, None
        if comment is None:
            if _FORWARD.match(flat):
                return
            raise HeaderError(f"no comment for {flat}")

        if _VARIABLE.match(flat):
            self.header.variables.append(Named(flat.replace("KORVEX_API ", ""), comment))
        elif record := _RECORD.match(declaration):
            self.header.records.append(Record(record[1], self._fields(record), comment))
        elif function := _FUNCTION.match(flat):
            self._group().functions.append(self._function(function, comment))
        elif flat.startswith("typedef "):
            self.header.types.append(Named(flat, comment))
        else:
            raise HeaderError(f"not understood: {flat}")

    @staticmethod
    def _fields(record):
        body, fields = record[2].strip(), []
        for match in _FIELD.finditer(body):
            fields.append(Field(one_line(match[1]), one_line(match[2])))
        if len(fields) != _COMMENT.sub("", body).count(";"):
            raise HeaderError(f"a field of {record[1]} without a comment")
        return fields

    @staticmethod
    def _function(match, comment):
        parameters = []
        for parameter in match[3].split(", "):
            if parameter in ("void", "..."):
                parameters.append((parameter, ""))
                continue
            parameters.append((parameter, re.search(r"(\w+)$", parameter)[1]))
        known = {name for _, name in parameters}
        told = {name for argument in comment.arguments for name in argument.names}
        if told != known - {""}:
            raise HeaderError(f"{match[2]}: parameters and what is told of them differ: {told ^ known}")
        if not comment.result and match[1].strip() != "void":
            raise HeaderError(f"{match[2]}: nothing is told of its result")
        return Function(match[2], match[1].strip(), parameters, comment)

    def _group(self):
        if not self.header.groups:
            self.header.groups.append(Group("", comments.Comment()))
        return self.header.groups[-1]
