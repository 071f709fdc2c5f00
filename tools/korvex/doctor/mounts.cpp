// The mount table against the kernel's, and the links that make the shares.
#include <mntent.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "cli.h"
#include "doctor/check.h"
#include "files/path_text.h"
#include "korvex/error.hpp"
#include "korvex/system.hpp"

namespace fs = std::filesystem;

namespace korvex::cli::doctor {
namespace {

constexpr const char *kKernelTable = "/proc/self/mounts";

// The folders on which something is mounted. Those of devices stand by themselves, too: a table that is written by hand may
// leave out all others.
struct Table {
    std::set<std::string> folders;
    std::set<std::string> folders_of_devices;

    void add(std::string_view source, std::string_view folder) {
        folders.emplace(folder);
        if (source.starts_with("/dev/"))
            folders_of_devices.emplace(folder);
    }
};

struct CloseTable {
    void operator()(FILE *table) const { endmntent(table); }
};

// Throws where it can't be read.
Table kernel_table() {
    const std::unique_ptr<FILE, CloseTable> stream(setmntent(kKernelTable, "re"));
    if (!stream)
        throw file_failure(kKernelTable, -errno);
    Table table;
    mntent entry{};
    std::array<char, 65536> texts{};
    while (getmntent_r(stream.get(), &entry, texts.data(), static_cast<int>(texts.size())) != nullptr)
        table.add(entry.mnt_fsname, entry.mnt_dir);
    return table;
}

std::vector<std::string> missing(const std::set<std::string> &wanted, const std::set<std::string> &there) {
    std::vector<std::string> names;
    std::set_difference(wanted.begin(), wanted.end(), there.begin(), there.end(), std::back_inserter(names));
    return names;
}

// "/a, /b and 3 more".
std::string list_text(const std::vector<std::string> &names) {
    constexpr size_t kShown = 3;
    std::string text;
    for (size_t i = 0; i < std::min(names.size(), kShown); ++i)
        text += (i == 0 ? "" : ", ") + names[i];
    return text + (names.size() > kShown ? " and " + std::to_string(names.size() - kShown) + " more" : "");
}

void report_link(Findings &findings, const std::string &path) {
    const std::string remove = "rm " + shell_word(path);
    std::error_code ignored;
    const std::string target = fs::read_symlink(path, ignored);
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        const bool is_dead = errno == ENOENT || errno == ENOTDIR || errno == ELOOP;
        if (is_dead)
            findings.fail("the share " + path + " leads nowhere: " + target, "mount its volume, or: " + remove);
        else
            findings.warn("the share " + path + ": " + error_text(errno), "look again as root: sudo korvex doctor");
        return;
    }
    if (!S_ISDIR(status.st_mode))
        return findings.warn("the share " + path + " leads to no folder: " + target, remove);

    const std::string real = fs::canonical(path, ignored);
    if (!real.starts_with("/share/"))
        findings.warn("the share " + path + " leads out of /share, to " + real + ", so it is not listed",
                      "let it lead to a folder below /share, or: " + remove);
}

}  // namespace

void check_mount_table(const Places &, Findings &findings) {
    const std::string remedy = "ln -sf /proc/self/mounts /etc/mtab";
    Table table;
    try {
        for (const mount &entry : mounts())
            table.add(entry.source, entry.folder);
    } catch (const error &failure) {
        return findings.fail("/etc/mtab: " + failure.reason(), remedy);
    }

    const Table kernel = kernel_table();
    const std::vector<std::string> gone = missing(table.folders, kernel.folders);
    const std::vector<std::string> unknown = missing(kernel.folders_of_devices, table.folders);
    if (!gone.empty())
        findings.warn("/etc/mtab lists what is not mounted: " + list_text(gone), remedy);
    if (!unknown.empty())
        findings.warn("/etc/mtab does not list what is mounted: " + list_text(unknown), remedy);
    findings.ok_unless_more("/etc/mtab is true to the kernel's table");
}

void check_shares(const Places &, Findings &findings) {
    std::error_code failure;
    fs::directory_iterator entries("/share", failure);
    if (failure)
        return findings.warn("/share: " + error_text(failure.value()), "make the folder, or mount what it is on");

    std::vector<std::string> links;
    for (; !failure && entries != fs::directory_iterator(); entries.increment(failure)) {
        std::error_code gone;
        if (entries->is_symlink(gone))
            links.push_back(entries->path());
    }
    std::sort(links.begin(), links.end());
    for (const std::string &path : links)
        report_link(findings, path);
    findings.ok_unless_more("each of " + count_text(links.size(), "share", "shares") + " leads to a folder");
}

}  // namespace korvex::cli::doctor
