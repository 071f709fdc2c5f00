// korvex shares: the shared folders of the appliance.
#include <ctime>
#include <string>
#include <vector>

#include "commands/commands.h"
#include "files/path_text.h"
#include "output/machine_json.h"
#include "output/table.h"

namespace korvex::cli {
namespace {

struct SharesArguments {
    bool json = false;
};

std::string joined(const Json &words) {
    std::string text;
    for (const Json &word : words)
        text += (text.empty() ? "" : ",") + word.get<std::string>();
    return text;
}

// The local time in seconds.
std::string time_text(time_t seconds) {
    struct tm local {};
    localtime_r(&seconds, &local);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
    return text;
}

void print_shares(const Json &shares) {
    std::vector<Row> rows = {{"mode", "uid", "gid", "modified", "free", "flags", "name"}};
    for (const Json &share : shares)
        rows.push_back({share["mode"], share["uid"].dump(), share["gid"].dump(), time_text(share["mtime"]),
                        size_text(share["free_bytes"]), joined(share["flags"]), share["name"]});
    print_table(rows);
}

int run_shares(const SharesArguments &arguments) {
    const Json shares = listed("/share", shares_json);
    arguments.json ? print_json(shares) : print_shares(shares);
    return kSuccess;
}

constexpr const char *kSharesDetails =
    R"(Prints the shared folders, which are the links in /share that lead to folders in it, in the byte order of
their names: the folder's mode, owner, group and time, the free bytes of its volume (those kept for root
included), flags, and the name. The flags are read-only, hidden (not browsable by /etc/config/smb.conf),
external (an external device), disc (ISO 9660 or UDF) and removable (one of both).

--json prints an array of objects with "name", "flags" (a list), "mode" (octal), "uid", "gid", "mtime" and
"mtime_nsec" (since 1970), "fs_type" (the file system's magic number), "block_size" and "free_bytes".

Example:
  korvex shares --json)";

}  // namespace

void add_shares_command(CLI::App &program, Session &session) {
    auto [command, arguments] =
        add_command(program, session, {"shares", "List the shared folders", kSharesDetails}, run_shares);
    command.add_flag("--json", arguments.json, "Print JSON");
}

}  // namespace korvex::cli
