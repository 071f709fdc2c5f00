// A change of a configuration file, as one step.
#pragma once

#include <functional>
#include <string>

#include "cli.h"
#include "korvex/conf.hpp"

namespace korvex::cli {

// How the change is made; the options of all commands that change a file.
struct ChangeOptions {
    bool dry_run = false;
    bool no_sync = false;
    std::string backup;  // the suffix of the old file's other name; empty for none
};

void add_change_options(CLI::App &command, ChangeOptions &options);

// Makes the edits under the file's lock and puts the new text in place, or, for a dry run, prints what would change.
// Whatever `edit` throws leaves the file as it is. SIGINT, SIGTERM and SIGHUP end the wait for the lock, and take effect
// up to the moment at which the new file is put in place: the exit status is 128 plus the signal's number then, and
// nothing is left behind.
void change_conf(const std::string &file, const ChangeOptions &options,
                 const std::function<void(conf::transaction &)> &edit);

// Where a change must find a file: throws where there is none.
void require_file(const std::string &file);

}  // namespace korvex::cli
