// The block-identification tool of the appliance.
#pragma once

#include <array>
#include <cstdio>

#include "base/handles.h"

namespace korvex::sysinfo {

// Its output, in pieces of at most 255 bytes: a longer line comes as several.
class BlockTool final {
  public:
    // The file that takes the errors is the appliance's own, with its capitals.
    [[nodiscard]] bool start() {
        output_.reset(popen("/usr/local/sbin/blkid 2>/dev/NULL", "re"));
        return output_ != nullptr;
    }

    [[nodiscard]] bool next() {
        return std::fgets(line_.data(), static_cast<int>(line_.size()), output_.get()) != nullptr;
    }
    const char *line() const { return line_.data(); }

  private:
    UniquePipe output_;
    std::array<char, 256> line_;
};

}  // namespace korvex::sysinfo
