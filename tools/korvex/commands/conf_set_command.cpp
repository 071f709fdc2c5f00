// korvex conf set, unset: keys of a configuration file, several as one step.
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "commands/commands.h"
#include "conf/conf_change.h"
#include "conf/conf_failure.h"
#include "conf/conf_words.h"
#include "korvex/conf.hpp"

namespace korvex::cli {
namespace {

struct Assignment {
    std::string key;
    std::string value;
};

struct SetArguments {
    ConfPlace place;  // without a key
    std::vector<std::string> words;
    std::optional<std::string> expected;
    bool if_missing = false;
    bool ignore_case = false;
    ChangeOptions options;
};

struct UnsetArguments {
    ConfPlace place;
    bool ignore_case = false;
    ChangeOptions options;
};

// KEY VALUE, or KEY=VALUE once or more: a key holds no "=", so the first word tells which.
std::vector<Assignment> assignments_of(const std::vector<std::string> &words) {
    if (words.size() == 2 && words[0].find('=') == std::string::npos)
        return {{words[0], std::string(trimmed(words[1]))}};
    if (words.size() == 1 && words[0].find('=') == std::string::npos)
        throw Failure(kUsage, "VALUE is required");

    std::vector<Assignment> assignments;
    for (const std::string_view word : words) {
        const size_t equals = word.find('=');
        if (equals == std::string_view::npos)
            throw Failure(kUsage, "'" + std::string(word) + "' is not KEY=VALUE");
        assignments.push_back(
            {std::string(trimmed(word.substr(0, equals))), std::string(trimmed(word.substr(equals + 1)))});
    }
    return assignments;
}

ConfPlace with_key(const SetArguments &arguments, const std::string &key) {
    ConfPlace place = arguments.place;
    place.key = key;
    return place;
}

// Compare and swap: the file's lock is held.
void require_present_value(const SetArguments &arguments, const ConfPlace &place,
                           const std::optional<std::string> &present) {
    const std::string what = place.file + ": key '" + place.key + "' " + section_text(place.section);
    if (arguments.if_missing && present)
        throw Failure(kNegativeAnswer, what + " is there already: '" + *present + "'");
    if (arguments.expected && present != arguments.expected)
        throw Failure(kNegativeAnswer, what + (present ? " is '" + *present + "'" : " is not there") + ", expected '" +
                                           *arguments.expected + "'");
}

void set_keys(conf::transaction &change, const SetArguments &arguments, const std::vector<Assignment> &assignments) {
    std::vector<ConfPlace> places;
    for (const Assignment &assignment : assignments) {
        ConfPlace place = with_key(arguments, assignment.key);
        if (arguments.ignore_case)
            place = as_spelled(place, conf::document::parse(change.text()));
        if (arguments.if_missing || arguments.expected)
            require_present_value(arguments, place, change.get(place.section, place.key));
        places.push_back(place);
    }
    for (size_t i = 0; i < places.size(); ++i)
        change.set(places[i].section, places[i].key, assignments[i].value);
}

int run_set(const SetArguments &arguments) {
    const std::vector<Assignment> assignments = assignments_of(arguments.words);
    require_section_name(arguments.place.section);
    for (const auto &[key, value] : assignments)
        require_pair(key, value);
    if (arguments.expected && assignments.size() > 1)
        throw Failure(kUsage, "--if is for one key");
    if (arguments.expected && arguments.if_missing)
        throw Failure(kUsage, "--if and --if-missing exclude each other");

    change_conf(arguments.place.file, arguments.options,
                [&](conf::transaction &change) { set_keys(change, arguments, assignments); });
    return kSuccess;
}

int run_unset(const UnsetArguments &arguments) {
    require_file(arguments.place.file);
    change_conf(arguments.place.file, arguments.options, [&arguments](conf::transaction &change) {
        const ConfPlace &place = arguments.place;
        const conf::document document = conf::document::parse(change.text());
        const ConfPlace spelled = arguments.ignore_case ? as_spelled(place, document) : place;
        if (!change.erase(spelled.section, spelled.key))
            throw missing_key(place, document);
    });
    return kSuccess;
}

constexpr const char *kSetDetails =
    R"(The key's line becomes "KEY = VALUE"; every other byte of the file stays. A missing key, section or
file is added. A VALUE that begins with a dash goes behind "--". Blanks around it are no part of it.
KEY=VALUE, as often as wanted, sets several keys of the section as one step: all of them, or nothing.

--if sets the key only where its value is OLD, --if-missing only where none of the keys is there; else
the exit status is 1, and nothing is changed.

A link stays a link, and the file that it leads to is changed. Owner, group, permission bits, access
list, extended attributes and the ends of lines stay.

Example:
  korvex conf set /etc/config/share.conf 'read only' yes -s attic
  korvex conf set /etc/config/share.conf -s attic 'read only=no' 'path=/share/attic' --backup)";

constexpr const char *kUnsetDetails =
    R"(Removes the line of the first key of that name; every other byte of the file stays. Links, owner,
permission bits, access list and attributes are kept as by 'set'.

Example:
  korvex conf unset /etc/config/share.conf 'max connections' -s attic)";

}  // namespace

void add_conf_set_commands(CLI::App &conf, Session &session) {
    auto [set, arguments] = add_command(conf, session, {"set", "Set or add keys", kSetDetails}, run_set);
    add_place(set, arguments.place);
    add_texts(set, "KEY", arguments.words, "KEY VALUE, or KEY=VALUE once or more; VALUE may be empty").required();
    add_optional(set, "--if", arguments.expected, "Only where the key's value is this one");
    set.add_flag("--if-missing", arguments.if_missing, "Only where the key is not there yet");
    add_ignore_case(set, arguments.ignore_case);
    add_change_options(set, arguments.options);

    auto [unset, unset_arguments] = add_command(conf, session, {"unset", "Remove a key", kUnsetDetails}, run_unset);
    add_place(unset, unset_arguments.place);
    add_key(unset, unset_arguments.place);
    add_ignore_case(unset, unset_arguments.ignore_case);
    add_change_options(unset, unset_arguments.options);
}

}  // namespace korvex::cli
