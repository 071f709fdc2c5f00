// A second, plain parser: what a text means by the documented format, without regard to speed or memory. The library's
// parsers are compared with it.
#pragma once

#include <string>
#include <string_view>

#include "conf_lists.h"

namespace lists {

// The two parsers and their differences.
enum class Dialect { cache, stream };

struct Parsed {
    int32_t result = 0;
    Conf conf;
    Messages messages;
    bool operator==(const Parsed &) const = default;
};

inline std::ostream &operator<<(std::ostream &out, const Parsed &parsed) {
    return out << parsed.result << " " << testing::PrintToString(parsed.conf) << " "
               << testing::PrintToString(parsed.messages);
}

class ConfModel {
  public:
    explicit ConfModel(Dialect dialect) : dialect_(dialect) {}

    // `text` has no NUL bytes.
    Parsed parse(std::string_view text) {
        parsed_ = {};
        parsed_.conf = {{"", {}}};
        while (!text.empty()) {
            const std::string_view line = take_line(text);
            if (!line.empty())
                parse_line(line);
        }

        if (parsed_.conf.front().pairs.empty())
            parsed_.conf.erase(parsed_.conf.begin());
        parsed_.result = static_cast<int32_t>(parsed_.conf.size());
        return parsed_;
    }

  private:
    bool is_stream() const { return dialect_ == Dialect::stream; }

    // A line of a text loses its line feed, and a rest without one is dropped. A line of a stream keeps it, and ends
    // after 4095 bytes in any case.
    std::string_view take_line(std::string_view &text) const {
        const size_t feed = text.find('\n');
        size_t length = feed == text.npos ? text.size() : feed + 1;
        if (is_stream() && length > 4095)
            length = 4095;

        const std::string_view line = text.substr(0, length);
        text.remove_prefix(length);
        if (is_stream())
            return line;
        return feed == line.npos ? "" : line.substr(0, feed);
    }

    void parse_line(std::string_view line) {
        if (line[0] == ';' || line[0] == '#' || line[0] == '\n')
            return;
        if (line[0] == '[')
            parse_header(line);
        else
            parse_pair(line);
    }

    void parse_header(std::string_view line) {
        const size_t end = line.find(']');
        if (end != line.npos)
            parsed_.conf.push_back({std::string(line.substr(1, end - 1)), {}});
        else if (is_stream())
            report("[error] Parse_Conf_Stream(#): Bad section definition line: ", line, "!\n");
        else
            report("[debug] Parse_Conf_Cache(#): Bad section definition line: \"", line, "\"!\n");
    }

    void parse_pair(std::string_view line) {
        const std::string_view blanks = is_stream() ? "\t\n " : "\t ";
        const size_t begin = line.find_first_not_of(blanks);
        if (begin == line.npos)
            return;

        const std::string_view rest = line.substr(begin);
        const size_t equals = rest.find('=');
        if (equals == rest.npos || equals == 0) {
            report(is_stream() ? "[debug] Parse_Conf_Stream(#): Bad key-value definition line: \""
                               : "[error] Parse_Conf_Cache(#): Bad key-value definition line: \"",
                   line, "\"!\n");
            return;
        }

        std::string key(rest.substr(0, rest.find_last_not_of(blanks, equals - 1) + 1));
        std::string value(rest.substr(equals + 1));
        value.erase(0, value.find_first_not_of(blanks));
        value.erase(value.find_last_not_of(blanks) + 1);
        if (is_stream() && key.size() == equals)
            key += "=" + value;
        parsed_.conf.back().pairs.push_back({key, value});
    }

    void report(std::string_view head, std::string_view line, std::string_view tail) {
        parsed_.messages.push_back(std::string(head).append(line).append(tail));
    }

    Dialect dialect_;
    Parsed parsed_;
};

}  // namespace lists
