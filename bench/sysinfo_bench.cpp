// The mount table, the list of shares and the search for processes: the time of an entry, in small and large systems, and
// beside a bare loop of the calls that the job takes.
//
// All in a root folder of its own, with its own /etc/mtab, /etc/config/smb.conf and /share, and in a space of its own for
// process numbers, which ends with the program and takes the processes that were started with it.
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
#include "rounds.h"
#include "sandbox.h"
#include "sysinfo.h"

namespace {

namespace fs = std::filesystem;

constexpr size_t kProcesses = 2'000;

void require(bool done, const char *what) {
    if (!done)
        throw std::runtime_error(what);
}

void enter_own_root() {
    require(mount("korvex-bench", "/mnt", "tmpfs", 0, "size=256m,mode=755") == 0, "no root of its own");
    for (const char *folder : {"/mnt/etc/config", "/mnt/share", "/mnt/proc"})
        fs::create_directories(folder);
    require(chroot("/mnt") == 0 && chdir("/") == 0, "no root of its own");
    require(mount("proc", "/proc", "proc", 0, nullptr) == 0, "no /proc of its own");
}

// A round is as many calls as make it long enough to be measured.
template <class Call>
bench::Side repeated(const char *name, size_t calls, size_t expected, Call call) {
    require(call() == expected, name);
    return {name, [calls, call] {
                return bench::cost_of(CLOCK_THREAD_CPUTIME_ID, [&] {
                    for (size_t i = 0; i < calls; ++i)
                        call();
                });
            }};
}

// ---- The mount table.

size_t scan_mounts() {
    Mount_Info *list = nullptr;
    require(Scan_Mount_Info(&list) == 0, "Scan_Mount_Info");
    size_t count = 0;
    for (const Mount_Info *mount = list; mount != nullptr; mount = mount->pNext)
        ++count;
    Free_Mount_Info(list);
    return count;
}

// Reads all and keeps nothing.
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

void compare_mounts(size_t lines) {
    std::string table;
    for (size_t line = 0; line < lines; ++line) {
        const std::string number = std::to_string(line);
        table.append("/dev/mapper/volume").append(number).append(" /share/external/DEV").append(number);
        table += " ext4 rw,relatime,user_xattr,barrier=1,data=ordered 0 2\n";
    }
    support::write_file("/etc/mtab", table);
    const size_t calls = 20'000 / lines;
    bench::compare({.family = "sysinfo",
                    .job = "Scan_Mount_Info, each of " + std::to_string(lines) + " lines",
                    .messages = calls * lines,
                    .sides = {repeated("korvex", calls, lines, scan_mounts),
                              repeated("bare getmntent_r", calls, lines, read_mounts)}});
}

// ---- The shares.

size_t scan_shares() {
    Share_Info *list = nullptr;
    int32_t count = 0;
    require(Scan_Share_List(&list, &count) == 0, "Scan_Share_List");
    Release_Share_List(&list);
    return static_cast<size_t>(count);
}

// The look at the configuration is left out here.
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

// Makes a /share with that many shares, of which so many stand in smb.conf.
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

void compare_shares(size_t shares, bool in_configuration) {
    make_shares(shares, in_configuration ? shares : 5);
    const size_t calls = shares < 100 ? 20 : 2;
    bench::compare({.family = "sysinfo",
                    .job = "Scan_Share_List, each of " + std::to_string(shares) + " shares" +
                           (in_configuration ? ", all in smb.conf" : ", 5 in smb.conf"),
                    .messages = calls * shares,
                    .sides = {repeated("korvex", calls, shares, scan_shares),
                              repeated("bare fstatat, realpath, statfs", calls, shares, look_at_shares)}});
    remove_shares();
}

// A share's time among many by that among few: 1 where the time grows with the shares. Both sides in each round.
void compare_growth_of_shares() {
    constexpr size_t few = 60;
    constexpr size_t many = 600;
    constexpr size_t total = 6'000;
    const auto side = [](const char *name, size_t shares, const char *aim) {
        return bench::Side{name,
                           [shares] {
                               make_shares(shares, shares);
                               const bench::Cost cost = bench::cost_of(CLOCK_THREAD_CPUTIME_ID, [shares] {
                                   for (size_t i = 0; i < total / shares; ++i)
                                       require(scan_shares() == shares, "Scan_Share_List");
                               });
                               remove_shares();
                               return cost;
                           },
                           aim};
    };
    bench::compare({.family = "sysinfo",
                    .job = "Scan_Share_List, a share among 600 in smb.conf beside one among 60",
                    .messages = total,
                    .sides = {side("among 600", many, ""), side("among 60", few, "0.83x")},
                    .rounds = 20});
}

// ---- The processes.

size_t search_processes(const char *name) {
    int32_t *pids = nullptr;
    int32_t count = 0;
    const int32_t result = Get_All_Pids(name, &pids, &count);
    require(result == 0 || result == -ENODATA, "Get_All_Pids");
    std::free(pids);
    return static_cast<size_t>(count);
}

// Counts what was read; the name is not compared.
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

// Half of them have the name that is looked for, so that the array of results grows, too. The name is set before this
// returns, since the child shares nothing with a parent that goes on.
void start_process(bool wanted) {
    int ready[2];
    require(pipe2(ready, O_CLOEXEC) == 0, "pipe");
    const pid_t child = fork();
    require(child >= 0, "fork");
    if (child == 0) {
        prctl(PR_SET_NAME, wanted ? "wanted" : "other");
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

void compare_processes() {
    // This program is process 1 here, and is read like the others.
    for (size_t process = 1; process < kProcesses; ++process)
        start_process(process % 2 == 0);

    bench::compare({.family = "sysinfo",
                    .job = "Get_All_Pids, each of " + std::to_string(kProcesses) + " processes, half of them found",
                    .messages = kProcesses,
                    .sides = {repeated("korvex", 1, (kProcesses - 1) / 2, [] { return search_processes("wanted"); }),
                              repeated("bare fstatat, open, read", 1, kProcesses, read_names)}});
}

int compare_all(const std::string &only) {
    enter_own_root();
    const struct {
        const char *name;
        void (*run)();
    } jobs[] = {
        {"mounts", [] { compare_mounts(500), compare_mounts(5'000); }},
        {"shares", [] { compare_shares(50, false), compare_shares(500, false), compare_shares(500, true); }},
        {"growth", compare_growth_of_shares},
        {"processes", compare_processes},
    };
    for (const auto &[name, run] : jobs)
        if (std::string(name).find(only) != std::string::npos)
            run();
    return 0;
}

}  // namespace

// Without arguments, all comparisons; with one, those whose name contains it.
int main(int argc, char **argv) {
    bench::open_record();
    support::enter_sandbox();
    if (unshare(CLONE_NEWPID) != 0) {
        std::perror("SKIPPED: no process numbers of its own");
        return support::kSkipStatus;
    }
    std::puts(
        "Medians of an entry's processor time and of the ratios of a round, beside bare calls that keep nothing:");
    // The first child is process 1 of the new space: with it, all others end.
    return support::in_child([&] { return compare_all(argc > 1 ? argv[1] : ""); });
}
