#include "own_system.h"

#include <dirent.h>
#include <fcntl.h>
#include <mntent.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>

#include "figures.h"
#include "miscfunc.h"
#include "sandbox.h"
#include "sysinfo.h"

namespace bench {
namespace {

namespace fs = std::filesystem;

constexpr const char *kWanted = "wanted";

void enter_own_root() {
    require(mount("korvex-bench", "/mnt", "tmpfs", 0, "size=256m,mode=755") == 0, "no root of its own");
    for (const char *folder : {"/mnt/etc/config", "/mnt/share", "/mnt/proc"})
        fs::create_directories(folder);
    require(chroot("/mnt") == 0 && chdir("/") == 0, "no root of its own");
    require(mount("proc", "/proc", "proc", 0, nullptr) == 0, "no /proc of its own");
}

}  // namespace

void require(bool done, const char *what) {
    if (!done)
        throw std::runtime_error(what);
}

int in_own_system(const std::function<int()> &body) {
    open_record();
    support::enter_sandbox();
    if (unshare(CLONE_NEWPID) != 0) {
        std::perror("SKIPPED: no process numbers of its own");
        return support::kSkipStatus;
    }
    // The first child is process 1 of the new space.
    return support::in_child([&] {
        enter_own_root();
        return body();
    });
}

// ---- The mount table.

void write_mount_table(size_t lines) {
    std::string table;
    for (size_t line = 0; line < lines; ++line) {
        const std::string number = std::to_string(line);
        table.append("/dev/mapper/volume").append(number).append(" /share/external/DEV").append(number);
        table += " ext4 rw,relatime,user_xattr,barrier=1,data=ordered 0 2\n";
    }
    support::write_file("/etc/mtab", table);
}

size_t scan_mounts() {
    Mount_Info *list = nullptr;
    require(Scan_Mount_Info(&list) == 0, "Scan_Mount_Info");
    size_t count = 0;
    for (const Mount_Info *mount = list; mount != nullptr; mount = mount->pNext)
        ++count;
    Free_Mount_Info(list);
    return count;
}

size_t read_mounts() {
    FILE *table = setmntent("/etc/mtab", "r");
    mntent entry{};
    std::array<char, 16'384> line;
    size_t count = 0;
    while (getmntent_r(table, &entry, line.data(), static_cast<int>(line.size())) != nullptr)
        ++count;
    endmntent(table);
    return count;
}

// ---- The shares.

size_t scan_shares() {
    Share_Info *list = nullptr;
    int32_t count = 0;
    require(Scan_Share_List(&list, &count) == 0, "Scan_Share_List");
    Release_Share_List(&list);
    return static_cast<size_t>(count);
}

size_t look_at_shares() {
    DIR *folder = opendir("/share");
    size_t count = 0;
    while (const dirent *entry = readdir(folder)) {
        struct stat status {};
        struct statfs volume {};
        std::array<char, PATH_MAX> resolved;
        if (entry->d_type == DT_LNK && fstatat(dirfd(folder), entry->d_name, &status, 0) == 0 &&
            realpath((std::string("/share/") + entry->d_name).c_str(), resolved.data()) != nullptr &&
            statfs(resolved.data(), &volume) == 0)
            ++count;
    }
    closedir(folder);
    return count;
}

void make_shares(size_t shares, size_t in_configuration) {
    require(mount("korvex-bench", "/share", "tmpfs", 0, "size=64m,mode=755") == 0, "no /share of its own");
    std::string options = "[global]\nworkgroup = NAS\nserver string = appliance\n";
    for (size_t share = 0; share < shares; ++share) {
        const std::string name = "Share" + std::to_string(share);
        fs::create_directories("/share/HDA_DATA/" + name);
        fs::create_symlink("HDA_DATA/" + name, "/share/" + name);
        if (share < in_configuration)
            options.append("[")
                .append(name)
                .append("]\npath = /share/")
                .append(name)
                .append("\nbrowsable = yes\nwritable = yes\n");
    }
    support::write_file("/etc/config/smb.conf", options);
    support::write_file("/etc/mtab", "/dev/sda1 / ext4 rw 0 1\n/dev/sdb1 /share/HDA_DATA ext4 rw 0 2\n");
}

void remove_shares() {
    require(umount2("/share", MNT_DETACH) == 0, "umount");
}

// ---- The processes.

size_t search_processes() {
    int32_t *pids = nullptr;
    int32_t count = 0;
    const int32_t result = Get_All_Pids(kWanted, &pids, &count);
    require(result == 0 || result == -ENODATA, "Get_All_Pids");
    std::free(pids);
    return static_cast<size_t>(count);
}

size_t read_names() {
    DIR *folder = opendir("/proc");
    size_t count = 0;
    while (const dirent *entry = readdir(folder)) {
        struct stat status {};
        if (entry->d_name[0] < '0' || entry->d_name[0] > '9' ||
            fstatat(dirfd(folder), entry->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0)
            continue;

        std::array<char, sizeof "/proc//comm" + NAME_MAX> path;
        std::snprintf(path.data(), path.size(), "/proc/%s/comm", entry->d_name);
        std::array<char, 4096> line;
        const int file = open(path.data(), O_RDONLY | O_CLOEXEC);
        if (file >= 0 && read(file, line.data(), line.size() - 1) > 0)
            ++count;
        close(file);
    }
    closedir(folder);
    return count;
}

// The name is set before this returns, since the child shares nothing with a parent that goes on.
void start_process(bool wanted) {
    int ready[2];
    require(pipe2(ready, O_CLOEXEC) == 0, "pipe");
    const pid_t child = fork();
    require(child >= 0, "fork");
    if (child == 0) {
        prctl(PR_SET_NAME, wanted ? kWanted : "other");
        (void)!write(ready[1], "", 1);
        close(ready[0]);
        close(ready[1]);
        for (;;)
            pause();
    }
    char byte = 0;
    close(ready[1]);
    require(read(ready[0], &byte, 1) == 1, "a process did not start");
    close(ready[0]);
}

}  // namespace bench
