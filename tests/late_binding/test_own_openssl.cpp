// A host that is linked with OpenSSL: the library calls what the host has, and that may be the host's own functions.
#include <dlfcn.h>
#include <openssl/ssl.h>

#include <cerrno>
#include <string>
#include <utility>
#include <vector>

#include "late_binding.h"

using namespace late_binding_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::vector<std::string> g_steps;

// OpenSSL calls its own functions, too, by way of the process: what happens inside one of them is not the library's step.
int g_depth = 0;

struct Step {
    explicit Step(const char *name) {
        if (g_depth++ == 0)
            g_steps.push_back(name);
    }
    ~Step() { g_depth--; }
    Step(const Step &) = delete;
    Step &operator=(const Step &) = delete;
};

template <class Function>
Function *openssl_function(const char *name) {
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

std::vector<std::string> steps_of_a_context(const CertificateFile &file) {
    g_steps.clear();
    SSL_CTX *context = nullptr;
    EXPECT_EQ(CTX_Initialize(file.path().c_str(), "", file.path().c_str(), &context), 0);
    EXPECT_NE(context, nullptr);
    CTX_Destroy(context);
    return std::exchange(g_steps, {});
}

}  // namespace

int OPENSSL_init_ssl(uint64_t options, const OPENSSL_INIT_SETTINGS *settings) {
    const Step step("OPENSSL_init_ssl");
    return openssl_function<decltype(OPENSSL_init_ssl)>("OPENSSL_init_ssl")(options, settings);
}

const SSL_METHOD *TLS_method() {
    const Step step("TLS_method");
    return openssl_function<decltype(TLS_method)>("TLS_method")();
}

SSL_CTX *SSL_CTX_new(const SSL_METHOD *method) {
    const Step step("SSL_CTX_new");
    return openssl_function<decltype(SSL_CTX_new)>("SSL_CTX_new")(method);
}

void SSL_CTX_free(SSL_CTX *context) {
    const Step step("SSL_CTX_free");
    openssl_function<decltype(SSL_CTX_free)>("SSL_CTX_free")(context);
}

#ifdef OPENSSL_1_0_NAMES
#undef SSL_library_init
#undef SSL_load_error_strings

extern "C" int SSL_library_init() {
    const Step step("SSL_library_init");
    return 1;
}

extern "C" void SSL_load_error_strings() {
    const Step step("SSL_load_error_strings");
}

// A host that brings the names of OpenSSL 1.0 along has them called.
TEST(OldNames, are_called_once_before_the_first_context) {
    in_fresh_process([] {
        const CertificateFile file;
        SSL_CTX *context = nullptr;
        EXPECT_EQ(CTX_Initialize(nullptr, "", "", &context), -EINVAL);
        EXPECT_THAT(g_steps, IsEmpty());
        EXPECT_THAT(steps_of_a_context(file), ElementsAre("SSL_library_init", "SSL_load_error_strings", "TLS_method",
                                                          "SSL_CTX_new", "SSL_CTX_free"));
        EXPECT_THAT(steps_of_a_context(file), ElementsAre("TLS_method", "SSL_CTX_new", "SSL_CTX_free"));
    });
}

TEST(OldNames, are_called_once_also_where_the_first_context_fails) {
    in_fresh_process([] {
        const CertificateFile file;
        SSL_CTX *context = nullptr;
        EXPECT_EQ(CTX_Initialize("/nowhere", "", "", &context), -ENOENT);
        EXPECT_THAT(g_steps, ElementsAre("SSL_library_init", "SSL_load_error_strings", "TLS_method", "SSL_CTX_new",
                                         "SSL_CTX_free"));
        EXPECT_THAT(steps_of_a_context(file), ElementsAre("TLS_method", "SSL_CTX_new", "SSL_CTX_free"));
    });
}

#else

TEST(OwnOpenssl, is_what_the_library_calls) {
    in_fresh_process([] {
        const CertificateFile file;
        SSL_CTX *context = nullptr;
        EXPECT_EQ(CTX_Initialize(nullptr, "", "", &context), -EINVAL);
        EXPECT_THAT(g_steps, IsEmpty());
        EXPECT_THAT(steps_of_a_context(file),
                    ElementsAre("OPENSSL_init_ssl", "TLS_method", "SSL_CTX_new", "SSL_CTX_free"));
        EXPECT_THAT(steps_of_a_context(file), ElementsAre("TLS_method", "SSL_CTX_new", "SSL_CTX_free"));
    });
}

TEST(OwnOpenssl, is_the_only_one_in_the_process) {
    in_fresh_process([] {
        const std::set<std::string> before = mapped_openssl();
        EXPECT_EQ(before.size(), 2U);  // libssl and libcrypto
        steps_of_a_context(CertificateFile());
        EXPECT_EQ(mapped_openssl(), before);
    });
}

#endif
