// The network that all scenarios share which need one: a pair of interfaces, one of them in a network of its own.
#pragma once

#include <net/if.h>

#include <cstdint>

#include "network.h"

namespace faults {

// Once, before the first scenario; the network stays until the program ends.
inline void enter_private_network() {
    support::enter_network();
    static const support::PeerNetwork peer;
}

inline uint32_t near_interface() {
    return if_nametoindex(support::PeerNetwork::kNearEnd);
}

}  // namespace faults
