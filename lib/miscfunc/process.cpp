// Questions about single processes and about commands.
#include <signal.h>

#include <array>
#include <cerrno>
#include <cstdio>

#include "base/handles.h"
#include "miscfunc.h"

using namespace korvex;

int32_t Is_Process_Existed(int32_t nPid) {
    if (nPid <= 0)
        return 0;

    if (kill(nPid, 0) == 0)
        return 1;
    return errno == ESRCH ? 0 : -errno;
}

int32_t Get_Program_Output(const char *pszCommand, char *pszBuf, int32_t *pnSize) {
    if (pszCommand == nullptr || pszBuf == nullptr || pnSize == nullptr || *pnSize < 1)
        return -EINVAL;

    const UniquePipe output(popen(pszCommand, "re"));
    if (!output)
        return -errno;

    size_t length = std::fread(pszBuf, 1, static_cast<size_t>(*pnSize), output.get());
    if (length > 0 && pszBuf[length - 1] == '\n')
        length--;
    pszBuf[length] = '\0';
    *pnSize = static_cast<int32_t>(length);
    return 0;
}

int32_t Get_Parent_Pid(int32_t nPid, int32_t *pnParent) {
    if (nPid < 0 || pnParent == nullptr)
        return -EINVAL;

    *pnParent = -1;
    std::array<char, 32> path;
    std::snprintf(path.data(), path.size(), "/proc/%d/stat", nPid);
    const UniqueFile file(std::fopen(path.data(), "re"));
    if (!file)
        return -ESRCH;

    // Kept: a process name with a blank ends the reading after the second field, and the parent stays unknown.
    int32_t pid = 0;
    std::array<char, 256> name;
    char state = 0;
    // NOLINTNEXTLINE(cert-err34-c): the kernel's own numbers
    const int fields = std::fscanf(file.get(), "%d %255s %c %d", &pid, name.data(), &state, pnParent);
    return fields >= 1 ? 0 : -ESRCH;
}
