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

Peer peer{"GKeyFile", true, parse, get};
const bool added = add_peer(peer);

}  // namespace
}  // namespace bench
