// What may stand for an option or a word, by the name that its description gives it.
#pragma once

#include <CLI/CLI.hpp>
#include <map>
#include <string>

#include "completion/candidates.h"

namespace korvex::cli::completion {

// What the line says so far.
struct Given {
    std::map<std::string, std::string> words = {};  // in the fixed places, by their names
    std::string section = {};
    bool dashes = false;      // "--" is behind us
    bool on_unix = false;     // --unix: the one word in a fixed place is a file
    bool in_command = false;  // the command of 'korvex lock' has begun
};

bool takes_value(const CLI::Option &option);
// "--section"; the short name where there is no long one, the name of a word in a fixed place where there is neither.
std::string name_of(const CLI::Option &option);
// "FILE", "TEXT": what --help shows for its value; empty where that is nothing.
std::string value_name(const CLI::Option &option);

Candidates values_of(const CLI::Option &option, const Given &given);

}  // namespace korvex::cli::completion
