// Handles of the library's log facility, owned.
#pragma once

#include <memory>
#include <string>

#include "simplog.h"

namespace korvex::cli {

struct ReleaseLog {
    void operator()(Simp_Log *log) const { Simp_Log_Release(log); }
};
using LogHandle = std::unique_ptr<Simp_Log, ReleaseLog>;

// Opens a log for appending, and makes it and the folders above it if need be. Throws a Failure.
LogHandle open_log(const std::string &file, int clock, int date_format);

// The library's own messages: silent until they are shown, and silent again when the object goes.
class LibraryMessages {
  public:
    LibraryMessages() = default;
    ~LibraryMessages();
    LibraryMessages(const LibraryMessages &) = delete;
    LibraryMessages &operator=(const LibraryMessages &) = delete;

    // An empty name stands for standard error. A message stays one line, whatever names it quotes: see shown_name.h.
    void show(const std::string &file);

  private:
    LogHandle log_;
};

}  // namespace korvex::cli
