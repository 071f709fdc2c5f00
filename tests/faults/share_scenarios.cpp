// Shared folders, with calls of the system failing.
#include <cerrno>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "messages_sysinfo.h"
#include "simplog.h"
#include "sysinfo.h"
#include "sysinfo_scenarios.h"

namespace faults {
namespace {

// The blocks behind those of the read of the mount table.
constexpr int kSecondMount = table::first_mount + 1;
constexpr int kFolderStream = kSecondMount + 1;
constexpr int kFirstOptions = kFolderStream + 1;

// Three shares: one to be seen, one hidden, and one on an external disk.
void set_up(const Appliance &appliance) {
    appliance.volume("/share/MD0_DATA");
    appliance.mount_table(
        "/dev/md0 /share/MD0_DATA ext4 rw 0 0\n"
        "/dev/sdk1 /share/external/usb vfat rw 0 0\n");
    appliance.share("MD0_DATA/Public", "Public");
    appliance.share("MD0_DATA/Video", "Video");
    appliance.share("external/usb", "Disk");
    appliance.share_options("[Disk]\n[Public]\nbrowsable = yes\n[Video]\nbrowseable = no\n");
}

struct Seen {
    size_t shares = 0;
    size_t hidden = 0;
    size_t external = 0;
    bool sorted = true;

    explicit Seen(const Share_Info *list) {
        for (const Share_Info *share = list; share != nullptr; share = share->pNext) {
            shares++;
            hidden += (share->uFlags & SHARE_HIDDEN) != 0;
            external += (share->uFlags & SHARE_EXTERNAL) != 0;
            sorted = sorted && (share->pNext == nullptr || std::strcmp(share->szName, share->pNext->szName) < 0);
        }
    }
};

void check_list(Trial &trial, const Seen &seen, int32_t count) {
    trial.check(seen.sorted, "the list is sorted");
    trial.check(static_cast<size_t>(count) == seen.shares, "the count is the list's");
    if (trial.result() != 0) {
        trial.check(seen.shares == 0, "a failure hands nothing out");
        return;
    }

    const auto fails = [&](std::initializer_list<Call> calls) {
        for (const Call call : calls)
            if (was_made_to_fail(trial, call) || (trial.second() != nullptr && trial.second()->call == call))
                return true;
        return false;
    };
    if (fails({Call::readdir}))
        trial.check(seen.shares <= 3, "the list ends where the folder could be read no more");
    else
        trial.check(seen.shares == (fails({Call::fstatat, Call::realpath, Call::statfs}) ? 2 : 3),
                    "no other share is left out");
    if (fails({Call::stat, Call::openat, Call::fstat, Call::read}))
        trial.check(seen.hidden == 1 || seen.hidden == 2, "a share whose options can't be read is hidden");
    if (fails({Call::setmntent}))
        trial.check(seen.external == 0 && seen.hidden == 1, "without mounts no disk is known as external");
}

// At a level of messages: below that of debug messages the options are not read for each share.
void scan(Trial &trial, int32_t level) {
    const Appliance appliance;
    set_up(appliance);
    auto *list = reinterpret_cast<Share_Info *>(&trial);  // rubbish, which the scan is to clear
    int32_t count = -1;
    trial.call([&] {
        const int32_t outer = std::exchange(g_idLogLevel, level);
        const int32_t result = Scan_Share_List(&list, &count);
        g_idLogLevel = outer;
        return result;
    });

    const Seen seen(list);
    check_list(trial, seen, count);
    if (trial.injection() == nullptr)
        trial.check(seen.hidden == 1 && seen.external == 1, "the flags are those of the shares");
    Release_Share_List(&list);
}

// What is the same at each level.
Rules common_rules() {
    return {
        Rule({Call::setmntent, Call::getline}).is_overlooked(),
        Rule(Call::malloc, table::stream).is_overlooked(),
        Rule(Call::malloc, table::line).is_overlooked(),
        stream_buffer(table::buffer),
        Rule(Call::malloc, table::first_mount).is_overlooked().says(msg::mounts_no_memory),
        Rule(Call::malloc, kSecondMount).is_overlooked().says(msg::mounts_no_memory),
        Rule(Call::malloc, kFolderStream).says(msg::shares_no_folder),
        giving_back(),
        Rule({Call::opendir, Call::dirfd}).says(msg::shares_no_folder),
        Rule({Call::readdir, Call::fstatat, Call::realpath, Call::statfs}).is_overlooked(),
    };
}

// The order of the folder: Disk, Video, Public.
Scenario scanning_with_debug_messages() {
    // The options of each are read up to twice.
    const Rules options = {
        Rule(Call::stat).with(ENOENT).is_overlooked().says(msg::options_not_cached),
        Rule(Call::stat).is_overlooked().says({msg::options_no_stat, msg::options_not_cached}),
        Rule(Call::openat).is_overlooked().says({msg::options_not_opened, msg::options_not_cached}),
        Rule(Call::fstat).is_overlooked().says({msg::options_no_stat, msg::options_not_cached}),
        Rule(Call::read).when_short().is_overlooked().with_code(-EIO).says({msg::options_cut, msg::options_not_cached}),
        Rule(Call::read).is_overlooked().says({msg::options_not_read, msg::options_not_cached}),
    };
    // For each share: the text of the options, up to twice, and the share's record.
    Rules memory;
    for (const int text : {kFirstOptions, kFirstOptions + 1, kFirstOptions + 3, kFirstOptions + 4, kFirstOptions + 6})
        memory.push_back(
            Rule(Call::malloc, text).is_overlooked().says({msg::options_no_memory, msg::options_not_cached}));
    for (const int record : {kFirstOptions + 2, kFirstOptions + 5, kFirstOptions + 7})
        memory.push_back(Rule(Call::malloc, record).says(msg::shares_no_memory));
    Scenario scenario = {"Scan_Share_List", "with debug messages",
                         [](Trial &trial) { scan(trial, static_cast<int32_t>(Level::debug)); }, 0,
                         join({common_rules(), options, memory})};
    scenario.debug_only = true;
    return scenario;
}

Scenario scanning() {
    // The options are read for the first share alone, into two blocks, and looked at for the others.
    const Rules options = {
        Rule({Call::stat, Call::openat, Call::fstat, Call::read}).is_overlooked(),
        Rule(Call::malloc, kFirstOptions).is_overlooked(),
        Rule(Call::malloc, kFirstOptions + 1).is_overlooked(),
        Rule(Call::malloc).says(msg::shares_no_memory),
    };
    // Where the options can't be read their blocks are not asked for.
    const Rules then = {Rule(Call::malloc).is_overlooked(),
                        Rule(Call::malloc).gives(-ENOMEM).says(msg::shares_no_memory)};
    return and_then(
        Scenario{"Scan_Share_List", "", [](Trial &trial) { scan(trial, static_cast<int32_t>(Level::error)); }, 0,
                 join({common_rules(), options})},
        then);
}

void find_shortcut(Trial &trial) {
    const Appliance appliance;
    appliance.folder("/share/MD0_DATA/Public");
    appliance.link("MD0_DATA/Public", "Public");
    appliance.link("MD0_DATA/Other", "Other");
    char text[264] = "untouched";
    trial.call([&] { return Query_Mount_Shortcut("/share/MD0_DATA/Public", text); });
    trial.check(std::strcmp(text, trial.result() == 0 ? "/share/Public" : "untouched") == 0,
                "the text goes with success alone");
}

}  // namespace

Scenarios share_scenarios() {
    // The link that is looked for is the second one.
    const Rules rules = {giving_back(), Rule(Call::readlinkat, 1).is_overlooked(), Rule().gives(-ENOENT)};
    return {scanning(), scanning_with_debug_messages(), {"Query_Mount_Shortcut", "", find_shortcut, 0, rules}};
}

}  // namespace faults
