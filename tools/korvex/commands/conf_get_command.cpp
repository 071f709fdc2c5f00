// korvex conf get: one key's value, or all of a key that repeats.
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "commands/commands.h"
#include "conf/conf_failure.h"
#include "conf/conf_words.h"
#include "korvex/conf.hpp"
#include "output/table.h"

namespace korvex::cli {
namespace {

struct GetArguments {
    ConfPlace place;
    std::optional<std::string> fallback;
    std::string type = "string";
    bool all = false;
    bool ignore_case = false;
    bool json = false;
};

std::optional<std::string> value_at(const ConfPlace &place) {
    try {
        return conf::get(place.file, place.section, place.key);
    } catch (const error &failure) {
        throw reading_failure(place.file, failure);
    }
}

// The first section without a name is the one before the first header, unless that has no pairs.
std::vector<std::string> values_in(const conf::document &document, const ConfPlace &place) {
    std::vector<std::string> values;
    const std::optional<conf::section> section = document.find(place.section);
    if (section && (!place.section.empty() || value_at(place)))
        for (const conf::pair &pair : *section)
            if (pair.key == place.key)
                values.emplace_back(pair.value);
    return values;
}

std::vector<std::string> read_values(const GetArguments &arguments) {
    if (!arguments.ignore_case && !arguments.all)
        if (const std::optional<std::string> value = value_at(arguments.place))
            return {*value};

    const conf::document document = read_document(arguments.place.file);
    const ConfPlace place = arguments.ignore_case ? as_spelled(arguments.place, document) : arguments.place;
    std::vector<std::string> values = values_in(document, place);
    if (values.empty())
        throw missing_key(arguments.place, document);
    if (!arguments.all)
        values.resize(1);
    return values;
}

int64_t as_integer(const ConfPlace &place, const std::string &value) {
    int64_t number = 0;
    const size_t sign = value.size() > 1 && value[0] == '+' && value[1] != '-' ? 1 : 0;
    const char *const end = value.data() + value.size();
    const auto [stop, failure] = std::from_chars(value.data() + sign, end, number);
    if (failure != std::errc() || stop != end)
        throw Failure(kFailure, place.file + ": not an integer: key '" + place.key + "' is '" + value + "'");
    return number;
}

bool as_bool(const ConfPlace &place, const std::string &value) {
    bool truth = false;
    if (detail::read_value(value, truth, {}) != detail::reading::good)
        throw Failure(kFailure, place.file + ": neither yes, on, 1, true nor no, off, 0, false: key '" + place.key +
                                    "' is '" + value + "'");
    return truth;
}

Json typed(const GetArguments &arguments, const std::string &value) {
    if (arguments.type == "int")
        return as_integer(arguments.place, value);
    if (arguments.type == "bool")
        return as_bool(arguments.place, value);
    return value;
}

// The default stands as it is; in JSON as what it can be read as.
Json fallback_of(const GetArguments &arguments) {
    try {
        return arguments.json ? typed(arguments, *arguments.fallback) : Json(*arguments.fallback);
    } catch (const Failure &) {
        return *arguments.fallback;
    }
}

std::vector<Json> values_or_default(const GetArguments &arguments) {
    std::vector<Json> values;
    try {
        for (const std::string &value : read_values(arguments))
            values.push_back(typed(arguments, value));
    } catch (const Failure &failure) {
        if (failure.exit_status() != kNegativeAnswer || !arguments.fallback)
            throw;
        values = {fallback_of(arguments)};
    }
    return values;
}

int run_get(const GetArguments &arguments) {
    const std::vector<Json> values = values_or_default(arguments);
    if (!arguments.json) {
        for (const Json &value : values)
            std::printf("%s\n", (value.is_string() ? value.get<std::string>() : value.dump()).c_str());
        return kSuccess;
    }

    Json object = Json::object();
    object["section"] = arguments.place.section;
    object["key"] = arguments.place.key;
    if (arguments.all)
        object["values"] = values;
    else
        object["value"] = values.front();
    print_json(object);
    return kSuccess;
}

constexpr const char *kGetDetails =
    R"(A file, section or key that is not there: exit status 1, or the text of --default as it stands.
  int   prints the number; a value that is not a whole number of 64 bits is a failure
  bool  prints true for yes, on, 1 and true, false for no, off, 0 and false, in any case of letters;
        anything else is a failure

--json prints {"section": NAME, "key": KEY, "value": VALUE}, with --all "values": [VALUE...]; a VALUE of
--type int or bool is a number or a truth value.

Example:
  korvex conf get /etc/config/share.conf 'max connections' -s attic --type int --default 0)";

}  // namespace

void add_conf_get_command(CLI::App &conf, Session &session) {
    auto [get, arguments] = add_command(conf, session, {"get", "Print a key's value", kGetDetails}, run_get);
    add_place(get, arguments.place);
    add_key(get, arguments.place);
    add_optional(get, "--default", arguments.fallback, "Printed where the file, section or key is not there");
    get.add_option("--type", arguments.type, "string, int or bool")
        ->check(CLI::IsMember({"string", "int", "bool"}))
        ->capture_default_str();
    get.add_flag("--all", arguments.all, "Print the value of each key of this name in the section, a line each");
    add_ignore_case(get, arguments.ignore_case);
    get.add_flag("--json", arguments.json, "Print JSON");
}

}  // namespace korvex::cli
