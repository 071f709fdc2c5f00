// Who an entry of the file system is, and who may have put it there.
#pragma once

#include <sys/stat.h>
#include <unistd.h>

namespace korvex {

// Whether both were looked at on one and the same file.
inline bool is_same_file(const struct stat &one, const struct stat &other) {
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

// Whether somebody else may have planted the entry: its owner is neither root nor the user that this process acts for.
inline bool is_foreign(const struct stat &entry) {
    return entry.st_uid != 0 && entry.st_uid != geteuid();
}

}  // namespace korvex
