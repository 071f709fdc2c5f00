// Catches the library's own messages.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "simplog.h"

namespace support {

// Leads the library's messages into memory for as long as the object lives.
class LogCapture {
  public:
    // The level: 1 catches errors, 3 debug messages, too.
    explicit LogCapture(int32_t level = 3);
    ~LogCapture();
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    // The messages so far, each with its final newline and without its stamp. The source line, which no test can
    // know, is checked to be a number and replaced: "[error] Simp_Log_Open(#): Can't open ...\n".
    std::vector<std::string> messages();
    // Forgets the messages so far.
    void clear();

  private:
    char *text_ = nullptr;
    size_t size_ = 0;
    size_t begin_ = 0;
    FILE *stream_ = nullptr;
    Simp_Log *log_ = nullptr;
    Simp_Log *outer_log_;
    int32_t outer_level_;
};

}  // namespace support
