// Holds on entries of the file system: bits, owner and times are set through a hold, so a name that somebody exchanges
// meanwhile leads nowhere. Holding takes no right to read or write, opens no device and waits for no pipe.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>

#include <cstdint>
#include <ctime>

#include "base/file_identity.h"
#include "base/handles.h"

namespace korvex::fileio {

// Whether others may exchange the names in a folder: it is theirs, or they may write there. (The sticky bit guards only
// what is not theirs, and a copy may be.) A mask of an access control list shows in the group's bit.
inline bool is_shared(const struct stat &folder) {
    return is_foreign(folder) || (folder.st_mode & (S_IWGRP | S_IWOTH)) != 0;
}

// Whether an open descriptor is that of the entry that was looked at; else `errno` says why not: ESTALE for another one.
[[nodiscard]] bool is_entry(const UniqueFd &descriptor, const struct stat &found);

// Empty on failure, and `errno` says why. Links are followed unless the flags say O_NOFOLLOW.
[[nodiscard]] inline UniqueFd hold(int folder, const char *name, int flags) {
    return UniqueFd(openat(folder, name, flags | O_PATH | O_CLOEXEC));
}

// An entry by its hold as a name that the system follows to it, wherever it is by now.
class HeldName final {
  public:
    explicit HeldName(int hold);
    const char *c_str() const { return name_; }

  private:
    char name_[32];
};

// Each sets something of a held entry: 0, or a negated errno.
[[nodiscard]] int32_t set_both_times(int hold, const timespec &time);
[[nodiscard]] int32_t set_folder_mode(int hold, mode_t mode);
[[nodiscard]] int32_t set_owner(int hold, const struct stat &source);

// The modification time of a source as folders and links get it: with 32 bits for the seconds.
inline timespec narrow_time(const timespec &time) {
    return {.tv_sec = static_cast<uint32_t>(time.tv_sec), .tv_nsec = time.tv_nsec};
}

}  // namespace korvex::fileio
