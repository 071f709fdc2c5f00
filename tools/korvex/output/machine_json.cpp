#include "output/machine_json.h"

#include <sys/statvfs.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "cli.h"
#include "files/lock_list.h"
#include "korvex/error.hpp"
#include "korvex/lock.hpp"
#include "korvex/system.hpp"
#include "net/interface_list.h"

namespace korvex::cli {
namespace {

// The library lists the last one first.
template <typename List>
auto in_order(const List &list) {
    std::vector<typename List::value_type> elements(list.begin(), list.end());
    std::reverse(elements.begin(), elements.end());
    return elements;
}

Json view_or_null(std::string_view text) {
    return text.empty() ? Json() : Json(text);
}

std::vector<std::string> flag_words(share_flags flags) {
    constexpr struct {
        share_flags flag;
        const char *word;
    } kWords[] = {{share_flags::read_only, "read-only"},
                  {share_flags::hidden, "hidden"},
                  {share_flags::external, "external"},
                  {share_flags::disc, "disc"},
                  {share_flags::removable, "removable"}};
    std::vector<std::string> words;
    for (const auto &[flag, word] : kWords)
        if ((flags & flag) != share_flags::none)
            words.emplace_back(word);
    return words;
}

// The permission bits as chmod takes them.
std::string mode_text(std::uint32_t mode) {
    char text[16];
    std::snprintf(text, sizeof text, "%04o", mode & 07777U);
    return text;
}

// A device whose disk the kernel does not describe, such as md and device-mapper, has a size and a content all the same.
volume plain_volume(const mount &entry) {
    volume found{};
    found.device = entry.source;
    found.mount_path = entry.folder;
    found.type = entry.type;
    try {
        const std::optional<block_content> content = content_of(entry.source);
        found.uuid = content ? content->uuid : "";
        found.label = content ? content->label : "";
    } catch (const error &) {  // the name is longer than any that can be asked for
    }
    struct statvfs room {};
    if (statvfs(found.mount_path.c_str(), &room) == 0) {
        found.total_bytes = std::uint64_t{room.f_blocks} * room.f_frsize;
        found.free_bytes = std::uint64_t{room.f_bavail} * room.f_frsize;
    }
    return found;
}

volume volume_of(const mount &entry) {
    try {
        if (std::optional<volume> found = find_volume(entry.source))
            return *std::move(found);
    } catch (const error &) {  // the same: what is known is told
    }
    return plain_volume(entry);
}

Json volume_json(const mount &entry) {
    const volume found = volume_of(entry);
    return {{"device", found.device},
            {"mount_path", text_or_null(found.mount_path)},
            {"uuid", text_or_null(found.uuid)},
            {"label", text_or_null(found.label)},
            {"type", text_or_null(found.type)},
            {"vendor", text_or_null(found.vendor)},
            {"model", text_or_null(found.model)},
            {"partition", found.partition},
            {"total_bytes", found.total_bytes},
            {"free_bytes", found.free_bytes}};
}

}  // namespace

Json mounts_json() {
    Json list = Json::array();
    const mount_list mounted = mounts();
    for (const mount &entry : in_order(mounted))
        list.push_back({{"device", entry.source},
                        {"path", entry.folder},
                        {"type", entry.type},
                        {"options", entry.options},
                        {"freq", entry.frequency},
                        {"pass", entry.pass}});
    return list;
}

Json shares_json() {
    Json list = Json::array();
    for (const share &entry : shares()) {
        const auto seconds = std::chrono::floor<std::chrono::seconds>(entry.modified);
        list.push_back({{"name", entry.name},
                        {"flags", flag_words(entry.flags)},
                        {"mode", mode_text(entry.mode)},
                        {"uid", entry.user},
                        {"gid", entry.group},
                        {"mtime", seconds.time_since_epoch().count()},
                        {"mtime_nsec", (entry.modified - seconds).count()},
                        {"fs_type", entry.file_system},
                        {"block_size", entry.block_size},
                        {"free_bytes", entry.free_bytes}});
    }
    return list;
}

Json blocks_json() {
    Json list = Json::array();
    const block_list found = blocks();
    for (const block &entry : in_order(found))
        list.push_back({{"device", entry.device},
                        {"uuid", view_or_null(entry.uuid)},
                        {"type", view_or_null(entry.type)},
                        {"second_type", view_or_null(entry.second_type)}});
    return list;
}

Json interfaces_json() {
    Json list = Json::array();
    for (const InterfaceInfo &one : interfaces_with_all_addresses())
        list.push_back(json_of(one));
    return list;
}

Json volumes_json() {
    Json list = Json::array();
    std::set<std::string> seen;
    const mount_list mounted = mounts();
    for (const mount &entry : in_order(mounted))
        if (entry.source.starts_with("/dev/") && seen.emplace(entry.source).second)
            list.push_back(volume_json(entry));
    return list;
}

Json locks_json() {
    Json list = Json::array();
    for (const named_lock &lock : locks())
        list.push_back(json_of(lock));
    return list;
}

Json listed(const std::string &name, Json (*read)()) {
    try {
        return read();
    } catch (const error &failure) {
        throw file_failure(name, -failure.code().value());
    }
}

}  // namespace korvex::cli
