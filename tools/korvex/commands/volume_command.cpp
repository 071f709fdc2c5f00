// korvex volume, korvex blocks: what is known of one volume, and what is on the block devices.
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <vector>

#include "commands/commands.h"
#include "files/path_text.h"
#include "output/machine_json.h"
#include "output/table.h"
#include "sysinfo.h"

namespace korvex::cli {
namespace {

// Asked by the library what is on a device. Where it is missing, nothing is known of any volume.
void refuse_without_identification() {
    constexpr const char *kCommand = "/usr/local/sbin/blkid";
    if (access(kCommand, X_OK) != 0)
        throw Failure(kFailure, std::string("can't identify volumes: the command ") + kCommand +
                                    (errno == ENOENT ? " is missing" : ": " + error_text(errno)));
}

// --- volume ---

struct VolumeArguments {
    std::string name;
    bool json = false;
};

bool is_path(const std::string &name) {
    return name.starts_with('/');
}

struct Volume {
    Volume_Info info{};
    bool mounted = true;
};

// The record is filled as far as the query came: with a device in it, what was missing is a property of that device.
Failure volume_failure(const std::string &name, const Volume_Info &info, int32_t code) {
    const bool device_known = info.szDevice[0] != '\0';
    if (code == -ENODEV)
        refuse_without_identification();
    if (code == -ENODEV || (code == -EINVAL && !is_path(name)))
        return {kNegativeAnswer, name + ": no such volume"};
    if (code == -EINVAL)
        return {kUsage, "'" + name + "' is neither below /dev nor below /share"};
    if (device_known)
        return file_failure(std::string("attributes of ") + info.szDevice, code);
    if (code == -ENOTDIR)
        return {kNegativeAnswer, name + ": not a mount point"};
    return lookup_failure(name, code);
}

Volume volume_of(const std::string &name) {
    Volume volume;
    const int32_t code = is_path(name) ? Query_Volume_Info_BY_Path(name.c_str(), &volume.info)
                                       : Query_Volume_Info_BY_Id(name.c_str(), &volume.info);
    // A device that was found is not mounted: all else is known of it.
    if (code == -ENOTDIR && volume.info.szDevice[0] != '\0')
        volume.mounted = false;
    else if (code < 0)
        throw volume_failure(name, volume.info, code);
    return volume;
}

void print_volume(const Volume &volume) {
    const Volume_Info &info = volume.info;
    print_table({{"device", info.szDevice},
                 {"mounted", info.szMountPath},
                 {"uuid", info.szUuid},
                 {"label", info.szLabel},
                 {"type", info.szType},
                 {"vendor", info.szVendor},
                 {"model", info.szModel},
                 {"partition", std::to_string(info.nPartition)},
                 {"size", size_text(info.ullTotalBytes)},
                 {"free", volume.mounted ? size_text(info.ullFreeBytes) : ""}});
}

void print_volume_json(const Volume &volume) {
    const Volume_Info &info = volume.info;
    print_json({{"device", info.szDevice},
                {"mount_path", text_or_null(info.szMountPath)},
                {"uuid", text_or_null(info.szUuid)},
                {"label", text_or_null(info.szLabel)},
                {"type", text_or_null(info.szType)},
                {"vendor", text_or_null(info.szVendor)},
                {"model", text_or_null(info.szModel)},
                {"partition", info.nPartition},
                {"total_bytes", info.ullTotalBytes},
                {"free_bytes", volume.mounted ? Json(info.ullFreeBytes) : Json()}});
}

int run_volume(const VolumeArguments &arguments) {
    const Volume volume = volume_of(arguments.name);
    arguments.json ? print_volume_json(volume) : print_volume(volume);
    return kSuccess;
}

constexpr const char *kVolumeDetails =
    R"(Prints what is known of a volume that is named by its device, its mount point below /share, a share that
leads to the mount point, or its UUID. The size is that of the file system for a mounted device and for a
UUID, and that of the device for a mount point and where it is not mounted; the partition is 0 for a whole
disk and for its only partition. A volume that is not mounted has no place and no free bytes. Exit status 1
where there is no such volume. What is on a device tells the command /usr/local/sbin/blkid: exit status 3
where it is missing.

--json prints an object with "device", "mount_path", "uuid", "label", "type", "vendor", "model" (each null
where it is not known), "partition", "total_bytes" and "free_bytes" (null where it is not mounted).

Example:
  korvex volume /share/Public)";

// --- blocks ---

struct BlocksArguments {
    bool json = false;
};

std::string text_of(const Json &value) {
    return value.is_null() ? "" : value.get<std::string>();
}

int run_blocks(const BlocksArguments &arguments) {
    refuse_without_identification();
    const Json blocks = listed("block devices", blocks_json);
    std::vector<Row> rows = {{"device", "uuid", "type", "second type"}};
    for (const Json &block : blocks)
        rows.push_back(
            {block["device"], text_of(block["uuid"]), text_of(block["type"]), text_of(block["second_type"])});
    arguments.json ? print_json(blocks) : print_table(rows);
    return kSuccess;
}

constexpr const char *kBlocksDetails =
    R"(Prints device, UUID and type of what is on the block devices, as the command /usr/local/sbin/blkid says and
in its order; exit status 3 where that command is missing. UUID and type are those of the first key of a line
that ends so, such as PARTUUID and SEC_TYPE; the second type is the value of the next such key without its
first character.

--json prints an array of objects with "device", "uuid", "type" and "second_type", null where there is none.

Example:
  korvex blocks --json)";

}  // namespace

void add_volume_command(CLI::App &program, Session &session) {
    auto [command, arguments] =
        add_command(program, session, {"volume", "Describe a volume", kVolumeDetails}, run_volume);
    add_path(command, "PATH|UUID", arguments.name, "A device, a place below /share, or a UUID");
    command.add_flag("--json", arguments.json, "Print JSON");
}

void add_blocks_command(CLI::App &program, Session &session) {
    auto [command, arguments] =
        add_command(program, session, {"blocks", "List what is on the block devices", kBlocksDetails}, run_blocks);
    command.add_flag("--json", arguments.json, "Print JSON");
}

}  // namespace korvex::cli
