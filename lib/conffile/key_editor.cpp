// Setting one key of a file by editing its text: every other line stays byte for byte.
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <string_view>

#include "base/message.h"
#include "file_lock.h"
#include "file_place.h"
#include "file_text.h"
#include "new_file.h"
#include "permissions.h"
#include "text_scan.h"

namespace korvex::conffile {
namespace {

constexpr const char *kFunction = "Set_Conf_File_String_Value";

// What is to become of one key.
struct Change {
    const char *path;
    const char *section;
    const char *key;
    const char *value;  // null: the key's line goes
};

void put(FILE *out, std::string_view text) {
    std::fwrite(text.data(), 1, text.size(), out);
}

void put_pair(FILE *out, const Change &change) {
    std::fprintf(out, "%s = %s\n", change.key, change.value);
}

void put_section(FILE *out, const Change &change) {
    std::fprintf(out, "[%s]\n", change.section);
    put_pair(out, change);
}

// `text` from `begin` up to `end`.
std::string_view piece(std::string_view text, size_t begin, size_t end = kNowhere) {
    return {text.data() + begin, (end == kNowhere ? text.size() : end) - begin};
}

// `end`, moved back over the line feeds before it, but not before `begin`.
size_t skip_line_feeds_back(std::string_view text, size_t begin, size_t end) {
    while (end > begin && text[end - 1] == '\n')
        end--;
    return end;
}

// The new section comes last, after one empty line; the text's own line feeds at the end go.
int32_t append_section(FILE *out, std::string_view text, const Change &change) {
    if (change.value == nullptr)
        return -ENOANO;

    const size_t end = skip_line_feeds_back(text, 0, text.size());
    if (end > 0) {
        put(out, piece(text, 0, end));
        put(out, "\n\n");
    }
    put_section(out, change);
    return 0;
}

// The new key follows the section's last line that is not empty; one empty line follows it.
int32_t insert_key(FILE *out, std::string_view text, size_t end_of_body, const Change &change) {
    if (change.value == nullptr)
        return -ENODATA;

    put(out, piece(text, 0, skip_line_feeds_back(text, 0, end_of_body)));
    put(out, "\n");
    put_pair(out, change);
    put(out, "\n");
    put(out, piece(text, end_of_body));
    return 0;
}

// Writes the edited text. -ENOANO or -ENODATA where there is nothing to remove: discard the output then.
int32_t put_edited(FILE *out, std::string_view whole, const Change &change) {
    if (whole.empty()) {  // no file: an empty file reads as one line feed
        put_section(out, change);
        return 0;
    }

    // Kept: adding a key or section drops the line feeds at the start; changing or removing a line keeps them.
    size_t start = 0;
    while (start < whole.size() && whole[start] == '\n')
        start++;
    const std::string_view text = piece(whole, start);

    const size_t body = find_body(text, change.section);
    if (body == kNowhere)
        return append_section(out, text, change);

    const KeyPlace place = find_key(text, body, change.key, kFunction);
    if (!place.found)
        return insert_key(out, text, place.begin, change);

    put(out, piece(whole, 0, start + place.begin));
    if (change.value != nullptr)
        put_pair(out, change);
    put(out, piece(text, place.end));
    return 0;
}

// Moves the complete text into place, and gives it the old one's bits. Flushed first, so that a full disk shows for a small
// text, too, and the old one stays.
int32_t commit(NewFile &file, const char *path) {
    if (const int error = file.flush(); error != 0)
        return -error;

    int32_t result = file.move_into_place();
    if (result < 0) {
        LOG_ERROR_AS(kFunction, "Can't rename from %s to %s! (%d)\n", file.name(), path, result);
        return result;
    }

    result = file.set_permissions();
    if (result < 0)
        LOG_ERROR_AS(kFunction, "Can't chmod to %s! (%d)\n", path, result);
    return result;
}

// The change itself, under the lock. `permissions` has what was seen of the old file before.
int32_t edit_file(const Change &change, Permissions permissions) {
    const FilePlace place(change.path);
    FileText text;
    int32_t result = text.read_to_change(place, &permissions);
    const bool to_create = result == -ENOENT && change.value != nullptr;
    if (result < 0 && !to_create) {
        LOG_DEBUG_AS(kFunction, "Can't cache file \"%s\" error! (%d)\n", change.path, result);
        return result;
    }

    // Every process uses the same name: the lock keeps them apart.
    NewFile file(place, permissions);
    result = file.create(".tmp");
    if (result < 0) {
        if (file.name()[0] != '\0')
            LOG_DEBUG_AS(kFunction, "Can't open tmp file \"%s\" error! (%d)\n", file.name(), result);
        return result;
    }

    result = put_edited(file.stream(), text.view(), change);
    return result < 0 ? result : commit(file, change.path);
}

}  // namespace
}  // namespace korvex::conffile

using namespace korvex::conffile;

int32_t Set_Conf_File_String_Value(const char *pszPath, const char *pszSection, const char *pszKey,
                                   const char *pszValue) {
    if (pszPath == nullptr || pszKey == nullptr)
        return -EINVAL;

    // The bits that count are those from before the wait for the lock, unless the file has fewer by then.
    Permissions permissions;
    struct stat before {};
    if (lstat(pszPath, &before) == 0)
        permissions.carry(before);

    const FileLock lock(pszPath, __func__);
    if (!lock.held())
        return -ENOLCK;

    const Change change{
        .path = pszPath, .section = pszSection != nullptr ? pszSection : "", .key = pszKey, .value = pszValue};
    return edit_file(change, permissions);
}

int32_t Set_Conf_File_Integer_Value(const char *pszPath, const char *pszSection, const char *pszKey, int64_t llValue) {
    if (pszPath == nullptr || pszSection == nullptr || pszKey == nullptr)
        return -EINVAL;

    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%lld", static_cast<long long>(llValue));
    return Set_Conf_File_String_Value(pszPath, pszSection, pszKey, text.data());
}
