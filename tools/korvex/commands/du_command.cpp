// korvex du: what files and trees hold, and what they take on the disk.
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "commands/commands.h"
#include "fileio.h"
#include "files/path_text.h"
#include "output/shown_name.h"
#include "output/table.h"

namespace korvex::cli {
namespace {

struct UsageArguments {
    std::vector<std::string> paths;
    bool json = false;
    bool ignored = false;
};

// The counts of the library are 32 bits wide, which a sum may leave.
struct UsageOfPath {
    std::string path;
    uint64_t files = 0;
    uint64_t folders = 0;
    uint64_t bytes = 0;
    uint64_t blocks = 0;
};

UsageOfPath usage_of(const std::string &path) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0)
        throw lookup_failure(path, -errno);
    if (!S_ISDIR(status.st_mode))
        return {path, 1, 0, static_cast<uint64_t>(status.st_size), static_cast<uint64_t>(status.st_blocks)};

    Folder_Tree_State state{};
    if (const int32_t code = State_Folder_Tree(path.c_str(), &state, nullptr); code < 0)
        throw lookup_failure(path, code);
    return {path, state.cnFiles, state.cnFolders, state.ullBytes, state.ullBlocks};
}

UsageOfPath total_of(const std::vector<UsageOfPath> &usages) {
    UsageOfPath total{.path = "total"};
    for (const UsageOfPath &usage : usages) {
        total.files += usage.files;
        total.folders += usage.folders;
        total.bytes += usage.bytes;
        total.blocks += usage.blocks;
    }
    return total;
}

// The path comes last: it alone may have any length.
using TreeRow = std::array<std::string, 5>;

TreeRow row_of(const UsageOfPath &usage) {
    return {std::to_string(usage.files), std::to_string(usage.folders), size_text(usage.bytes),
            size_text(usage.blocks * 512), shown(usage.path)};
}

void print_usages(const std::vector<UsageOfPath> &usages) {
    std::vector<TreeRow> rows = {{"files", "folders", "size", "on disk", "path"}};
    for (const UsageOfPath &usage : usages)
        rows.push_back(row_of(usage));
    if (usages.size() > 1)
        rows.push_back(row_of(total_of(usages)));

    std::array<size_t, 4> widths{};
    for (const TreeRow &row : rows)
        for (size_t i = 0; i < widths.size(); ++i)
            widths[i] = std::max(widths[i], row[i].size());
    for (const TreeRow &row : rows) {
        for (size_t i = 0; i < widths.size(); ++i)
            std::printf("%*s  ", static_cast<int>(widths[i]), row[i].c_str());
        std::printf("%s\n", row.back().c_str());
    }
}

void print_usages_json(const std::vector<UsageOfPath> &usages) {
    auto list = Json::array();
    for (const UsageOfPath &usage : usages)
        list.push_back({{"path", usage.path},
                        {"files", usage.files},
                        {"folders", usage.folders},
                        {"bytes", usage.bytes},
                        {"blocks", usage.blocks}});
    print_json(list);
}

int run_du(const UsageArguments &arguments) {
    std::vector<UsageOfPath> usages;
    const int exit_status =
        for_each_path("du", arguments.paths, [&](const std::string &path) { usages.push_back(usage_of(path)); });
    if (arguments.json)
        print_usages_json(usages);
    else if (!usages.empty())
        print_usages(usages);
    return exit_status;
}

constexpr const char *kDuDetails =
    R"(Prints for each PATH the number of files (links are files) and of folders (PATH is one), the sum of the
sizes of files and links, and what all of it takes on the disk; for several a total. Links are not followed.
Entries that can't be looked at are passed over; --verbose names them.

--json prints an array of objects with "path", "files", "folders", "bytes" and "blocks" (of 512 bytes).

Example:
  korvex du /share/Public /share/Multimedia)";

}  // namespace

void add_du_command(CLI::App &program, Session &session) {
    auto [command, arguments] = add_command(program, session, {"du", "Measure files and trees", kDuDetails}, run_du);
    add_paths(command, arguments.paths, "Files and folders");
    command.add_flag("--json", arguments.json, "Print JSON");
    // As people are used to; -h is no help here.
    command.set_help_flag("--help", "Print this help message and exit");
    command.add_flag("-h", arguments.ignored, "Sizes as people read them, as they are anyway");
    command.add_flag("-s", arguments.ignored, "One line for each PATH, as there is anyway");
}

}  // namespace korvex::cli
