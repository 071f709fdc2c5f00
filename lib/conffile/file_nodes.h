// A file's nodes while they are changed: read from it, and written back as a whole.
#pragma once

#include <cerrno>
#include <cstdint>

#include "base/message.h"
#include "file_place.h"
#include "nodes.h"
#include "permissions.h"

namespace korvex::conffile {

// As Read_Conf_File, with its messages, for who is to replace the file: see read_text_to_change.
[[nodiscard]] int32_t read_to_change(const FilePlace &place, Sect_Node **conf, Permissions *permissions);

// As Update_Conf_File, with its messages. `permissions` has what was seen of the old file so far.
[[nodiscard]] int32_t update_file(const FilePlace &place, const Sect_Node *conf, Permissions permissions);

class FileNodes final {
  public:
    // Failures are reported as messages of `function`.
    FileNodes(const char *path, const char *function) : place_(path), function_(function) {}
    ~FileNodes() { Free_Sect_Node(head); }
    FileNodes(const FileNodes &) = delete;
    FileNodes &operator=(const FileNodes &) = delete;

    // 0, or the code of Read_Conf_File.
    [[nodiscard]] int32_t read() { return report_unread(read_quietly()); }

    // The same, but a missing file counts as an empty one.
    [[nodiscard]] int32_t read_or_begin() {
        const int32_t result = read_quietly();
        missing_ = result == -ENOENT;
        return missing_ ? 0 : report_unread(result);
    }

    [[nodiscard]] int32_t write() const {
        const int32_t result = update_file(place_, head, permissions_);
        if (result < 0)
            LOG_DEBUG_AS(function_, "Can't update the conf file \"%s\" error! (%d)\n", place_.path(), result);
        return result;
    }

    bool missing() const { return missing_; }

    Sect_Node *head = nullptr;

  private:
    int32_t read_quietly() {
        const int32_t result = read_to_change(place_, &head, &permissions_);
        return result < 0 ? result : 0;
    }

    int32_t report_unread(int32_t result) const {
        if (result < 0)
            LOG_DEBUG_AS(function_, "Can't parse the conf file %s error! (%d)\n", place_.path(), result);
        return result;
    }

    const FilePlace place_;
    Permissions permissions_;
    const char *function_;
    bool missing_ = false;
};

}  // namespace korvex::conffile
