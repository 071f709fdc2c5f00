// The module of the system information, and the mount table.
#include "sysinfo_scenarios.h"

#include <mntent.h>

#include <cerrno>
#include <cstring>

#include "messages_sysinfo.h"
#include "private_network.h"
#include "sysinfo.h"

namespace faults {

namespace {

constexpr const char *kTable =
    "/dev/md0 / ext4 rw 0 1\n"
    "/dev/md1 /share/MD0_DATA ext4 rw,noatime 0 2\n"
    "proc /proc proc rw 0 0\n";
constexpr int32_t kLines = 3;

void scan(Trial &trial) {
    const Appliance appliance;
    appliance.mount_table(kTable);
    Mount_Info *list = nullptr;
    trial.call([&] { return Scan_Mount_Info(&list); });

    int32_t count = 0;
    for (const Mount_Info *mount = list; mount != nullptr; mount = mount->pNext)
        count++;
    int32_t expected = kLines;
    if (was_made_to_fail(trial, Call::setmntent) || was_made_to_fail(trial, Call::malloc, table::stream) ||
        was_made_to_fail(trial, Call::malloc, table::line))
        expected = 0;
    else if (was_made_to_fail(trial, Call::getline))
        expected = std::min(kLines, trial.injection()->nth - 1);
    else if (was_made_to_fail(trial, Call::malloc) && trial.injection()->nth >= table::first_mount)
        expected = trial.injection()->nth - table::first_mount;
    trial.check(count == expected, "the list holds what was read before");
    Free_Mount_Info(list);
}

Scenario scanning() {
    return {"Scan_Mount_Info",
            "",
            scan,
            0,
            {Rule(Call::malloc, table::stream), Rule(Call::malloc, table::line), stream_buffer(table::buffer),
             Rule(Call::malloc).says(msg::mounts_no_memory), Rule(Call::getline).with(EIO).is_overlooked()}};
}

template <typename Query>
Scenario querying(const char *name, const char *wanted, Query query) {
    const auto body = [=](Trial &trial) {
        const Appliance appliance;
        appliance.mount_table(kTable);
        mntent none{};
        mntent *entry = &none;
        trial.call([&] { return query(wanted, &entry); });
        if (trial.result() == 0)
            trial.check(std::strcmp(entry->mnt_dir, "/share/MD0_DATA") == 0, "the entry is the one that was asked for");
        else
            trial.check(entry == nullptr || entry == &none, "no entry is told of");
    };
    const Rules rules = {
        stream_buffer(table::buffer),
        stream_buffer(5),  // of the line that libc reads again
        Rule(Call::getline).with(EIO).gives(-ENOTDIR),
        giving_back(),
    };
    return {name, "", body, 0, rules};
}

}  // namespace

Scenarios mount_scenarios() {
    return {
        scanning(),
        querying("Query_Mount_Entry_By_Device", "/dev/md1", Query_Mount_Entry_By_Device),
        querying("Query_Mount_Entry_By_Path", "/share/MD0_DATA", Query_Mount_Entry_By_Path),
    };
}

Module sysinfo_module() {
    return {"sysinfo",
            join({interface_scenarios(), mount_scenarios(), share_scenarios(), block_scenarios(), volume_scenarios()}),
            {{"Free_Mount_Info", "frees", [] { Free_Mount_Info(nullptr); }},
             {"Release_Share_List", "frees",
              [] {
                  Share_Info *list = nullptr;
                  Release_Share_List(&list);
              }},
             {"Free_Network_Interface", "frees", [] { Free_Network_Interface(nullptr); }}},
            enter_private_network};
}

}  // namespace faults
