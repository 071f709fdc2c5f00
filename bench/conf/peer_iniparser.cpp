#include <iniparser.h>

#include <cstdio>

#include "peers.h"

namespace bench {
namespace {

void parse(const char *path) {
    iniparser_freedict(iniparser_load(path));
}

std::optional<std::string> get(const char *path, const char *section, const char *key) {
    dictionary *conf = iniparser_load(path);
    const std::string name = std::string(section) + ":" + key;
    const char *value = iniparser_getstring(conf, name.c_str(), nullptr);
    std::optional<std::string> found;
    if (value != nullptr)
        found = value;
    iniparser_freedict(conf);
    return found;
}

// Comments are lost.
bool set(const char *path, const char *section, const char *key, const char *value) {
    const std::string temporary = std::string(path) + ".tmp";
    dictionary *conf = iniparser_load(path);
    FILE *file = std::fopen(temporary.c_str(), "w");
    const bool changed = iniparser_set(conf, (std::string(section) + ":" + key).c_str(), value) == 0;
    iniparser_dump_ini(conf, file);
    iniparser_freedict(conf);
    return std::fclose(file) == 0 && changed && std::rename(temporary.c_str(), path) == 0;
}

Peer peer{.name = "iniparser", .stores = true, .parse = parse, .get = get, .set = set};
const bool added = add_peer(peer);

}  // namespace
}  // namespace bench
