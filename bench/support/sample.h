// The configuration that the benchmarks read and edit.
#pragma once

#include <cstddef>
#include <string>

namespace bench {

// Names and values of the generated text: "section NN" is "sectNN", its keys "keyNN".
std::string section_name(size_t number);
std::string key_name(size_t number);
std::string value_of(size_t section, size_t key);

// A text as an appliance has them: sections with a comment and an empty line each, and values of mixed kinds and
// lengths. It keeps to what all peers read alike: lower case, "#" comments at the start of a line, no global section.
std::string sample_text(size_t sections, size_t keys_per_section);

}  // namespace bench
