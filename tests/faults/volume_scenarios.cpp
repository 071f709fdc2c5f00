// Volumes, with calls of the system failing.
#include <cerrno>
#include <cstring>
#include <string>

#include "sysinfo.h"
#include "sysinfo_scenarios.h"

namespace faults {
namespace {

constexpr uint64_t kDeviceSize = 500 * 512;

void set_up(const Appliance &appliance) {
    appliance.volume("/share/MD0_DATA");
    appliance.link("MD0_DATA", "Data");
    appliance.mount_table("/dev/sda1 /share/MD0_DATA ext4 rw 0 0\n");
    appliance.tool_prints("/dev/sda1: LABEL=\"data\" UUID=\"91c2\" TYPE=\"xfs\"\n");
    appliance.disk("sda", "1000\n", "Model\n", "Vendor\n");
    appliance.partition("sda", "sda1", "500\n");
    appliance.partition("sda", "sda2", "300\n");
}

bool fails_with(const Trial &trial, std::initializer_list<Call> calls) {
    for (const Call call : calls)
        if (was_made_to_fail(trial, call))
            return true;
    return false;
}

// What a success tells, with whatever may be missing then.
void check_record(Trial &trial, const Volume_Info &volume, bool by_mount_point) {
    if (trial.result() != 0)
        return;

    trial.check(std::strcmp(volume.szDevice, "/dev/sda1") == 0 && std::strcmp(volume.szUuid, "91c2") == 0 &&
                    std::strcmp(volume.szLabel, "data") == 0 && std::strcmp(volume.szType, "xfs") == 0,
                "what the tool knows is there");
    const bool no_shortcut =
        fails_with(trial, {Call::opendir, Call::dirfd, Call::readdir, Call::readlinkat}) ||
        (was_made_to_fail(trial, Call::malloc) && std::strcmp(volume.szMountPath, "/share/MD0_DATA") == 0);
    trial.check(std::strcmp(volume.szMountPath, no_shortcut ? "/share/MD0_DATA" : "/share/Data") == 0,
                "the mount path is the shortcut, or the mount point");
    if (trial.injection() != nullptr &&
        (trial.injection()->call == Call::open || trial.injection()->call == Call::read))
        return;  // an attribute of the device that could not be read

    const bool of_device = by_mount_point || fails_with(trial, {Call::statfs});
    trial.check((volume.ullTotalBytes == kDeviceSize) == of_device, "the size is that of the right thing");
}

template <typename Query>
Scenario asking(const char *name, const char *variant, const char *wanted, bool by_mount_point, const Rules &rules,
                Query query) {
    const auto body = [=](Trial &trial) {
        const Appliance appliance;
        set_up(appliance);
        Volume_Info volume{};
        trial.call([&] { return query(wanted, &volume); });
        check_record(trial, volume, by_mount_point);
    };
    const Rules common = {
        giving_back(),
        Rule({Call::popen, Call::realloc, Call::fgets}).gives(-ENODEV),
        Rule(Call::getline).with(EIO).gives(-ENOTDIR),
        Rule(Call::open, 3),
        Rule(Call::read, 3).when_failing(),
        Rule({Call::open, Call::read, Call::fstatat}).is_overlooked(),
        Rule({Call::opendir, Call::dirfd, Call::readdir, Call::readlinkat}).is_overlooked(),
    };
    return {name, variant, body, 0, join({rules, common})};
}

}  // namespace

Scenarios volume_scenarios() {
    // A device is asked of the tool first, and looked up in the mount table then.
    constexpr int table_after_tool = tool::buffer;
    constexpr int shortcut_folder = table_after_tool + table::buffer + 1;
    const Rules by_device = {
        Rule(Call::malloc, tool::stream).gives(-ENODEV),
        stream_buffer(tool::buffer),
        Rule(Call::malloc, table_after_tool + table::stream),
        Rule(Call::malloc, table_after_tool + table::line),
        stream_buffer(table_after_tool + table::buffer),
        Rule(Call::malloc, shortcut_folder).is_overlooked(),
        Rule(Call::statfs).is_overlooked(),
    };
    // A mount point is looked up in the mount table first, then its shortcut; the tool comes last.
    constexpr int shortcut_before_tool = table::buffer + 1;
    constexpr int tool_after_table = shortcut_before_tool;
    const Rules by_mount_point = {
        Rule(Call::malloc, table::stream),
        Rule(Call::malloc, table::line),
        stream_buffer(table::buffer),
        Rule(Call::malloc, shortcut_before_tool).is_overlooked(),
        Rule(Call::malloc, tool_after_table + tool::stream).gives(-ENODEV),
        stream_buffer(tool_after_table + tool::buffer),
    };
    return {
        asking("Query_Volume_Info_BY_Path", "a device", "/dev/sda1", false, by_device, Query_Volume_Info_BY_Path),
        asking("Query_Volume_Info_BY_Path", "a mount point", "/share/Data", true, by_mount_point,
               Query_Volume_Info_BY_Path),
        asking("Query_Volume_Info_BY_Id", "", "91c2", false, by_device, Query_Volume_Info_BY_Id),
    };
}

}  // namespace faults
