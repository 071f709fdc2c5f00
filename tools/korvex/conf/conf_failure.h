// What the commands say when something is not there, or can't be done.
#pragma once

#include <string>

#include "cli.h"
#include "conf/conf_place.h"
#include "korvex/conf.hpp"
#include "korvex/error.hpp"

namespace korvex::cli {

// A file that is not there, or whose folder is not; which one is said.
Failure missing_file(const std::string &file, int exit_status = kNegativeAnswer);

// A section or a key that a document has not, with the section that may have been meant.
Failure missing_section(const ConfPlace &place, const conf::document &document);
Failure missing_key(const ConfPlace &place, const conf::document &document);

// "section 'attic'", or what stands for the one without a name.
std::string section_text(const std::string &section);

// What the C++ layer reports about a file, in the tool's words and with its exit status.
Failure conf_failure(const std::string &file, const error &failure);

// The same of a file that is only read: one that is missing is "not found".
Failure reading_failure(const std::string &file, const error &failure);

// A whole file; its failures are the tool's.
conf::document read_document(const std::string &file);

}  // namespace korvex::cli
