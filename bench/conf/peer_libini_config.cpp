// libini_config keeps comments and the order of what it reads. It writes over the file, so its text is taken, and written
// and renamed here.
#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <memory>

// Its headers know neither C++ nor each other.
extern "C" {
// clang-format off
#include <collection.h>
#include <ini_configobj.h>
#include <ini_configmod.h>
#include <simplebuffer.h>
// clang-format on
}

#include "freer.h"
#include "peers.h"

namespace bench {
namespace {

using Conf = std::unique_ptr<ini_cfgobj, Freer<ini_config_destroy>>;
using Text = std::unique_ptr<simplebuffer, Freer<simplebuffer_free>>;

Conf load(const char *path) {
    ini_cfgobj *conf = nullptr;
    ini_cfgfile *file = nullptr;
    if (ini_config_create(&conf) != 0 || ini_config_file_open(path, 0, &file) != 0)
        return Conf(conf);
    (void)ini_config_parse(file, INI_STOP_ON_ANY, INI_MV1S_ALLOW | INI_MV2S_ALLOW, 0, conf);
    ini_config_file_destroy(file);
    return Conf(conf);
}

// Where a line that is written would be broken: no value is as long.
constexpr int kWrap = 1'000;

void parse(const char *path) {
    load(path);
}

std::optional<std::string> get(const char *path, const char *section, const char *key) {
    const Conf conf = load(path);
    value_obj *value = nullptr;
    if (ini_get_config_valueobj(section, key, conf.get(), INI_GET_FIRST_VALUE, &value) != 0 || value == nullptr)
        return std::nullopt;
    int error = 0;
    const char *text = ini_get_const_string_config_value(value, &error);
    return text == nullptr ? std::nullopt : std::optional<std::string>(text);
}

bool write_text(const char *path, simplebuffer *text) {
    const int file = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    const auto length = static_cast<ssize_t>(simplebuffer_get_len(text));
    const bool written = file >= 0 && write(file, simplebuffer_get_buf(text), static_cast<size_t>(length)) == length;
    return close(file) == 0 && written;
}

bool set(const char *path, const char *section, const char *key, const char *value) {
    const Conf conf = load(path);
    simplebuffer *buffer = nullptr;
    if (simplebuffer_alloc(&buffer) != 0)
        return false;
    const Text text(buffer);
    const std::string temporary = std::string(path) + ".tmp";
    return ini_config_add_str_value(conf.get(), section, key, value, nullptr, 0, kWrap, COL_DSP_END, nullptr, 0,
                                    INI_VA_MODADD) == 0 &&
           ini_config_serialize(conf.get(), buffer) == 0 && write_text(temporary.c_str(), buffer) &&
           std::rename(temporary.c_str(), path) == 0;
}

Peer peer{.name = "libini_config", .stores = true, .parse = parse, .get = get, .set = set};
const bool added = add_peer(peer);

}  // namespace
}  // namespace bench
