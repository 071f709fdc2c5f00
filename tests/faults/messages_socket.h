// The documented messages of sockets and TLS. Some are logged in the name of each function that has them.
#pragma once

#include "message_log.h"

namespace faults::msg {

constexpr Message not_resolved(const char *function) {
    return {function, Level::debug, "Can't getaddrinfo error! (%d)\n", 1};
}
inline constexpr Message localhost_no_name{"Is_IP_Localhost", Level::error, "Can't translate donaim to IP! (%d)\n", 1};
inline constexpr Message localhost_no_interfaces{"Is_IP_Localhost", Level::error, "Can't get network interface! (%d)\n",
                                                 1};
inline constexpr Message scope_no_list{"IPv6_Get_Scope_Id", Level::debug, "Can't open %s for IPv6 interface!\n"};
inline constexpr Message scope_empty_list{"IPv6_Get_Scope_Id", Level::debug, "No IPv6 interface available!\n"};

inline constexpr Message connect_no_socket{"TCP_Socket_Connect", Level::debug, "Can't create socket error! (%d)\n", 1};
inline constexpr Message connect_no_nodelay{
    "TCP_Socket_Connect", Level::error, "Can't set TCP socket nodelay error! (%d)\n", 1, Message::Code::plain_errno};
inline constexpr Message connect_no_recv_timeout{"TCP_Socket_Connect", Level::error,
                                                 "Can't set TCP recv timeout error: %d\n", 1};
inline constexpr Message connect_no_send_timeout{"TCP_Socket_Connect", Level::error,
                                                 "Can't set TCP send timeout error: %d\n", 1};
inline constexpr Message connect_not_bound{"TCP_Socket_Connect", Level::debug, "Can't bind socket error! (%d)\n", 1};
inline constexpr Message not_connected{"TCP_Socket_Connect", Level::debug, "Can't connect socket error! (%d)\n", 1};

inline constexpr Message listen_no_room{"TCP_Socket_Listen", Level::error,
                                        "Insufficient array buffer for socket! (%d)\n", 1};
inline constexpr Message listen_no_socket{"TCP_Socket_Listen", Level::debug, "Can't create socket! (%d)\n", 1};
inline constexpr Message listen_no_reuse{"TCP_Socket_Listen", Level::error, "Can't set socket reuse address! (%d)\n",
                                         1};
inline constexpr Message listen_no_ipv6_only{"TCP_Socket_Listen", Level::error, "Can't set socket IPv6 only! (%d)\n",
                                             1};
inline constexpr Message listen_no_nodelay{"TCP_Socket_Listen", Level::error, "Can't set TCP socket nodelay! (%d)\n",
                                           1};
inline constexpr Message listen_not_bound{"TCP_Socket_Listen", Level::error, "Can't bind socket! (%d)\n", 1};
inline constexpr Message not_listening{"TCP_Socket_Listen", Level::error, "Can't listen socket! (%d)\n", 1};

inline constexpr Message no_flags{"Domain_Sock_Set_Nonblocking", Level::error, "Get fcntl error!(%d)\n", 1};
inline constexpr Message no_new_flags{"Domain_Sock_Set_Nonblocking", Level::error, "Set fcntl error!(%d)\n", 1};
inline constexpr Message local_no_socket{"Domain_Socket_Listen", Level::error, "Create socket error!(%d)\n", 1};
inline constexpr Message local_not_bound{"Domain_Socket_Listen", Level::error, "Bind domain socket error!(%d)\n", 1};
inline constexpr Message local_no_mode{"Domain_Socket_Listen", Level::error, "Can't chmod for %s!(%d)\n", 2};
inline constexpr Message local_not_listening{"Domain_Socket_Listen", Level::error, "Listen domain error!(%d)\n", 1};
inline constexpr Message local_blocking{"Domain_Socket_Listen", Level::error,
                                        "Can't set domain socket non-blocking! (%d)\n", 1};
inline constexpr Message local_connect_no_socket{"Domain_Socket_Connect", Level::error,
                                                 "Create domain socket error!(%d)\n", 1};
inline constexpr Message local_no_recv_timeout{"Domain_Socket_Connect", Level::error,
                                               "Set domain socket recv timeout error!(%d)\n", 1};
inline constexpr Message local_no_send_timeout{"Domain_Socket_Connect", Level::error,
                                               "Set domain socket send timeout error!(%d)\n", 1};
inline constexpr Message local_not_connected{"Domain_Socket_Connect", Level::error,
                                             "Connect domain socket error!(%d)\n", 1};

constexpr Message not_received(const char *function) {
    return {function, Level::error, "Can't receive error (%d, %d)!\n", 1};
}
// The message of a plain socket, which names another function.
inline constexpr Message recv_timeout{"Exactly_Recv", Level::error,
                                      "Exactly_SSL_Recv() timeout! Want %d bytes, got %d bytes! (%d)\n"};
inline constexpr Message ssl_recv_timeout{"Exactly_SSL_Recv", Level::error,
                                          "Exactly_SSL_Recv() timeout! Want %d bytes, got %d bytes! (%d, %lld)\n"};
inline constexpr Message ssl_recv_ex_timeout{
    "Exactly_SSL_Recv_Ex", Level::error, "Exactly_SSL_Recv_Ex() timeout! Want %d bytes, got %d bytes! (%d, %lld)\n"};
inline constexpr Message ssl_peek_timeout{"Exactly_SSL_Peek", Level::error,
                                          "Exactly_Peek() timeout! Want %d bytes, got %d bytes!\n"};
inline constexpr Message not_sent{"Exactly_Send", Level::error, "Can't send error! (%d)\n", 1};
inline constexpr Message ssl_not_sent{"Exactly_SSL_Send", Level::error, "Can't send error! (%d, %d)\n", 1};
inline constexpr Message ssl_sent_in_part{"Exactly_SSL_Send", Level::debug, "Not exactly send: %d, %d! Send again!\n"};

inline constexpr Message recv_file_no_pipe{"Recv_File", Level::error, "Can't create a pipe error! (%d)\n", 1};
inline constexpr Message recv_file_no_wait{"Recv_File", Level::error,
                                           "Can't check the socket is ready %d error! (%ld)\n", 2};
inline constexpr Message recv_file_not_taken{"Recv_File", Level::error,
                                             "Can't splice the socket %d error! (%ld, %ld, %d)\n", 3};
inline constexpr Message recv_file_not_put{"Recv_File", Level::error,
                                           "Can't splice the destination file %d error! (%ld, %ld, %d)\n", 3};

inline constexpr Message no_certificate{"CTX_Initialize", Level::error, "Can't read certificate file! (%d)\n", 1};
inline constexpr Message no_key{"CTX_Initialize", Level::error, "Can't read key file!\n"};
inline constexpr Message no_authorities{"CTX_Initialize", Level::error, "Can't read CA list!\n"};
constexpr Message no_context(const char *function) {
    return {function, Level::error, "Can't Initialize_CTX error! (%d, %d)\n", 1};
}
// The code is the errno that the handshake left, 0 where it left none.
constexpr Message no_client_handshake(const char *function) {
    return {function, Level::error, "SSL connect error! (%d, %d)\n", 2, Message::Code::plain_errno};
}
constexpr Message no_server_handshake(const char *function) {
    return {function, Level::error, "SSL accept error! (%d, %d)\n", 2, Message::Code::plain_errno};
}
inline constexpr Message tls_not_connected{"SSL_Socket_Connect", Level::error, "Can't connect socket error! (%d)\n", 1};

}  // namespace faults::msg
