// The mount table, the list of shares and the search for processes: the time of an entry, in small and large systems, and
// beside a bare loop of the calls that the job takes.
//
// All in a root folder of its own, with its own /etc/mtab, /etc/config/smb.conf and /share, and in a space of its own for
// process numbers, which ends with the program and takes the processes that were started with it.
#include <cstdio>
#include <ctime>
#include <string>

#include "own_system.h"
#include "rounds.h"

namespace {

using bench::require;

constexpr size_t kProcesses = 2'000;

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

void compare_mounts(size_t lines) {
    bench::write_mount_table(lines);
    const size_t calls = 20'000 / lines;
    bench::compare({.family = "sysinfo",
                    .job = "Scan_Mount_Info, each of " + std::to_string(lines) + " lines",
                    .messages = calls * lines,
                    .sides = {repeated("korvex", calls, lines, bench::scan_mounts),
                              repeated("bare getmntent_r", calls, lines, bench::read_mounts)}});
}

// ---- The shares.

void compare_shares(size_t shares, bool in_configuration) {
    bench::make_shares(shares, in_configuration ? shares : 5);
    const size_t calls = shares < 100 ? 20 : 2;
    bench::compare({.family = "sysinfo",
                    .job = "Scan_Share_List, each of " + std::to_string(shares) + " shares" +
                           (in_configuration ? ", all in smb.conf" : ", 5 in smb.conf"),
                    .messages = calls * shares,
                    .sides = {repeated("korvex", calls, shares, bench::scan_shares),
                              repeated("bare fstatat, realpath, statfs", calls, shares, bench::look_at_shares)}});
    bench::remove_shares();
}

constexpr size_t kSharesInARound = 6'000;

// A round of listing so many shares, all of which stand in smb.conf.
bench::Cost list_shares(size_t shares) {
    bench::make_shares(shares, shares);
    const bench::Cost cost = bench::cost_of(CLOCK_THREAD_CPUTIME_ID, [shares] {
        for (size_t i = 0; i < kSharesInARound / shares; ++i)
            require(bench::scan_shares() == shares, "Scan_Share_List");
    });
    bench::remove_shares();
    return cost;
}

// A share's time among many by that among few: 1 where the time grows with the shares. Both sides in each round.
void compare_growth_of_shares() {
    bench::compare({.family = "sysinfo",
                    .job = "Scan_Share_List, a share among 600 in smb.conf beside one among 60",
                    .messages = kSharesInARound,
                    .sides = {{"among 600", [] { return list_shares(600); }},
                              {"among 60", [] { return list_shares(60); }, "0.83x"}},
                    .rounds = 20});
}

// ---- The processes.

void compare_processes() {
    // Half of them have the name that is looked for, so that the array of results grows, too. This program is process 1
    // here, and is read like the others.
    for (size_t process = 1; process < kProcesses; ++process)
        bench::start_process(process % 2 == 0);

    bench::compare({.family = "sysinfo",
                    .job = "Get_All_Pids, each of " + std::to_string(kProcesses) + " processes, half of them found",
                    .messages = kProcesses,
                    .sides = {repeated("korvex", 1, (kProcesses - 1) / 2, bench::search_processes),
                              repeated("bare fstatat, open, read", 1, kProcesses, bench::read_names)}});
}

int compare_all(const std::string &only) {
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
    std::puts(
        "Medians of an entry's processor time and of the ratios of a round, beside bare calls that keep nothing:");
    std::fflush(stdout);
    return bench::in_own_system([&] { return compare_all(argc > 1 ? argv[1] : ""); });
}
