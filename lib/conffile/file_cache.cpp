// Reading a configuration file whole: one allocation, one read.
#include "file_cache.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "base/message.h"
#include "base/open_file.h"

namespace korvex::conffile {
namespace {

int32_t stat_failed(const char *path, const char *function) {
    const int32_t code = -errno;
    if (code != -ENOENT)
        LOG_DEBUG_AS(function, "Can't stat the conf file \"%s\" error! (%d)\n", path, code);
    return code;
}

// Only a regular file is read.
int32_t judge(const char *path, const struct stat &status, const char *function) {
    if (S_ISREG(status.st_mode))
        return 0;

    LOG_DEBUG_AS(function, "The specified file \"%s\" is not a regular file error! (%X)\n", path, status.st_mode);
    return -ENOMEDIUM;
}

// Reads `size` bytes and ends the text; its length, or a negated errno. The block has room for two bytes more.
int32_t fill_cache(int descriptor, char *cache, size_t size, const char *path, const char *function) {
    errno = 0;
    const ssize_t got = read(descriptor, cache, size);
    if (got < 0 || static_cast<size_t>(got) != size) {
        const int32_t code = -errno;
        LOG_DEBUG_AS(function, "Read \"%s\" %lld bytes but got %d bytes error! (%d)\n", path,
                     static_cast<long long>(size), static_cast<int>(got), code);
        return code != 0 ? code : -EIO;
    }

    if (size == 0 || cache[size - 1] != '\n')
        cache[size++] = '\n';
    cache[size] = '\0';
    return static_cast<int32_t>(size);
}

}  // namespace
}  // namespace korvex::conffile

using namespace korvex;
using namespace korvex::conffile;

int32_t Cache_Conf_File(const char *pszPath, char **ppszCache) {
    if (pszPath == nullptr || ppszCache == nullptr) {
        LOG_DEBUG("Bad parameters!\n");
        return -EINVAL;
    }

    *ppszCache = nullptr;
    struct stat status {};
    if (stat(pszPath, &status) != 0)
        return stat_failed(pszPath, __func__);
    int32_t result = judge(pszPath, status, __func__);
    if (result < 0)
        return result;

    const UniqueFd file = open_without_hanging(AT_FDCWD, pszPath, O_RDONLY);
    if (!file) {
        const int32_t code = -errno;
        LOG_DEBUG("Can't open the conf file \"%s\" error! (%d)\n", pszPath, code);
        return code;
    }

    // A writer may have renamed another file into place by now: the size that counts is that of the opened one. What is
    // no file any more must not hang us either.
    if (fstat(file.get(), &status) != 0)
        return stat_failed(pszPath, __func__);
    result = judge(pszPath, status, __func__);
    if (result < 0)
        return result;

    const auto size = static_cast<size_t>(status.st_size);
    MallocPtr<char> cache(static_cast<char *>(std::malloc(size + 2)));
    if (!cache) {
        LOG_DEBUG("Can't allocate %lld byte to cache the conf file \"%s\" error!\n", static_cast<long long>(size + 2),
                  pszPath);
        return -ENOMEM;
    }

    result = fill_cache(file.get(), cache.get(), size, pszPath, __func__);
    if (result >= 0)
        *ppszCache = cache.release();
    return result;
}

int32_t Read_Conf_File(const char *pszPath, Sect_Node **ppConf) {
    if (pszPath == nullptr || ppConf == nullptr)
        return -EINVAL;

    *ppConf = nullptr;
    char *text = nullptr;
    const int32_t length = Cache_Conf_File(pszPath, &text);
    if (length < 0) {
        if (length != -ENOENT)
            LOG_DEBUG("Can't cache the specified conf file \"%s\" error (%d)!\n", pszPath, length);
        return length;
    }

    const MallocPtr<char> cache(text);
    return Parse_Conf_Cache(cache.get(), ppConf);
}
