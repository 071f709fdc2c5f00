// A private network for the test program: interfaces, addresses and ports that no other process sees.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

namespace support {

// Puts the calling thread into a new network namespace in which only "lo" stands, up and with its addresses, and mounts
// a /sys that shows it. Each call gives another network, untouched by what went before. Where that is not permitted it
// says so on standard error and ends the program with kSkipStatus. Call it after `enter_sandbox`, which main() does.
void enter_network();

// Runs shell commands and returns what they wrote, standard error included; throws where one of them does not succeed.
std::string run_command(const std::string &command);

// A second network, joined to the one that the calling thread is in by a veth pair. Both ends are up, have the addresses
// below and can be used at once. It goes with the object (and with the last process that still runs in it).
class PeerNetwork {
  public:
    static constexpr const char *kNearEnd = "near0";  // the interface in this network
    static constexpr const char *kFarEnd = "far0";    // the interface in the second one

    static constexpr const char *kNearIPv4 = "10.99.0.1";  // of a /24
    static constexpr const char *kFarIPv4 = "10.99.0.2";
    static constexpr const char *kNearIPv6 = "fd99::1";  // of a /64
    static constexpr const char *kFarIPv6 = "fd99::2";
    static constexpr const char *kNearLinkLocal = "fe80::1";
    static constexpr const char *kFarLinkLocal = "fe80::2";

    PeerNetwork();
    ~PeerNetwork();
    PeerNetwork(const PeerNetwork &) = delete;
    PeerNetwork &operator=(const PeerNetwork &) = delete;

    // Runs `body` in a child process inside the second network and returns its exit status, as `in_child` does.
    int run(const std::function<int()> &body) const;
    // The same without waiting: see `wait_for`.
    pid_t start(const std::function<int()> &body) const;

  private:
    int namespace_;
};

}  // namespace support
