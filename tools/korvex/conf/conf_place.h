// Where in a configuration a command works, and what to say when it is not there.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "cli.h"
#include "conffile.h"

namespace korvex::cli {

struct ConfPlace {
    std::string file;
    std::string section = {};  // empty for the global section
    std::string key = {};
};

struct FreeSections {
    void operator()(Sect_Node *sections) const { Free_Sect_Node(sections); }
};
using SectionList = std::unique_ptr<Sect_Node, FreeSections>;

// The failure that a negated errno of the library's configuration calls stands for.
Failure conf_failure(const ConfPlace &place, int32_t code);

// The same for a call that makes a missing file: where that is not found, the folder is missing.
Failure conf_write_failure(const ConfPlace &place, int32_t code);

SectionList fetch_section(const ConfPlace &place);

// A name that would not be read back as it was written is wrong usage.
void require_section_name(const std::string &section);
void require_pair(const std::string &key, const std::string &value);

}  // namespace korvex::cli
