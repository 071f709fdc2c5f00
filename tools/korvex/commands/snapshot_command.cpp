// korvex snapshot: the state of the machine as one document, the difference of two, and figures for a collector.
#include <cstdio>
#include <string>
#include <vector>

#include "commands/commands.h"
#include "output/shown_name.h"
#include "output/table.h"
#include "snapshot/snapshot.h"

namespace korvex::cli {
namespace {

using snapshot::Difference;

// --- taking one ---

struct SnapshotArguments {
    bool open_metrics = false;
};

int run_snapshot(const SnapshotArguments &arguments) {
    std::vector<std::string> problems;
    const Json document = snapshot::take(problems);
    if (arguments.open_metrics)
        std::fputs(snapshot::open_metrics(document).c_str(), stdout);
    else
        print_json(document);
    for (const std::string &problem : problems)
        print_error("snapshot", problem);
    return problems.empty() ? kSuccess : kFailure;
}

constexpr const char *kSnapshotDetails =
    R"(Prints mounts, volumes, shares, block devices, interfaces and locks as one JSON document, which
'korvex snapshot diff' compares with another. "schema" in it is the number of its form, which
share/korvex/snapshot.schema.json describes. A part that can't be read is null; the reason goes to standard
error, exit status 3.

--openmetrics prints figures of the same for a collector that reads text files.

Example:
  korvex snapshot >before.json
  korvex snapshot | korvex snapshot diff before.json -)";

// --- comparing two ---

struct DiffArguments {
    std::string before;
    std::string after;
    bool all = false;
    bool json = false;
};

constexpr struct {
    Difference::Kind kind;
    const char *sign;
    const char *list;
} kKinds[] = {{Difference::Kind::came, "+", "came"},
              {Difference::Kind::went, "-", "went"},
              {Difference::Kind::changed, "~", "changed"},
              {Difference::Kind::unknown, "?", "unknown"}};

std::string value_text(const Json &value) {
    return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string line_of(const char *sign, const Difference &difference) {
    std::string line = std::string(sign) + " " + difference.part;
    line += difference.element.empty() ? " could be read for one of the two alone" : " " + difference.element;
    for (size_t i = 0; i < difference.fields.size(); ++i) {
        const auto &[name, before, after] = difference.fields[i];
        line += (i == 0 ? ": " : ", ") + name + " " + value_text(before) + " -> " + value_text(after);
    }
    return line;
}

void print_differences(const std::vector<Difference> &differences) {
    for (const Difference &difference : differences)
        for (const auto &[kind, sign, list] : kKinds)
            if (kind == difference.kind)
                std::printf("%s\n", shown(line_of(sign, difference)).c_str());
}

Json fields_json(const std::vector<snapshot::Field> &fields) {
    Json list = Json::array();
    for (const auto &[name, before, after] : fields)
        list.push_back({{"field", name}, {"old", before}, {"new", after}});
    return list;
}

void print_differences_json(const std::vector<Difference> &differences) {
    Json document = Json::object();
    for (const auto &[kind, sign, list] : kKinds) {
        document[list] = Json::array();
        for (const Difference &difference : differences) {
            if (difference.kind != kind)
                continue;
            Json element = {{"part", difference.part}};
            if (!difference.element.empty())
                element["element"] = difference.element;
            if (!difference.fields.empty())
                element["fields"] = fields_json(difference.fields);
            document[list].push_back(element);
        }
    }
    print_json(document);
}

int run_diff(const DiffArguments &arguments) {
    if (arguments.before == "-" && arguments.after == "-")
        throw Failure(kUsage, "only one of the two can be standard input");
    const Json before = snapshot::load(arguments.before);
    const Json after = snapshot::load(arguments.after);
    const std::vector<Difference> differences = snapshot::compare(before, after, arguments.all);
    arguments.json ? print_differences_json(differences) : print_differences(differences);
    return differences.empty() ? kSuccess : kNegativeAnswer;
}

constexpr const char *kDiffDetails =
    R"(Compares two snapshots, "-" being standard input, and prints a line for each thing that came (+), went (-)
or changed (~), with the fields that did: "~ volumes /dev/sda3: label "Data" -> "Attic"". What changes by
itself does not count, but for --all: free bytes, the times of shares, and the ages of locks. A part that only
one of the two could read is a difference (?). Exit status 0 where they are the same, 1 where they differ, 2
for wrong usage, 3 for what is no snapshot.

--json prints an object with the lists "came", "went", "changed" and "unknown" of objects with "part",
"element" and "fields", which have "field", "old" and "new".

Example:
  korvex snapshot diff monday.json tuesday.json)";

}  // namespace

void add_snapshot_commands(CLI::App &program, Session &session) {
    auto [command, arguments] =
        add_command(program, session, {"snapshot", "Print the state of the machine, or compare two", kSnapshotDetails},
                    run_snapshot);
    CLI::Option *const open_metrics =
        command.add_flag("--openmetrics", arguments.open_metrics, "Print figures for a collector");

    auto [diff, diff_arguments] =
        add_command(command, session, {"diff", "Print what differs between two snapshots", kDiffDetails}, run_diff);
    diff.excludes(open_metrics);
    add_path(diff, "OLD", diff_arguments.before, "The earlier snapshot; - for standard input");
    add_path(diff, "NEW", diff_arguments.after, "The later one; - for standard input");
    diff.add_flag("--all", diff_arguments.all, "Count what changes by itself, too");
    diff.add_flag("--json", diff_arguments.json, "Print JSON");
}

}  // namespace korvex::cli
