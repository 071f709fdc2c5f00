/// @file
/// Internal: a configuration file's text, taken apart into what the library edits and what it would stumble over.
#ifndef KORVEX_DETAIL_CONF_TEXT_HPP
#define KORVEX_DETAIL_CONF_TEXT_HPP

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

namespace korvex::detail {

/// What stays as it is around an edited text: a byte order mark, which would hide the section in its line; empty lines
/// at the start, which the editor drops; carriage returns, where each line ends in one; and an end without a line feed.
class conf_style {
  public:
    conf_style() = default;

    /// Splits a file's text: the style, and the body that the library reads and edits.
    static conf_style of(std::string_view text, std::string &body) {
        conf_style style;
        if (text.starts_with(mark)) {
            style.has_mark_ = true;
            text.remove_prefix(mark.size());
        }
        style.has_returns_ = all_lines_end_in_return(text);
        body = style.has_returns_ ? without_returns(text) : std::string(text);
        style.lacks_end_ = !body.empty() && body.back() != '\n';
        style.take_empty_lines(body);
        return style;
    }

    /// Moves the empty lines at the start of a body to those that are kept apart.
    void take_empty_lines(std::string &body) {
        const std::size_t lines = std::min(body.find_first_not_of('\n'), body.size());
        empty_lines_ += lines;
        body.erase(0, lines);
    }

    /// The file's text with this body.
    std::string text_with(std::string_view body) const {
        if (lacks_end_)
            while (body.ends_with('\n'))
                body.remove_suffix(1);

        std::string text(has_mark_ ? mark : std::string_view());
        append(text, std::string(empty_lines_, '\n'));
        append(text, body);
        return text;
    }

    static constexpr std::string_view mark = "\xEF\xBB\xBF";

  private:
    static bool all_lines_end_in_return(std::string_view text) noexcept {
        bool has_lines = false;
        for (std::size_t end = text.find('\n'); end != std::string_view::npos; end = text.find('\n', end + 1)) {
            if (end == 0 || text[end - 1] != '\r')
                return false;
            has_lines = true;
        }
        return has_lines;
    }

    static std::string without_returns(std::string_view text) {
        std::string body;
        body.reserve(text.size());
        for (std::size_t place = 0; place < text.size(); ++place)
            if (text.substr(place, 2) != "\r\n")
                body += text[place];
        return body;
    }

    void append(std::string &text, std::string_view piece) const {
        for (const char byte : piece) {
            if (byte == '\n' && has_returns_)
                text += '\r';
            text += byte;
        }
    }

    bool has_mark_ = false;
    bool has_returns_ = false;
    bool lacks_end_ = false;
    std::size_t empty_lines_ = 0;
};

/// Whether `after` is `before` with one key set or removed and nothing else: besides the lines that the editor writes,
/// no line is new; besides empty ones, at most one line is gone. What is edited lies in a folder that may belong to
/// somebody else, who could put another file in its place for a moment.
inline bool is_edit_of(std::string_view before, std::string_view after, std::string_view section, std::string_view key,
                       const std::string_view *value) {
    const auto take_line = [](std::string_view &text) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        const std::string_view line = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        return line;
    };
    const auto take_last_line = [](std::string_view &text) {
        std::string_view rest = text;
        if (rest.ends_with('\n'))
            rest.remove_suffix(1);
        const std::size_t start = rest.rfind('\n') + 1;  // 0 where there is none
        text.remove_suffix(text.size() - start);
        return rest.substr(start);
    };

    // What both have at their beginnings and at their ends.
    for (std::string_view left = before, right = after;
         !left.empty() && !right.empty() && take_line(left) == take_line(right);) {
        before = left;
        after = right;
    }
    for (std::string_view left = before, right = after;
         !left.empty() && !right.empty() && take_last_line(left) == take_last_line(right);) {
        before = left;
        after = right;
    }

    std::size_t gone = 0;
    while (!before.empty())
        gone += !take_line(before).empty();
    const std::string header = std::string("[").append(section).append("]");
    const std::string pair = value == nullptr ? std::string() : std::string(key).append(" = ").append(*value);
    while (!after.empty())
        if (const std::string_view line = take_line(after); !line.empty() && line != header && line != pair)
            return false;
    return gone <= 1;
}

/// How many lines begin with "[" and have no "]" behind them anywhere in the text. The library passes them over; with a
/// "]" behind it such a line ends the section before it.
inline std::size_t open_headers(std::string_view text) noexcept {
    const std::size_t last = text.rfind(']');
    std::size_t count = last == std::string_view::npos && text.starts_with('[') ? 1 : 0;
    for (std::size_t at = text.find("\n[", last == std::string_view::npos ? 0 : last); at != std::string_view::npos;
         at = text.find("\n[", at + 1))
        count++;
    return count;
}

}  // namespace korvex::detail

#endif
