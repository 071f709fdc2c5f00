// A second reading of the configuration format, made to be compared with the library: it knows nothing of the
// library's code, copies texts freely, and puts clarity before speed. A fuzz target fails where the two differ.
#pragma once

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace naive {

struct Pair {
    std::string key;
    std::string value;
    bool operator==(const Pair &) const = default;
};

struct Section {
    std::string name;
    std::vector<Pair> pairs;
    bool operator==(const Section &) const = default;
};

using Messages = std::vector<std::string>;  // each without its stamp, the source line written as "#"

struct Parsed {
    std::vector<Section> sections;
    Messages messages;
    bool operator==(const Parsed &) const = default;
};

// What a text is to who prints it with "%s".
inline std::string up_to_nul(const std::string &text) {
    return text.substr(0, text.find('\0'));
}

inline std::string trimmed_left(const std::string &text, const char *blanks) {
    const size_t begin = text.find_first_not_of(blanks);
    return begin == std::string::npos ? "" : text.substr(begin);
}

inline std::string trimmed(const std::string &text, const char *blanks) {
    return trimmed_left(text.substr(0, text.find_last_not_of(blanks) + 1), blanks);
}

// In what the two parsers differ.
struct Dialect {
    const char *blanks;
    bool key_runs_on;  // a key that stands right before its "=" runs on through it into the value
    std::string (*bad_section)(const std::string &line);
    std::string (*bad_pair)(const std::string &line);
};

inline const Dialect kCacheDialect{
    .blanks = "\t ",
    .key_runs_on = false,
    .bad_section =
        [](const std::string &line) {
            return "[debug] Parse_Conf_Cache(#): Bad section definition line: \"" + line + "\"!\n";
        },
    .bad_pair =
        [](const std::string &line) {
            return "[error] Parse_Conf_Cache(#): Bad key-value definition line: \"" + line + "\"!\n";
        },
};

inline const Dialect kStreamDialect{
    .blanks = "\t\n ",
    .key_runs_on = true,
    .bad_section =
        [](const std::string &line) {
            return "[error] Parse_Conf_Stream(#): Bad section definition line: " + line + "!\n";
        },
    .bad_pair =
        [](const std::string &line) {
            return "[debug] Parse_Conf_Stream(#): Bad key-value definition line: \"" + line + "\"!\n";
        },
};

inline void parse_pair(const std::string &line, const Dialect &dialect, Parsed &parsed) {
    const std::string text = trimmed_left(line, dialect.blanks);
    if (text.empty())
        return;

    const size_t equals = text.find('=');
    if (equals == std::string::npos || equals == 0) {
        parsed.messages.push_back(dialect.bad_pair(line));
        return;
    }

    const std::string before = text.substr(0, equals);
    std::string key = trimmed(before, dialect.blanks);
    const std::string value = trimmed(text.substr(equals + 1), dialect.blanks);
    if (dialect.key_runs_on && key == before)
        key += "=" + value;
    parsed.sections.back().pairs.push_back({key, value});
}

inline void parse_line(const std::string &line, const Dialect &dialect, Parsed &parsed) {
    if (line.empty() || line == "\n" || line[0] == ';' || line[0] == '#')
        return;
    if (line[0] != '[')
        return parse_pair(line, dialect, parsed);

    const size_t close = line.find(']');
    if (close == std::string::npos)
        parsed.messages.push_back(dialect.bad_section(line));
    else
        parsed.sections.push_back({line.substr(1, close - 1), {}});
}

inline Parsed parse_lines(const std::vector<std::string> &lines, const Dialect &dialect) {
    Parsed parsed{{Section{}}, {}};
    for (const std::string &line : lines)
        parse_line(line, dialect, parsed);
    if (parsed.sections.front().pairs.empty())
        parsed.sections.erase(parsed.sections.begin());
    return parsed;
}

// The text ends at its first NUL; what follows its last line feed is not parsed.
inline Parsed parse_cache(const std::string &bytes) {
    const std::string text = up_to_nul(bytes);
    std::vector<std::string> lines;
    size_t begin = 0;
    for (size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n', begin)) {
        lines.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return parse_lines(lines, kCacheDialect);
}

// A line keeps its line feed and is taken in pieces of at most 4095 bytes; a piece ends for its reader at a NUL.
inline Parsed parse_stream(const std::string &bytes) {
    constexpr size_t kLongestPiece = 4095;
    std::vector<std::string> pieces;
    std::string piece;
    for (const char byte : bytes) {
        piece += byte;
        if (byte == '\n' || piece.size() == kLongestPiece) {
            pieces.push_back(up_to_nul(piece));
            piece.clear();
        }
    }
    pieces.push_back(up_to_nul(piece));
    return parse_lines(pieces, kStreamDialect);
}

// What the key functions see of a file: its bytes, NUL bytes like any other, and a line feed at the end.
inline std::string cached(const std::string &file) {
    return file.empty() || file.back() != '\n' ? file + '\n' : file;
}

struct Line {
    size_t begin;
    size_t end;  // of its line feed
};

inline std::vector<Line> lines_from(const std::string &text, size_t begin) {
    std::vector<Line> lines;
    while (begin < text.size()) {
        const size_t end = text.find('\n', begin);
        lines.push_back({begin, end});
        begin = end + 1;
    }
    return lines;
}

// Where the body of a section begins; the global section, whose name is empty, begins with the text.
inline std::optional<size_t> find_body(const std::string &text, const std::string &section) {
    if (section.empty())
        return 0;
    for (const Line &line : lines_from(text, 0))
        if (text.substr(line.begin, line.end - line.begin).starts_with("[" + section + "]"))
            return line.end + 1;
    return std::nullopt;
}

struct Search {
    std::optional<Line> line;  // the key's line, if there is one
    std::string value;
    size_t body_end = 0;  // start of the line that ended the body, or the end of the text
    Messages messages;
};

inline Search find_key(const std::string &text, size_t body, const std::string &key, const std::string &function) {
    Search search;
    for (const Line &line : lines_from(text, body)) {
        const std::string content = text.substr(line.begin, line.end - line.begin);
        if (content.empty() || content[0] == '#' || content[0] == ';')
            continue;
        if (content[0] == '[' && text.find(']', line.begin) != std::string::npos) {
            search.body_end = line.begin;
            return search;
        }
        if (content[0] == '[') {
            const std::string rest = up_to_nul(text.substr(line.begin));
            search.messages.push_back("[debug] " + function + "(#): Bad section line: " + rest + "!\n");
            continue;
        }
        const size_t equals = content.find('=');
        if (equals != std::string::npos && trimmed(content.substr(0, equals), "\t ") == key) {
            search.line = line;
            search.value = trimmed(content.substr(equals + 1), "\t ");
            return search;
        }
    }
    search.body_end = text.size();
    return search;
}

struct Got {
    int32_t result;
    std::string value;  // empty unless the result is 0
    int32_t size;       // the in/out size after the call
    Messages messages;
    bool operator==(const Got &) const = default;
};

inline Got get_key(const std::string &file, const std::string &section, const std::string &key, int32_t size) {
    if (size < 1)
        return {-EINVAL, "", size, {"[debug] Get_Conf_File_String_Value(#): Bad parameters!\n"}};

    const std::string text = cached(file);
    const std::optional<size_t> body = find_body(text, section);
    if (!body)
        return {-ENOANO, "", size, {}};

    const Search search = find_key(text, *body, key, "Get_Conf_File_String_Value");
    if (!search.line)
        return {-ENODATA, "", size, search.messages};

    const auto length = static_cast<int32_t>(search.value.size());
    if (length >= size)
        return {-EOVERFLOW, "", length, search.messages};
    return {0, search.value, length, search.messages};
}

struct Edited {
    int32_t result;
    std::optional<std::string> file;  // its bytes after the call, if it exists
    Messages messages;
    bool operator==(const Edited &) const = default;
};

inline std::string with_new_section(const std::string &text, const std::string &header, const std::string &pair) {
    const std::string kept = text.substr(0, text.find_last_not_of('\n') + 1);
    return (kept.empty() ? "" : kept + "\n\n") + header + pair;
}

// The new pair goes behind the last line of the body that is not empty, and one empty line behind the pair.
inline std::string with_new_pair(const std::string &text, size_t start, size_t body_end, const std::string &pair) {
    size_t end = body_end;
    while (end > start && text[end - 1] == '\n')
        --end;
    return text.substr(start, end - start) + "\n" + pair + "\n" + text.substr(body_end);
}

// A null value removes the key; no file is one that does not exist.
inline Edited set_key(const std::optional<std::string> &file, const std::string &section, const std::string &key,
                      const std::optional<std::string> &value) {
    const std::string header = "[" + section + "]\n";
    const std::string pair = value ? key + " = " + *value + "\n" : "";
    if (!file)
        return value ? Edited{0, header + pair, {}} : Edited{-ENOENT, std::nullopt, {}};

    const std::string text = cached(*file);
    const size_t start = std::min(text.find_first_not_of('\n'), text.size());
    const std::optional<size_t> body = find_body(text, section);
    if (!body && !value)
        return {-ENOANO, file, {}};
    if (!body)
        return {0, with_new_section(text.substr(start), header, pair), {}};

    const Search search = find_key(text, *body, key, "Set_Conf_File_String_Value");
    if (search.line)
        return {0, text.substr(0, search.line->begin) + pair + text.substr(search.line->end + 1), search.messages};
    if (!value)
        return {-ENODATA, file, search.messages};
    return {0, with_new_pair(text, start, search.body_end, pair), search.messages};
}

}  // namespace naive
