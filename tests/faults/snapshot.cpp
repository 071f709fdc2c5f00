#include "snapshot.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <set>
#include <system_error>

namespace faults {
namespace {

namespace fs = std::filesystem;

// What can be read on a terminal, and told apart from any other.
std::string readable(const std::string &bytes) {
    std::string text;
    for (const char byte : bytes) {
        char shown[8];
        std::snprintf(shown, sizeof shown, byte >= ' ' && byte != '\\' && byte < 127 ? "%c" : "\\x%02x",
                      static_cast<unsigned char>(byte));
        text += shown;
    }
    return text;
}

Entry entry_at(const fs::path &path) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0)
        throw std::system_error(errno, std::generic_category(), path);

    Entry entry{status.st_mode, status.st_uid, status.st_gid};
    if (S_ISLNK(status.st_mode))
        entry.content = fs::read_symlink(path).string();
    if (S_ISREG(status.st_mode))
        entry.content = support::read_file(path);
    return entry;
}

void add_tree(Snapshot &snapshot, const std::string &root, const std::string &shown) {
    snapshot[shown] = entry_at(root);
    for (const auto &entry : fs::recursive_directory_iterator(root))
        snapshot[shown + entry.path().string().substr(root.size())] = entry_at(entry.path());
}

const Entry *find(const Snapshot &snapshot, const std::string &path) {
    const auto found = snapshot.find(path);
    return found == snapshot.end() ? nullptr : &found->second;
}

bool same(const Entry *one, const Entry *other) {
    return one == nullptr || other == nullptr ? one == other : *one == *other;
}

}  // namespace

std::string Entry::text() const {
    char head[64];
    std::snprintf(head, sizeof head, "%06o %u:%u ", mode, owner, group);
    constexpr size_t most = 200;
    if (S_ISLNK(mode))
        return head + ("-> " + content);
    if (!S_ISREG(mode))
        return head;
    if (content.size() <= most)
        return head + ('"' + readable(content) + '"');
    return head + std::to_string(content.size()) + " bytes, hash " + std::to_string(std::hash<std::string>{}(content));
}

Snapshot take_snapshot(const support::TempFolder &folder) {
    Snapshot snapshot;
    add_tree(snapshot, folder.path(), "...");
    add_tree(snapshot, "/var/lock", "/var/lock");
    return snapshot;
}

Snapshot look_at(const support::TempFolder &folder, const std::string &path) {
    const fs::path real = fs::canonical(fs::path(path).parent_path()) / fs::path(path).filename();
    std::string shown = real.string();
    for (const auto &[root, name] : {std::pair(folder.path(), "..."), {std::string("/var/lock"), "/var/lock"}})
        if (const std::string there = fs::canonical(root); shown.starts_with(there))
            shown = name + shown.substr(there.size());
    return support::exists(real) ? Snapshot{{shown, entry_at(real)}} : Snapshot{};
}

Change::Change(std::string path, To to, std::string bytes, mode_t bits)
    : path_(std::move(path)), to_(to), bytes_(std::move(bytes)), bits_(bits) {}

bool Change::concerns(const std::string &path) const {
    return path_.ends_with("/*") ? path.starts_with(path_.substr(0, path_.size() - 1)) : path == path_;
}

bool Change::fits(const std::string &path, const Snapshot &before, const Snapshot &unharmed,
                  const Snapshot &seen) const {
    const Entry *entry = find(seen, path);
    const Entry *last = find(unharmed, path);
    const Entry *model = last != nullptr ? last : find(before, path);
    switch (to_) {
        case To::gone:
            return entry == nullptr;
        case To::as_before:
            return same(entry, find(before, path));
        case To::as_unharmed:
            return same(entry, last);
        case To::begun:
            return entry != nullptr && last != nullptr && S_ISREG(entry->mode) &&
                   last->content.starts_with(entry->content) && (entry->mode & ~last->mode & 07777) == 0;
        case To::these_bytes:
            return entry != nullptr && model != nullptr &&
                   *entry == Entry{model->mode, model->owner, model->group, bytes_};
        case To::these_bits:
            return entry != nullptr && last != nullptr &&
                   *entry == Entry{(last->mode & S_IFMT) | bits_, last->owner, last->group, last->content};
        case To::new_file:
            return entry != nullptr && *entry == Entry{S_IFREG | bits_, geteuid(), getegid(), bytes_};
    }
    return false;
}

std::string Comparison::difference(const Snapshot &wanted, const Snapshot &seen) const {
    std::set<std::string> paths;
    for (const Snapshot *snapshot : {&wanted, &seen})
        for (const auto &[path, entry] : *snapshot)
            paths.insert(path);
    for (const Change &change : changes)
        if (!change.path().ends_with("/*"))
            paths.insert(change.path());

    std::string text;
    for (const std::string &path : paths) {
        const Entry *due = find(wanted, path);
        const Entry *entry = find(seen, path);
        if (entry != nullptr && same(entry, find(stayed, path)))
            continue;

        const auto concerns = [&](const Change &change) { return change.concerns(path); };
        const auto fits = [&](const Change &change) {
            return change.concerns(path) && change.fits(path, before, unharmed, seen);
        };
        const bool may_change = std::any_of(changes.begin(), changes.end(), concerns);
        if (may_change ? std::any_of(changes.begin(), changes.end(), fits) : same(due, entry))
            continue;

        const std::string was = due == nullptr ? "" : "  " + due->text();
        const std::string is = entry == nullptr ? "" : "  " + entry->text();
        text += entry == nullptr ? "\n      missing: " + path + was
                : due == nullptr ? "\n      left: " + path + is
                                 : "\n      changed: " + path + was + "  =>" + is;
    }
    return text;
}

std::string difference(const Snapshot &wanted, const Snapshot &seen) {
    return Comparison{wanted, wanted, {}, {}}.difference(wanted, seen);
}

}  // namespace faults
