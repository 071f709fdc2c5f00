// The settings themselves: the pairs of one section of a configuration file.
//
// The file stays an ordinary one: people may edit it, and other programs change it with the same library, while the
// daemon runs. Nothing is kept in memory.
#pragma once

#include <korvex/conf.hpp>
#include <korvex/log.hpp>
#include <mutex>
#include <string>
#include <string_view>

#include "connection.hpp"

// Any thread may ask.
class settings {
  public:
    settings(std::string path, korvex::log &log) : path_(std::move(path)), log_(log) {}

    // Does what is asked for. Failures are answers, too; the log tells their reasons.
    answer answer_to(const request &asked);

  private:
    answer get(std::string_view key) const;
    answer set(std::string_view pair);
    answer unset(std::string_view key);
    answer list() const;

    std::string path_;
    korvex::log &log_;
    std::mutex changing_;
};
