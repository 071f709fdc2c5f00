#include "world.h"

#include <grp.h>
#include <sched.h>
#include <signal.h>
#include <sys/inotify.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include "network.h"

namespace neighbours {
namespace {

namespace fs = std::filesystem;

void check(bool done, const std::string &what) {
    if (!done)
        throw std::system_error(errno, std::generic_category(), what);
}

void become_neighbour() {
    check(setgroups(0, nullptr) == 0, "leave all groups");
    check(setresgid(Neighbour::kGroup, Neighbour::kGroup, Neighbour::kGroup) == 0, "change the group");
    check(setresuid(Neighbour::kUser, Neighbour::kUser, Neighbour::kUser) == 0, "change the user");
    umask(022);
}

// The first process of the namespace: takes care of those that lost their parent, until `child` has ended.
int reap_until(pid_t child) {
    while (true) {
        int status = 0;
        const pid_t ended = wait(&status);
        if (ended == child)
            return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    }
}

// The namespace ends with this process, and this process with the test program.
int live_in_new_processes(const std::function<int()> &body) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    support::enter_sandbox();
    check(mount("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr) == 0, "mount /proc");
    support::enter_network();
    // Without the sticky bit, so that no protection of the kernel's holds there: see world.h.
    check(chmod("/var/lock", 0777) == 0, "open /var/lock to everybody");
    return reap_until(support::start_child(body));
}

// Runs `attempt` for ever. What it throws is passed over.
[[noreturn]] void repeat(const std::function<void()> &attempt) {
    while (true) {
        try {
            attempt();
        } catch (const std::exception &) {
            continue;
        }
    }
}

std::string how_is(const fs::path &path) {
    struct stat status {};
    check(lstat(path.c_str(), &status) == 0, "look at " + path.string());

    std::array<char, 128> text{};
    std::snprintf(text.data(), text.size(), "mode %o, owner %u, group %u, links %lu, ", status.st_mode, status.st_uid,
                  status.st_gid, status.st_nlink);
    std::string content;
    if (S_ISREG(status.st_mode))
        content = "content \"" + read_file(path) + "\", time " + std::to_string(status.st_mtim.tv_sec) + "." +
                  std::to_string(status.st_mtim.tv_nsec);
    if (S_ISLNK(status.st_mode))
        content = "link to \"" + fs::read_symlink(path).string() + "\"";
    return text.data() + content;
}

std::map<std::string, std::string> entries_of(const std::string &folder) {
    std::map<std::string, std::string> entries{{".", how_is(folder)}};
    for (const auto &entry : fs::recursive_directory_iterator(folder))
        entries[fs::relative(entry.path(), folder)] = how_is(entry.path());
    return entries;
}

void tell_files_that_show(const std::string &text, const std::string &folder, int out) {
    const auto options = fs::directory_options::skip_permission_denied;
    for (const auto &entry : fs::recursive_directory_iterator(folder, options)) {
        if (!entry.is_regular_file() || entry.is_symlink())
            continue;

        std::ifstream in(entry.path(), std::ios::binary);
        std::ostringstream content;
        content << in.rdbuf();
        const std::string name = fs::relative(entry.path(), folder).string() + '\0';
        if (in && content.str().find(text) != std::string::npos)
            check(write(out, name.data(), name.size()) == static_cast<ssize_t>(name.size()), "tell a name");
    }
}

std::string read_to_end(int descriptor) {
    std::string all;
    std::array<char, 4096> part{};
    ssize_t length = read(descriptor, part.data(), part.size());
    while (length > 0) {
        all.append(part.data(), static_cast<size_t>(length));
        length = read(descriptor, part.data(), part.size());
    }
    return all;
}

// A file system of its own: one that knows RENAME_EXCHANGE, whatever the machine's is.
std::string mount_disk() {
    std::string name = "/tmp/korvex-neighbours-XXXXXX";
    check(mkdtemp(name.data()) != nullptr, "make a folder");
    check(mount("korvex-test", name.c_str(), "tmpfs", 0, "size=256m,mode=0755") == 0, "mount a disk");
    return name;
}

}  // namespace

// In a child from the start: this process, whose children would all be born into the new namespace, must still be able to
// start some when that has ended, which the leak checker does.
int in_private_world(const std::function<int()> &body) {
    return support::in_child([&] {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (geteuid() != 0 || unshare(CLONE_NEWPID | CLONE_NEWNS) != 0) {
            std::fprintf(stderr, "SKIPPED: only root can have a second user and processes of its own (%s)\n",
                         std::strerror(geteuid() != 0 ? EPERM : errno));
            return support::kSkipStatus;
        }
        return support::in_child([&] { return live_in_new_processes(body); });
    });
}

void Neighbour::act(const std::function<void()> &body) const {
    const int status = support::in_child([&] {
        try {
            become_neighbour();
            body();
        } catch (const std::exception &failure) {
            std::fprintf(stderr, "the neighbour: %s\n", failure.what());
            return 1;
        }
        return 0;
    });
    EXPECT_EQ(status, 0) << "the neighbour could not do what the test is about";
}

bool Neighbour::can(const std::function<void()> &body) const {
    const int status = support::in_child([&] {
        try {
            become_neighbour();
            body();
        } catch (const std::exception &) {
            return 1;
        }
        return 0;
    });
    return status == 0;
}

std::vector<std::string> Neighbour::files_that_show(const std::string &text, const std::string &folder) const {
    std::array<int, 2> ends{};
    check(pipe2(ends.data(), O_CLOEXEC) == 0, "make a pipe");
    const pid_t child = support::start_child([&] {
        become_neighbour();
        tell_files_that_show(text, folder, ends[1]);
        return 0;
    });
    close(ends[1]);
    const std::string told = read_to_end(ends[0]);
    close(ends[0]);
    EXPECT_EQ(support::wait_for(child), 0) << "the neighbour could not look for files";

    std::vector<std::string> names;
    std::istringstream in(told);
    for (std::string name; std::getline(in, name, '\0');)
        names.push_back(name);
    std::sort(names.begin(), names.end());
    return names;
}

Restless::Restless(const Neighbour & /*neighbour*/, const std::function<void()> &body)
    : process_(support::start_child([&]() -> int {
          become_neighbour();
          repeat(body);
      })) {}

Restless::Restless(const Neighbour & /*neighbour*/, const std::string &folder, uint32_t mask,
                   const std::function<void()> &body) {
    // Watched before the child starts, so that no event of the victim's is missed.
    const int watch = inotify_init1(IN_CLOEXEC);
    check(watch >= 0 && inotify_add_watch(watch, folder.c_str(), mask) >= 0, "watch " + folder);
    process_ = support::start_child([&]() -> int {
        become_neighbour();
        repeat([&] {
            std::array<char, 4096> events{};
            check(read(watch, events.data(), events.size()) > 0, "wait for an event");
            body();
        });
    });
    close(watch);
}

Restless::~Restless() {
    kill(process_, SIGKILL);
    support::wait_for(process_);
}

std::string Vault::file(const std::string &name, const std::string &content, mode_t mode) {
    write_file(path(name), content);
    check(chmod(path(name).c_str(), mode) == 0, "set the mode of " + name);
    remember();
    return path(name);
}

std::string Vault::folder(const std::string &name, mode_t mode) {
    check(mkdir(path(name).c_str(), mode) == 0 && chmod(path(name).c_str(), mode) == 0, "make the folder " + name);
    remember();
    return path(name);
}

void Vault::remember() {
    entries_ = entries_of(folder_);
}

std::string Vault::changes() const {
    std::string changes;
    const auto now = entries_of(folder_);
    for (const auto &[name, how] : entries_) {
        const auto found = now.find(name);
        if (found == now.end())
            changes += name + " is gone\n";
        else if (found->second != how)
            changes += name + " was " + how + ", is " + found->second + "\n";
    }
    for (const auto &[name, how] : now)
        if (!entries_.contains(name))
            changes += name + " is new: " + how + "\n";
    return changes;
}

std::vector<std::string> privileged_files(const std::string &folder) {
    std::vector<std::string> names;
    for (const auto &entry : fs::recursive_directory_iterator(folder)) {
        struct stat status {};
        check(lstat(entry.path().c_str(), &status) == 0, "look at " + entry.path().string());
        const bool as_root = status.st_uid == 0 && (status.st_mode & S_ISUID) != 0;
        const bool as_group = status.st_gid == 0 && (status.st_mode & S_ISGID) != 0;
        if (S_ISREG(status.st_mode) && (as_root || as_group))
            names.push_back(fs::relative(entry.path(), folder));
    }
    std::sort(names.begin(), names.end());
    return names;
}

Neighbours::Neighbours() : disk_(mount_disk()), vault(disk_ + "/vault") {
    check(mkdir(vault.path().c_str(), 0755) == 0, "make the vault");
    vault.file("secret", Vault::kSecret, 0600);
    renew();
}

Neighbours::~Neighbours() {
    umount2(disk_.c_str(), MNT_DETACH);
    rmdir(disk_.c_str());
}

void Neighbours::renew() const {
    fs::remove_all(home());
    check(mkdir(home().c_str(), 0755) == 0 && chmod(home().c_str(), 0755) == 0, "make the neighbour's folder");
    check(chown(home().c_str(), Neighbour::kUser, Neighbour::kGroup) == 0, "give the folder to the neighbour");
}

}  // namespace neighbours
