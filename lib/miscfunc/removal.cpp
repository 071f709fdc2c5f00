// Removal of paths. Both calls follow the system's convention, 0 or -1 and `errno`, unlike the rest of the library.
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "base/path_buffer.h"
#include "miscfunc.h"

namespace {

// Appends what fits and ends the path: one that is too long is cut, by contract. Its new length.
size_t append_cut(std::array<char, korvex::kPathSize> &path, size_t length, const char *text) {
    const size_t count = std::min(std::strlen(text), path.size() - length - 1);
    std::memcpy(&path[length], text, count);
    path[length + count] = '\0';
    return length + count;
}

}  // namespace

int64_t Fenwa_Really_Unlink(const char *pszPath) {
#ifdef KORVEX_APPLIANCE_UNLINK
    // The appliance kernel's call that removes a path for good. Other kernels give this number to another call, so
    // whether it is there is known at build time only.
    constexpr long kReallyUnlink = 451;
    return syscall(kReallyUnlink, pszPath);
#else
    return unlink(pszPath);
#endif
}

int32_t Fenwa_Unlinkat(int32_t /*fdDir*/, const char *pszDir, const char *pszName, int32_t nFlags) {
    if (pszDir == nullptr || pszName == nullptr)
        return -EINVAL;

    std::array<char, korvex::kPathSize> path;
    const bool folder_itself = pszName[0] == '\0' && nFlags == 0;
    size_t length = append_cut(path, 0, pszDir);
    length = append_cut(path, length, folder_itself ? "" : "/");
    append_cut(path, length, pszName);

    return (nFlags & AT_REMOVEDIR) != 0 ? rmdir(path.data()) : unlink(path.data());
}
