// A second reading of the block-identification tool's lines and of the table of mounted file systems, made to be compared
// with the library: it knows nothing of the library's code, copies texts freely, and puts clarity before speed.
#pragma once

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace naive {

// ---- The tool's lines.

struct Block {
    std::string device;
    std::string uuid;
    std::string type;
    std::string second_type;

    friend bool operator==(const Block &, const Block &) = default;
};

// What follows `opening`, up to the next quotation mark, and what follows that. None without that mark.
inline std::optional<std::pair<std::string, std::string>> quoted(const std::string &text, size_t begin) {
    const size_t end = text.find('"', begin);
    if (end == std::string::npos)
        return std::nullopt;
    return {{text.substr(begin, end - begin), text.substr(end + 1)}};
}

// None for a line that a scan skips.
inline std::optional<Block> block_of(const std::string &line) {
    const size_t colon = line.find(':');
    if (colon == std::string::npos)
        return std::nullopt;

    Block block{.device = line.substr(0, colon), .uuid = {}, .type = {}, .second_type = {}};
    std::string rest = line.substr(colon + 1);
    const std::pair<std::string, std::string *> values[] = {
        {"UUID=\"", &block.uuid}, {"TYPE=\"", &block.type}, {"TYPE=\"", &block.second_type}};
    for (const auto &[opening, value] : values) {
        const size_t found = rest.find(opening);
        if (found == std::string::npos)
            continue;

        // The second type has always been read one character late.
        const auto taken = quoted(rest, found + (value == &block.second_type ? 7 : 6));
        if (!taken)
            return std::nullopt;
        *value = taken->first;
        rest = taken->second;
    }
    return block;
}

// None where there is no such key or no end of its value.
inline std::optional<std::string> value_of(const std::string &line, const std::string &key) {
    const std::string opening = " " + key + "=\"";
    const size_t found = line.find(opening);
    if (found == std::string::npos)
        return std::nullopt;
    const auto taken = quoted(line, found + opening.size());
    return taken ? std::optional(taken->first) : std::nullopt;
}

// ---- The table of mounted file systems.

struct Mount {
    std::string source;
    std::string folder;
    std::string type;
    std::string options;
    int32_t frequency = 0;
    int32_t pass = 0;
};

// Blanks that would part fields are written as a backslash and their octal number.
inline std::string decoded(std::string text) {
    constexpr std::pair<std::string_view, char> codes[] = {{"\\040", ' '}, {"\\011", '\t'}, {"\\012", '\n'},
                                                           {"\\\\", '\\'}, {"\\134", '\\'}, {"\\043", '#'}};
    for (size_t place = 0; place < text.size(); ++place)
        for (const auto &[code, meaning] : codes)
            if (text.compare(place, code.size(), code) == 0) {
                text.replace(place, code.size(), 1, meaning);
                break;
            }
    return text;
}

inline bool has_option(const std::string &options, const std::string &wanted) {
    for (size_t begin = 0; begin <= options.size();) {
        const size_t end = std::min(options.find(',', begin), options.size());
        const std::string option = options.substr(begin, end - begin);
        if (option.substr(0, option.find('=')) == wanted)
            return true;
        begin = end + 1;
    }
    return false;
}

inline std::string take_field(std::string &line) {
    const size_t end = std::min(line.find_first_of(" \t"), line.size());
    const std::string field = line.substr(0, end);
    line = line.substr(std::min(end + 1, line.size()));
    return decoded(field);
}

inline void take_blanks(std::string &line) {
    line = line.substr(std::min(line.find_first_not_of(" \t"), line.size()));
}

// The two numbers at a line's end: none is 0 and 0.
inline void take_numbers(const std::string &text, Mount &mount) {
    char *end = nullptr;
    const long frequency = std::strtol(text.c_str(), &end, 10);
    if (end == text.c_str())
        return;
    mount.frequency = static_cast<int32_t>(frequency);

    const char *second = end;
    const long pass = std::strtol(second, &end, 10);
    if (end != second)
        mount.pass = static_cast<int32_t>(pass);
}

// Of lines of any length.
inline std::vector<Mount> mounts_of(const std::string &table) {
    std::vector<Mount> mounts;
    for (size_t begin = 0; begin < table.size();) {
        const size_t end = std::min(table.find('\n', begin), table.size());
        std::string line = table.substr(begin, end - begin);
        line = line.substr(0, line.find_last_not_of(" \t") + 1);
        begin = end + 1;

        take_blanks(line);
        if (line.empty() || line[0] == '#')
            continue;

        Mount mount;
        for (std::string *field : {&mount.source, &mount.folder, &mount.type, &mount.options}) {
            *field = take_field(line);
            take_blanks(line);
        }
        take_numbers(line, mount);
        // A mount that asks not to be seen is not.
        if (mount.type != "autofs" || !has_option(mount.options, "ignore"))
            mounts.push_back(mount);
    }
    return mounts;
}

}  // namespace naive
