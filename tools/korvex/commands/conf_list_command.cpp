// korvex conf list, sections, keys: what is in a configuration file.
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "commands/commands.h"
#include "conf/conf_failure.h"
#include "conf/conf_words.h"
#include "conffile.h"
#include "korvex/conf.hpp"
#include "output/table.h"

namespace korvex::cli {
namespace {

struct ListArguments {
    std::string file;
    std::optional<std::string> section;
    bool json = false;
};

std::vector<conf::section> sections_of(const conf::document &document, const ListArguments &arguments) {
    if (!arguments.section)
        return {document.begin(), document.end()};
    const std::optional<conf::section> section = document.find(*arguments.section);
    if (!section)
        throw missing_section({.file = arguments.file, .section = *arguments.section}, document);
    return {*section};
}

void print_text(const std::vector<conf::section> &sections) {
    for (const conf::section &section : sections) {
        const bool is_first = &section == &sections.front();
        if (!is_first)
            std::printf("\n");
        // Only the first section can be the one before all headers; a later one of no name has its "[]" in the file.
        if (!section.name().empty() || !is_first)
            std::printf("[%s]\n", std::string(section.name()).c_str());
        for (const conf::pair &pair : section)
            std::printf("%s = %s\n", std::string(pair.key).c_str(), std::string(pair.value).c_str());
    }
}

Json json_pairs(const conf::section &section) {
    Json list = Json::array();
    for (const conf::pair &pair : section) {
        Json &object = list.emplace_back(Json::object());
        object["key"] = pair.key;
        object["value"] = pair.value;
    }
    return list;
}

void print_sections_json(const std::vector<conf::section> &sections) {
    Json list = Json::array();
    for (const conf::section &section : sections) {
        Json &object = list.emplace_back(Json::object());
        object["section"] = section.name();
        object["pairs"] = json_pairs(section);
    }
    print_json(list);
}

int run_list(const ListArguments &arguments) {
    const conf::document document = read_document(arguments.file);
    const std::vector<conf::section> sections = sections_of(document, arguments);
    if (arguments.json)
        print_sections_json(sections);
    else
        print_text(sections);
    return kSuccess;
}

int print_names(const std::vector<std::string> &names, bool json) {
    if (json)
        print_json(names);
    else
        for (const std::string &name : names)
            std::printf("%s\n", name.c_str());
    return kSuccess;
}

struct SectionsArguments {
    std::string file;
    bool json = false;
};

// The section without a header is passed over: it has no name to print.
int run_sections(const SectionsArguments &arguments) {
    const conf::document document = read_document(arguments.file);
    std::vector<std::string> names;
    for (const conf::section &section : document)
        if (!section.name().empty())
            names.emplace_back(section.name());
    return print_names(names, arguments.json);
}

struct KeysArguments {
    ConfPlace place;
    bool json = false;
};

int run_keys(const KeysArguments &arguments) {
    const conf::document document = read_document(arguments.place.file);
    const std::optional<conf::section> section = document.find(arguments.place.section);
    if (!section)
        throw missing_section(arguments.place, document);
    std::vector<std::string> names;
    for (const conf::pair &pair : *section)
        names.emplace_back(pair.key);
    return print_names(names, arguments.json);
}

constexpr const char *kListDetails = R"(Bad lines are left out; 'korvex conf check' reports them.
--json prints [{"section": NAME, "pairs": [{"key": KEY, "value": VALUE}]}], in the order of the file;
bytes that are not UTF-8 are replaced.

Example:
  korvex conf list /etc/config/share.conf --json)";

constexpr const char *kSectionsDetails = R"(In the order of the file; a name that stands twice is printed twice.

Example:
  korvex conf sections /etc/config/share.conf)";

constexpr const char *kKeysDetails = R"(In the order of the file; a key that stands twice is printed twice.

Example:
  korvex conf keys /etc/config/share.conf -s attic)";

}  // namespace

void add_conf_list_commands(CLI::App &conf, Session &session) {
    auto [list, arguments] =
        add_command(conf, session, {"list", "Print all sections and pairs", kListDetails}, run_list);
    add_file(list, arguments.file, "The configuration file");
    add_optional(list, "-s,--section", arguments.section, "Only the first section of this name");
    list.add_flag("--json", arguments.json, "Print JSON");

    auto [sections, sections_arguments] =
        add_command(conf, session, {"sections", "Print the names of the sections", kSectionsDetails}, run_sections);
    add_file(sections, sections_arguments.file, "The configuration file");
    sections.add_flag("--json", sections_arguments.json, "Print a JSON array");

    auto [keys, keys_arguments] =
        add_command(conf, session, {"keys", "Print the names of a section's keys", kKeysDetails}, run_keys);
    add_place(keys, keys_arguments.place);
    keys.add_flag("--json", keys_arguments.json, "Print a JSON array");
}

}  // namespace korvex::cli
