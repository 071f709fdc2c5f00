// The one way in which the library reports something: LOG_ERROR and LOG_DEBUG, with a literal format.
//
// A message names the exported function that the user called, or one that this one used, and the source line. Code that
// serves several exported functions is handed the name of the one it works for, and uses the _AS forms. The arguments
// are evaluated only when the message is wanted, and `errno` stays as it was.
#pragma once

#include <cstdint>

#include "base/handles.h"
#include "simplog.h"

namespace korvex {

constexpr int32_t kErrorLevel = 1;
constexpr int32_t kDebugLevel = 3;

inline bool is_logged(int32_t level) {
    return g_ptslLog != nullptr && g_idLogLevel >= level;
}

}  // namespace korvex

// One expression; the keeper in it lives until the line is written.
#define KORVEX_MESSAGE(level, tag, function, format, ...) \
    (void)(::korvex::is_logged(level) &&                  \
           (::korvex::ErrnoKeeper(),                      \
            Simp_Log_Write(g_ptslLog, tag "%s(%d): " format, function, __LINE__ __VA_OPT__(, __VA_ARGS__))))

#define LOG_ERROR_AS(function, ...) KORVEX_MESSAGE(::korvex::kErrorLevel, "[error] ", function, __VA_ARGS__)
#define LOG_DEBUG_AS(function, ...) KORVEX_MESSAGE(::korvex::kDebugLevel, "[debug] ", function, __VA_ARGS__)
#define LOG_ERROR(...) LOG_ERROR_AS(__func__, __VA_ARGS__)
#define LOG_DEBUG(...) LOG_DEBUG_AS(__func__, __VA_ARGS__)
