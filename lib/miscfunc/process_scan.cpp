// Finding processes by their name or program.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "base/handles.h"
#include "base/message.h"
#include "base/path_buffer.h"
#include "miscfunc.h"

namespace korvex::miscfunc {
namespace {

constexpr const char *kScan = "Get_All_Pids";
constexpr int32_t kFirstCapacity = 64;

// The ids found so far, in an array that grows.
class PidArray final {
  public:
    [[nodiscard]] bool reserve(int32_t capacity) {
        const size_t bytes = static_cast<size_t>(capacity) * sizeof(int32_t);
        MallocPtr<int32_t> grown(static_cast<int32_t *>(std::malloc(bytes)));
        if (!grown) {
            LOG_ERROR_AS(kScan, "Can't allocate memory of %d bytes!\n", static_cast<int>(bytes));
            return false;
        }

        if (count_ > 0)
            std::memcpy(grown.get(), pids_.get(), static_cast<size_t>(count_) * sizeof(int32_t));
        pids_ = std::move(grown);
        capacity_ = capacity;
        return true;
    }

    [[nodiscard]] bool add(int32_t pid) {
        if (count_ == capacity_) {
            LOG_DEBUG_AS(kScan, "Array is not big enough, it will be re-allocated. (%d=>%d)\n", capacity_,
                         capacity_ * 2);
            if (!reserve(capacity_ * 2))
                return false;
        }
        pids_.get()[count_++] = pid;
        return true;
    }

    int32_t count() const { return count_; }
    [[nodiscard]] int32_t *release() { return pids_.release(); }

  private:
    MallocPtr<int32_t> pids_;
    int32_t capacity_ = 0;
    int32_t count_ = 0;
};

// What is looked for: a command's name, or the beginning of a program's path.
class WantedName final {
  public:
    explicit WantedName(const char *name) : name_(name), is_path_(*name == '/') {}

    const char *file() const { return is_path_ ? "cmdline" : "comm"; }
    const char *name() const { return name_; }

    // Whether the first line of that file fits; it is changed.
    bool matches(char *line) const {
        // NULs separate the arguments, so only the program's path is compared, and only its beginning.
        const size_t length = std::strcspn(line, "\n");
        if (is_path_) {
            line[length + (line[length] == '\n' ? 1 : 0)] = '\0';
            return std::strncmp(line, name_, std::strlen(name_)) == 0;
        }

        line[length] = '\0';
        line[std::strcspn(line, "/")] = '\0';
        return std::strcmp(line, name_) == 0;
    }

  private:
    const char *name_;
    bool is_path_;
};

bool is_number(const char *text) {
    return *text != '\0' && text[std::strspn(text, "0123456789")] == '\0';
}

bool is_process_folder(int proc, const char *entry) {
    if (!is_number(entry))
        return false;

    struct stat status {};
    if (fstatat(proc, entry, &status, AT_SYMLINK_NOFOLLOW) != 0) {
        const int32_t result = -errno;
        LOG_DEBUG_AS(kScan, "WARNING: Can't stat the file \"/proc/%s\". (%d)\n", entry, result);
        return false;
    }
    return S_ISDIR(status.st_mode);
}

bool is_wanted(const char *entry, const WantedName &wanted) {
    PathBuffer<64> path;
    if (!path.assign({"/proc/", entry, "/", wanted.file()}))
        return false;

    const UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file) {
        // It may have ended meanwhile.
        const int32_t result = -errno;
        LOG_DEBUG_AS(kScan, "WARNING: Can't open the file \"%s\" for reading. (%d)\n", path.c_str(), result);
        return false;
    }

    std::array<char, 4096> line;
    const ssize_t length = read(file.get(), line.data(), line.size() - 1);
    if (length <= 0)
        return false;

    line[static_cast<size_t>(length)] = '\0';
    return wanted.matches(line.data());
}

// 0, or -ENOMEM.
int32_t collect(DIR *folder, int proc, const WantedName &wanted, PidArray &pids) {
    while (const dirent *entry = readdir(folder)) {
        if (!is_process_folder(proc, entry->d_name) || !is_wanted(entry->d_name, wanted))
            continue;

        const auto pid = static_cast<int32_t>(std::strtol(entry->d_name, nullptr, 10));
        if (!pids.add(pid))
            return -ENOMEM;

        LOG_DEBUG_AS(kScan, "%d is a \"%s\" process.\n", pid, wanted.name());
    }
    return 0;
}

}  // namespace
}  // namespace korvex::miscfunc

using namespace korvex;
using namespace korvex::miscfunc;

int32_t Get_All_Pids(const char *pszName, int32_t **ppPids, int32_t *pnCount) {
    if (pszName == nullptr || *pszName == '\0' || ppPids == nullptr || pnCount == nullptr)
        return -EINVAL;

    *ppPids = nullptr;
    *pnCount = 0;
    PidArray pids;
    if (!pids.reserve(kFirstCapacity))
        return -ENOMEM;

    const UniqueDir folder(opendir("/proc"));
    if (!folder) {
        const int32_t result = -errno;
        LOG_ERROR("Can't open the folder \"/proc\"! (%d)\n", result);
        return result;
    }
    const int proc = dirfd(folder.get());
    if (proc < 0) {
        const int32_t result = -errno;
        LOG_ERROR("Can't get the fd of \"/proc\" folder. (%d)\n", result);
        return result;
    }

    const int32_t result = collect(folder.get(), proc, WantedName(pszName), pids);
    if (result != 0)
        return result;
    if (pids.count() == 0)
        return -ENODATA;

    *pnCount = pids.count();
    *ppPids = pids.release();
    return 0;
}
