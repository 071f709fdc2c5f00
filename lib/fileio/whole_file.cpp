// Reading and writing a small file in one call.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "base/destination.h"
#include "base/handles.h"
#include "fileio.h"

namespace korvex::fileio {
namespace {

constexpr mode_t kNewFileMode = 0777;

// 0, or a negated errno. A descriptor that can't seek is fine for what begins at 0.
int32_t seek_to(const UniqueFd &file, int64_t offset) {
    return offset == 0 || lseek(file.get(), offset, SEEK_SET) >= 0 ? 0 : -errno;
}

}  // namespace
}  // namespace korvex::fileio

using namespace korvex;
using namespace korvex::fileio;

int32_t Simple_Read_File(const char *pszPath, char *pszBuf, int32_t *pnLength) {
    if (pszPath == nullptr || pszBuf == nullptr || pnLength == nullptr || *pnLength < 0)
        return -EINVAL;

    const UniqueFd file(open(pszPath, O_RDONLY | O_CLOEXEC | O_NOCTTY));
    if (!file)
        return -errno;

    ssize_t count = read(file.get(), pszBuf, static_cast<size_t>(*pnLength));
    if (count < 0)
        return -errno;

    if (count > 0 && pszBuf[count - 1] == '\n')
        count--;
    if (count < *pnLength)
        pszBuf[count] = '\0';
    *pnLength = static_cast<int32_t>(count);
    return 0;
}

int32_t Read_File_To_Buffer(const char *pszPath, void *pBuf, int64_t *pllLength, int64_t llOffset) {
    if (pszPath == nullptr || pBuf == nullptr || pllLength == nullptr || *pllLength < 1)
        return -EINVAL;

    const UniqueFd file(open(pszPath, O_RDONLY | O_CLOEXEC | O_NOCTTY));
    if (!file)
        return -errno;

    const int32_t result = seek_to(file, llOffset);
    if (result < 0)
        return result;

    const ssize_t count = read(file.get(), pBuf, static_cast<size_t>(*pllLength));
    if (count < 0)
        return -errno;

    *pllLength = static_cast<int32_t>(count);
    return 0;
}

int32_t Write_File_From_Buffer(const char *pszPath, const void *pBuf, int64_t *pllLength, int64_t llOffset) {
    if (pszPath == nullptr || pBuf == nullptr || pllLength == nullptr || *pllLength < 1)
        return -EINVAL;

    // Not truncated: a longer file keeps its tail, by contract.
    UniqueFd file;
    int32_t result = open_destination({AT_FDCWD, pszPath, O_WRONLY | O_CREAT | O_CLOEXEC, kNewFileMode}, file);
    if (result < 0)
        return result;

    result = seek_to(file, llOffset);
    if (result < 0)
        return result;

    uint64_t written = 0;
    result = File_Write_Bulk(file.get(), pBuf, *pllLength, &written);
    *pllLength = static_cast<int64_t>(written);
    return result;
}
