// Making folder trees from a table, and looking at them afterwards.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <ostream>
#include <string>
#include <system_error>
#include <thread>
#include <tuple>
#include <vector>

#include "faults.h"
#include "file_world.h"
#include "fileio.h"
#include "heap.h"
#include "log_capture.h"
#include "refused_call.h"
#include "sandbox.h"

namespace fileio_test {

using namespace support;

constexpr int64_t kSecond = 1'000'000'000;
// A time that no clock of the test shows, with nanoseconds.
constexpr int64_t kThen = 1'234'567'890 * kSecond + 987'654'321;

inline void check(bool succeeded, const std::string &what) {
    if (!succeeded)
        throw std::system_error(errno, std::generic_category(), what);
}

inline int64_t nanoseconds(const timespec &time) {
    return time.tv_sec * kSecond + time.tv_nsec;
}

inline timespec to_timespec(int64_t time) {
    const int64_t fraction = ((time % kSecond) + kSecond) % kSecond;
    return {(time - fraction) / kSecond, fraction};
}

inline int64_t now() {
    timespec time{};
    clock_gettime(CLOCK_REALTIME_COARSE, &time);
    return nanoseconds(time);
}

// Some letters that never repeat at a distance that a copy could slip by.
inline std::string bytes(size_t size) {
    std::string text(size, '\0');
    for (size_t i = 0; i < size; i++)
        text[i] = static_cast<char>((i * 2654435761U) >> 13);
    return text;
}

// What can be seen of an entry; comparable, and legible in a failure.
struct Entry {
    std::string path;  // below the top, which is ""
    mode_t mode = 0;   // with the type
    uid_t owner = 0;
    gid_t group = 0;
    int64_t modified = 0;  // nanoseconds since the epoch
    int64_t size = 0;      // 0 for folders
    size_t content = 0;    // a hash; 0 for all but regular files
    std::string target;    // of links

    bool operator==(const Entry &) const = default;

    friend std::ostream &operator<<(std::ostream &out, const Entry &entry) {
        return out << "{" << testing::PrintToString(entry.path) << " " << std::oct << entry.mode << std::dec << " "
                   << entry.owner << ":" << entry.group << " " << entry.modified << " " << entry.size << " "
                   << entry.content << " " << testing::PrintToString(entry.target) << "}";
    }
};

inline int64_t modified(const std::string &path) {
    return nanoseconds(status_of(path).st_mtim);
}

inline Entry entry_of(const std::string &path, const std::string &shown) {
    const struct stat status = status_of(path);
    Entry entry{shown, status.st_mode, status.st_uid, status.st_gid, nanoseconds(status.st_mtim), 0, 0, ""};
    if (!S_ISDIR(status.st_mode))
        entry.size = status.st_size;
    if (S_ISREG(status.st_mode))
        entry.content = std::hash<std::string>()(read_file(path));
    if (S_ISLNK(status.st_mode))
        entry.target = std::filesystem::read_symlink(path);
    return entry;
}

// Everything in a folder and the folder itself, sorted by path; links are not followed.
inline std::vector<Entry> list_tree(const std::string &top) {
    std::vector<Entry> entries{entry_of(top, "")};
    for (const auto &found : std::filesystem::recursive_directory_iterator(top))
        entries.push_back(entry_of(found.path(), found.path().string().substr(top.size() + 1)));
    std::sort(entries.begin(), entries.end(), [](const Entry &a, const Entry &b) { return a.path < b.path; });
    return entries;
}

inline std::vector<std::string> paths_in(const std::string &top) {
    std::vector<std::string> paths;
    for (const Entry &entry : list_tree(top))
        paths.push_back(entry.path);
    paths.erase(paths.begin());
    return paths;
}

inline void set_time(const std::string &path, int64_t time) {
    const timespec times[2] = {to_timespec(time + 5 * kSecond), to_timespec(time)};
    check(utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW) == 0, "set the time of " + path);
}

// One row of a tree to be made. `mode` has the type (S_IFREG and so on) and is set exactly, whatever the umask.
struct Plan {
    std::string path;
    mode_t mode;
    std::string content{};  // of a file, or the target of a link
    int64_t modified = kThen;
    uid_t owner = geteuid();
    gid_t group = getegid();
};

inline void make_entry(const std::string &path, const Plan &plan) {
    if (S_ISREG(plan.mode))
        write_file(path, plan.content);
    else if (S_ISDIR(plan.mode))
        check(mkdir(path.c_str(), 0700) == 0 || errno == EEXIST, "make " + path);
    else if (S_ISLNK(plan.mode))
        check(symlink(plan.content.c_str(), path.c_str()) == 0, "link " + path);
    else
        check(mknod(path.c_str(), plan.mode, 0x0103) == 0, "make " + path);
}

inline void dress_entry(const std::string &path, const Plan &plan) {
    check(lchown(path.c_str(), plan.owner, plan.group) == 0, "own " + path);
    if (!S_ISLNK(plan.mode))
        check(chmod(path.c_str(), plan.mode & 07777) == 0, "permit " + path);
    set_time(path, plan.modified);
}

// Makes what the rows say, folders before what is in them; then modes, owners and times, the last row first.
inline std::string make_tree(const std::string &top, const std::vector<Plan> &plans) {
    const auto place = [&](const Plan &plan) { return plan.path.empty() ? top : top + "/" + plan.path; };
    std::filesystem::create_directory(top);
    for (const Plan &plan : plans)
        make_entry(place(plan), plan);
    for (auto plan = plans.rbegin(); plan != plans.rend(); ++plan)
        dress_entry(place(*plan), *plan);
    return top;
}

// A tree with everything that the walks treat differently.
inline const std::vector<Plan> kVariousPlans{
    {"", S_IFDIR | 02751, "", kThen + 1, 11, 22},
    {"empty", S_IFREG | 0644, ""},
    {"file", S_IFREG | 0600, bytes(70'000), kThen, 1, 2},
    {"set user", S_IFREG | 06755, "x"},
    {"a\nname \x80\xff", S_IFREG | 0400, "y", -kSecond},
    {"-rf", S_IFREG | 0444, "z"},
    {"...", S_IFDIR | 0755},
    {"..x", S_IFREG | 0444, "dots"},
    {"d", S_IFDIR | 0, "", 5, 3, 4},
    {"d/file", S_IFREG | 0100, bytes(32769)},
    {"d/e", S_IFDIR | 01777, "", 6},
    {"d/e/f", S_IFREG | 0644, bytes(4097)},
    {"d/void", S_IFDIR | 07777, "", 7, 65534, 65534},
    {"link", S_IFLNK, "file", 8, 9, 10},
    {"link to d", S_IFLNK, "d"},
    {"link out", S_IFLNK, "../kept"},
    {"long link", S_IFLNK, std::string(3000, 'x')},
    {"dangling", S_IFLNK, "/none/\nsuch"},
    {"loop", S_IFLNK, ".."},
    {"d/up", S_IFLNK, "../.."},
    {"fifo", S_IFIFO | 0644},
    {"d/socket", S_IFSOCK | 0644},
    {"device", S_IFCHR | 0644},
};

// A name that leads to no folder, below one that `make_tree` gave `kNoFolderPlans`.
struct NoFolder {
    const char *name;
    int error;
    bool is_there;  // then each function has words of its own for it

    std::string cant_look_at(const std::string &path) const {
        return "Can't fstat folder " + path + " error!, " + std::to_string(-error);
    }
};

inline const std::vector<Plan> kNoFolderPlans{
    {"file", S_IFREG | 0600}, {"link", S_IFLNK, "file"}, {"dangling", S_IFLNK, "none"}};

constexpr NoFolder kNoFolders[] = {{"file", ENOTDIR, true},
                                   {"link", ENOTDIR, true},
                                   {"none", ENOENT, false},
                                   {"dangling", ENOENT, false},
                                   {"file/x", ENOTDIR, false}};

// A folder, opened for as long as the object lives.
class OpenFolder {
  public:
    explicit OpenFolder(const std::string &path) : descriptor_(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
        check(descriptor_ >= 0, "open " + path);
    }
    ~OpenFolder() { close(descriptor_); }
    OpenFolder(const OpenFolder &) = delete;
    OpenFolder &operator=(const OpenFolder &) = delete;

    int get() const { return descriptor_; }

  private:
    int descriptor_;
};

// Another current folder for as long as the object lives.
class WorkingFolder {
  public:
    explicit WorkingFolder(const std::string &path) : before_(".") { check(chdir(path.c_str()) == 0, "go to " + path); }
    ~WorkingFolder() { (void)!fchdir(before_.get()); }
    WorkingFolder(const WorkingFolder &) = delete;
    WorkingFolder &operator=(const WorkingFolder &) = delete;

  private:
    OpenFolder before_;
};

// Room for only so many more descriptors for as long as the object lives.
class DescriptorLimit {
  public:
    explicit DescriptorLimit(rlim_t more) {
        check(getrlimit(RLIMIT_NOFILE, &before_) == 0, "ask for the limit");
        const int next = dup(STDERR_FILENO);
        check(next >= 0 && close(next) == 0, "find the next descriptor");
        const rlimit limit{static_cast<rlim_t>(next) + more, before_.rlim_max};
        check(setrlimit(RLIMIT_NOFILE, &limit) == 0, "set the limit");
    }
    ~DescriptorLimit() { setrlimit(RLIMIT_NOFILE, &before_); }
    DescriptorLimit(const DescriptorLimit &) = delete;
    DescriptorLimit &operator=(const DescriptorLimit &) = delete;

  private:
    rlimit before_{};
};

class Umask {
  public:
    explicit Umask(mode_t mask) : before_(umask(mask)) {}
    ~Umask() { umask(before_); }
    Umask(const Umask &) = delete;
    Umask &operator=(const Umask &) = delete;

  private:
    mode_t before_;
};

// Runs `body` in a thread for which the kernel refuses one system call: for calls that reach it by their number.
inline void with_refused_system_call(unsigned number, unsigned error, const std::function<void()> &body) {
    std::thread([&] {
        ASSERT_TRUE(support::refuse_system_call(number, error));
        body();
    }).join();
}

// Puts each of two names in the other's place.
inline void swap_names(const std::string &one, const std::string &other) {
    check(renameat2(AT_FDCWD, one.c_str(), AT_FDCWD, other.c_str(), RENAME_EXCHANGE) == 0, "exchange " + one);
}

// Makes folders in each other, as many as `depth` says, without a path that is too long for the system. The last of
// them holds a file.
inline void make_deep(const std::string &top, const std::string &name, int depth, const std::string &file) {
    const WorkingFolder home(top);
    for (int i = 0; i < depth; i++) {
        check(mkdir(name.c_str(), 0755) == 0, "make " + name);
        check(chdir(name.c_str()) == 0, "enter " + name);
    }
    write_file(file, "deep");
}

// The world of one test: a folder of its own, and no descriptor left open at the end.
class TreeTest : public testing::Test {
  protected:
    ~TreeTest() override { EXPECT_EQ(open_descriptors(), before_); }

    std::string path(const std::string &name) const { return folder_.path(name); }

    // Runs `body` as a user without rights, to whom the test's folder is given.
    void without_rights(const std::function<void()> &body) const {
        constexpr uid_t nobody = 65534;
        if (!can_be_nobody())
            GTEST_SKIP() << "only a privileged program can become another user";
        check(chown(folder_.path().c_str(), nobody, nobody) == 0, "give the folder away");
        EXPECT_EQ(in_child_as_nobody([&] {
                      body();
                      return HasFailure() ? 1 : 0;
                  }),
                  0);
    }

    TempFolder folder_;

  private:
    const std::map<int, std::string> before_ = open_descriptors();
};

}  // namespace fileio_test
