#include "connection.hpp"

#include <algorithm>
#include <array>
#include <string_view>

namespace {

using namespace std::literals;
using std::chrono::milliseconds;

constexpr std::string_view magic = "KS\1"sv;
constexpr std::size_t header_size = 8;

// A function for each kind of link.
template <class... Each>
struct either : Each... {
    using Each::operator()...;
};
template <class... Each>
either(Each...) -> either<Each...>;

}  // namespace

void connection::shake_hands(const std::stop_token &stop) {
    auto &link = std::get<korvex::socket>(link_);
    link_ = korvex::tls::session::server(std::move(link), chosen_.own, chosen_.timeout, stop);
    is_handshake_due_ = false;
    heard_ = std::chrono::steady_clock::now();
}

std::optional<std::size_t> connection::receive_some(std::span<std::byte> bytes, milliseconds limit,
                                                    const std::stop_token &stop) {
    return std::visit(either{[&](korvex::socket &link) { return korvex::receive_some(link, bytes, limit, stop); },
                             [&](korvex::tls::session &link) { return link.receive(bytes, limit, stop); }},
                      link_);
}

void connection::receive_exactly(std::span<std::byte> bytes, milliseconds limit, const std::stop_token &stop) {
    std::visit(either{[&](korvex::socket &link) { korvex::receive_exactly(link, bytes, limit, stop); },
                      [&](korvex::tls::session &link) { link.receive_exactly(bytes, limit, stop); }},
               link_);
}

std::optional<request> connection::receive(milliseconds turn, const std::stop_token &stop) {
    if (is_handshake_due_ && korvex::wait_readable(std::get<korvex::socket>(link_), turn, stop))
        shake_hands(stop);
    std::array<char, header_size> header{};
    const std::span<std::byte> bytes = std::as_writable_bytes(std::span(header));
    const std::optional<std::size_t> first = is_handshake_due_ ? std::nullopt : receive_some(bytes, turn, stop);
    const auto now = std::chrono::steady_clock::now();
    if (first == 0U || (!first && now - heard_ > chosen_.timeout))
        throw peer_gone();
    if (!first)
        return {};

    heard_ = now;
    receive_exactly(bytes.subspan(*first), chosen_.timeout, stop);
    if (!std::string_view(header.data(), header.size()).starts_with(magic))
        return request{.unreadable = status::bad_request};

    // Judged before anything is done with it: the four bytes can say anything.
    std::size_t length = 0;
    for (std::size_t i = magic.size() + 1; i < header_size; i++)
        length = length << 8 | static_cast<unsigned char>(header[i]);
    if (length > longest_request)
        return request{.unreadable = status::too_long};

    request asked{.command = header[magic.size()], .text = std::string(length, '\0')};
    const auto left = std::chrono::ceil<milliseconds>(now + chosen_.timeout - std::chrono::steady_clock::now());
    receive_exactly(std::as_writable_bytes(std::span(asked.text)), std::max(left, 0ms), stop);
    return asked;
}

void connection::send(const answer &given) {
    std::string message(magic);
    message += static_cast<char>(given.result);
    for (int shift = 24; shift >= 0; shift -= 8)
        message += static_cast<char>(given.text.size() >> shift & 0xff);
    message += given.text;
    // Without a stop: what was done should be known.
    std::visit(either{[&](korvex::socket &link) { korvex::send_all(link, korvex::bytes_of(message), chosen_.timeout); },
                      [&](korvex::tls::session &link) { link.send_all(korvex::bytes_of(message), chosen_.timeout); }},
               link_);
    heard_ = std::chrono::steady_clock::now();
}
