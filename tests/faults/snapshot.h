// What is in a scenario's folder and in the folder of the locks, before a call and after it.
#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

#include "sandbox.h"

namespace faults {

struct Entry {
    mode_t mode = 0;
    uid_t owner = 0;
    gid_t group = 0;
    std::string content = {};  // a file's bytes, a link's target

    friend bool operator==(const Entry &, const Entry &) = default;
    std::string text() const;
};

// The entries of the scenario's folder ("...") and of the folder of the locks ("/var/lock/...").
using Snapshot = std::map<std::string, Entry>;

Snapshot take_snapshot(const support::TempFolder &folder);
// A snapshot of one entry alone, by its path in the system.
Snapshot look_at(const support::TempFolder &folder, const std::string &path);

// What one entry may be instead of what holds for all entries. The path is one of a snapshot; one that ends in "/*" means
// each entry below that folder. Where there are several for a path, one of them has to fit.
class Change {
  public:
    enum class To { gone, as_before, as_unharmed, begun, these_bytes, these_bits, new_file };
    Change(std::string path, To to, std::string bytes = {}, mode_t bits = 0);

    const std::string &path() const { return path_; }
    bool concerns(const std::string &path) const;
    bool fits(const std::string &path, const Snapshot &before, const Snapshot &unharmed, const Snapshot &seen) const;

  private:
    std::string path_;
    To to_;
    std::string bytes_;
    mode_t bits_;
};

using Changes = std::vector<Change>;

// It is not there.
inline Change gone(const std::string &path) {
    return {path, Change::To::gone};
}
// It is what it was before the call, or not there if it was not.
inline Change kept(const std::string &path) {
    return {path, Change::To::as_before};
}
// It is what the run without a fault leaves.
inline Change done(const std::string &path) {
    return {path, Change::To::as_unharmed};
}
// A file with the beginning of the bytes that the run without a fault leaves there (none of them, some or all), and readable
// and writable for nobody more.
inline Change begun(const std::string &path) {
    return {path, Change::To::begun};
}
// A file with these bytes. All else of it is as the run without a fault leaves it, or as it was before.
inline Change holding(const std::string &path, const std::string &bytes) {
    return {path, Change::To::these_bytes, bytes};
}
// What the run without a fault leaves there, but for its permission bits.
inline Change with_bits(const std::string &path, mode_t bits) {
    return {path, Change::To::these_bits, {}, bits};
}

// A file of this program with these bytes and permission bits.
inline Change new_file(const std::string &path, const std::string &bytes, mode_t bits) {
    return {path, Change::To::new_file, bytes, bits};
}

// Finds what differs between `seen` and `wanted`, except for the changes that are allowed. What is in `stayed` may also be as
// it is there. The difference is a text, empty where there is none.
struct Comparison {
    const Snapshot &before;
    const Snapshot &unharmed;
    const Changes &changes;
    const Snapshot &stayed;

    std::string difference(const Snapshot &wanted, const Snapshot &seen) const;
};

// The same where no change is allowed.
std::string difference(const Snapshot &wanted, const Snapshot &seen);

}  // namespace faults
