// korvex conf section: whole sections of a configuration file.
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <utility>

#include "commands/commands.h"
#include "conf/conf_edit.h"
#include "conf/conf_place.h"
#include "conf/conf_text.h"
#include "conffile.h"
#include "output/shown_name.h"

namespace korvex::cli {
namespace {

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
    for (const Line &line : judge_lines(text)) {
        const char *const what = line.kind == LineKind::header ? "a section header" : fault(line.kind);
        if (what != nullptr)
            throw Failure(kFailure,
                          "standard input:" + std::to_string(line.number) + ": " + what + ": " + shown(line.text));
    }
}

// The pairs of standard input in a section of that name.
SectionList read_pairs(const std::string &section) {
    std::string text = read_standard_input();
    require_pairs_alone(text);
    text += '\n';

    Sect_Node *parsed = nullptr;
    if (const int32_t count = Parse_Conf_Cache(text.data(), &parsed); count < 0)
        throw file_failure("standard input", count);
    const SectionList global(parsed);

    Sect_Node *node = nullptr;
    if (const int32_t code = Create_Sect_Node(&node, section.c_str()); code < 0)
        throw file_failure("standard input", code);
    if (parsed != nullptr)
        std::swap(node->pPairs, parsed->pPairs);
    return SectionList(node);
}

int run_show(const ConfPlace &place) {
    const SectionList section = fetch_section(place);
    Write_Pair_Node(stdout, section->pPairs);
    return kSuccess;
}

// A new section is appended, and the global one has no header: at the end of a file, its pairs would fall to the
// section before.
void require_global_section_first(const ConfPlace &place, const ConfEdit &edit) {
    if (edit.first() != nullptr && edit.first()->szName[0] != '\0')
        throw conf_failure(place, -ENOANO);
}

int run_replace(const ConfPlace &place) {
    require_section_name(place.section);
    SectionList section = read_pairs(place.section);

    ConfEdit edit(place);
    if (place.section.empty())
        require_global_section_first(place, edit);
    edit.put(std::move(section));
    edit.save();
    return kSuccess;
}

int run_merge(const ConfPlace &place) {
    const SectionList pairs = read_pairs(place.section);

    ConfEdit edit(place);
    Sect_Node &section = edit.section();
    for (const Pair_Node *pair = pairs->pPairs; pair != nullptr; pair = pair->pNext)
        if (const int32_t code = Set_Pair_String_Value(&section.pPairs, pair->szKey, pair->pszValue); code < 0)
            throw conf_failure(place, code);
    edit.save();
    return kSuccess;
}

int run_remove(const ConfPlace &place) {
    ConfEdit edit(place);
    edit.remove();
    edit.save();
    return kSuccess;
}

struct SectionCommand {
    CommandText text;
    int (*run)(const ConfPlace &);
};

constexpr SectionCommand kCommands[] = {
    {{"show", "Print the pairs of a section", R"(The lines are what 'replace' and 'merge' read.

Example:
  korvex conf section show /etc/config/share.conf attic)"},
     run_show},
    {{"replace", "Replace a section, or append it, by the pairs of standard input",
      R"(Standard input: lines "key = value", comments and empty lines. A missing file is made. The file is
written anew: its comments are lost, and so are its bad lines.

Example:
  printf 'path = /share/attic\nread only = yes\n' |
    korvex conf section replace /etc/config/share.conf attic)"},
     run_replace},
    {{"merge", "Set the pairs of standard input in a section that exists",
      R"(Standard input: lines "key = value", comments and empty lines. Other keys of the section stay. The
file is written anew: its comments are lost, and so are its bad lines.

Example:
  echo 'read only = yes' | korvex conf section merge /etc/config/share.conf attic)"},
     run_merge},
    {{"remove", "Remove a section",
      R"(The file is written anew: its comments are lost, and so are its bad lines.

Example:
  korvex conf section remove /etc/config/share.conf attic)"},
     run_remove},
};

}  // namespace

void add_conf_section_commands(CLI::App &conf, Session &session) {
    CLI::App &group = add_group(conf, {"section", "Show, replace, merge or remove a whole section",
                                       "Example:\n  korvex conf section show /etc/config/share.conf attic"});
    group.require_subcommand(1);
    for (const SectionCommand &entry : kCommands) {
        auto [command, place] = add_command(group, session, entry.text, entry.run);
        add_file(command, place.file, "The configuration file");
        add_text(command, "SECTION", place.section, "Name of the section; '' for the global one").required();
    }
}

}  // namespace korvex::cli
