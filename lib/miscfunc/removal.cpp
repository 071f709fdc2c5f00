// Removal of paths. Both calls follow the system's convention, 0 or -1 and `errno`, unlike the rest of the library.
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>

#include "base/path_buffer.h"
#include "miscfunc.h"

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

    // A path that is too long is cut, by contract.
    std::array<char, korvex::kPathSize> path{};
    const bool folder_itself = pszName[0] == '\0' && nFlags == 0;
    std::snprintf(path.data(), path.size(), "%s%s%s", pszDir, folder_itself ? "" : "/", pszName);

    return (nFlags & AT_REMOVEDIR) != 0 ? rmdir(path.data()) : unlink(path.data());
}
