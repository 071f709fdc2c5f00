/// @file
/// Internal: whether the peer of a TLS session is the one that it should be.
#ifndef KORVEX_DETAIL_VERIFY_HPP
#define KORVEX_DETAIL_VERIFY_HPP

#include <cerrno>
#include <memory>
#include <string_view>

#include "korvex/detail/c_text.hpp"
#include "korvex/detail/openssl.hpp"
#include "korvex/error.hpp"
#include "korvex/net_address.hpp"

namespace korvex::detail {

/// Throws unless the peer of a session has a certificate that is trusted, of this time, and for a name.
inline void verify_certificate(const SSL *session, std::string_view host) {
    constexpr const char *action = "can't trust";
    const openssl &tls = the_openssl();
    // A name that begins with a dot would stand for all names below it.
    if (host.empty() || host.front() == '.')
        throw error(EINVAL, action, host, "it is not a name of a host");
    const c_text<> name(host);
    const std::unique_ptr<void, void (*)(void *)> certificate(tls.peer_certificate(session), tls.free_certificate);
    if (!certificate)
        throw error(errc::no_certificate, action, host);

    switch (const long result = tls.verify_result(session)) {
        case 0:
            break;
        case openssl::expired:
            throw error(errc::certificate_expired, action, host);
        case openssl::not_yet_valid:
            throw error(errc::certificate_not_yet_valid, action, host);
        case openssl::no_issuer:
        case openssl::own_issuer:
        case openssl::own_issuer_in_chain:
        case openssl::no_trusted_issuer:
        case openssl::no_issuer_at_all:
        case openssl::distrusted:
            throw error(errc::not_trusted, action, host, tls.error_text(result));
        default:
            throw error(errc::not_verified, action, host, tls.error_text(result));
    }

    const bool is_address = to_bytes(host).has_value();
    const int matches =
        is_address ? tls.check_ip(certificate.get(), name, 0)
                   : tls.check_host(certificate.get(), name, host.size(), openssl::no_partial_wildcards, nullptr);
    if (matches != 1)
        throw error(errc::name_mismatch, action, host);
}

}  // namespace korvex::detail

#endif
