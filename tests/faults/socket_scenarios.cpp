// The module of sockets and TLS.
#include "socket_scenarios.h"

#include <netinet/in.h>
#include <openssl/ssl.h>

#include <csignal>

#include "private_network.h"
#include "socket.h"

namespace faults {

namespace {

void prepare() {
    enter_private_network();
    std::signal(SIGPIPE, SIG_IGN);  // as hosts do
}

void give_context_back() {
    SSL_CTX *context = nullptr;
    {
        const support::Undisturbed preparing;
        context = SSL_CTX_new(TLS_method());
    }
    CTX_Destroy(context);
}

}  // namespace

Module socket_module() {
    return {"socket",
            join({address_scenarios(), tcp_scenarios(), local_socket_scenarios(), socket_transfer_scenarios(),
                  recv_file_scenarios(), tls_scenarios(), tls_transfer_scenarios()}),
            {{"IPv6_Check_Subnet", "compares two addresses in memory",
              [] { IPv6_Check_Subnet(&in6addr_loopback, &in6addr_loopback, 64); }},
             {"CTX_Destroy", "gives a context back", give_context_back}},
            prepare};
}

}  // namespace faults
