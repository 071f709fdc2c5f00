/// @file
/// Sends and receives exactly as many bytes as were asked for.
#ifndef KORVEX_NET_TRANSFER_HPP
#define KORVEX_NET_TRANSFER_HPP

#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <stop_token>
#include <string>
#include <string_view>

#include "fileio.h"
#include "korvex/net_socket.hpp"

namespace korvex {

/// A transfer that failed half-way: it knows how far it came.
class transfer_error : public error {
  public:
    /// As for `error`.
    ///
    /// @param code, action, subject  as for `error`
    /// @param moved, wanted          bytes
    transfer_error(int code, std::string_view action, std::string_view subject, std::uint64_t moved,
                   std::uint64_t wanted)
        : error(code, action, subject,
                error(code, {}, {}).reason() + " after " + std::to_string(moved) + " of " + std::to_string(wanted) +
                    " bytes"),
          moved_(moved) {}

    /// @return bytes that were received, or handed to the system to be sent
    std::uint64_t moved() const noexcept { return moved_; }

  private:
    std::uint64_t moved_;
};

/// The bytes of a text, to be sent.
///
/// @param text  it must live as long as the result
/// @return a view of it
inline std::span<const std::byte> bytes_of(std::string_view text) noexcept {
    return std::as_bytes(std::span<const char>(text.data(), text.size()));
}

namespace detail {

/// Moves bytes step by step until all are moved; `step` answers as `recv` and `send` do.
template <class Step>
void move_all(const socket &link, short events, std::size_t wanted, std::chrono::milliseconds timeout,
              const std::stop_token &stop, std::string_view action, const Step &step) {
    const deadline end(timeout);
    const stop_event stopped(stop);
    for (std::size_t moved = 0; moved < wanted;) {
        // What can be moved at once needs no wait; but a stop that was requested ends it all the same.
        check_stop(stop, action, "peer");
        const ssize_t count = step(moved);
        if (count > 0) {
            moved += static_cast<std::size_t>(count);
            continue;
        }
        if (count == 0)
            throw transfer_error(static_cast<int>(errc::peer_closed), action, "peer", moved, wanted);
        if (errno == EINTR)
            continue;
        if (errno != EAGAIN)
            throw transfer_error(errno, action, "peer", moved, wanted);
        if (!wait_for(link.native_handle(), events, end, stopped, action, "peer"))
            throw transfer_error(static_cast<int>(errc::time_is_over), action, "peer", moved, wanted);
    }
}

}  // namespace detail

/// Receives as many bytes as fit into a buffer.
///
/// A peer that closes early ends it at once (`errc::peer_closed`; the C call asks again, without a pause, until its time
/// is over), and so does a silent one after the limit (`errc::time_is_over`): both throw a `transfer_error`, and the
/// buffer has what came until then.
///
/// @param link     the connection
/// @param buffer   filled to its end
/// @param timeout  for all of it, by the steady clock
/// @param stop     ends it: `std::errc::operation_canceled`
inline void receive_exactly(const socket &link, std::span<std::byte> buffer,
                            std::chrono::milliseconds timeout = forever, const std::stop_token &stop = {}) {
    detail::move_all(link, POLLIN, buffer.size(), timeout, stop, "can't receive from", [&](std::size_t from) {
        return ::recv(link.native_handle(), buffer.data() + from, buffer.size() - from, MSG_DONTWAIT);
    });
}

/// Receives what has come, at most as much as fits into a buffer; waits until something comes.
///
/// @param link           the connection
/// @param buffer         where to
/// @param timeout, stop  as for `receive_exactly`
/// @return the count; 0 when the peer has closed, and for an empty buffer; nothing when the time is over
inline std::optional<std::size_t> receive_some(const socket &link, std::span<std::byte> buffer,
                                               std::chrono::milliseconds timeout = forever,
                                               const std::stop_token &stop = {}) {
    constexpr const char *action = "can't receive from";
    if (buffer.empty())
        return 0;
    const detail::deadline end(timeout);
    const detail::stop_event stopped(stop);
    while (detail::wait_for(link.native_handle(), POLLIN, end, stopped, action, "peer")) {
        const ssize_t count = ::recv(link.native_handle(), buffer.data(), buffer.size(), MSG_DONTWAIT);
        if (count >= 0)
            return static_cast<std::size_t>(count);
        if (errno != EAGAIN && errno != EINTR)
            throw error(errno, action, "peer");
    }
    return {};
}

/// Sends all bytes. A peer that is gone throws `std::errc::broken_pipe` or `std::errc::connection_reset`, and raises no
/// signal; one that takes nothing throws `errc::time_is_over`: each as a `transfer_error`.
///
/// @param link     the connection
/// @param bytes    what is sent
/// @param timeout  for all of it, by the steady clock
/// @param stop     ends it: `std::errc::operation_canceled`
inline void send_all(const socket &link, std::span<const std::byte> bytes, std::chrono::milliseconds timeout = forever,
                     const std::stop_token &stop = {}) {
    detail::move_all(link, POLLOUT, bytes.size(), timeout, stop, "can't send to", [&](std::size_t from) {
        return ::send(link.native_handle(), bytes.data() + from, bytes.size() - from, MSG_DONTWAIT | MSG_NOSIGNAL);
    });
}

/// How bytes are received into a file.
struct receive_options {
    std::chrono::milliseconds silence = forever;    ///< how long nothing may come
    std::stop_token stop{};                         ///< ends it: `std::errc::operation_canceled`
    std::atomic<std::int64_t> *progress = nullptr;  ///< bytes received are added; any thread may read it meanwhile
};

namespace detail {

/// Bytes that wait behind an urgent one, which the library would never get past: through memory.
inline std::uint64_t receive_past_urgent(const socket &link, int file, std::uint64_t most) {
    std::array<char, 4096> bytes{};
    const std::size_t room = static_cast<std::size_t>(std::min<std::uint64_t>(most, bytes.size()));
    const ssize_t count = ::recv(link.native_handle(), bytes.data(), room, MSG_DONTWAIT);
    if (count <= 0)
        return 0;
    check(File_Write_Bulk(file, bytes.data(), count, nullptr), "can't write what came from", "peer");
    return static_cast<std::uint64_t>(count);
}

/// Receives some of the bytes that are there; 0 where there are none yet. The library's call never ends on a peer that has
/// closed, so it is asked for no more than what waits.
inline std::uint64_t receive_what_waits(const socket &link, int file, std::uint64_t done, std::uint64_t length) {
    constexpr const char *action = "can't receive from";
    char next = 0;
    const ssize_t peeked = ::recv(link.native_handle(), &next, 1, MSG_PEEK | MSG_DONTWAIT);
    if (peeked == 0)
        throw transfer_error(static_cast<int>(errc::peer_closed), action, "peer", done, length);
    if (peeked < 0 && (errno == EAGAIN || errno == EINTR))
        return 0;
    int waiting = 0;
    if (peeked < 0 || ::ioctl(link.native_handle(), FIONREAD, &waiting) != 0)
        throw transfer_error(errno, action, "peer", done, length);
    if (waiting <= 0)
        return receive_past_urgent(link, file, length - done);

    std::uint64_t moved = 0;
    const auto wanted = std::min<std::uint64_t>(static_cast<unsigned>(waiting), length - done);
    const std::int32_t result =
        Recv_File(link.native_handle(), file, nullptr, static_cast<std::int64_t>(wanted), &moved);
    if (result != 0 && result != -EINTR)
        throw transfer_error(-result, action, "peer", done + moved, length);
    return moved;
}

}  // namespace detail

/// Receives bytes into a file at its position, through the kernel alone.
///
/// @param link     from which they come
/// @param file     descriptor of a file open for writing, not for appending
/// @param length   how many
/// @param options  limits and progress
///
/// Throws a `transfer_error`: `errc::peer_closed` at once when the peer closes early, `errc::time_is_over` when nothing
/// comes for too long, or what writing met. What the file has by then stays in it.
inline void receive_into_file(const socket &link, int file, std::uint64_t length, const receive_options &options = {}) {
    constexpr const char *action = "can't receive from";
    const detail::stop_event stopped(options.stop);
    for (std::uint64_t done = 0; done < length;) {
        if (!detail::wait_for(link.native_handle(), POLLIN, detail::deadline(options.silence), stopped, action, "peer"))
            throw transfer_error(static_cast<int>(errc::time_is_over), action, "peer", done, length);
        const std::uint64_t moved = detail::receive_what_waits(link, file, done, length);
        done += moved;
        if (options.progress != nullptr)
            options.progress->fetch_add(static_cast<std::int64_t>(moved), std::memory_order_relaxed);
    }
}

}  // namespace korvex

#endif
