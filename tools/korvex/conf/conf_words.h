// Words and options that several commands for configuration files take.
#pragma once

#include <optional>
#include <string>

#include "cli.h"
#include "conf/conf_place.h"

namespace korvex::cli {

// FILE and --section.
void add_place(CLI::App &command, ConfPlace &place);
// KEY, behind FILE.
void add_key(CLI::App &command, ConfPlace &place);
void add_ignore_case(CLI::App &command, bool &ignore_case);
// An option whose text may be empty, which is not the same as absent.
CLI::Option &add_optional(CLI::App &command, const char *name, std::optional<std::string> &text, const char *summary);

}  // namespace korvex::cli
