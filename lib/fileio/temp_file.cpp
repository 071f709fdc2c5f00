// Temporary files: recognising, naming and creating them.
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "base/message.h"
#include "base/path_buffer.h"
#include "base/texts.h"
#include "fileio.h"
#include "miscfunc.h"

namespace korvex::fileio {
namespace {

constexpr std::string_view kMarker = "$$@#!$$";
constexpr int32_t kCandidates = 1'000'000;
constexpr uint32_t kPermissions = 0777;

std::string_view folder_part(const char *path) {
    const char *slash = std::strrchr(path, '/');
    return {path, slash != nullptr ? static_cast<size_t>(slash - path) + 1 : 0};
}

// A candidate's name: the folder part, the marker, and a number of at least `digits` digits.
class TempName final {
  public:
    TempName(std::string_view folder, int digits) : folder_(folder), digits_(digits) {}

    // False, with a message of `function`, when a buffer of `size` bytes is too small. By contract that counts the
    // least digits only.
    [[nodiscard]] bool check_size(int32_t size, const char *function) const {
        const auto needed = static_cast<int64_t>(folder_.size() + kMarker.size()) + digits_ + 1;
        if (size >= needed)
            return true;

        LOG_ERROR_AS(function, "ERROR: The provided buffer is too small (%d, %d).\n", static_cast<int>(needed), size);
        return false;
    }

    // False when the name does not fit.
    [[nodiscard]] bool set_number(int32_t number) {
        std::array<char, 16> text;
        const int length = std::snprintf(text.data(), text.size(), "%0*d", digits_, number);
        return path_.assign({folder_, kMarker, {text.data(), static_cast<size_t>(length)}});
    }

    // As much of the folder part as there is room for.
    void copy_folder_to(char *buffer, int32_t size) const {
        if (size < 1)
            return;

        put_text(buffer, {folder_.data(), std::min(folder_.size(), static_cast<size_t>(size) - 1)});
    }

    bool fits(int32_t size) const { return static_cast<int64_t>(path_.size()) < size; }
    void copy_to(char *buffer) const { std::memcpy(buffer, path_.c_str(), path_.size() + 1); }
    const char *c_str() const { return path_.c_str(); }

  private:
    std::string_view folder_;
    int digits_;
    PathBuffer<kPathSize> path_;
};

// Where and how a temporary file is to be opened: the arguments in their order.
struct Request {
    int32_t folder;
    const char *path;
    int32_t flags;
    uint32_t mode;
    int32_t name_size;
    char *name;     // may be null
    int32_t *file;  // -1 so far
};

// The two ways to open one differ in their names' length, in their messages, and in what they do when all are taken.
struct InFolder {
    static constexpr const char *kFunction = "Open_Unique_Temp_File_At";
    static constexpr int kDigits = 3;

    static void report_failure(const char *name, int32_t code) {
        LOG_DEBUG_AS(kFunction, "Can't open the destination file %s error! (%d)\n", name, code);
    }
    static void give_up(const char *name) {
        LOG_ERROR_AS(kFunction, "ERROR: The number of the temporal filename has exceeded the maximum. (%s)\n", name);
    }
};

struct InCurrentFolder {
    static constexpr const char *kFunction = "Open_Unique_Temp_File";
    static constexpr int kDigits = 6;

    static void report_failure(const char *name, int32_t code) {
        LOG_DEBUG_AS(kFunction, "Can't open the destination file %s! (%d)\n", name, code);
    }
    // Removes the last one, somebody else's, so that the next call finds a free name.
    static void give_up(const char *name) {
        LOG_ERROR_AS(kFunction, "The number of the temporal filename has exceeded the maximum! (%s)\n", name);
        Fenwa_Really_Unlink(name);
    }
};

template <class Kind>
int32_t open_unique(const Request &request) {
    TempName name(folder_part(request.path), Kind::kDigits);
    if (request.name != nullptr && !name.check_size(request.name_size, Kind::kFunction))
        return -EOVERFLOW;

    for (int32_t number = 0; number < kCandidates; number++) {
        if (!name.set_number(number))
            return -ENAMETOOLONG;
        if (request.name != nullptr && !name.fits(request.name_size))
            return -EOVERFLOW;

        const int file =
            openat(request.folder, name.c_str(), request.flags | O_CREAT | O_EXCL, request.mode & kPermissions);
        if (file >= 0) {
            if (request.name != nullptr)
                name.copy_to(request.name);
            *request.file = file;
            return 0;
        }
        if (errno != EEXIST) {
            const int32_t code = -errno;
            Kind::report_failure(name.c_str(), code);
            return code;
        }
    }

    Kind::give_up(name.c_str());
    return -ERANGE;
}

}  // namespace
}  // namespace korvex::fileio

using namespace korvex::fileio;

int32_t Check_Temp_Filename(const char *pszPath) {
    if (pszPath == nullptr)
        return -EINVAL;

    const char *name = pszPath + folder_part(pszPath).size();
    return std::strncmp(name, kMarker.data(), kMarker.size()) == 0 ? 0 : 1;
}

int32_t Generate_Temp_Filename(int32_t fdDir, const char *pszPath, char *pszBuf, int32_t cbBuf) {
    if (pszPath == nullptr || pszBuf == nullptr || fdDir == -1)
        return -EINVAL;

    // The buffer holds the last name tried, also after a failure.
    TempName name(folder_part(pszPath), InFolder::kDigits);
    name.copy_folder_to(pszBuf, cbBuf);
    if (!name.check_size(cbBuf, __func__))
        return -EOVERFLOW;

    for (int32_t number = 0; number < kCandidates; number++) {
        if (!name.set_number(number))
            return -ENAMETOOLONG;
        if (!name.fits(cbBuf))
            return -EOVERFLOW;

        // Whatever the reason, a name that can't be looked at counts as free.
        name.copy_to(pszBuf);
        struct stat status {};
        if (fstatat(fdDir, pszBuf, &status, AT_SYMLINK_NOFOLLOW) != 0)
            return 0;
    }

    LOG_ERROR("ERROR: The number of the temporal filename has exceeded the maximum. (%s)\n", name.c_str());
    return -ERANGE;
}

int32_t Open_Unique_Temp_File_At(int32_t fdDir, const char *pszPath, int32_t nFlags, uint32_t uMode, int32_t cbName,
                                 char *pszName, int32_t *pfdFile) {
    if (pfdFile == nullptr)
        return -EINVAL;

    *pfdFile = -1;
    if (pszPath == nullptr || fdDir == -1)
        return -EINVAL;
    return open_unique<InFolder>({fdDir, pszPath, nFlags, uMode, cbName, pszName, pfdFile});
}

int32_t Open_Unique_Temp_File(const char *pszPath, int32_t nFlags, uint32_t uMode, int32_t cbName, char *pszName,
                              int32_t *pfdFile) {
    if (pfdFile == nullptr)
        return -EINVAL;

    *pfdFile = -1;
    if (pszPath == nullptr)
        return -EINVAL;
    return open_unique<InCurrentFolder>({AT_FDCWD, pszPath, nFlags, uMode, cbName, pszName, pfdFile});
}
