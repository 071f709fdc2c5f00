// korvex conf: the group of commands for configuration files.
#include "commands/commands.h"

namespace korvex::cli {

constexpr const char *kConfDetails = R"(Example:
  korvex conf get /etc/config/share.conf workgroup -s global)";

void add_conf_commands(CLI::App &program, Session &session) {
    CLI::App &conf = add_group(program, {"conf", "Read, change and check configuration files", kConfDetails});
    conf.require_subcommand(1);
    add_conf_get_command(conf, session);
    add_conf_set_commands(conf, session);
    add_conf_list_commands(conf, session);
    add_conf_section_commands(conf, session);
    add_conf_check_command(conf, session);
    add_conf_diff_command(conf, session);
}

}  // namespace korvex::cli
