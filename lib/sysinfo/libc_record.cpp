// Only libc can fill its record, by reading a line. So the entry is written as a line, which libc reads from memory.
#include "libc_record.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "base/handles.h"

namespace korvex::sysinfo {
namespace {

// libc reads 4095 bytes of a line. The last of them are kept for the numbers, so that these are never lost.
constexpr size_t kLineSize = 4096;
constexpr size_t kEndOfFields = kLineSize - 40;

class TableLine final {
  public:
    explicit TableLine(const mntent &entry) {
        for (const char *field : {entry.mnt_fsname, entry.mnt_dir, entry.mnt_type, entry.mnt_opts}) {
            if (*field == '\0')
                return;  // nothing follows a missing field

            put_field(field);
        }
        added(std::snprintf(end(), room(), "%d %d\n", entry.mnt_freq, entry.mnt_passno));
    }

    char *data() { return text_.data(); }
    size_t size() const { return length_; }

  private:
    // Text that has no room is cut; that happens to long options alone.
    void put_field(const char *field) {
        for (; *field != '\0' && length_ < kEndOfFields; field++) {
            const bool begins_comment = *field == '#' && length_ == 0;
            if (begins_comment || std::strchr(" \t\n\\", *field) != nullptr)
                added(std::snprintf(end(), room(), "\\%03o", static_cast<unsigned>(*field)));
            else
                text_[length_++] = *field;
        }
        text_[length_++] = ' ';
    }

    char *end() { return &text_[length_]; }
    size_t room() const { return kLineSize - length_; }
    void added(int length) { length_ += static_cast<size_t>(length); }

    std::array<char, kLineSize> text_;
    size_t length_ = 0;
};

}  // namespace

int32_t fill_libc_record(const mntent &entry, mntent **record) {
    *record = nullptr;
    TableLine line(entry);
    const UniqueFile stream(fmemopen(line.data(), line.size(), "r"));
    if (!stream)
        return -errno;

    *record = getmntent(stream.get());
    return *record != nullptr ? 0 : -ENOMEM;
}

}  // namespace korvex::sysinfo
