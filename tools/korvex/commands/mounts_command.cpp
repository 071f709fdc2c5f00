// korvex mounts: the mounted file systems.
#include <vector>

#include "commands/commands.h"
#include "output/machine_json.h"
#include "output/table.h"

namespace korvex::cli {
namespace {

struct MountsArguments {
    bool json = false;
};

int run_mounts(const MountsArguments &arguments) {
    const Json mounts = listed("/etc/mtab", mounts_json);
    std::vector<Row> rows = {{"device", "path", "type", "options"}};
    for (const Json &mount : mounts)
        rows.push_back({mount["device"], mount["path"], mount["type"], mount["options"]});
    arguments.json ? print_json(mounts) : print_table(rows);
    return kSuccess;
}

constexpr const char *kMountsDetails =
    R"(Prints device (or other source), mount point, file-system type and options of the mounted file systems, in
the order of /etc/mtab.

--json prints an array of objects with "device", "path", "type", "options", "freq" (of dumps, in days) and
"pass" (of fsck).

Example:
  korvex mounts --json)";

}  // namespace

void add_mounts_command(CLI::App &program, Session &session) {
    auto [command, arguments] =
        add_command(program, session, {"mounts", "List the mounted file systems", kMountsDetails}, run_mounts);
    command.add_flag("--json", arguments.json, "Print JSON");
}

}  // namespace korvex::cli
