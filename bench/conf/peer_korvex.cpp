#include "conffile.h"
#include "peers.h"

namespace bench {
namespace {

void parse(const char *path) {
    Sect_Node *conf = nullptr;
    Read_Conf_File(path, &conf);
    Free_Sect_Node(conf);
}

std::optional<std::string> get(const char *path, const char *section, const char *key) {
    char value[256];
    int32_t size = sizeof value;
    if (Get_Conf_File_String_Value(path, section, key, value, &size) != 0)
        return std::nullopt;
    return std::string(value, static_cast<size_t>(size));
}

bool set(const char *path, const char *section, const char *key, const char *value) {
    return Set_Conf_File_String_Value(path, section, key, value) == 0;
}

Peer peer{.name = "korvex", .stores = true, .parse = parse, .get = get, .set = set};
const bool added = add_peer(peer);

}  // namespace
}  // namespace bench
