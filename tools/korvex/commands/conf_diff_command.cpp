// korvex conf diff: what two configuration files set differently.
#include <cstdio>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "commands/commands.h"
#include "conf/conf_failure.h"
#include "korvex/conf.hpp"

namespace korvex::cli {
namespace {

struct DiffArguments {
    std::string before;
    std::string after;
};

using Values = std::vector<std::string_view>;

// Names in the order in which they come, and what each of them holds.
template <typename Content>
class Named {
  public:
    Content &operator[](std::string_view name) {
        const auto [place, is_new] = contents_.try_emplace(name);
        if (is_new)
            names_.push_back(name);
        return place->second;
    }
    const std::vector<std::string_view> &names() const { return names_; }
    // Null where there is none.
    const Content *find(std::string_view name) const {
        const auto place = contents_.find(name);
        return place == contents_.end() ? nullptr : &place->second;
    }

  private:
    std::vector<std::string_view> names_;
    std::map<std::string_view, Content> contents_;
};

using Keys = Named<Values>;
using Sections = Named<Keys>;

// Of sections of one name the first one counts; a key that repeats has several values.
Sections sections_of(const conf::document &document) {
    Sections sections;
    for (const conf::section &section : document) {
        if (sections.find(section.name()) != nullptr)
            continue;
        Keys &keys = sections[section.name()];
        for (const conf::pair &pair : section)
            keys[pair.key].push_back(pair.value);
    }
    return sections;
}

// The names of both, each once: those of the first in their order, then what the second has besides.
template <typename Content>
std::vector<std::string_view> names_of_both(const Named<Content> &before, const Named<Content> &after) {
    std::vector<std::string_view> names = before.names();
    for (const std::string_view name : after.names())
        if (before.find(name) == nullptr)
            names.push_back(name);
    return names;
}

std::string pair_lines(char sign, std::string_view key, const Values &values) {
    std::string lines;
    for (const std::string_view value : values)
        lines.append(1, sign).append(key).append(" = ").append(value).append("\n");
    return lines;
}

std::string key_differences(const Keys &before, const Keys &after) {
    std::string lines;
    for (const std::string_view key : names_of_both(before, after)) {
        const Values none;
        const Values *const in_old = before.find(key);
        const Values *const in_new = after.find(key);
        const Values &old_values = in_old != nullptr ? *in_old : none;
        const Values &new_values = in_new != nullptr ? *in_new : none;
        if (old_values != new_values)
            lines += pair_lines('-', key, old_values) + pair_lines('+', key, new_values);
    }
    return lines;
}

std::string section_differences(std::string_view name, const Keys *before, const Keys *after) {
    const Keys none{};
    const std::string lines = key_differences(before != nullptr ? *before : none, after != nullptr ? *after : none);
    const char sign = before == nullptr ? '+' : after == nullptr ? '-' : ' ';
    if (lines.empty() && sign == ' ')
        return "";
    return name.empty() ? lines : std::string(1, sign).append("[").append(name).append("]\n").append(lines);
}

// That one of them can't be read is no difference.
conf::document read_side(const std::string &file) {
    try {
        return read_document(file);
    } catch (const Failure &failure) {
        throw Failure(kFailure, failure.what());
    }
}

int run_diff(const DiffArguments &arguments) {
    const conf::document old_document = read_side(arguments.before);
    const conf::document new_document = read_side(arguments.after);
    const Sections before = sections_of(old_document);
    const Sections after = sections_of(new_document);
    std::string text;
    for (const std::string_view name : names_of_both(before, after))
        text += section_differences(name, before.find(name), after.find(name));
    std::printf("%s", text.c_str());
    return text.empty() ? kSuccess : kNegativeAnswer;
}

constexpr const char *kDiffDetails =
    R"(Compares sections, keys and values: their order, comments and layout make no difference. Prints for each
section that differs " [NAME]", or "-[NAME]" or "+[NAME]" where A or B alone has it, and below it the
pairs of A with "-" and those of B with "+". Exit status 0 for no difference, 1 for some, 3 where a
file can't be read.

Example:
  korvex conf diff /etc/config/share.conf~ /etc/config/share.conf)";

}  // namespace

void add_conf_diff_command(CLI::App &conf, Session &session) {
    auto [command, arguments] =
        add_command(conf, session, {"diff", "Compare two files by sections and keys", kDiffDetails}, run_diff);
    add_path(command, "A", arguments.before, "The one file");
    add_path(command, "B", arguments.after, "The other file");
}

}  // namespace korvex::cli
