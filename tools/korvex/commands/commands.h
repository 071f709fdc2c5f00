// The families of commands; main has the table of them. Each function adds its family to the program.
#pragma once

#include "cli.h"

namespace korvex::cli {

void add_conf_commands(CLI::App &program, Session &session);
void add_conf_get_command(CLI::App &conf, Session &session);
void add_conf_set_commands(CLI::App &conf, Session &session);
void add_conf_list_commands(CLI::App &conf, Session &session);
void add_conf_diff_command(CLI::App &conf, Session &session);
void add_conf_section_commands(CLI::App &conf, Session &session);
void add_conf_check_command(CLI::App &conf, Session &session);
void add_lock_command(CLI::App &program, Session &session);
void add_log_command(CLI::App &program, Session &session);
void add_cp_command(CLI::App &program, Session &session);
void add_doctor_command(CLI::App &program, Session &session);
void add_du_command(CLI::App &program, Session &session);
void add_mounts_command(CLI::App &program, Session &session);
void add_net_commands(CLI::App &program, Session &session);
void add_ps_command(CLI::App &program, Session &session);
void add_recv_command(CLI::App &program, Session &session);
void add_rm_command(CLI::App &program, Session &session);
void add_send_command(CLI::App &program, Session &session);
void add_shares_command(CLI::App &program, Session &session);
void add_snapshot_commands(CLI::App &program, Session &session);
void add_temp_command(CLI::App &program, Session &session);
void add_units_commands(CLI::App &program, Session &session);
void add_volume_command(CLI::App &program, Session &session);
void add_blocks_command(CLI::App &program, Session &session);

}  // namespace korvex::cli
