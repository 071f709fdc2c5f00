// The 16 bytes of a lock file, as the programs that share locks agreed on them.
#pragma once

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <string>

namespace support {

struct LockContent {
    int64_t began;  // millisecond since the epoch at which the holder began to wait
    int32_t holder;
    int32_t reserved = 0;
};

inline std::string lock_bytes(int64_t began, int32_t holder) {
    const LockContent content{began, holder};
    return {reinterpret_cast<const char *>(&content), sizeof content};
}

inline LockContent parse_lock(const std::string &bytes) {
    LockContent content{};
    std::memcpy(&content, bytes.data(), bytes.size() < sizeof content ? bytes.size() : sizeof content);
    return content;
}

// Leaves nothing of an earlier test of this process in the sandbox's /var/lock.
inline void empty_lock_folder() {
    for (const auto &entry : std::filesystem::directory_iterator("/var/lock"))
        std::filesystem::remove_all(entry.path());
}

}  // namespace support
