// Host names that a test needs besides "localhost".
#pragma once

#include <string>

#include "sandbox.h"

namespace socket_test {

// Shows its own /etc/hosts, which is the only source of names in a test program, for as long as it lives.
class OwnHosts {
  public:
    explicit OwnHosts(const std::string &hosts) : hosts_(folder_.file("hosts", hosts), "/etc/hosts") {}

  private:
    const support::TempFolder folder_;
    const support::BindMount hosts_;
};

}  // namespace socket_test
