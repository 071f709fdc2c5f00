// The module of sockets and TLS.
#include "socket_scenarios.h"

#include <netinet/in.h>

#include <csignal>

#include "private_network.h"
#include "socket.h"

namespace faults {

namespace {

void prepare() {
    enter_private_network();
    std::signal(SIGPIPE, SIG_IGN);  // as hosts do
}

}  // namespace

Module socket_module() {
    return {"socket",
            join({address_scenarios(), tcp_scenarios(), local_socket_scenarios(), socket_transfer_scenarios(),
                  recv_file_scenarios(), tls_scenarios(), tls_transfer_scenarios()}),
            {{"IPv6_Check_Subnet", "compares two addresses in memory",
              [] {
                  const in6_addr address{};
                  IPv6_Check_Subnet(&address, &address, 64);
              }},
             {"CTX_Destroy", "gives a context back", [] { CTX_Destroy(nullptr); }}},
            prepare};
}

}  // namespace faults
