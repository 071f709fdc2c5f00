/// @file
/// Connections: TCP and local sockets, waiting for them, transfer of exactly what was asked for, and addresses.
///
///     const korvex::socket link = korvex::connect("nas.local", 4000, 2500ms);
///     korvex::send_all(link, korvex::bytes_of("hello\n"));
///     std::array<std::byte, 6> answer;
///     korvex::receive_exactly(link, answer, 2500ms);
#ifndef KORVEX_NET_HPP
#define KORVEX_NET_HPP

#include "korvex/net_address.hpp"
#include "korvex/net_socket.hpp"
#include "korvex/net_transfer.hpp"

#endif
