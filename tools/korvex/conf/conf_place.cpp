#include "conf/conf_place.h"

#include <strings.h>

#include <optional>

#include "cli.h"

namespace korvex::cli {
namespace {

constexpr std::string_view kBlanks = " \t";

[[noreturn]] void refuse(const char *what, const std::string &text, const char *reason) {
    throw Failure(kUsage, std::string("bad ") + what + " '" + text + "': " + reason);
}

// The name among those of a range that is the wanted one, or else differs from it by case alone.
template <typename Range, typename NameOf>
std::string spelling(const Range &range, const std::string &wanted, const NameOf &name_of) {
    std::optional<std::string> similar;
    for (const auto &element : range) {
        const std::string name(name_of(element));
        if (name == wanted)
            return wanted;
        if (!similar && strcasecmp(name.c_str(), wanted.c_str()) == 0)
            similar = name;
    }
    return similar.value_or(wanted);
}

}  // namespace

void require_section_name(const std::string &section) {
    if (section.find_first_of("]\n\r") != std::string::npos)
        refuse("section", section, "it can't hold a ']' or a line feed");
}

void require_pair(const std::string &key, const std::string &value) {
    if (key.empty())
        refuse("key", key, "it can't be empty");
    if (key.find_first_of("=\n\r") != std::string::npos)
        refuse("key", key, "it can't hold a '=' or a line feed");
    if (std::string_view("[;#").find(key.front()) != std::string_view::npos)
        refuse("key", key, "it can't begin with '[', ';' or '#'");
    if (trimmed(key) != key)
        refuse("key", key, "it can't begin or end with white space");
    if (value.find_first_of("\n\r") != std::string::npos)
        refuse("value", value, "it can't hold a line feed");
}

std::string_view trimmed(std::string_view text) {
    const size_t begin = text.find_first_not_of(kBlanks);
    if (begin == std::string_view::npos)
        return {};
    return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

ConfPlace as_spelled(ConfPlace place, const conf::document &document) {
    place.section = spelling(document, place.section, [](const conf::section &section) { return section.name(); });
    if (const std::optional<conf::section> section = document.find(place.section))
        place.key = spelling(*section, place.key, [](const conf::pair &pair) { return pair.key; });
    return place;
}

}  // namespace korvex::cli
