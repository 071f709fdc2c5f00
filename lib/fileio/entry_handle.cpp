#include "entry_handle.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>

namespace korvex::fileio {

bool is_entry(const UniqueFd &descriptor, const struct stat &found) {
    struct stat opened {};
    if (fstat(descriptor.get(), &opened) != 0)
        return false;
    if (is_same_file(opened, found))
        return true;

    errno = ESTALE;
    return false;
}

HeldName::HeldName(int hold) {
    std::snprintf(name_, sizeof name_, "/proc/self/fd/%d", hold);
}

int32_t set_both_times(int hold, const timespec &time) {
    const std::array<timespec, 2> times{time, time};
    if (syscall(SYS_utimensat, hold, "", times.data(), AT_EMPTY_PATH) == 0)
        return 0;
    if (errno != EINVAL)
        return -errno;

    // Kernels before 5.8 know no empty name here.
    return syscall(SYS_utimensat, AT_FDCWD, HeldName(hold).c_str(), times.data(), 0) == 0 ? 0 : -errno;
}

int32_t set_folder_mode(int hold, mode_t mode) {
    if (fchmodat(hold, ".", mode, 0) == 0)
        return 0;
    if (errno != EACCES)
        return -errno;

    // A folder that its owner may not enter knows no "." for him.
    return fchmodat(AT_FDCWD, HeldName(hold).c_str(), mode, 0) == 0 ? 0 : -EACCES;
}

int32_t set_owner(int hold, const struct stat &source) {
    return fchownat(hold, "", source.st_uid, source.st_gid, AT_EMPTY_PATH) == 0 ? 0 : -errno;
}

}  // namespace korvex::fileio
