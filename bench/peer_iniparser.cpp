#include <iniparser.h>

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

Peer peer{"iniparser", true, parse, get};
const bool added = add_peer(peer);

}  // namespace
}  // namespace bench
