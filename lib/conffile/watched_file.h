// A configuration file of which many keys are read in a row. The only header of this module that another one includes: the
// list of shares asks for two keys of each share in one large file.
#pragma once

#include <sys/stat.h>

#include <cstdint>

#include "file_text.h"
#include "section_index.h"

namespace korvex::conffile {

class WatchedFile final {
  public:
    // The path outlives this.
    explicit WatchedFile(const char *path) : path_(path) {}

    // As Get_Conf_File_String_Value in everything that a caller can observe, its messages included. But the file is only
    // looked at where it is the one that was read last, and its sections are found without reading through the text.
    [[nodiscard]] int32_t get(const char *section, const char *key, char *buffer, int32_t *size);

  private:
    [[nodiscard]] int32_t read_again(const struct stat &now);

    const char *path_;
    FileText text_;
    SectionIndex sections_;
    bool is_known_ = false;  // whether the text is that of `known_`
    struct stat known_ {};
};

}  // namespace korvex::conffile
