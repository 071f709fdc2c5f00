#include "watched_file.h"

#include <cerrno>

#include "base/file_identity.h"
#include "base/message.h"
#include "conffile.h"
#include "key_reader.h"
#include "text_scan.h"

namespace korvex::conffile {
namespace {

constexpr const char *kGetter = "Get_Conf_File_String_Value";

bool is_same(const timespec &one, const timespec &other) {
    return one.tv_sec == other.tv_sec && one.tv_nsec == other.tv_nsec;
}

bool is_unchanged(const struct stat &before, const struct stat &now) {
    return is_same_file(before, now) && before.st_size == now.st_size && is_same(before.st_mtim, now.st_mtim) &&
           is_same(before.st_ctim, now.st_ctim);
}

}  // namespace

// A file that takes the place of this one meanwhile is noticed by the next look, which then differs from `now`.
int32_t WatchedFile::read_again(const struct stat &now) {
    is_known_ = false;
    const int32_t result = text_.read(path_);
    if (result < 0)
        return result;

    sections_.build(text_.view());
    known_ = now;
    is_known_ = true;
    return 0;
}

int32_t WatchedFile::get(const char *section, const char *key, char *buffer, int32_t *size) {
    // Where messages are logged, the getter does the work: then they name it.
    if (is_logged(kDebugLevel))
        return Get_Conf_File_String_Value(path_, section, key, buffer, size);

    struct stat now {};
    if (stat(path_, &now) != 0)
        return -errno;

    if (!is_known_ || !is_unchanged(known_, now)) {
        const int32_t result = read_again(now);
        if (result < 0)
            return result;
    }
    const size_t body = sections_.find_body(section);
    return body != kNowhere ? read_key(text_.view(), body, key, buffer, size, kGetter) : -ENOANO;
}

}  // namespace korvex::conffile
