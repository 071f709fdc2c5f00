// A configuration file with an owner, an access list and attributes of its own, on a small disk, and what to ask of it.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "fileio.h"
#include "sandbox.h"

namespace transaction_world {

// What a file is besides its content. Equal before and after: nothing was lost.
struct Attributes {
    uid_t owner = 0;
    gid_t group = 0;
    mode_t bits = 0;
    std::string access_list;
    std::string note;

    bool operator==(const Attributes &) const = default;
};

inline constexpr const char *kAccessList = "system.posix_acl_access";
inline constexpr const char *kNote = "trusted.note";

inline std::string extended(const std::string &path, const char *name) {
    char value[256];
    const ssize_t size = lgetxattr(path.c_str(), name, value, sizeof value);
    return size < 0 ? "none" : std::string(value, static_cast<size_t>(size));
}

inline Attributes attributes_of(const std::string &path) {
    struct stat status {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return {status.st_uid, status.st_gid, status.st_mode & 07777U, extended(path, kAccessList), extended(path, kNote)};
}

// An access list: its owner reads and writes, one more user and the group read.
inline std::string access_list_for(uint32_t user) {
    struct Entry {
        uint16_t tag;
        uint16_t rights;
        uint32_t id;
    };
    constexpr uint32_t kNobody = UINT32_MAX;
    const uint32_t version = 2;
    const Entry entries[] = {
        {0x01, 6, kNobody}, {0x02, 4, user}, {0x04, 4, kNobody}, {0x10, 4, kNobody}, {0x20, 0, kNobody}};
    std::string list(sizeof version + sizeof entries, '\0');
    std::memcpy(list.data(), &version, sizeof version);
    std::memcpy(list.data() + sizeof version, entries, sizeof entries);
    return list;
}

constexpr uid_t kOwner = 1234;
constexpr gid_t kGroup = 4321;

// Gives a file all that a careless replacement loses. Only root can.
inline void make_special(const std::string &path) {
    const std::string list = access_list_for(2345);
    ASSERT_EQ(chown(path.c_str(), kOwner, kGroup), 0);
    ASSERT_EQ(chmod(path.c_str(), 0640), 0);
    ASSERT_EQ(setxattr(path.c_str(), kAccessList, list.data(), list.size(), 0), 0);
    ASSERT_EQ(setxattr(path.c_str(), kNote, "kept", 4, 0), 0);
}

// The names in a folder that are not the file's own: private copies at most.
template <class Folder>
std::vector<std::string> leftovers(const Folder &folder) {
    std::vector<std::string> others;
    for (const std::string &name : folder.names())
        if (name != "app.conf" && name != "filler")
            others.push_back(name);
    return others;
}

}  // namespace transaction_world
