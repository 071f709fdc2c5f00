// Host names of the test's own, whatever the machine's are.
#pragma once

#include <string>

#include "sandbox.h"

namespace socket_test {

// Shows its own /etc/hosts, which is also the only source of names, for as long as it lives.
class OwnHosts {
  public:
    explicit OwnHosts(const std::string &hosts)
        : hosts_(folder_.file("hosts", hosts), "/etc/hosts"),
          sources_(folder_.file("nsswitch.conf", "hosts: files\n"), "/etc/nsswitch.conf") {}

  private:
    const support::TempFolder folder_;
    const support::BindMount hosts_;
    const support::BindMount sources_;
};

}  // namespace socket_test
