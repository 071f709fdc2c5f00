// The library's messages, caught where they are logged, and what is documented of them.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "simplog.h"

namespace faults {

// The level of a message, or of a run. `none` is a run of a host without a log.
enum class Level { none = 0, error = 1, debug = 3 };

// A documented message of an exported function. Its format is what follows "[error] %s(%d): ", the function's name and
// the source line.
struct Message {
    // How a message shows the failure's code.
    enum class Code { negated_errno, plain_errno };

    const char *function;
    Level level;
    const char *format;
    int code_place = 0;  // of the value that shows the code, from 1; 0: none does
    Code code = Code::negated_errno;

    // With what comes before: the level, the function, and a place for the source line.
    std::string full_format() const;
    // The same message with any code: it shows another one than the failure's.
    Message with_any_code() const { return {function, level, format, 0}; }
};

// A message as it was logged.
struct Said {
    std::string text;

    // The values with which the documented format gives this text, byte for byte: the source line, then the message's own,
    // 0 for one that is no number. Nothing where it is another message. The library may well share a format that it fills
    // in: what counts is what a reader of the log sees.
    std::optional<std::vector<int64_t>> values_of(const Message &message) const;
    bool is(const Message &message) const { return values_of(message).has_value(); }
};

// Catches what is logged through `g_ptslLog` for as long as it lives.
class MessageLog {
  public:
    explicit MessageLog(Level level);
    ~MessageLog();
    MessageLog(const MessageLog &) = delete;
    MessageLog &operator=(const MessageLog &) = delete;

    const std::vector<Said> &said() const { return said_; }

    // For the stand-in of Simp_Log_Write.
    static bool catches(const Simp_Log *log);
    static void take(const char *format, va_list arguments);

  private:
    std::vector<Said> said_;
    Simp_Log *log_;  // never written to
    Simp_Log *outer_log_;
    int32_t outer_level_;
};

// The library's own writer of log lines; a call by its name arrives at the stand-in.
using LogWriter = int32_t (*)(Simp_Log *, const char *, ...);
LogWriter library_log_writer();

}  // namespace faults
