#include <glib.h>

#include "peers.h"

namespace bench {
namespace {

void parse(const char *path) {
    GKeyFile *conf = g_key_file_new();
    g_key_file_load_from_file(conf, path, G_KEY_FILE_NONE, nullptr);
    g_key_file_free(conf);
}

std::optional<std::string> get(const char *path, const char *section, const char *key) {
    GKeyFile *conf = g_key_file_new();
    g_key_file_load_from_file(conf, path, G_KEY_FILE_NONE, nullptr);
    gchar *value = g_key_file_get_value(conf, section, key, nullptr);
    std::optional<std::string> found;
    if (value != nullptr)
        found = value;
    g_free(value);
    g_key_file_free(conf);
    return found;
}

// By a new file and a rename, as GLib writes all files. It keeps comments.
bool set(const char *path, const char *section, const char *key, const char *value) {
    GKeyFile *conf = g_key_file_new();
    const bool read = g_key_file_load_from_file(conf, path, G_KEY_FILE_KEEP_COMMENTS, nullptr) != FALSE;
    g_key_file_set_value(conf, section, key, value);
    const bool written = read && g_key_file_save_to_file(conf, path, nullptr) != FALSE;
    g_key_file_free(conf);
    return written;
}

Peer peer{.name = "GKeyFile", .stores = true, .parse = parse, .get = get, .set = set};
const bool added = add_peer(peer);

}  // namespace
}  // namespace bench
