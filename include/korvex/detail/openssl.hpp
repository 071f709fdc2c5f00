/// @file
/// Internal: the functions of the OpenSSL that the library uses, found as it finds them. Nothing is linked.
#ifndef KORVEX_DETAIL_OPENSSL_HPP
#define KORVEX_DETAIL_OPENSSL_HPP

#include <dlfcn.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>

#include "korvex/error.hpp"
#include "socket.h"

namespace korvex::detail {

/// What the layer asks OpenSSL besides what the library does. Certificates are known by their address alone.
struct openssl {
    int (*get_error)(const SSL *, int) = nullptr;
    void (*clear_errors)() = nullptr;
    long (*verify_result)(const SSL *) = nullptr;
    void *(*peer_certificate)(const SSL *) = nullptr;
    void (*free_certificate)(void *) = nullptr;
    int (*check_host)(void *, const char *, std::size_t, unsigned, char **) = nullptr;
    int (*check_ip)(void *, const char *, unsigned) = nullptr;
    const char *(*error_text)(long) = nullptr;
    std::uint64_t (*clear_options_of_3)(SSL *, std::uint64_t) = nullptr;  // null before 3.0

    bool is_whole() const noexcept {
        return get_error && clear_errors && verify_result && peer_certificate && free_certificate && check_host &&
               check_ip && error_text;
    }

    // Numbers of its headers that have never changed.
    static constexpr int want_read = 2;
    static constexpr int want_write = 3;
    static constexpr int system_failure = 5;
    static constexpr int peer_has_closed = 6;
    static constexpr long not_yet_valid = 9;
    static constexpr long expired = 10;
    static constexpr long no_issuer = 2;             // its certificate is nowhere
    static constexpr long own_issuer = 18;           // the certificate is signed by itself
    static constexpr long own_issuer_in_chain = 19;  // the chain ends in one that is, and is not trusted
    static constexpr long no_trusted_issuer = 20;    // the issuer is not among the trusted ones
    static constexpr long no_issuer_at_all = 21;     // there is one certificate, and nothing to verify it by
    static constexpr long distrusted = 27;           // the authority is marked as not trusted
    static constexpr unsigned no_partial_wildcards = 4;
    static constexpr std::uint64_t ignore_unexpected_end = 0x80;
};

template <class Function>
void find_openssl(void *scope, const char *name, Function &function) noexcept {
    if (function == nullptr)
        function = reinterpret_cast<Function>(::dlsym(scope, name));
}

inline openssl found_openssl(void *scope) noexcept {
    openssl found;
    find_openssl(scope, "SSL_get_error", found.get_error);
    find_openssl(scope, "ERR_clear_error", found.clear_errors);
    find_openssl(scope, "SSL_get_verify_result", found.verify_result);
    find_openssl(scope, "SSL_get1_peer_certificate", found.peer_certificate);
    find_openssl(scope, "SSL_get_peer_certificate", found.peer_certificate);  // its name before 3.0
    find_openssl(scope, "X509_free", found.free_certificate);
    find_openssl(scope, "X509_check_host", found.check_host);
    find_openssl(scope, "X509_check_ip_asc", found.check_ip);
    find_openssl(scope, "X509_verify_cert_error_string", found.error_text);
    void *sign_of_3 = nullptr;
    find_openssl(scope, "SSL_CTX_new_ex", sign_of_3);
    if (sign_of_3 != nullptr)
        find_openssl(scope, "SSL_clear_options", found.clear_options_of_3);
    return found;
}

/// Call it when a context or a session was made: then the library has loaded OpenSSL where the process had none.
inline const openssl &the_openssl() {
    static const openssl table = [] {
        openssl found = found_openssl(RTLD_DEFAULT);
        for (const char *name : {"libssl.so.3", "libssl.so.1.1"})
            if (void *const library = found.is_whole() ? nullptr : ::dlopen(name, RTLD_NOW | RTLD_NOLOAD))
                found = found_openssl(library);  // libcrypto is looked through, too, as what it depends on
        if (!found.is_whole())
            throw error(EOPNOTSUPP, "can't use", "OpenSSL", "it lacks what is needed to verify peers");
        return found;
    }();
    return table;
}

}  // namespace korvex::detail

#endif
