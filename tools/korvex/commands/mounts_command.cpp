// korvex mounts: the mounted file systems.
#include <algorithm>
#include <cstdint>
#include <memory>
#include <vector>

#include "commands/commands.h"
#include "output/table.h"
#include "sysinfo.h"

namespace korvex::cli {
namespace {

struct MountsArguments {
    bool json = false;
};

struct FreeMounts {
    void operator()(Mount_Info *list) const { Free_Mount_Info(list); }
};

void print_mounts(const std::vector<const Mount_Info *> &mounts) {
    std::vector<Row> rows = {{"device", "path", "type", "options"}};
    for (const Mount_Info *mount : mounts)
        rows.push_back({mount->pszFsName, mount->pszDir, mount->pszType, mount->szOptions});
    print_table(rows);
}

void print_mounts_json(const std::vector<const Mount_Info *> &mounts) {
    Json list = Json::array();
    for (const Mount_Info *mount : mounts)
        list.push_back({{"device", mount->pszFsName},
                        {"path", mount->pszDir},
                        {"type", mount->pszType},
                        {"options", static_cast<const char *>(mount->szOptions)},
                        {"freq", mount->nFreq},
                        {"pass", mount->nPassNo}});
    print_json(list);
}

int run_mounts(const MountsArguments &arguments) {
    Mount_Info *list = nullptr;
    const int32_t code = Scan_Mount_Info(&list);
    const std::unique_ptr<Mount_Info, FreeMounts> owner(list);
    if (code < 0)
        throw file_failure("/etc/mtab", code);

    // The library lists the last line first.
    std::vector<const Mount_Info *> mounts;
    for (const Mount_Info *mount = list; mount != nullptr; mount = mount->pNext)
        mounts.push_back(mount);
    std::reverse(mounts.begin(), mounts.end());
    arguments.json ? print_mounts_json(mounts) : print_mounts(mounts);
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
