// korvex shares: the shared folders of the appliance.
#include <array>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "commands/commands.h"
#include "files/path_text.h"
#include "output/table.h"
#include "sysinfo.h"

namespace korvex::cli {
namespace {

struct SharesArguments {
    bool json = false;
};

struct ReleaseShares {
    void operator()(Share_Info *list) const { Release_Share_List(&list); }
};

constexpr struct {
    uint32_t flag;
    const char *word;
} kFlags[] = {{SHARE_READ_ONLY, "read-only"},
              {SHARE_HIDDEN, "hidden"},
              {SHARE_EXTERNAL, "external"},
              {SHARE_DISC, "disc"},
              {SHARE_REMOVABLE, "removable"}};

std::vector<std::string> flag_words(const Share_Info &share) {
    std::vector<std::string> words;
    for (const auto &[flag, word] : kFlags)
        if ((share.uFlags & flag) != 0)
            words.emplace_back(word);
    return words;
}

std::string joined(const std::vector<std::string> &words) {
    std::string text;
    for (const std::string &word : words)
        text += (text.empty() ? "" : ",") + word;
    return text;
}

// The permission bits as chmod takes them.
std::string mode_text(const Share_Info &share) {
    char text[16];
    std::snprintf(text, sizeof text, "%04o", share.uMode & 07777U);
    return text;
}

// The local time in seconds.
std::string time_text(const Share_Info &share) {
    const auto seconds = static_cast<time_t>(share.uMtime);
    struct tm local {};
    localtime_r(&seconds, &local);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
    return text;
}

void print_shares(const Share_Info *list) {
    std::vector<Row> rows = {{"mode", "uid", "gid", "modified", "free", "flags", "name"}};
    for (const Share_Info *share = list; share != nullptr; share = share->pNext)
        rows.push_back({mode_text(*share), std::to_string(share->uUid), std::to_string(share->uGid), time_text(*share),
                        size_text(share->ullFreeBytes), joined(flag_words(*share)), share->szName});
    print_table(rows);
}

void print_shares_json(const Share_Info *list) {
    Json shares = Json::array();
    for (const Share_Info *share = list; share != nullptr; share = share->pNext)
        shares.push_back({{"name", static_cast<const char *>(share->szName)},
                          {"flags", flag_words(*share)},
                          {"mode", mode_text(*share)},
                          {"uid", share->uUid},
                          {"gid", share->uGid},
                          {"mtime", share->uMtime},
                          {"mtime_nsec", share->uMtimeNsec},
                          {"fs_type", share->uFsType},
                          {"block_size", share->uBlockSize},
                          {"free_bytes", share->ullFreeBytes}});
    print_json(shares);
}

int run_shares(const SharesArguments &arguments) {
    Share_Info *list = nullptr;
    const int32_t code = Scan_Share_List(&list, nullptr);
    const std::unique_ptr<Share_Info, ReleaseShares> owner(list);
    if (code < 0)
        throw file_failure("/share", code);
    arguments.json ? print_shares_json(list) : print_shares(list);
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
