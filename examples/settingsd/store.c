#include "store.h"

#include <errno.h>
#include <string.h>

#include "traced.h"

static const char kSection[] = "settings";

void store_open(Store *store, const char *path) {
    store->path = path;
    pthread_mutex_init(&store->changing, NULL);
}

void store_close(Store *store) {
    pthread_mutex_destroy(&store->changing);
}

static bool is_blank(char byte) {
    return byte == ' ' || byte == '\t';
}

static bool has_blank_ends(const char *text, size_t length) {
    return length > 0 && (is_blank(text[0]) || is_blank(text[length - 1]));
}

bool is_key(const char *text, size_t length) {
    if (length == 0 || length > kMaxKey || has_blank_ends(text, length) || strchr("[;#", text[0]) != NULL)
        return false;

    for (size_t i = 0; i < length; i++)
        if ((unsigned char)text[i] < ' ' || text[i] == '=' || text[i] == 0x7f)
            return false;
    return true;
}

bool is_value(const char *text, size_t length) {
    return !has_blank_ends(text, length) && memchr(text, '\n', length) == NULL && memchr(text, '\0', length) == NULL;
}

// No file, no section in it and no key in that are one and the same to a client.
static bool is_missing(int32_t result) {
    return result == -ENOENT || result == -ENOANO || result == -ENODATA;
}

static enum Status failed(const Store *store, const char *what, int32_t result) {
    Simp_Log_Write(g_ptslLog, "can't %s of %s! (%d)", what, store->path, result);
    return kFailed;
}

enum Status store_get(const Store *store, const char *key, char *value, int32_t *size) {
    const int32_t result = Get_Conf_File_String_Value(store->path, kSection, key, value, size);
    if (result == 0)
        return kDone;
    if (is_missing(result))
        return kNoKey;
    return result == -EOVERFLOW ? kTooLong : failed(store, "read a key", result);
}

enum Status store_set(Store *store, const char *key, const char *value) {
    // The file's lock, which the call takes, keeps other processes out as well as other threads. But it is asked for
    // once a millisecond, and for ten seconds at most: where many threads of one process change a file, a mutex in
    // front of it hands the turn on at once, and lets nobody wait in vain.
    pthread_mutex_lock(&store->changing);
    const int32_t result = Set_Conf_File_String_Value(store->path, kSection, key, value);
    pthread_mutex_unlock(&store->changing);

    if (result == -ENOLCK)
        return kBusy;
    if (value == NULL && is_missing(result))
        return kNoKey;
    if (result != 0)
        return failed(store, value != NULL ? "set a key" : "remove a key", result);

    Simp_Log_Write(g_ptslLog, "%s %s", value != NULL ? "set" : "unset", key);
    return kDone;
}

static size_t size_of_lines(const Pair_Node *pairs) {
    size_t size = 0;
    for (const Pair_Node *pair = pairs; pair != NULL; pair = pair->pNext)
        size += strlen(pair->szKey) + 1 + strlen(pair->pszValue) + 1;
    return size;
}

// `lines` has room for all of them and a NUL.
static void put_lines(const Pair_Node *pairs, char *lines) {
    for (const Pair_Node *pair = pairs; pair != NULL; pair = pair->pNext) {
        lines = stpcpy(lines, pair->szKey);
        *lines++ = '=';
        lines = stpcpy(lines, pair->pszValue);
        *lines++ = '\n';
    }
}

static enum Status list_pairs(const Pair_Node *pairs, char **lines, uint32_t *length) {
    const size_t size = size_of_lines(pairs);
    if (size > kMaxAnswer)
        return kTooLong;

    char *text = TRACED_ALLOC(size + 1);
    if (text == NULL)
        return kFailed;

    put_lines(pairs, text);
    *lines = text;
    *length = (uint32_t)size;
    return kDone;
}

enum Status store_list(const Store *store, char **lines, uint32_t *length) {
    *lines = NULL;
    *length = 0;
    Sect_Node *section = NULL;
    const int32_t result = Get_Conf_File_Section(store->path, kSection, &section);
    if (is_missing(result))
        return kDone;
    if (result < 0)
        return failed(store, "read the section", result);

    const enum Status status = list_pairs(section->pPairs, lines, length);
    Free_Sect_Node(section);
    return status;
}
