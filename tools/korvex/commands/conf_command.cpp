// korvex conf get, set, unset, list: keys of a configuration file.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "commands/commands.h"
#include "conf/conf_place.h"
#include "conffile.h"
#include "files/descriptor.h"
#include "files/lock_umask.h"
#include "miscfunc.h"
#include "output/table.h"

namespace korvex::cli {
namespace {

// --- get ---

struct GetArguments {
    ConfPlace place;
    std::optional<std::string> fallback;
    std::string type = "string";
};

std::string read_value(const ConfPlace &place) {
    std::string value(256, '\0');
    for (;;) {
        auto size = static_cast<int32_t>(value.size());
        const int32_t code = Get_Conf_File_String_Value(place.file.c_str(), place.section.c_str(), place.key.c_str(),
                                                        value.data(), &size);
        const auto length = static_cast<size_t>(size);
        if (code == 0) {
            value.resize(length);
            return value;
        }
        if (code != -EOVERFLOW)
            throw conf_failure(place, code);
        value.resize(length + 1);
    }
}

std::string integer_text(const ConfPlace &place, const std::string &value) {
    int64_t number = 0;
    const size_t sign = value.size() > 1 && value[0] == '+' && value[1] != '-' ? 1 : 0;
    const char *const end = value.data() + value.size();
    const auto [stop, error] = std::from_chars(value.data() + sign, end, number);
    if (error != std::errc() || stop != end)
        throw Failure(kFailure, place.file + ": not an integer: key '" + place.key + "' is '" + value + "'");
    return std::to_string(number);
}

std::string bool_text(const std::string &value) {
    // The NUL is compared, too: without it "t" and the empty text would count as true.
    return Str_To_Bool(value.c_str(), static_cast<int32_t>(value.size()) + 1) == 1 ? "true" : "false";
}

std::string typed_value(const GetArguments &arguments) {
    const std::string value = read_value(arguments.place);
    if (arguments.type == "int")
        return integer_text(arguments.place, value);
    return arguments.type == "bool" ? bool_text(value) : value;
}

int run_get(const GetArguments &arguments) {
    std::string text;
    try {
        text = typed_value(arguments);
    } catch (const Failure &failure) {
        if (failure.exit_status() != kNotFound || !arguments.fallback)
            throw;
        text = *arguments.fallback;
    }
    std::printf("%s\n", text.c_str());
    return kSuccess;
}

// --- set and unset ---

struct SetArguments {
    ConfPlace place;
    std::string value;
};

// A file that the library makes for a key of the global section begins with "[]", behind which no reader looks for
// that section. An empty file gets the key at its start.
void make_file(const std::string &file) {
    const int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd >= 0)
        close(fd);
}

bool is_missing(const std::string &file) {
    struct stat status {};
    return lstat(file.c_str(), &status) != 0 && errno == ENOENT;
}

// The bits of a new file that the umask of the lock has taken away.
void give_bits_back(const std::string &file, mode_t umask) {
    const Descriptor made(open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | O_NOFOLLOW));
    struct stat status {};
    const mode_t wanted = 0666 & ~umask;
    if (fstat(made.get(), &status) == 0 && S_ISREG(status.st_mode) && status.st_uid == geteuid() &&
        (status.st_mode & 07777) == (wanted & ~mode_t{S_IWGRP | S_IWOTH}))
        (void)fchmod(made.get(), wanted);
}

// The library makes the lock within the call, and maybe the file.
int32_t set_value(const ConfPlace &place, const char *value) {
    const bool is_new = is_missing(place.file);
    const LockUmask umask;
    const int32_t code =
        Set_Conf_File_String_Value(place.file.c_str(), place.section.c_str(), place.key.c_str(), value);
    if (is_new && code == 0)
        give_bits_back(place.file, umask.before());
    return code;
}

int run_set(const SetArguments &arguments) {
    const auto &[file, section, key] = arguments.place;
    require_section_name(section);
    require_pair(key, arguments.value);
    if (section.empty())
        make_file(file);
    const int32_t code = set_value(arguments.place, arguments.value.c_str());
    if (code != 0)
        throw conf_write_failure(arguments.place, code);
    return kSuccess;
}

int run_unset(const ConfPlace &place) {
    const int32_t code = set_value(place, nullptr);
    if (code == -ENOENT)
        throw conf_failure(place, code);
    if (code != 0)
        throw conf_write_failure(place, code);
    return kSuccess;
}

// --- list ---

struct ListArguments {
    std::string file;
    std::optional<std::string> section;
    bool json = false;
};

SectionList read_sections(const ListArguments &arguments) {
    const std::string &file = arguments.file;
    if (arguments.section)
        return fetch_section({.file = file, .section = *arguments.section});

    Sect_Node *sections = nullptr;
    const int32_t code = Read_Conf_File(file.c_str(), &sections);
    if (code < 0)
        throw conf_failure({.file = file}, code);
    return SectionList(sections);
}

void print_text(const Sect_Node *sections) {
    for (const Sect_Node *section = sections; section != nullptr; section = section->pNext) {
        if (section != sections)
            std::printf("\n");
        // Only the first section can be the global one; a later one of no name has its "[]" in the file.
        if (section->szName[0] != '\0' || section != sections)
            std::printf("[%s]\n", section->szName);
        Write_Pair_Node(stdout, section->pPairs);
    }
}

Json json_pairs(const Pair_Node *pairs) {
    Json list = Json::array();
    for (const Pair_Node *pair = pairs; pair != nullptr; pair = pair->pNext) {
        Json &object = list.emplace_back(Json::object());
        object["key"] = std::string(pair->szKey);
        object["value"] = std::string(pair->pszValue);
    }
    return list;
}

void print_sections_json(const Sect_Node *sections) {
    Json list = Json::array();
    for (const Sect_Node *section = sections; section != nullptr; section = section->pNext) {
        Json &object = list.emplace_back(Json::object());
        object["section"] = std::string(section->szName);
        object["pairs"] = json_pairs(section->pPairs);
    }
    print_json(list);
}

int run_list(const ListArguments &arguments) {
    const SectionList sections = read_sections(arguments);
    if (arguments.json)
        print_sections_json(sections.get());
    else
        print_text(sections.get());
    return kSuccess;
}

// --- the words of the commands ---

constexpr const char *kConfDetails = R"(Example:
  korvex conf get /etc/config/share.conf workgroup -s global)";

constexpr const char *kGetDetails =
    R"(A file, section or key that is not there: exit status 1, or the text of --default as it stands.
  int   prints the number; a value that is not a whole number of 64 bits is a failure
  bool  prints true for TRUE in any case, false for everything else

Example:
  korvex conf get /etc/config/share.conf 'max connections' -s attic --type int --default 0)";

constexpr const char *kSetDetails =
    R"(The key's line becomes "KEY = VALUE"; every other byte of the file stays. A missing key, section or
file is added. A VALUE that begins with a dash goes behind "--". Blanks around it are not read back.

Example:
  korvex conf set /etc/config/share.conf 'read only' yes -s attic)";

constexpr const char *kUnsetDetails =
    R"(Removes the line of the first key of that name; every other byte of the file stays.

Example:
  korvex conf unset /etc/config/share.conf 'max connections' -s attic)";

constexpr const char *kListDetails = R"(Bad lines are left out; 'korvex conf check' reports them.
--json prints [{"section": NAME, "pairs": [{"key": KEY, "value": VALUE}]}], in the order of the file;
bytes that are not UTF-8 are replaced.

Example:
  korvex conf list /etc/config/share.conf --json)";

void add_key_words(CLI::App &command, ConfPlace &place) {
    add_file(command, place.file, "The configuration file");
    add_text(command, "KEY", place.key, "The key").required();
    add_text(command, "-s,--section", place.section, "Section of the key; without it, the global one");
}

void add_optional(CLI::App &command, const char *name, std::optional<std::string> &text, const char *summary) {
    command
        .add_option_function<std::string>(
            name, [&text](const std::string &word) { text = word; }, summary)
        ->transform(unquote_word);
}

}  // namespace

void add_conf_commands(CLI::App &program, Session &session) {
    CLI::App &conf = add_group(program, {"conf", "Read, change and check configuration files", kConfDetails});
    conf.require_subcommand(1);

    auto [get, get_arguments] = add_command(conf, session, {"get", "Print a key's value", kGetDetails}, run_get);
    add_key_words(get, get_arguments.place);
    add_optional(get, "--default", get_arguments.fallback, "Printed where the file, section or key is not there");
    get.add_option("--type", get_arguments.type, "string, int or bool")
        ->check(CLI::IsMember({"string", "int", "bool"}))
        ->capture_default_str();

    auto [set, set_arguments] = add_command(conf, session, {"set", "Set or add a key", kSetDetails}, run_set);
    add_key_words(set, set_arguments.place);
    add_text(set, "VALUE", set_arguments.value, "The new value; may be empty").required();

    auto [unset, unset_place] = add_command(conf, session, {"unset", "Remove a key", kUnsetDetails}, run_unset);
    add_key_words(unset, unset_place);

    auto [list, list_arguments] =
        add_command(conf, session, {"list", "Print all sections and pairs", kListDetails}, run_list);
    add_file(list, list_arguments.file, "The configuration file");
    add_optional(list, "-s,--section", list_arguments.section, "Only the first section of this name");
    list.add_flag("--json", list_arguments.json, "Print JSON");

    add_conf_section_commands(conf, session);
    add_conf_check_command(conf, session);
}

}  // namespace korvex::cli
