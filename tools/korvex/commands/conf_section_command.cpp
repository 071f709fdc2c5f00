// korvex conf section: whole sections of a configuration file.
#include <cerrno>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>

#include "commands/commands.h"
#include "conf/conf_change.h"
#include "conf/conf_failure.h"
#include "conf/conf_text.h"
#include "conf/section_text.h"
#include "korvex/conf.hpp"
#include "output/shown_name.h"

namespace korvex::cli {
namespace {

struct SectionArguments {
    ConfPlace place;
    ChangeOptions options;
};

// --- standard input ---

std::string read_standard_input() {
    std::string text;
    char block[65536];
    for (size_t size = fread(block, 1, sizeof block, stdin); size > 0; size = fread(block, 1, sizeof block, stdin))
        text.append(block, size);
    if (std::ferror(stdin) != 0)
        throw file_failure("standard input", -errno);
    return text;
}

void require_pairs_alone(const std::string &text) {
    for (const Line &line : classified_lines(text)) {
        const char *const what = line.kind == LineKind::header ? "a section header" : fault(line.kind);
        if (what != nullptr)
            throw Failure(kFailure,
                          "standard input:" + std::to_string(line.number) + ": " + what + ": " + shown(line.text));
    }
}

// The pairs of standard input; they stand in a section without a name.
conf::document read_pairs() {
    const std::string text = read_standard_input();
    require_pairs_alone(text);
    return conf::document::parse(text);
}

std::string lines_of(const conf::document &pairs) {
    std::string lines;
    for (const conf::section &section : pairs)
        for (const conf::pair &pair : section)
            lines.append(pair.key).append(" = ").append(pair.value).append("\n");
    return lines;
}

// --- the commands ---

int run_show(const SectionArguments &arguments) {
    const conf::document document = read_document(arguments.place.file);
    const std::optional<conf::section> section = document.find(arguments.place.section);
    if (!section)
        throw missing_section(arguments.place, document);
    for (const conf::pair &pair : *section)
        std::printf("%s = %s\n", std::string(pair.key).c_str(), std::string(pair.value).c_str());
    return kSuccess;
}

SectionRange require_section(const ConfPlace &place, const std::string &text) {
    const std::optional<SectionRange> section = find_section(text, place.section);
    if (!section)
        throw missing_section(place, conf::document::parse(text));
    return *section;
}

int run_replace(const SectionArguments &arguments) {
    const ConfPlace &place = arguments.place;
    require_section_name(place.section);
    const std::string lines = lines_of(read_pairs());
    change_conf(place.file, arguments.options, [&](conf::transaction &change) {
        const std::string &text = change.text();
        // It has no header: at the end of a file, its pairs would fall to the section before.
        if (place.section.empty() && !conf::document::parse(text).empty())
            require_section(place, text);
        change.rewrite(with_section(text, place.section, lines));
    });
    return kSuccess;
}

int run_merge(const SectionArguments &arguments) {
    const ConfPlace &place = arguments.place;
    const conf::document pairs = read_pairs();
    require_file(place.file);
    change_conf(place.file, arguments.options, [&](conf::transaction &change) {
        require_section(place, change.text());
        for (const conf::section &section : pairs)
            for (const conf::pair &pair : section)
                change.set(place.section, pair.key, pair.value);
    });
    return kSuccess;
}

int run_remove(const SectionArguments &arguments) {
    const ConfPlace &place = arguments.place;
    require_file(place.file);
    change_conf(place.file, arguments.options, [&place](conf::transaction &change) {
        change.rewrite(without_section(change.text(), require_section(place, change.text())));
    });
    return kSuccess;
}

struct SectionCommand {
    CommandText text;
    int (*run)(const SectionArguments &);
    bool changes_file;
};

constexpr SectionCommand kCommands[] = {
    {{"show", "Print the pairs of a section", R"(The lines are what 'replace' and 'merge' read.

Example:
  korvex conf section show /etc/config/share.conf attic)"},
     run_show,
     false},
    {{"replace", "Replace a section's lines, or append it, by the pairs of standard input",
      R"(Standard input: lines "key = value", comments and empty lines. The pairs take the place of all that stands
between the section's header and its end: behind its last pair and the comments that follow it at once.
All other sections stay as they are, and so do the comments above the header. A missing file is made.
Links, owner, permission bits, access list and attributes are kept as by 'korvex conf set'.

Example:
  printf 'path = /share/attic\nread only = yes\n' |
    korvex conf section replace /etc/config/share.conf attic)"},
     run_replace,
     true},
    {{"merge", "Set the pairs of standard input in a section that exists",
      R"(Standard input: lines "key = value", comments and empty lines. Each pair is set as by 'korvex conf set',
all of them as one step; every other byte stays.

Example:
  echo 'read only = yes' | korvex conf section merge /etc/config/share.conf attic)"},
     run_merge,
     true},
    {{"remove", "Remove a section",
      R"(Removes the header and what follows it up to the section's end: behind its last pair and the comments that
follow it at once. All other sections stay as they are, and so do the comments above the header. Links,
owner, permission bits, access list and attributes are kept as by 'korvex conf set'.

Example:
  korvex conf section remove /etc/config/share.conf attic)"},
     run_remove,
     true},
};

}  // namespace

void add_conf_section_commands(CLI::App &conf, Session &session) {
    CLI::App &group = add_group(conf, {"section", "Show, replace, merge or remove a whole section",
                                       "Example:\n  korvex conf section show /etc/config/share.conf attic"});
    group.require_subcommand(1);
    for (const SectionCommand &entry : kCommands) {
        auto [command, arguments] = add_command(group, session, entry.text, entry.run);
        add_file(command, arguments.place.file, "The configuration file");
        add_text(command, "SECTION", arguments.place.section,
                 "Name of the section; '' for what is before the first one")
            .required();
        if (entry.changes_file)
            add_change_options(command, arguments.options);
    }
}

}  // namespace korvex::cli
