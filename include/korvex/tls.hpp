/// @file
/// TLS sessions whose peers can be verified.
///
///     const korvex::tls::credentials own{"/etc/app/host.pem", "", "/etc/app/authorities.pem"};
///     auto session = korvex::tls::session::connect("nas.local", 4000, 2500ms, own);
///     session.verify_peer("nas.local");    // before anything is sent: nobody else does it
///     session.send_all(korvex::bytes_of("hello\n"));
///
/// The OpenSSL of the process is used, or the system's: nothing is linked. Without one each session and context throws
/// `std::errc::operation_not_supported`.
#ifndef KORVEX_TLS_HPP
#define KORVEX_TLS_HPP

#include <sys/socket.h>
#include <sys/time.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <stop_token>
#include <string>
#include <string_view>
#include <utility>

#include "korvex/detail/c_text.hpp"
#include "korvex/detail/handshake_limit.hpp"
#include "korvex/detail/openssl.hpp"
#include "korvex/detail/pipe_signal.hpp"
#include "korvex/detail/verify.hpp"
#include "korvex/net.hpp"

namespace korvex::tls {

/// What one side shows, and whom it trusts. The library needs all of it on both sides.
struct credentials {
    std::string certificate_file;    ///< PEM: the chain, the own certificate first, and its private key
    std::string pass_phrase{};       ///< of the key
    std::string authorities_file{};  ///< PEM: certificates of those who are trusted
};

}  // namespace korvex::tls

namespace korvex::detail {

[[noreturn]] inline void refuse(std::int32_t result, std::string_view action, std::string_view subject,
                                const tls::credentials &own) {
    switch (-result) {
        case EAGAIN:
            throw error(errc::time_is_over, action, subject);
        case EPROTO:
            throw error(EPROTO, action, subject, "the TLS handshake failed");
        case EOPNOTSUPP:
            throw error(EOPNOTSUPP, action, subject, "there is no OpenSSL");
        case ENOENT:
            throw error(ENOENT, "can't use the credentials", own.certificate_file,
                        "the certificate, its key, its pass phrase or the authorities can't be loaded");
        default:
            throw error(-result, action, subject);
    }
}

}  // namespace korvex::detail

namespace korvex::tls {

/// OpenSSL's context: certificate, key and authorities, loaded and checked against each other. For hosts that go on
/// with OpenSSL's own calls; sessions make theirs by themselves.
class context {
  public:
    /// @param own  what is loaded; throws where it does not fit together
    explicit context(const credentials &own) {
        SSL_CTX *made = nullptr;
        const std::int32_t result =
            CTX_Initialize(detail::c_path(own.certificate_file), detail::c_text<>(own.pass_phrase),
                           detail::c_path(own.authorities_file), &made);
        if (result != 0)
            detail::refuse(result, "can't make a TLS context of", own.certificate_file, own);
        handle_.reset(made);
    }

    /// Whoever loads another locked key into it sets a pass phrase callback first: the pass phrase of `own` is gone.
    ///
    /// @return OpenSSL's own; it stays this object's
    SSL_CTX *native_handle() const noexcept { return handle_.get(); }

  private:
    struct freer {
        void operator()(SSL_CTX *made) const noexcept { CTX_Destroy(made); }
    };
    std::unique_ptr<SSL_CTX, freer> handle_;
};

/// An open TLS session with its socket. When it goes the peer is told, and the socket closed. One thread at a time.
class session {
  public:
    /// Connects to a host as `korvex::connect` does, and opens a session as the client. The peer is not verified: call
    /// `verify_peer` next.
    ///
    /// @param host     name or address
    /// @param port     1 or more
    /// @param timeout  for the connection, and once more for the handshake
    /// @param own      what this side shows, and whom it trusts
    /// @param stop     ends the handshake: `std::errc::operation_canceled`
    /// @return the session
    static session connect(std::string_view host, std::uint16_t port, std::chrono::milliseconds timeout,
                           const credentials &own, const std::stop_token &stop = {}) {
        return client(korvex::connect(host, port, timeout), own, timeout, stop);
    }

    /// Opens a session as the client on a connected socket. The peer is not verified: call `verify_peer` next.
    ///
    /// @param link     the socket, which the session takes over; after a failure it is closed
    /// @param own      what this side shows, and whom it trusts
    /// @param timeout  for the whole handshake, however many pieces come; `errc::time_is_over` afterwards
    /// @param stop     ends it: `std::errc::operation_canceled`
    /// @return the session
    static session client(socket link, const credentials &own, std::chrono::milliseconds timeout = usual_connect_time,
                          const std::stop_token &stop = {}) {
        return session(std::move(link), own, timeout, stop, SSL_Connect_Socket);
    }

    /// Opens a session as the server on an accepted socket. It does not ask the client for a certificate.
    ///
    /// @param link, own, timeout, stop  as for `client`
    /// @return the session
    static session server(socket link, const credentials &own, std::chrono::milliseconds timeout = usual_connect_time,
                          const std::stop_token &stop = {}) {
        return session(std::move(link), own, timeout, stop, SSL_Accept_Socket);
    }

    /// Throws unless the peer is the one that it should be: its certificate is there, a trusted authority vouches for
    /// it, its time is now, and it is for the name.
    ///
    /// @param host  name, or numeric address, which must be one of the certificate's alternative names; a certificate
    ///              without alternative names is looked at by its common name. A wildcard stands for one whole label
    ///
    /// The code says what is wrong: `errc::no_certificate`, `not_trusted`, `certificate_expired`,
    /// `certificate_not_yet_valid`, `name_mismatch`, or `not_verified` for what else OpenSSL refuses, in its own words.
    void verify_peer(std::string_view host) const;

    /// Receives what has come, at most as much as fits into a buffer; waits until something comes.
    ///
    /// @param buffer         where to
    /// @param timeout, stop  as for `korvex::receive_some`
    /// @return the count; 0 when the peer has ended the session, and for an empty buffer; nothing when the time is
    ///         over. A connection that is cut without that word throws `errc::peer_closed`: what came may not be all
    std::optional<std::size_t> receive(std::span<std::byte> buffer, std::chrono::milliseconds timeout = forever,
                                       const std::stop_token &stop = {}) {
        if (buffer.empty())
            return 0;
        transfer todo{.action = "can't receive from", .wanted = buffer.size(), .is_exact = false};
        return run(todo, timeout, stop, [&](std::size_t) { return SSL_Recv(&info_, buffer.data(), buffer.size(), 0); });
    }

    /// As `korvex::receive_exactly`.
    ///
    /// @param buffer, timeout, stop  likewise
    void receive_exactly(std::span<std::byte> buffer, std::chrono::milliseconds timeout = forever,
                         const std::stop_token &stop = {}) {
        transfer todo{.action = "can't receive from", .wanted = buffer.size(), .is_exact = true};
        run(todo, timeout, stop,
            [&](std::size_t from) { return SSL_Recv(&info_, buffer.data() + from, buffer.size() - from, 0); });
    }

    /// As `korvex::send_all`. After a failure the session can only be closed: a part of a record may have been sent.
    ///
    /// @param bytes, timeout, stop  likewise
    void send_all(std::span<const std::byte> bytes, std::chrono::milliseconds timeout = forever,
                  const std::stop_token &stop = {}) {
        transfer todo{.action = "can't send to", .wanted = bytes.size(), .is_exact = true};
        run(todo, timeout, stop,
            [&](std::size_t from) { return SSL_Send(&info_, bytes.data() + from, bytes.size() - from, 0); });
    }

    /// Waits until a buffer can be filled, and copies the bytes without taking them.
    ///
    /// @param buffer   OpenSSL shows no more than one record of the peer's, 16 KiB at most: a larger buffer, or one
    ///                 that only several records fill, ends with the time
    /// @param timeout  a peer that closes after fewer bytes is noticed when it is over
    /// @param stop     ends it: `std::errc::operation_canceled`
    void peek_exactly(std::span<std::byte> buffer, std::chrono::milliseconds timeout, const std::stop_token &stop = {});

    /// Ends the session: tells the peer and closes the socket. Nothing is left to be done with it.
    void close() noexcept {
        if (info_.fdSocket < 0)
            return;
        const detail::no_pipe_signal quiet;
        SSL_Socket_Destroy(&info_, 0);
        info_ = nothing;
    }

    /// @param other  is left without a session
    session(session &&other) noexcept : info_(std::exchange(other.info_, nothing)) {}
    /// @param other  whose session takes the place of this one, which ends
    /// @return this
    session &operator=(session other) noexcept {
        std::swap(info_, other.info_);
        return *this;
    }
    ~session() { close(); }

    /// @return the record for calls of the C interface, with OpenSSL's handles; it stays this object's. Its socket is
    ///         in non-blocking mode
    SSL_Socket_Info *native_handle() noexcept { return &info_; }

  private:
    static constexpr SSL_Socket_Info nothing{.fdSocket = -1, .pBio = nullptr, .pSsl = nullptr, .pCtx = nullptr};

    struct transfer {
        const char *action;
        std::size_t wanted;
        bool is_exact;
        std::size_t moved = 0;
    };

    template <class Open>
    session(socket link, const credentials &own, std::chrono::milliseconds timeout, const std::stop_token &stop,
            Open open)
        : info_(nothing) {
        constexpr const char *action = "can't open a TLS session with";
        detail::check_stop(stop, action, "peer");
        limit_steps(link, timeout);
        SSL_Socket_Info made = nothing;
        made.fdSocket = link.native_handle();
        {
            const detail::no_pipe_signal quiet;
            detail::handshake_limit limit(link.native_handle(), timeout, stop);
            const std::int32_t result = open(detail::c_path(own.certificate_file), detail::c_text<>(own.pass_phrase),
                                             detail::c_path(own.authorities_file), &made);
            const int why_ended = limit.finish();
            if (result != 0 && why_ended == 0)
                detail::refuse(result, action, "peer", own);
            if (result == 0) {
                info_ = made;
                (void)link.release();
            }
            if (why_ended != 0) {
                close();
                throw error(why_ended, action, "peer");
            }
        }
        try {
            // The C calls take an end without notice for an end; this tells it from a cut.
            const detail::openssl &tls = detail::the_openssl();
            if (tls.clear_options_of_3 != nullptr)
                tls.clear_options_of_3(info_.pSsl, detail::openssl::ignore_unexpected_end);
            detail::check(Domain_Sock_Set_Nonblocking(info_.fdSocket), action, "peer");
        } catch (...) {
            close();
            throw;
        }
    }

    static void limit_steps(const socket &link, std::chrono::milliseconds timeout) {
        const std::chrono::milliseconds limit(detail::positive_milliseconds(timeout, 0));
        const auto seconds = std::chrono::floor<std::chrono::seconds>(limit);
        const timeval time{.tv_sec = seconds.count(),
                           .tv_usec = std::chrono::duration_cast<std::chrono::microseconds>(limit - seconds).count()};
        for (const int option : {SO_RCVTIMEO, SO_SNDTIMEO})
            detail::check_system(::setsockopt(link.native_handle(), SOL_SOCKET, option, &time, sizeof time),
                                 "can't set the time-out of", "peer");
    }

    // Moves bytes step by step; nothing when the time is over and not all was wanted.
    template <class Step>
    std::optional<std::size_t> run(transfer &todo, std::chrono::milliseconds timeout, const std::stop_token &stop,
                                   const Step &step) {
        const detail::deadline end(timeout);
        const detail::stop_event stopped(stop);
        while (todo.moved < todo.wanted) {
            detail::check_stop(stop, todo.action, "peer");
            short events = 0;
            const std::int64_t count = attempt([&] { return step(todo.moved); }, todo, events);
            if (count > 0) {
                todo.moved += static_cast<std::size_t>(count);
                if (!todo.is_exact)
                    break;
            } else if (count == 0 && events == 0) {
                if (todo.is_exact)
                    fail(static_cast<int>(errc::peer_closed), todo);
                break;
            } else if (!detail::wait_for(info_.fdSocket, events, end, stopped, todo.action, "peer")) {
                if (todo.is_exact)
                    fail(static_cast<int>(errc::time_is_over), todo);
                return {};
            }
        }
        return todo.moved;
    }

    // One call of OpenSSL: a count, or 0 with what to wait for, or 0 for a session that the peer has ended.
    template <class Step>
    std::int64_t attempt(const Step &step, const transfer &todo, short &events) {
        const detail::openssl &tls = detail::the_openssl();
        const detail::no_pipe_signal quiet;
        tls.clear_errors();
        errno = 0;
        const std::int64_t count = step();
        if (count > 0)
            return count;

        const int code = errno;
        switch (tls.get_error(info_.pSsl, static_cast<int>(count))) {
            case detail::openssl::want_read:
                events = POLLIN;
                return 0;
            case detail::openssl::want_write:
                events = POLLOUT;
                return 0;
            case detail::openssl::peer_has_closed:
                return 0;
            case detail::openssl::system_failure:
                fail(code != 0 ? code : static_cast<int>(errc::peer_closed), todo);
            default:  // OpenSSL 3 counts a connection that was cut as a breach of the protocol, and tries to say so
                fail(is_cut() ? static_cast<int>(errc::peer_closed) : code != 0 ? code : EPROTO, todo);
        }
    }

    bool is_cut() const noexcept {
        char next = 0;
        return ::recv(info_.fdSocket, &next, 1, MSG_PEEK | MSG_DONTWAIT) == 0;
    }

    [[noreturn]] static void fail(int code, const transfer &todo) {
        throw transfer_error(code, todo.action, "peer", todo.moved, todo.wanted);
    }

    SSL_Socket_Info info_;
};

inline void session::peek_exactly(std::span<std::byte> buffer, std::chrono::milliseconds timeout,
                                  const std::stop_token &stop) {
    constexpr std::chrono::milliseconds pause{2};
    const detail::deadline end(timeout);
    const detail::stop_event stopped(stop);
    transfer todo{.action = "can't peek at", .wanted = buffer.size(), .is_exact = true};
    while (todo.moved < buffer.size()) {
        short events = 0;
        const auto count =
            attempt([&] { return SSL_Recv(&info_, buffer.data(), buffer.size(), MSG_PEEK); }, todo, events);
        todo.moved = static_cast<std::size_t>(count);
        if (todo.moved >= buffer.size())
            return;
        if (count == 0 && events == 0)
            fail(static_cast<int>(errc::peer_closed), todo);
        // With a part of it there the socket may be readable all the time.
        const bool waits = count == 0;
        const bool is_ready =
            waits ? detail::wait_for(info_.fdSocket, events, end, stopped, todo.action, "peer")
                  : (detail::wait_for(-1, 0, detail::deadline(pause), stopped, todo.action, "peer"), end.left() != 0);
        if (!is_ready)
            fail(static_cast<int>(errc::time_is_over), todo);
    }
}

inline void session::verify_peer(std::string_view host) const {
    detail::verify_certificate(info_.pSsl, host);
}

/// As `session::verify_peer`, for a session that a call of the C interface opened.
///
/// @param session  an open one
/// @param host     as there
inline void verify_peer(const SSL_Socket_Info &session, std::string_view host) {
    detail::verify_certificate(session.pSsl, host);
}

}  // namespace korvex::tls

#endif
