// SimpleIni keeps comments and the order of what it reads. It writes over the file, so the rename is made here.
#include <cstdio>
#include <string>

// Texts stay as they are: no conversion of characters takes part.
#define SI_NO_CONVERSION
#include <SimpleIni.h>

#include "peers.h"

namespace bench {
namespace {

void parse(const char *path) {
    CSimpleIniCaseA conf;
    conf.LoadFile(path);
}

std::optional<std::string> get(const char *path, const char *section, const char *key) {
    CSimpleIniCaseA conf;
    conf.LoadFile(path);
    const char *value = conf.GetValue(section, key);
    return value == nullptr ? std::nullopt : std::optional<std::string>(value);
}

bool set(const char *path, const char *section, const char *key, const char *value) {
    const std::string temporary = std::string(path) + ".tmp";
    CSimpleIniCaseA conf;
    return conf.LoadFile(path) == SI_OK && conf.SetValue(section, key, value) >= 0 &&
           conf.SaveFile(temporary.c_str(), false) == SI_OK && std::rename(temporary.c_str(), path) == 0;
}

Peer peer{.name = "SimpleIni", .stores = true, .parse = parse, .get = get, .set = set};
const bool added = add_peer(peer);

}  // namespace
}  // namespace bench
