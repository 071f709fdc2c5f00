// korvex conf check: finds the lines that the library's parser skips.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "commands/commands.h"
#include "conf/conf_failure.h"
#include "conf/conf_text.h"
#include "conffile.h"
#include "output/shown_name.h"

namespace korvex::cli {
namespace {

struct CheckArguments {
    std::string file;
};

int run_check(const CheckArguments &arguments) {
    char *cache = nullptr;
    const int32_t size = Cache_Conf_File(arguments.file.c_str(), &cache);
    if (size < 0)
        throw reading_failure(arguments.file, error(-size, "can't read", arguments.file));
    const std::unique_ptr<char, void (*)(void *)> owner(cache, std::free);

    int exit_status = kSuccess;
    for (const Line &line : classified_lines({cache, static_cast<size_t>(size)})) {
        const char *const what = fault(line.kind);
        if (what == nullptr)
            continue;
        std::printf("%s:%zu: %s: %s\n", shown(arguments.file).c_str(), line.number, what, shown(line.text).c_str());
        exit_status = kNegativeAnswer;
    }
    return exit_status;
}

}  // namespace

void add_conf_check_command(CLI::App &conf, Session &session) {
    auto [command, arguments] =
        add_command(conf, session,
                    {"check", "Report each line that is no comment, no section header and no pair",
                     "Prints FILE:LINE: TEXT for each bad line; exit status 1 if there is one.\n\n"
                     "Example:\n  korvex conf check /etc/config/share.conf"},
                    run_check);
    add_file(command, arguments.file, "The configuration file");
}

}  // namespace korvex::cli
