#include "peers.h"

namespace bench {
namespace {

Peer *g_peers = nullptr;

}  // namespace

const Peer *peers() {
    return g_peers;
}

bool add_peer(Peer &peer) noexcept {
    peer.next = g_peers;
    g_peers = &peer;
    return true;
}

const Peer &korvex_peer() {
    const Peer *peer = peers();
    while (std::string(peer->name) != "korvex")
        peer = peer->next;
    return *peer;
}

}  // namespace bench
