#include "openssl.h"

#include <dlfcn.h>
#include <pthread.h>

#include <cerrno>

#include "base/message.h"
#include "base/mutex_lock.h"

// The library's file name, as the dynamic linker knows it: that of the headers at hand.
#define KORVEX_TEXT_OF(number) #number
#define KORVEX_LIBSSL_OF(version) "libssl.so." KORVEX_TEXT_OF(version)
#define KORVEX_LIBSSL KORVEX_LIBSSL_OF(OPENSSL_SHLIB_VERSION)

// Tells packaging tools what is loaded at run time: a note of the type that systemd's "dlopen metadata" describes.
__asm__(
    ".pushsection .note.dlopen, \"a\", %note\n"
    ".balign 4\n"
    ".long 2f - 1f\n"
    ".long 4f - 3f\n"
    ".long 0x407c0c0a\n"
    "1: .asciz \"FDO\"\n"
    "2: .balign 4\n"
    "3: .asciz \"[{\\\"feature\\\":\\\"tls\\\",\\\"description\\\":\\\"TLS sessions\\\","
    "\\\"priority\\\":\\\"suggested\\\",\\\"soname\\\":[\\\"" KORVEX_LIBSSL
    "\\\"]}]\"\n"
    "4: .balign 4\n"
    ".popsection\n");

namespace korvex::socket {
namespace {

template <class Function>
[[nodiscard]] bool find(void *scope, const char *name, Function &function) {
    function = reinterpret_cast<Function>(dlsym(scope, name));
    return function != nullptr;
}

[[nodiscard]] bool fill(void *scope, OpenSsl &table) {
#define KORVEX_OPENSSL_FIND(name) find(scope, #name, table.name) &&
    // NOLINTNEXTLINE(readability-simplify-boolean-expr): the literal ends the chain of conditions
    const bool has_all = KORVEX_OPENSSL_FUNCTIONS(KORVEX_OPENSSL_FIND) true;
#undef KORVEX_OPENSSL_FIND
    return has_all && (find(scope, "TLS_method", table.negotiating_method) ||
                       find(scope, "SSLv23_method", table.negotiating_method));
}

// The names of OpenSSL 1.0 first: a process that has them expects them to be called.
[[nodiscard]] bool initialise(void *scope) {
    int (*library_init)() = nullptr;
    void (*load_error_strings)() = nullptr;
    if (find(scope, "SSL_library_init", library_init) && find(scope, "SSL_load_error_strings", load_error_strings)) {
        library_init();
        load_error_strings();
        return true;
    }

    decltype(&::OPENSSL_init_ssl) init_ssl = nullptr;
    return find(scope, "OPENSSL_init_ssl", init_ssl) && init_ssl(OPENSSL_INIT_LOAD_SSL_STRINGS, nullptr) == 1;
}

// What the process has comes first; the system's own library is loaded where it has nothing, and stays.
[[nodiscard]] bool load(OpenSsl &table) {
    if (fill(RTLD_DEFAULT, table))
        return initialise(RTLD_DEFAULT);

    void *library = dlopen(KORVEX_LIBSSL, RTLD_NOW | RTLD_LOCAL);
    return library != nullptr && fill(library, table) && initialise(library);
}

}  // namespace

const OpenSsl *openssl(const char *function) {
    static OpenSsl table;
    static const OpenSsl *ready = nullptr;  // the table, once it is filled
    static pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;

    if (const OpenSsl *found = __atomic_load_n(&ready, __ATOMIC_ACQUIRE); found != nullptr)
        return found;

    const MutexLock lock(&mutex);
    if (ready == nullptr && load(table))
        __atomic_store_n(&ready, &table, __ATOMIC_RELEASE);
    if (ready == nullptr)
        LOG_ERROR_AS(function, "Can't find OpenSSL for TLS! (%d)\n", -EOPNOTSUPP);
    return ready;
}

}  // namespace korvex::socket
