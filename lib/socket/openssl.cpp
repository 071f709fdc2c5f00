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

// Weak references to all that is looked up. Because of them the link editor exports these functions from an executable that
// carries OpenSSL inside; without them it would not. Where nobody has a function, its reference is null.
#undef SSL_library_init
#undef SSL_load_error_strings
#undef SSLv23_method
extern "C" {
// NOLINTNEXTLINE(bugprone-macro-parentheses): a declared name
#define KORVEX_OPENSSL_WEAK(name) [[gnu::weak]] decltype(::name) name;
KORVEX_OPENSSL_FUNCTIONS(KORVEX_OPENSSL_WEAK)
KORVEX_OPENSSL_WEAK(OPENSSL_init_ssl)
KORVEX_OPENSSL_WEAK(SSL_CTX_new_ex)
KORVEX_OPENSSL_WEAK(SSL_CTX_set_num_tickets)
KORVEX_OPENSSL_WEAK(SSL_CTX_set_options)
KORVEX_OPENSSL_WEAK(TLS_method)
#undef KORVEX_OPENSSL_WEAK
[[gnu::weak]] int SSL_library_init();
[[gnu::weak]] void SSL_load_error_strings();
[[gnu::weak]] decltype(::TLS_method) SSLv23_method;
}

namespace korvex::socket {
namespace {

// Where a function is looked for.
class Scope final {
  public:
    // All that the process shows to everybody.
    Scope() = default;
    // A library and what it needs.
    explicit Scope(void *library) : library_(library) {}

    // A reference that is bound needs no look; what was loaded later, for everybody to see, is bound to none.
    template <class Function>
    [[nodiscard]] bool find(Function bound, const char *name, Function &function) const {
        function = bound;
        if (library_ != RTLD_DEFAULT || function == nullptr)
            function = reinterpret_cast<Function>(dlsym(library_, name));
        return function != nullptr;
    }

  private:
    void *library_ = RTLD_DEFAULT;
};

#define KORVEX_FIND(scope, name, function) (scope).find(&::name, #name, function)

// Whether the place lies in the object that has one of the table's functions of sessions and contexts. A host may put
// functions of its own before some of OpenSSL's; where all are another's, so are the contexts.
[[nodiscard]] bool shares_contexts(const OpenSsl &table, const void *place) {
    Dl_info owner;
    if (dladdr(place, &owner) == 0)
        return false;

    const auto is_there = [&owner](const void *function) {
        Dl_info found;
        return dladdr(function, &found) != 0 && found.dli_fbase == owner.dli_fbase;
    };
#define KORVEX_OPENSSL_IS_THERE(name) is_there(reinterpret_cast<const void *>(table.name)) ||
    // NOLINTNEXTLINE(readability-simplify-boolean-expr): the literal ends the chain of conditions
    return KORVEX_OPENSSL_FUNCTIONS(KORVEX_OPENSSL_IS_THERE) false;
#undef KORVEX_OPENSSL_IS_THERE
}

template <class Function>
void keep_if_shared(const OpenSsl &table, Function &function) {
    if (!shares_contexts(table, reinterpret_cast<const void *>(function)))
        function = nullptr;
}

void fill_later(const Scope &scope, OpenSsl &table) {
    if (KORVEX_FIND(scope, SSL_CTX_set_num_tickets, table.set_tickets))
        keep_if_shared(table, table.set_tickets);

    // The name of 3 tells the version. Before it the option's bit had another meaning.
    decltype(&::SSL_CTX_new_ex) sign_of_3 = nullptr;
    if (KORVEX_FIND(scope, SSL_CTX_new_ex, sign_of_3) &&
        KORVEX_FIND(scope, SSL_CTX_set_options, table.set_options_of_3))
        keep_if_shared(table, table.set_options_of_3);
}

[[nodiscard]] bool fill(const Scope &scope, OpenSsl &table) {
#define KORVEX_OPENSSL_FIND(name) KORVEX_FIND(scope, name, table.name) &&
    // NOLINTNEXTLINE(readability-simplify-boolean-expr): the literal ends the chain of conditions
    const bool has_all = KORVEX_OPENSSL_FUNCTIONS(KORVEX_OPENSSL_FIND) true;
#undef KORVEX_OPENSSL_FIND
    if (!has_all || !(KORVEX_FIND(scope, TLS_method, table.negotiating_method) ||
                      KORVEX_FIND(scope, SSLv23_method, table.negotiating_method)))
        return false;

    fill_later(scope, table);
    return true;
}

// The names of OpenSSL 1.0 first: a process that has them expects them to be called.
[[nodiscard]] bool initialise(const Scope &scope) {
    int (*library_init)() = nullptr;
    void (*load_error_strings)() = nullptr;
    if (KORVEX_FIND(scope, SSL_library_init, library_init) &&
        KORVEX_FIND(scope, SSL_load_error_strings, load_error_strings)) {
        library_init();
        load_error_strings();
        return true;
    }

    decltype(&::OPENSSL_init_ssl) init_ssl = nullptr;
    return KORVEX_FIND(scope, OPENSSL_init_ssl, init_ssl) && init_ssl(OPENSSL_INIT_LOAD_SSL_STRINGS, nullptr) == 1;
}

// What the process has comes first; the system's own library is loaded where it has nothing, and stays.
[[nodiscard]] bool load(OpenSsl &table) {
    const Scope process;
    if (fill(process, table))
        return initialise(process);

    void *library = dlopen(KORVEX_LIBSSL, RTLD_NOW | RTLD_LOCAL);
    const Scope system(library);
    return library != nullptr && fill(system, table) && initialise(system);
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
