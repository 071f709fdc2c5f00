// What is on block devices, as the identification tool says, and what the kernel says of the devices.
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "base/message.h"
#include "base/path_buffer.h"
#include "base/texts.h"
#include "block_line.h"
#include "block_tool.h"
#include "fileio.h"
#include "sysinfo.h"

namespace korvex::sysinfo {
namespace {

using SysPath = PathBuffer<kPathSize>;

constexpr std::string_view kBlockFolder = "/sys/block/";
constexpr uint64_t kSectorSize = 512;
constexpr int32_t kUuidSize = 40;
constexpr int32_t kLabelSize = 16;
constexpr int32_t kTypeSize = 12;
constexpr size_t kDeviceSize = 24;
constexpr int32_t kNameSize = 32;  // of a model and a vendor

size_t record_size(const BlockLine &line) {
    return offsetof(Block_Info, szType2) + line.device.size() + line.uuid.size() + line.type.size() +
           line.second_type.size() + 4;
}

void fill(Block_Info &record, const BlockLine &line) {
    record.pszType = put_text(record.szType2, line.second_type);
    record.pszUuid = put_text(record.pszType, line.type);
    record.pszDevice = put_text(record.pszUuid, line.uuid);
    put_text(record.pszDevice, line.device);
}

// A value that is missing or too long leaves the text as it is.
void extract(const char *line, const char *key, char *text, int32_t size) {
    (void)Extract_Value(line, key, text, &size);
}

void extract_label_and_type(const char *line, char *label, char *type) {
    extract(line, "LABEL", label, kLabelSize);
    extract(line, "TYPE", type, kTypeSize);
}

// A device's name in its two parts: "sdb3" is disk "sdb" and partition "3".
struct DeviceName {
    std::string_view disk;
    std::string_view partition;

    explicit DeviceName(const char *path) {
        for (const std::string_view folder : {std::string_view("/dev/mapper/"), std::string_view("/dev/")})
            if (begins_with(path, folder)) {
                path += folder.size();
                break;
            }

        disk = {path, std::strspn(path, "abcdefghijklmnopqrstuvwxyz")};
        partition = path + disk.size();  // to the end of the path, so with a NUL
    }

    uint32_t number() const { return static_cast<uint32_t>(std::strtoul(partition.data(), nullptr, 10)); }

    [[nodiscard]] bool size_path(SysPath &path) const {
        if (partition.empty())
            return path.assign({kBlockFolder, disk, "/size"});
        return path.assign({kBlockFolder, disk, "/", disk, partition, "/size"});
    }
};

// A line of a file, terminated, in a text of `size` bytes; empty when it can't be read.
int32_t read_attribute(const char *path, char *text, int32_t size) {
    int32_t length = size - 1;
    const int32_t result = Simple_Read_File(path, text, &length);
    text[result == 0 ? length : 0] = '\0';
    return result;
}

int32_t read_name(const DeviceName &name, std::string_view attribute, char *text) {
    SysPath path;
    if (!path.assign({kBlockFolder, name.disk, "/device/", attribute}))
        return -ENAMETOOLONG;

    const int32_t result = read_attribute(path.c_str(), text, kNameSize);
    size_t length = std::strlen(text);
    while (length > 0 && text[length - 1] == ' ')
        text[--length] = '\0';
    return result;
}

bool has_second_partition(const DeviceName &name) {
    SysPath path;
    uint32_t is_folder = 0;
    return path.assign({kBlockFolder, name.disk, "/", name.disk, "2"}) && Check_Folder(path.c_str(), &is_folder) == 0;
}

}  // namespace
}  // namespace korvex::sysinfo

using namespace korvex;
using namespace korvex::sysinfo;

int32_t Scan_Block_Device_Info(Block_Info **ppList) {
    if (ppList == nullptr)
        return -EINVAL;

    BlockTool tool;
    if (!tool.start())
        return 0;

    while (tool.next()) {
        BlockLine line;
        if (!parse_block_line(tool.line(), line))
            continue;

        const size_t size = record_size(line);
        auto *record = static_cast<Block_Info *>(std::malloc(size));
        if (record == nullptr) {
            LOG_ERROR("Can't allocate %d bytes memory!\n", static_cast<int>(size));
            return -ENOMEM;
        }

        fill(*record, line);
        record->pNext = *ppList;
        *ppList = record;
    }
    return 0;
}

int32_t Query_Block_Info_By_Path(const char *pszDevice, char *pszUuid, char *pszLabel, char *pszType) {
    if (pszDevice == nullptr || pszUuid == nullptr || pszLabel == nullptr || pszType == nullptr)
        return -EINVAL;

    *pszUuid = *pszLabel = *pszType = '\0';
    PathBuffer<kDeviceSize> beginning;
    BlockTool tool;
    if (!beginning.assign({pszDevice, ":"}) || !tool.start())
        return -ENODEV;

    while (tool.next()) {
        if (std::strncmp(tool.line(), beginning.c_str(), beginning.size()) != 0)
            continue;

        extract(tool.line(), "UUID", pszUuid, kUuidSize);
        extract_label_and_type(tool.line(), pszLabel, pszType);
        return 0;
    }
    return -ENODEV;
}

int32_t Query_Block_Info_By_Id(const char *pszUuid, char *pszDevice, char *pszLabel, char *pszType) {
    if (pszUuid == nullptr || pszDevice == nullptr || pszLabel == nullptr || pszType == nullptr)
        return -EINVAL;

    *pszDevice = *pszLabel = *pszType = '\0';
    PathBuffer<64> wanted;
    BlockTool tool;
    if (std::strlen(pszUuid) >= kUuidSize || !wanted.assign({" UUID=\"", pszUuid, "\""}) || !tool.start())
        return -ENODEV;

    while (tool.next()) {
        const char *line = tool.line();
        const char *colon = std::strchr(line, ':');
        if (colon == nullptr || colon - line >= static_cast<ptrdiff_t>(kDeviceSize) ||
            std::strstr(line, wanted.c_str()) == nullptr)
            continue;

        put_text(pszDevice, {line, static_cast<size_t>(colon - line)});
        extract_label_and_type(line, pszLabel, pszType);
        return 0;
    }
    return -ENODEV;
}

int32_t Query_Block_Device_Info(const char *pszDevice, uint64_t *pullSize, uint32_t *pnPartition, char *pszVendor,
                                char *pszModel) {
    if (pszDevice == nullptr || pullSize == nullptr || pnPartition == nullptr || pszVendor == nullptr ||
        pszModel == nullptr)
        return -EINVAL;

    *pullSize = 0;
    *pnPartition = 0;
    *pszVendor = *pszModel = '\0';
    const DeviceName name(pszDevice);
    SysPath path;
    if (!name.size_path(path))
        return -ENAMETOOLONG;

    std::array<char, 64> sectors;
    if (read_attribute(path.c_str(), sectors.data(), sectors.size()) == 0)
        *pullSize = std::strtoull(sectors.data(), nullptr, 10) * kSectorSize;

    // The only partition of a disk is reported as the whole disk.
    *pnPartition = name.number();
    if (*pnPartition == 1 && !has_second_partition(name))
        *pnPartition = 0;

    (void)read_name(name, "model", pszModel);  // a disk without one is a disk all the same
    return read_name(name, "vendor", pszVendor);
}
