// The folder of the locks, and what lies in it.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <string>

#include "cli.h"
#include "doctor/check.h"
#include "files/descriptor.h"
#include "korvex/error.hpp"
#include "korvex/lock.hpp"

namespace korvex::cli::doctor {
namespace {

// Without the "/" at its end, as people write it. In a function, as a text that is made before main could throw where
// nobody catches.
std::string folder_of_locks() {
    return std::string(lock_folder.substr(0, lock_folder.size() - 1));
}

constexpr uint64_t kLockBytes = 4096;  // what one lock takes of a file system
constexpr uint64_t kWantedBytes = 64 << 10;

bool is_folder(const std::string &path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

// No signal ends the process between the making of a file and its removal.
class BlockedSignals {
  public:
    BlockedSignals() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_BLOCK, &all, &before_);
    }
    ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    BlockedSignals(const BlockedSignals &) = delete;
    BlockedSignals &operator=(const BlockedSignals &) = delete;

  private:
    sigset_t before_{};
};

Descriptor create(const std::string &path) {
    return Descriptor(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
}

enum class Creation { works, twice, refused };

// Makes a file, tries to make it once more, which must fail, and removes it. A name that somebody has put in its way is
// passed over. `error` is why the first was refused.
Creation try_creation(const std::string &folder, int &error) {
    constexpr int kMostNames = 16;
    const BlockedSignals blocked;
    const std::string stem = folder + "/.korvex_doctor." + std::to_string(getpid());
    std::string path = stem;
    Descriptor first = create(path);
    error = errno;
    for (int number = 1; first.get() < 0 && error == EEXIST && number < kMostNames; ++number) {
        path = stem + "." + std::to_string(number);
        first = create(path);
        error = errno;
    }
    if (first.get() < 0)
        return Creation::refused;
    const bool twice = create(path).get() >= 0 || errno != EEXIST;
    unlink(path.c_str());
    return twice ? Creation::twice : Creation::works;
}

std::string seconds_text(std::chrono::milliseconds age) {
    return std::to_string(age.count() / 1000) + " s";
}

std::string holder_text(const lock_state &state) {
    const std::string program = state.program.empty() ? "" : " (" + state.program + ")";
    return "process " + std::to_string(state.pid) + program;
}

// Reports a lock that is not as it should be. A lock is filled as soon as it is made, and waiters give it two seconds for
// that; so one that is not filled is reported after these two seconds only.
void report_lock(Findings &findings, const std::string &path, const lock_state &state) {
    constexpr std::chrono::seconds kFillTime{2};
    if (state.status == lock_status::stale)
        findings.warn(
            path + " is stale: " + holder_text(state) + ", " + seconds_text(state.age) + " old, " + state.reason,
            "none needed, who waits for it takes it over; to be rid of it: rm " + shell_word(path));
    else if (state.status == lock_status::incomplete && state.age >= kFillTime)
        findings.warn(path + " was made but never filled, " + seconds_text(state.age) + " ago",
                      "none needed, who waits for it takes it over; to be rid of it: rm " + shell_word(path));
    else if (state.status == lock_status::blocked)
        findings.fail(
            path + " is " + state.reason + ": nobody gets this lock",
            "find out who put it there, then: " + std::string(is_folder(path) ? "rmdir " : "rm ") + shell_word(path));
    else if (state.status == lock_status::unreadable)
        findings.warn(path + " can't be read", "look again as root: sudo korvex doctor");
}

lock_state side_lock_of(const std::string &target) {
    try {
        return inspect(target, lock_kind::side);
    } catch (const error &) {
        lock_state state;
        state.status = lock_status::unreadable;
        return state;
    }
}

}  // namespace

void check_lock_folder(const Places &, Findings &findings) {
    const std::string folder = folder_of_locks();
    struct stat status {};
    if (stat(folder.c_str(), &status) != 0)
        return findings.fail(folder + ": " + error_text(errno), "mkdir -m 1777 " + folder);
    if (!S_ISDIR(status.st_mode))
        return findings.fail(folder + " is not a folder", "replace it by a folder: mkdir -m 1777 " + folder);
    if (faccessat(AT_FDCWD, folder.c_str(), W_OK | X_OK, AT_EACCESS) != 0) {
        const int error = errno;
        return findings.fail(
            "you can't make locks in " + folder + ": " + error_text(error),
            error == EROFS ? "mount its file system for writing" : "run as root, or: chmod 1777 " + folder);
    }
    if ((status.st_mode & S_IWOTH) != 0 && (status.st_mode & S_ISVTX) == 0)
        return findings.warn("everybody may remove the locks of others in " + folder, "chmod +t " + folder);
    findings.ok(folder + " is there and writable");
}

void check_lock_room(const Places &, Findings &findings) {
    const std::string folder = folder_of_locks();
    if (is_folder(folder))
        report_room(findings, folder, kLockBytes, kWantedBytes);
}

void check_lock_creation(const Places &, Findings &findings) {
    const std::string folder = folder_of_locks();
    if (!is_folder(folder))
        return;
    int error = 0;
    switch (try_creation(folder, error)) {
        case Creation::works:
            return findings.ok("a name in " + folder + " is created once and no more");
        case Creation::twice:
            return findings.fail(folder + " lets two processes create the same file, so two get the same lock",
                                 "put it on a local file system, such as tmpfs");
        case Creation::refused:
            return findings.fail("no file can be created in " + folder + ": " + error_text(error),
                                 "see the lines above");
    }
}

void check_locks(const Places &places, Findings &findings) {
    const std::string folder = folder_of_locks();
    if (!is_folder(folder))
        return;
    size_t held = 0;
    for (const named_lock &lock : locks()) {
        report_lock(findings, lock.file, lock.state);
        held += lock.state.status == lock_status::held ? 1 : 0;
    }

    // Those beside what they protect.
    for (const std::string &beside : places.configurations) {
        for (const ConfigurationFile &file : configuration_files(beside)) {
            if (!file.path.ends_with(".lck"))
                continue;
            const std::string target = file.path.substr(0, file.path.size() - std::string_view(".lck").size());
            report_lock(findings, file.path, side_lock_of(target));
        }
    }
    findings.ok_unless_more("no lock was left behind, " + std::to_string(held) + " held");
}

}  // namespace korvex::cli::doctor
