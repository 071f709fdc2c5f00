// Reading /etc/mtab.
#include "mount_table.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "base/texts.h"

namespace korvex::sysinfo {
namespace {

constexpr const char *kBlanks = " \t";

// Bytes that would take a line apart are written as a backslash and a code. The kernel writes the last one since 6.2;
// libc's own reader may not know it.
struct Escape {
    std::string_view code;
    char byte;
};
constexpr std::array<Escape, 6> kEscapes = {
    {{"040", ' '}, {"011", '\t'}, {"012", '\n'}, {"134", '\\'}, {"\\", '\\'}, {"043", '#'}}};

// The escape behind a backslash; null where there is none, and the backslash stands for itself.
const Escape *escape_at(const char *place) {
    for (const Escape &escape : kEscapes)
        if (begins_with(place, escape.code))
            return &escape;
    return nullptr;
}

void decode(char *field) {
    char *to = std::strchr(field, '\\');
    if (to == nullptr)
        return;

    for (const char *from = to; *from != '\0'; from++) {
        const Escape *escape = *from == '\\' ? escape_at(from + 1) : nullptr;
        *to++ = escape != nullptr ? escape->byte : *from;
        if (escape != nullptr)
            from += escape->code.size();
    }
    *to = '\0';
}

// Takes the next field of a line, empty where there is none.
char *take_field(char *&rest) {
    char *field = rest;
    char *end = field + std::strcspn(field, kBlanks);
    rest = end + std::strspn(end, kBlanks);
    *end = '\0';
    decode(field);
    return field;
}

// What is no number is 0, and so is what follows it.
int take_number(char *&rest) {
    return static_cast<int>(std::strtol(rest, &rest, 10));
}

// False for a line without an entry.
bool parse(char *line, size_t length, mntent &entry) {
    while (length > 0 && std::strchr("\n \t", line[length - 1]) != nullptr)
        line[--length] = '\0';
    char *rest = line + std::strspn(line, kBlanks);
    if (*rest == '\0' || *rest == '#')
        return false;

    entry.mnt_fsname = take_field(rest);
    entry.mnt_dir = take_field(rest);
    entry.mnt_type = take_field(rest);
    entry.mnt_opts = take_field(rest);
    entry.mnt_freq = take_number(rest);
    entry.mnt_passno = take_number(rest);
    // As libc's reader does, leave out an autofs mount with the option "ignore".
    return std::strcmp(entry.mnt_type, "autofs") != 0 || hasmntopt(&entry, "ignore") == nullptr;
}

}  // namespace

int32_t MountTable::next(mntent &entry) {
    while (true) {
        char *line = line_.release();
        errno = 0;
        const ssize_t length = getline(&line, &size_, stream_.get());
        line_.reset(line);
        if (length < 0)
            return errno == ENOMEM ? -ENOMEM : 0;
        if (parse(line, static_cast<size_t>(length), entry))
            return 1;
    }
}

int32_t find_mount(MountTable &table, const char *wanted, char *mntent::*text, mntent &entry) {
    int32_t found = table.next(entry);
    while (found > 0 && std::strcmp(entry.*text, wanted) != 0)
        found = table.next(entry);
    if (found < 0)
        return found;
    return found > 0 ? 0 : -ENOTDIR;
}

}  // namespace korvex::sysinfo
