#include <fcntl.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <system_error>

#include "cli.h"
#include "doctor/check.h"
#include "files/descriptor.h"
#include "files/path_text.h"

namespace fs = std::filesystem;

namespace korvex::cli::doctor {
namespace {

constexpr Check kChecks[] = {{"lock folder", check_lock_folder},
                             {"lock room", check_lock_room},
                             {"lock creation", check_lock_creation},
                             {"locks", check_locks},
                             {"configuration folder", check_configuration_folders},
                             {"leftovers", check_leftovers},
                             {"permissions", check_permissions},
                             {"share options", check_share_options},
                             {"mount table", check_mount_table},
                             {"shares", check_shares},
                             {"identification command", check_identification},
                             {"OpenSSL", check_openssl},
                             {"clock", check_clock},
                             {"time zone", check_time_zone},
                             {"log room", check_log_room}};

void walk(const std::string &folder, std::vector<ConfigurationFile> &files, std::vector<std::string> *unreadable) {
    std::error_code failure;
    fs::directory_iterator entries(folder, failure);
    for (; !failure && entries != fs::directory_iterator(); entries.increment(failure)) {
        const std::string path = entries->path();
        struct stat status {};
        if (lstat(path.c_str(), &status) != 0)
            continue;  // removed since
        if (S_ISDIR(status.st_mode))
            walk(path, files, unreadable);
        else if (S_ISREG(status.st_mode))
            files.push_back({path, status});
    }
    if (failure && unreadable != nullptr)
        unreadable->push_back(folder);
}

}  // namespace

std::span<const Check> checks() {
    return kChecks;
}

std::string shell_word(const std::string &word) {
    constexpr std::string_view kPlain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789/._-+,:@%";
    if (!word.empty() && word.find_first_not_of(kPlain) == std::string::npos)
        return word;
    std::string quoted = "'";
    for (const char byte : word)
        quoted += byte == '\'' ? std::string("'\\''") : std::string(1, byte);
    return quoted + "'";
}

std::string count_text(size_t count, const char *one, const char *several) {
    return std::to_string(count) + " " + (count == 1 ? one : several);
}

void report_room(Findings &findings, const std::string &folder, uint64_t needed, uint64_t wanted) {
    struct statvfs room {};
    if (statvfs(folder.c_str(), &room) != 0)
        return findings.fail(folder + ": " + error_text(errno), "make the folder, or mount what it is on");
    if ((room.f_flag & ST_RDONLY) != 0)
        return findings.fail(folder + " is on a file system that is mounted read-only",
                             "find out why (dmesg), then: mount -o remount,rw");

    const uint64_t free = uint64_t{room.f_bavail} * room.f_frsize;
    const std::string text = folder + " has " + size_text(free) + " left";
    const bool counts_files = room.f_files > 0;  // else the file system makes room for names as it goes
    if (counts_files && room.f_favail == 0)
        findings.fail(folder + " has no room for another file, though " + size_text(free) + " are left",
                      "remove files that nobody needs: df -i " + shell_word(folder));
    else if (free < needed)
        findings.fail(text, "remove what nobody needs: df -h " + shell_word(folder));
    else if (free < wanted)
        findings.warn(text, "make room soon: df -h " + shell_word(folder));
    else
        findings.ok(text);
}

std::vector<ConfigurationFile> configuration_files(const std::string &folder, std::vector<std::string> *unreadable) {
    std::vector<ConfigurationFile> files;
    walk(folder, files, unreadable);
    std::sort(files.begin(), files.end(), [](const auto &left, const auto &right) { return left.path < right.path; });
    return files;
}

std::string content_of(const std::string &path, size_t limit, int &error) {
    error = 0;
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat status {};
    if (file.get() < 0 || fstat(file.get(), &status) != 0) {
        error = errno;
        return {};
    }
    if (!S_ISREG(status.st_mode)) {
        error = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
        return {};
    }

    std::string content(std::min(limit, static_cast<size_t>(status.st_size)), '\0');
    size_t length = 0;
    while (length < content.size()) {
        const ssize_t size = read(file.get(), content.data() + length, content.size() - length);
        if (size < 0)
            error = errno;
        if (size <= 0)
            break;
        length += static_cast<size_t>(size);
    }
    content.resize(length);
    return content;
}

}  // namespace korvex::cli::doctor
