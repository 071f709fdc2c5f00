/// @file
/// What this machine is made of: mounts, shared folders, block devices, volumes and network interfaces.
///
///     for (const korvex::mount &entry : korvex::mounts())
///         std::cout << entry.source << " on " << entry.folder << '\n';
///
/// Each list is a snapshot that owns its texts: its elements are views that live as long as it.
#ifndef KORVEX_SYSTEM_HPP
#define KORVEX_SYSTEM_HPP

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

#include "korvex/detail/bits.hpp"
#include "korvex/detail/c_text.hpp"
#include "korvex/detail/call.hpp"
#include "korvex/detail/record_list.hpp"
#include "korvex/path_view.hpp"
#include "sysinfo.h"

namespace korvex {

/// One mounted file system.
struct mount {
    std::string_view source;   ///< the device, or what else is mounted
    std::string_view folder;   ///< where
    std::string_view type;     ///< of the file system
    std::string_view options;  ///< separated by commas
    std::int32_t frequency;    ///< of dumps, in days
    std::int32_t pass;         ///< of fsck
};

/// What is special about a share.
enum class share_flags : std::uint32_t {
    none = 0,
    read_only = SHARE_READ_ONLY,  ///< the volume is a disc
    hidden = SHARE_HIDDEN,        ///< not browsable
    external = SHARE_EXTERNAL,    ///< on an external device that is itself a mount point
    disc = SHARE_DISC,            ///< on an ISO 9660 or UDF file system
    removable = SHARE_REMOVABLE,  ///< external or disc: set together with either
};
/// @cond
template <>
inline constexpr bool is_bits<share_flags> = true;
/// @endcond

/// One shared folder.
struct share {
    std::string_view name;                                     ///< of the link in /share
    share_flags flags;                                         ///< what is special
    std::uint32_t mode;                                        ///< type and permission bits of the folder
    std::uint32_t user;                                        ///< owner of the folder
    std::uint32_t group;                                       ///< its group
    std::chrono::sys_time<std::chrono::nanoseconds> modified;  ///< the folder's modification time
    std::uint32_t file_system;                                 ///< magic number of the volume's file system
    std::uint32_t block_size;                                  ///< of the volume, in bytes
    std::uint64_t free_bytes;                                  ///< of the volume, those kept for root included
};

/// What is on one block device.
struct block {
    std::string_view device;       ///< its path
    std::string_view uuid;         ///< empty without one
    std::string_view type;         ///< of what it holds; empty without one
    std::string_view second_type;  ///< of a second TYPE in the same line, without its first character; mostly empty
};

namespace detail {

struct mount_traits {
    using record = Mount_Info;
    using element = mount;
    static const record *next(const record &at) noexcept { return at.pNext; }
    static element show(const record &at) noexcept {
        return {.source = at.pszFsName,
                .folder = at.pszDir,
                .type = at.pszType,
                .options = at.szOptions,
                .frequency = at.nFreq,
                .pass = at.nPassNo};
    }
    static void free(record *first) noexcept { Free_Mount_Info(first); }
};

struct share_traits {
    using record = Share_Info;
    using element = share;
    static const record *next(const record &at) noexcept { return at.pNext; }
    static element show(const record &at) noexcept {
        return {.name = at.szName,
                .flags = static_cast<share_flags>(at.uFlags),
                .mode = at.uMode,
                .user = at.uUid,
                .group = at.uGid,
                .modified = std::chrono::sys_time<std::chrono::nanoseconds>(std::chrono::seconds(at.uMtime) +
                                                                            std::chrono::nanoseconds(at.uMtimeNsec)),
                .file_system = at.uFsType,
                .block_size = at.uBlockSize,
                .free_bytes = at.ullFreeBytes};
    }
    static void free(record *first) noexcept { Release_Share_List(&first); }
};

struct block_traits {
    using record = Block_Info;
    using element = block;
    static const record *next(const record &at) noexcept { return at.pNext; }
    static element show(const record &at) noexcept {
        return {.device = at.pszDevice, .uuid = at.pszUuid, .type = at.pszType, .second_type = at.szType2};
    }
    static void free(record *first) noexcept {
        while (first != nullptr) {
            record *const next = first->pNext;
            std::free(first);
            first = next;
        }
    }
};

struct ipv6_traits {
    using record = Netif_IPv6;
    struct element {
        std::string_view address;
        std::uint16_t prefix;  ///< length in bits
    };
    static const record *next(const record &at) noexcept { return at.pNext; }
    static element show(const record &at) noexcept { return {.address = at.szAddress, .prefix = at.nPrefixLen}; }
};

}  // namespace detail

/// One IPv6 address of an interface.
using ipv6_address = detail::ipv6_traits::element;
/// The IPv6 addresses of an interface: a view into the list of interfaces.
class ipv6_addresses {
  public:
    /// A forward iterator over `ipv6_address`.
    using iterator = detail::record_iterator<detail::ipv6_traits>;

    /// @param first  the C interface's list
    explicit ipv6_addresses(const Netif_IPv6 *first = nullptr) noexcept : first_(first) {}
    /// @return the first address
    iterator begin() const noexcept { return iterator(first_); }
    /// @return the end of the range
    iterator end() const noexcept { return iterator(); }
    /// @return whether there is none
    bool empty() const noexcept { return first_ == nullptr; }

  private:
    const Netif_IPv6 *first_;
};

/// One network interface.
struct interface {
    std::string_view name;      ///< "eth0"
    std::string_view mac;       ///< "00:1A:2B:3C:4D:5E"
    std::string_view ipv4;      ///< the last one where there are several; empty without one
    std::uint16_t ipv4_prefix;  ///< length in bits
    ipv6_addresses ipv6;        ///< each with its prefix
    std::uint32_t flags;        ///< IFF_UP and the others of <net/if.h>
    std::uint16_t index;        ///< its place in the kernel's list, from 0
};

namespace detail {

struct interface_traits {
    using record = Netif_Info;
    using element = interface;
    static const record *next(const record &at) noexcept { return at.pNext; }
    static element show(const record &at) noexcept {
        return {.name = at.szName,
                .mac = at.szMac,
                .ipv4 = at.szIPv4,
                .ipv4_prefix = at.nIPv4Prefix,
                .ipv6 = ipv6_addresses(at.pIPv6List),
                .flags = at.uFlags,
                .index = at.idIndex};
    }
    static void free(record *first) noexcept { Free_Network_Interface(first); }
};

}  // namespace detail

/// Owns a list of `mount`: an input for range loops and algorithms.
using mount_list = detail::record_list<detail::mount_traits>;
/// Owns a list of `share`: an input for range loops and algorithms.
using share_list = detail::record_list<detail::share_traits>;
/// Owns a list of `block`: an input for range loops and algorithms.
using block_list = detail::record_list<detail::block_traits>;
/// Owns a list of `interface`: an input for range loops and algorithms.
using interface_list = detail::record_list<detail::interface_traits>;

/// The mounted file systems of /etc/mtab, the last line first. To find one, search the list:
/// `std::ranges::find(list, "/dev/sda1", &mount::source)`.
///
/// @return all of them
inline mount_list mounts() {
    Mount_Info *first = nullptr;
    const std::int32_t result = Scan_Mount_Info(&first);
    mount_list list(first);  // also after a failure half-way
    detail::check(result, "can't read", "/etc/mtab");
    return list;
}

/// The shared folders, by name. One whose options can't be read counts as hidden; one whose link leads nowhere, to a
/// file, or out of /share is left out.
///
/// @return all of them
inline share_list shares() {
    Share_Info *first = nullptr;
    detail::check(Scan_Share_List(&first, nullptr), "can't list", "/share");
    return share_list(first);
}

/// What the block-identification command prints, the last line first; empty where that command can't be started.
///
/// @return a line each
inline block_list blocks() {
    Block_Info *first = nullptr;
    const std::int32_t result = Scan_Block_Device_Info(&first);
    block_list list(first);
    detail::check(result, "can't list", "block devices");
    return list;
}

/// The network interfaces that the kernel names when asked for those with IPv4 addresses, 18 at most.
///
/// @return all of them
inline interface_list interfaces() {
    Netif_Info *first = nullptr;
    std::int32_t count = 0;
    detail::check(Scan_Network_Interface(&first, &count), "can't list", "network interfaces");
    return interface_list(first);
}

/// One volume. The texts are cut to the fields of the C record.
struct volume {
    std::string device;         ///< 23 bytes at most
    std::string mount_path;     ///< "/share/NAME" where a link leads to the mount point, else that; 43 bytes at most
    std::string uuid;           ///< 39 bytes at most
    std::string type;           ///< of the file system; 11 bytes at most
    std::string label;          ///< 15 bytes at most
    std::string model;          ///< of the disk; 31 bytes at most
    std::string vendor;         ///< of the disk; 31 bytes at most
    std::uint32_t partition;    ///< 0 for a whole disk, and for the only partition of one
    std::uint64_t free_bytes;   ///< for unprivileged users
    std::uint64_t total_bytes;  ///< of the file system where the device was asked for, else of the device
};

/// Describes a volume.
///
/// @param name  a device ("/dev/sda3"), a mount point below /share, or a UUID
/// @return nothing where there is no such volume, or it is not mounted
inline std::optional<volume> find_volume(std::string_view name) {
    Volume_Info found{};
    const detail::c_path text(name);
    const std::int32_t result =
        name.starts_with('/') ? Query_Volume_Info_BY_Path(text, &found) : Query_Volume_Info_BY_Id(text, &found);
    if (result == -ENODEV || result == -ENOTDIR || result == -ENOENT)
        return {};
    detail::check(result, "can't describe the volume", name);
    return volume{.device = found.szDevice,
                  .mount_path = found.szMountPath,
                  .uuid = found.szUuid,
                  .type = found.szType,
                  .label = found.szLabel,
                  .model = found.szModel,
                  .vendor = found.szVendor,
                  .partition = found.nPartition,
                  .free_bytes = found.ullFreeBytes,
                  .total_bytes = found.ullTotalBytes};
}

/// What a device holds. What is missing, and what is too long for the C interface's buffers, is empty.
struct block_content {
    std::string device;  ///< 23 bytes at most
    std::string uuid;    ///< 39 bytes at most
    std::string label;   ///< 15 bytes at most
    std::string type;    ///< 11 bytes at most
};

/// Asks the block-identification command what a device holds; nothing where it does not name the device, or can't be
/// started.
///
/// @param device  path, shorter than 23 bytes
/// @return what it holds
inline std::optional<block_content> content_of(path_view device) {
    char uuid[40] = "";
    char label[16] = "";
    char type[12] = "";
    const std::int32_t result = Query_Block_Info_By_Path(detail::c_path(device), uuid, label, type);
    if (result == -ENODEV)
        return {};
    detail::check(result, "can't ask what is on", device);
    return block_content{.device = std::string(device.text()), .uuid = uuid, .label = label, .type = type};
}

/// The same by UUID (shorter than 40 bytes), which finds the device.
///
/// @param uuid  as the command prints it
/// @return what the device holds; nothing as for `content_of`
inline std::optional<block_content> find_block(std::string_view uuid) {
    char device[24] = "";
    char label[16] = "";
    char type[12] = "";
    const std::int32_t result = Query_Block_Info_By_Id(detail::c_text<>(uuid), device, label, type);
    if (result == -ENODEV)
        return {};
    detail::check(result, "can't look for the device of", uuid);
    return block_content{.device = device, .uuid = std::string(uuid), .label = label, .type = type};
}

/// What the kernel says of a disk.
struct disk {
    std::string vendor;       ///< 31 bytes at most
    std::string model;        ///< empty where it can't be read; 31 bytes at most
    std::uint64_t size;       ///< of the device, in bytes; 0 where it can't be read
    std::uint32_t partition;  ///< 0 for a whole disk, and for partition 1 of a disk without a second
};

/// The kernel's attributes of a device; nothing where it has no vendor, as md and device-mapper have none.
///
/// @param device  its path
/// @return what the kernel says
inline std::optional<disk> find_disk(path_view device) {
    disk found{};
    char vendor[32] = "";
    char model[32] = "";
    const std::int32_t result =
        Query_Block_Device_Info(detail::c_path(device), &found.size, &found.partition, vendor, model);
    if (result == -ENOENT || result == -ENOTDIR)
        return {};
    detail::check(result, "can't read the attributes of", device);
    found.vendor = vendor;
    found.model = model;
    return found;
}

/// The short path of a folder below /share: "/share/" and the name of the link that leads to it.
///
/// @param path  begins with "/share/"; what follows must be shorter than 44 bytes
/// @return the short path; nothing where no link leads there
inline std::optional<std::string> share_link_to(path_view path) {
    char link[264] = "";
    const std::int32_t result = Query_Mount_Shortcut(detail::c_path(path), link);
    if (result == -ENOENT)
        return {};
    detail::check(result, "can't look for a link to", path);
    return link;
}

}  // namespace korvex

#endif
