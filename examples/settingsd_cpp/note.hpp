// Lines for the log.
#pragma once

#include <exception>
#include <korvex/log.hpp>
#include <string_view>

// Where a line can't be written the daemon goes on: a full disk must not end its service.
inline void note(korvex::log &log, std::string_view line) noexcept try {
    log.write(line);
} catch (const std::exception &) {}
