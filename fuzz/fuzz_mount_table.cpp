// The mounted file systems of any table, and the entries found in it, are the model's.
//
// Input: a line with the device or mount point to look for; the table, which ends before a NUL.
#include <mntent.h>

#include <cstdlib>
#include <cstring>
#include <memory>

#include "naive_sysinfo.h"
#include "sysinfo.h"
#include "target.h"

namespace {

// Bytes of an entry, written as a line, that libc's record surely has room for. Of a longer one the end of the options may
// be missing.
constexpr size_t kRecord = 900;

std::string table;

struct ListFreer {
    void operator()(Mount_Info *list) const { Free_Mount_Info(list); }
};

std::string shown(const naive::Mount &mount) {
    return fuzz::shown(mount.source) + " on " + fuzz::shown(mount.folder) + " type " + fuzz::shown(mount.type) +
           " options " + fuzz::shown(mount.options) + " " + std::to_string(mount.frequency) + " " +
           std::to_string(mount.pass);
}

naive::Mount copy_of(const Mount_Info &record) {
    return {.source = record.pszFsName,
            .folder = record.pszDir,
            .type = record.pszType,
            .options = record.szOptions,
            .frequency = record.nFreq,
            .pass = record.nPassNo};
}

naive::Mount copy_of(const mntent &entry) {
    return {.source = entry.mnt_fsname,
            .folder = entry.mnt_dir,
            .type = entry.mnt_type,
            .options = entry.mnt_opts,
            .frequency = entry.mnt_freq,
            .pass = entry.mnt_passno};
}

void compare(const naive::Mount &expected, const naive::Mount &got) {
    if (shown(expected) != shown(got))
        fuzz::fail("expected " + shown(expected) + "\ngot " + shown(got));
}

// Options, type, mount point and source follow each other in the record's block.
void check_layout(const Mount_Info &record) {
    const char *place = record.szOptions;
    for (const char *text : {record.pszType, record.pszDir, record.pszFsName}) {
        place += std::strlen(place) + 1;
        if (text != place)
            fuzz::fail("a text that is not behind the one before");
    }
}

void check_list() {
    Mount_Info *first = nullptr;
    const int32_t result = Scan_Mount_Info(&first);
    const std::unique_ptr<Mount_Info, ListFreer> list(first);
    if (result != 0)
        fuzz::fail("result " + std::to_string(result));

    std::vector<naive::Mount> expected = naive::mounts_of(table);
    for (const Mount_Info *record = list.get(); record != nullptr; record = record->pNext) {
        check_layout(*record);
        if (expected.empty())
            fuzz::fail("more than expected: " + shown(copy_of(*record)));
        compare(expected.back(), copy_of(*record));
        expected.pop_back();
    }
    if (!expected.empty())
        fuzz::fail("missing: " + shown(expected.back()));
}

void check_query(int32_t (*query)(const char *, mntent **), std::string naive::Mount::*text,
                 const std::string &wanted) {
    const std::vector<naive::Mount> mounts = naive::mounts_of(table);
    const naive::Mount *expected = nullptr;
    for (const naive::Mount &mount : mounts)
        if (expected == nullptr && mount.*text == wanted)
            expected = &mount;

    mntent rubbish{};
    mntent *entry = &rubbish;
    const int32_t result = query(wanted.c_str(), &entry);
    if (result != (expected != nullptr ? 0 : -ENOTDIR))
        fuzz::fail("result " + std::to_string(result) + " for " + fuzz::shown(wanted));
    if ((entry != nullptr) != (expected != nullptr))
        fuzz::fail("an entry with result " + std::to_string(result));
    // libc's own reader may leave the code of a "#" as it is.
    if (expected != nullptr && shown(*expected).size() <= kRecord && !expected->source.starts_with('#'))
        compare(*expected, copy_of(*entry));
}

}  // namespace

// Hands out the input wherever a table of mounts is opened.
extern "C" FILE *setmntent(const char *file, const char *type) noexcept {
    if (std::strcmp(file, "/etc/mtab") != 0 || std::strcmp(type, "r") != 0)
        fuzz::fail("another table: " + std::string(file));
    return table.empty() ? std::fopen("/dev/null", "re") : fmemopen(table.data(), table.size(), "r");
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::string_view input = fuzz::bytes(data, size);
    const std::string wanted = fuzz::take_argument(input);
    table = naive::up_to_nul(std::string(input));

    check_list();
    check_query(Query_Mount_Entry_By_Device, &naive::Mount::source, wanted);
    check_query(Query_Mount_Entry_By_Path, &naive::Mount::folder, wanted);
    return 0;
}
