// Reading a configuration file whole: one allocation, one read.
#include "file_text.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "base/message.h"
#include "base/open_file.h"
#include "file_nodes.h"

namespace korvex::conffile {
namespace {

// Whose messages those of a read are, also within a change.
constexpr const char *kCache = "Cache_Conf_File";
constexpr const char *kRead = "Read_Conf_File";

int32_t no_status(const char *path) {
    const int32_t code = -errno;
    if (code != -ENOENT)
        LOG_DEBUG_AS(kCache, "Can't stat the conf file \"%s\" error! (%d)\n", path, code);
    return code;
}

int32_t not_opened(const char *path, int error) {
    LOG_DEBUG_AS(kCache, "Can't open the conf file \"%s\" error! (%d)\n", path, -error);
    return -error;
}

// Only a regular file is read.
int32_t check_regular(const char *path, const struct stat &status) {
    if (S_ISREG(status.st_mode))
        return 0;

    LOG_DEBUG_AS(kCache, "The specified file \"%s\" is not a regular file error! (%X)\n", path, status.st_mode);
    return -ENOMEDIUM;
}

// Reads `size` bytes and ends the text; its length, or a negated errno. The block has room for two bytes more.
int32_t fill_text(int descriptor, char *text, size_t size, const char *path) {
    errno = 0;
    const ssize_t got = read(descriptor, text, size);
    if (got < 0 || static_cast<size_t>(got) != size) {
        const int32_t code = -errno;
        LOG_DEBUG_AS(kCache, "Read \"%s\" %lld bytes but got %d bytes error! (%d)\n", path,
                     static_cast<long long>(size), static_cast<int>(got), code);
        return code != 0 ? code : -EIO;
    }

    if (size == 0 || text[size - 1] != '\n')
        text[size++] = '\n';
    text[size] = '\0';
    return static_cast<int32_t>(size);
}

// Reads an opened file. A writer may have renamed it into place after the first look, so all that counts is its own.
int32_t read_opened(const UniqueFd &file, const char *path, MallocPtr<char> *text, struct stat *status) {
    if (!file)
        return not_opened(path, errno);

    if (fstat(file.get(), status) != 0)
        return no_status(path);
    int32_t result = check_regular(path, *status);
    if (result < 0)
        return result;

    const auto size = static_cast<size_t>(status->st_size);
    MallocPtr<char> block(static_cast<char *>(std::malloc(size + 2)));
    if (!block) {
        LOG_DEBUG_AS(kCache, "Can't allocate %lld byte to cache the conf file \"%s\" error!\n",
                     static_cast<long long>(size + 2), path);
        return -ENOMEM;
    }

    result = fill_text(file.get(), block.get(), size, path);
    if (result >= 0)
        *text = std::move(block);
    return result;
}

void report_uncached(const char *path, int32_t code) {
    if (code != -ENOENT)
        LOG_DEBUG_AS(kRead, "Can't cache the specified conf file \"%s\" error (%d)!\n", path, code);
}

}  // namespace

int32_t read_text_to_change(const FilePlace &place, MallocPtr<char> *text, Permissions *permissions) {
    struct stat named {};
    if (place.look(&named) != 0)
        return no_status(place.path());

    struct stat status = named;
    if (S_ISLNK(named.st_mode)) {
        if (is_planted(named))
            return not_opened(place.path(), ELOOP);
        if (place.look_through_link(&status) != 0)
            return no_status(place.path());
    }
    int32_t result = check_regular(place.path(), status);
    if (result < 0)
        return result;

    const FilePlace::Opened opened = place.open(O_RDONLY);
    result = read_opened(opened.file, place.path(), text, &status);
    // The bits are those of the file that was read, or of the link that led to it, and nothing else's: so nobody can have
    // one file's text under another one's bits.
    if (result >= 0)
        permissions->carry(opened.through_link ? named : status);
    return result;
}

int32_t read_to_change(const FilePlace &place, Sect_Node **conf, Permissions *permissions) {
    MallocPtr<char> text;
    const int32_t length = read_text_to_change(place, &text, permissions);
    if (length < 0) {
        report_uncached(place.path(), length);
        return length;
    }
    return Parse_Conf_Cache(text.get(), conf);
}

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
        return no_status(pszPath);
    int32_t result = check_regular(pszPath, status);
    if (result < 0)
        return result;

    // What is no file any more must not hang us.
    MallocPtr<char> text;
    result = read_opened(open_without_hanging(AT_FDCWD, pszPath, O_RDONLY), pszPath, &text, &status);
    *ppszCache = text.release();
    return result;
}

int32_t Read_Conf_File(const char *pszPath, Sect_Node **ppConf) {
    if (pszPath == nullptr || ppConf == nullptr)
        return -EINVAL;

    *ppConf = nullptr;
    char *text = nullptr;
    const int32_t length = Cache_Conf_File(pszPath, &text);
    if (length < 0) {
        report_uncached(pszPath, length);
        return length;
    }

    const MallocPtr<char> cache(text);
    return Parse_Conf_Cache(cache.get(), ppConf);
}
