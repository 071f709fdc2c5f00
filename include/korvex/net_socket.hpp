/// @file
/// Sockets: made, waited for and closed.
#ifndef KORVEX_NET_SOCKET_HPP
#define KORVEX_NET_SOCKET_HPP

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <stop_token>
#include <string_view>
#include <utility>
#include <vector>

#include "korvex/detail/c_text.hpp"
#include "korvex/detail/call.hpp"
#include "korvex/detail/descriptor.hpp"
#include "korvex/detail/wait.hpp"
#include "korvex/path_view.hpp"
#include "socket.h"

namespace korvex {

/// An open socket, closed when it goes.
class socket {
  public:
    socket() = default;
    /// Takes over a descriptor.
    ///
    /// @param descriptor  of a socket, or of what can be waited for like one
    explicit socket(int descriptor) noexcept : file_(descriptor) {}

    /// Whether it has a socket: one that was moved from has none.
    explicit operator bool() const noexcept { return static_cast<bool>(file_); }
    /// @return the descriptor, for calls of the system and the C interface; it stays this object's
    int native_handle() const noexcept { return file_.get(); }
    /// Gives the descriptor away.
    ///
    /// @return the descriptor, which the caller closes
    [[nodiscard]] int release() noexcept { return file_.release(); }

  private:
    detail::descriptor file_;
};

namespace detail {

/// A limit for calls to which 0 means something else: at least 1; `none` for no limit.
inline std::int32_t positive_milliseconds(std::chrono::milliseconds limit, std::int32_t none) noexcept {
    const std::int32_t count = milliseconds_of(limit);
    return count < 0 ? none : count == 0 ? 1 : count;
}

inline void refuse_no_port(std::uint16_t port, std::string_view action, std::string_view host) {
    if (port == 0)
        throw error(EINVAL, action, host, "a port is 1 to 65535");
}

}  // namespace detail

/// How long a connection may take when nothing is said.
inline constexpr std::chrono::seconds usual_connect_time{120};

/// Connects to the first address of a host by TCP. The socket sends without delay (TCP_NODELAY).
///
/// @param host     name or address
/// @param port     1 or more
/// @param timeout  for the connection, but not for the name; `errc::time_is_over` afterwards. It stays on the socket for
///                 `recv` and `send` of the system, not for the functions of this layer
/// @param local    IPv4 address to come from; empty: the system's choice
/// @return the connection
inline socket connect(std::string_view host, std::uint16_t port, std::chrono::milliseconds timeout = usual_connect_time,
                      std::string_view local = {}) {
    detail::refuse_no_port(port, "can't connect to", host);
    const detail::c_text<64> local_text(local);
    in_addr parsed{};
    if (!local.empty() && ::inet_pton(AF_INET, local_text, &parsed) != 1)
        throw error(EINVAL, "can't connect from", local, "it is not an IPv4 address");

    const detail::c_text<> name(host);
    const detail::deadline end(timeout);
    std::int32_t file = -1;
    std::int32_t result = 0;
    do {
        const std::int32_t left = detail::positive_milliseconds(std::chrono::milliseconds(end.left()),
                                                                std::numeric_limits<std::int32_t>::max());
        result = TCP_Socket_Connect(local.empty() ? nullptr : local_text.get(), name, port, left, &file);
    } while (result == -EINTR);
    if (result == -EINPROGRESS)
        throw error(errc::time_is_over, "can't connect to", host);
    detail::check(result, "can't connect to", host);
    return socket(file);
}

/// Listens by TCP on every address of a host, one socket an address.
///
/// @param host     name or address; empty: all addresses of this host
/// @param port     1 or more
/// @param backlog  connections that wait to be accepted, 1 to 128
/// @return never empty: a name without any address throws `std::errc::address_not_available`
inline std::vector<socket> listen(std::string_view host, std::uint16_t port, int backlog = 128) {
    constexpr std::int32_t most = 64;
    detail::refuse_no_port(port, "can't listen on", host);
    std::int32_t files[most + 1];
    const detail::c_text<> name(host);
    detail::check(TCP_Socket_Listen(host.empty() ? nullptr : name.get(), port, backlog, files, most), "can't listen on",
                  host.empty() ? "all addresses" : host);
    std::vector<socket> listeners;
    for (const std::int32_t *file = files; *file >= 0; file++)
        listeners.emplace_back(*file);
    if (listeners.empty())
        throw error(EADDRNOTAVAIL, "can't listen on", host);
    return listeners;
}

/// Connects to a local socket.
///
/// @param path     shorter than 108 bytes
/// @param timeout  for the connection, where too many wait to be accepted; as for `connect`
/// @return the connection
inline socket connect_local(path_view path, std::chrono::milliseconds timeout = forever) {
    const detail::c_path name(path);
    const detail::deadline end(timeout);
    std::int32_t file = -1;
    std::int32_t result = 0;
    do {
        const std::chrono::milliseconds left(end.left());
        result = Domain_Socket_Connect(name, &file, detail::positive_milliseconds(left, 0));
    } while (result == -EINTR);
    if (result == -EAGAIN)
        throw error(errc::time_is_over, "can't connect to", path);
    detail::check(result, "can't connect to", path);
    return socket(file);
}

/// Listens on a path; everybody who reaches it may connect. A socket that lies there, in use or not, is replaced.
///
/// @param path  shorter than 108 bytes; anything but a socket is left alone (`std::errc::file_exists`), where the C call
///              would remove it. The path stays behind: remove it when it is no longer used
/// @return the listener
inline socket listen_local(path_view path) {
    const detail::c_path name(path);
    struct stat present {};
    if (::lstat(name, &present) == 0 && !S_ISSOCK(present.st_mode))
        throw error(EEXIST, "can't listen on", path, "what is there is not a socket");
    std::int32_t file = -1;
    detail::check(Domain_Socket_Listen(name, &file, 1), "can't listen on", path);
    return socket(file);
}

/// Takes a connection.
///
/// @param listener  from `listen` or `listen_local`; it is put into non-blocking mode
/// @param timeout   how long to wait for one
/// @param stop      ends the wait: `std::errc::operation_canceled`
/// @return nothing when the time is over
inline std::optional<socket> accept(const socket &listener, std::chrono::milliseconds timeout = forever,
                                    const std::stop_token &stop = {}) {
    constexpr const char *action = "can't accept from";
    // Who came may have gone again, and `accept` would wait for the next one.
    detail::check(Domain_Sock_Set_Nonblocking(listener.native_handle()), action, "listener");
    const detail::deadline end(timeout);
    const detail::stop_event stopped(stop);
    while (detail::wait_for(listener.native_handle(), POLLIN, end, stopped, action, "listener")) {
        const int file = ::accept4(listener.native_handle(), nullptr, nullptr, SOCK_CLOEXEC);
        if (file >= 0)
            return socket(file);
        const bool has_gone = errno == EAGAIN || errno == EINTR || errno == ECONNABORTED || errno == EPROTO;
        if (!has_gone)
            throw error(errno, action, "listener");
    }
    return {};
}

/// Waits until there is something to receive, or the peer has closed.
///
/// @param link     a connection or a listener
/// @param timeout  how long at most
/// @param stop     ends it: `std::errc::operation_canceled`
/// @return false when the time is over
inline bool wait_readable(const socket &link, std::chrono::milliseconds timeout = forever,
                          const std::stop_token &stop = {}) {
    return detail::wait_for(link.native_handle(), POLLIN, detail::deadline(timeout), detail::stop_event(stop),
                            "can't wait for", "peer");
}

/// Waits until something can be sent, or sending would fail at once.
///
/// @param link, timeout, stop  as for `wait_readable`
/// @return false when the time is over
inline bool wait_writable(const socket &link, std::chrono::milliseconds timeout = forever,
                          const std::stop_token &stop = {}) {
    return detail::wait_for(link.native_handle(), POLLOUT, detail::deadline(timeout), detail::stop_event(stop),
                            "can't wait for", "peer");
}

/// Waits until one of some sockets, however many, can be received from, or has a connection to accept.
///
/// @param links          connections and listeners
/// @param timeout, stop  as for `wait_readable`
/// @return the place of the first that is ready; nothing when the time is over
inline std::optional<std::size_t> first_ready(std::span<const socket> links,
                                              std::chrono::milliseconds timeout = forever,
                                              const std::stop_token &stop = {}) {
    std::vector<pollfd> wanted(links.size() + 1);
    for (std::size_t i = 0; i < links.size(); i++)
        wanted[i] = {.fd = links[i].native_handle(), .events = POLLIN, .revents = 0};
    if (!detail::wait_for(std::span<pollfd>(wanted), detail::deadline(timeout), detail::stop_event(stop),
                          "can't wait for", "peers"))
        return {};
    for (std::size_t i = 0; i < links.size(); i++)
        if (wanted[i].revents != 0)
            return i;
    return {};
}

}  // namespace korvex

#endif
