#include "conf/conf_place.h"

#include <cerrno>
#include <string_view>

namespace korvex::cli {
namespace {

[[noreturn]] void refuse(const char *what, const std::string &text, const char *reason) {
    throw Failure(kUsage, std::string("bad ") + what + " '" + text + "': " + reason);
}

}  // namespace

Failure conf_failure(const ConfPlace &place, int32_t code) {
    const bool global = place.section.empty();
    const std::string section = "section '" + place.section + "'";
    switch (code) {
        case -ENOENT:
            return {kNotFound, place.file + ": no such file"};
        case -ENOANO:
            return {kNotFound, place.file + ": no " + (global ? "global section" : section)};
        case -ENODATA:
            return {kNotFound,
                    place.file + ": no key '" + place.key + "' in " + (global ? "the global section" : section)};
        case -ENOLCK:
            return {kNotFound, place.file + ": lock not obtained within 10 seconds"};
        case -ENOMEDIUM:
            return {kFailure, place.file + ": not a regular file"};
        default:
            return file_failure(place.file, code);
    }
}

Failure conf_write_failure(const ConfPlace &place, int32_t code) {
    if (code == -ENOENT)
        return file_failure(place.file, code);
    if (code == -1)  // the library's word for a text that could not be written
        return {kFailure, place.file + ": can't write the new text"};
    return conf_failure(place, code);
}

SectionList fetch_section(const ConfPlace &place) {
    Sect_Node *section = nullptr;
    const int32_t code = Get_Conf_File_Section(place.file.c_str(), place.section.c_str(), &section);
    if (code < 0)
        throw conf_failure(place, code);
    return SectionList(section);
}

void require_section_name(const std::string &section) {
    if (section.find_first_of("]\n") != std::string::npos)
        refuse("section", section, "it can't hold a ']' or a line feed");
}

void require_pair(const std::string &key, const std::string &value) {
    constexpr std::string_view blank = " \t";
    if (key.empty())
        refuse("key", key, "it can't be empty");
    if (key.find_first_of("=\n") != std::string::npos)
        refuse("key", key, "it can't hold a '=' or a line feed");
    if (std::string_view("[;#").find(key.front()) != std::string_view::npos)
        refuse("key", key, "it can't begin with '[', ';' or '#'");
    if (blank.find(key.front()) != std::string_view::npos || blank.find(key.back()) != std::string_view::npos)
        refuse("key", key, "it can't begin or end with white space");
    if (value.find('\n') != std::string::npos)
        refuse("value", value, "it can't hold a line feed");
}

}  // namespace korvex::cli
