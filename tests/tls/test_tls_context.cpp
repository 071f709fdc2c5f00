// Making TLS contexts: what is loaded, in which order, and what each failure leaves.
#include <fcntl.h>
#include <openssl/pem.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <string>
#include <vector>

#include "heap.h"
#include "tls_world.h"

using namespace tls_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr const char *kNoCertificate = "[error] CTX_Initialize(#): Can't read certificate file! (%d)\n";
constexpr const char *kNoKey = "[error] CTX_Initialize(#): Can't read key file!\n";
constexpr const char *kNoAuthority = "[error] CTX_Initialize(#): Can't read CA list!\n";

std::string no_certificate(int code) {
    std::string message = kNoCertificate;
    return message.replace(message.find("%d"), 2, std::to_string(code));
}

// Not a context, and not null.
char g_nowhere;
SSL_CTX *const kSentinel = reinterpret_cast<SSL_CTX *>(&g_nowhere);

// A context that goes with the test.
struct Context {
    ~Context() { CTX_Destroy(pointer); }

    SSL_CTX *pointer = nullptr;
};

class TlsContext : public TlsTest {
  protected:
    const CertificateFiles &files_ = certificates();

    int32_t make(const std::string &certificate, const char *pass_phrase, SSL_CTX **context) const {
        return CTX_Initialize(certificate.c_str(), pass_phrase, files_.authority.c_str(), context);
    }

    void expect_refused(const std::string &certificate, const std::string &pass_phrase, const std::string &authority,
                        int32_t code, const std::string &message) const {
        SCOPED_TRACE(certificate + " " + authority);
        LogCapture log(1);
        SSL_CTX *context = kSentinel;
        EXPECT_EQ(CTX_Initialize(certificate.c_str(), pass_phrase.c_str(), authority.c_str(), &context), code);
        EXPECT_EQ(context, nullptr);
        EXPECT_THAT(log.messages(), ElementsAre(message));
    }
};

}  // namespace

TEST_F(TlsContext, refuses_null_arguments_and_makes_nothing) {
    const char *file = files_.host.c_str();
    Hook<SSL_CTX_new> made(SSL_CTX_new);
    LogCapture log;
    SSL_CTX *context = kSentinel;

    EXPECT_EQ(CTX_Initialize(nullptr, "", file, &context), -EINVAL);
    EXPECT_EQ(CTX_Initialize(file, nullptr, file, &context), -EINVAL);
    EXPECT_EQ(CTX_Initialize(file, "", nullptr, &context), -EINVAL);
    EXPECT_EQ(CTX_Initialize(file, "", file, nullptr), -EINVAL);
    EXPECT_EQ(context, kSentinel);
    EXPECT_EQ(made.calls(), 0);
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_F(TlsContext, loads_certificates_with_plain_and_with_locked_keys) {
    const struct {
        std::string certificate;
        const char *pass_phrase;
    } rows[] = {
        {files_.host, ""},
        {files_.host, "not asked for"},
        {files_.key_first, ""},
        {files_.chain, ""},
        {files_.rsa(), ""},
        {files_.locked, kPassPhrase},
        {files_.locked_old_form, kPassPhrase},
        {files_.expired, ""},
    };

    for (const auto &row : rows) {
        SCOPED_TRACE(row.certificate);
        LogCapture log;
        Context context;
        EXPECT_EQ(make(row.certificate, row.pass_phrase, &context.pointer), 0);
        ASSERT_NE(context.pointer, nullptr);
        EXPECT_EQ(SSL_CTX_check_private_key(context.pointer), 1);
        EXPECT_THAT(log.messages(), IsEmpty());
    }
}

TEST_F(TlsContext, takes_the_whole_chain_and_the_list_of_authorities) {
    Context context;
    ASSERT_EQ(make(files_.chain, "", &context.pointer), 0);

    STACK_OF(X509) *chain = nullptr;
    SSL_CTX_get0_chain_certs(context.pointer, &chain);
    EXPECT_EQ(sk_X509_num(chain), 2);
    std::array<char, 64> name{};
    X509_NAME_get_text_by_NID(X509_get_subject_name(SSL_CTX_get0_certificate(context.pointer)), NID_commonName,
                              name.data(), name.size());
    EXPECT_STREQ(name.data(), "nas.test");
    EXPECT_EQ(sk_X509_OBJECT_num(X509_STORE_get0_objects(SSL_CTX_get_cert_store(context.pointer))), 1);
}

TEST_F(TlsContext, leaves_versions_modes_and_verification_as_openssl_has_them) {
    Context context;
    ASSERT_EQ(make(files_.host, "", &context.pointer), 0);
    SSL_CTX *fresh = SSL_CTX_new(TLS_method());

    EXPECT_EQ(SSL_CTX_get_ssl_method(context.pointer), TLS_method());
    EXPECT_EQ(SSL_CTX_get_min_proto_version(context.pointer), SSL_CTX_get_min_proto_version(fresh));
    EXPECT_EQ(SSL_CTX_get_max_proto_version(context.pointer), SSL_CTX_get_max_proto_version(fresh));
    // A peer that ends without a notice has ended: so it was before OpenSSL 3.
    EXPECT_EQ(SSL_CTX_get_options(context.pointer), SSL_CTX_get_options(fresh) | SSL_OP_IGNORE_UNEXPECTED_EOF);
    EXPECT_EQ(SSL_CTX_get_mode(context.pointer), SSL_CTX_get_mode(fresh));
    EXPECT_EQ(SSL_CTX_get_verify_mode(context.pointer), SSL_VERIFY_NONE);
    SSL_CTX_free(fresh);
}

TEST_F(TlsContext, loads_certificate_then_key_then_authorities) {
    std::vector<std::string> steps;
    Hook<SSL_CTX_use_certificate_chain_file> certificate([&](SSL_CTX *context, const char *path) {
        steps.push_back("certificate " + std::string(path));
        return SSL_CTX_use_certificate_chain_file(context, path);
    });
    Hook<SSL_CTX_set_default_passwd_cb> callback([&](SSL_CTX *context, pem_password_cb *function) {
        steps.push_back("pass phrase");
        SSL_CTX_set_default_passwd_cb(context, function);
    });
    Hook<SSL_CTX_use_PrivateKey_file> key([&](SSL_CTX *context, const char *path, int type) {
        steps.push_back((type == SSL_FILETYPE_PEM ? "PEM key " : "key ") + std::string(path));
        return SSL_CTX_use_PrivateKey_file(context, path, type);
    });
    Hook<SSL_CTX_load_verify_locations> authorities([&](SSL_CTX *context, const char *file, const char *folder) {
        steps.push_back("authorities " + std::string(file) + (folder == nullptr ? "" : " and a folder"));
        return SSL_CTX_load_verify_locations(context, file, folder);
    });

    Context context;
    EXPECT_EQ(make(files_.host, "", &context.pointer), 0);
    EXPECT_THAT(steps, ElementsAre("certificate " + files_.host, "pass phrase", "PEM key " + files_.host,
                                   "authorities " + files_.authority));
}

TEST_F(TlsContext, reports_why_a_certificate_file_cannot_be_read) {
    const TempFolder folder;
    ASSERT_EQ(symlink("loop", folder.path("loop").c_str()), 0);
    const struct {
        std::string path;
        int error;
    } rows[] = {
        {files_.missing, ENOENT},     {"", ENOENT},
        {files_.folder, EISDIR},      {files_.host + "/below", ENOTDIR},
        {folder.path("loop"), ELOOP}, {folder.path(std::string(256, 'n')), ENAMETOOLONG},
    };

    for (const auto &row : rows)
        expect_refused(row.path, "", files_.authority, -row.error, no_certificate(-row.error));
}

TEST_F(TlsContext, reports_a_certificate_file_without_permission) {
    if (!can_be_nobody())
        GTEST_SKIP() << "only a privileged program can become another user";
    const TempFolder folder;
    ASSERT_EQ(chmod(folder.path().c_str(), 0755), 0);
    const std::string secret = folder.file("secret.pem", read_file(files_.host));
    ASSERT_EQ(chmod(secret.c_str(), 0600), 0);

    EXPECT_EQ(in_child_as_nobody([&] {
                  expect_refused(secret, "", files_.authority, -EACCES, no_certificate(-EACCES));
                  return HasFailure() ? 1 : 0;
              }),
              0);
}

TEST_F(TlsContext, reports_a_key_that_cannot_be_loaded) {
    const struct {
        std::string certificate;
        const char *pass_phrase;
    } rows[] = {
        {files_.no_key, ""},
        {files_.other_key, ""},
        {files_.locked, "wrong"},
        {files_.locked, ""},
        {files_.locked, "correct hors"},
        {files_.locked, "correct horse "},
        {files_.locked_old_form, ""},
        {files_.locked_old_form, "wrong"},
        // These have no certificate either, which is passed over.
        {files_.empty, ""},
        {files_.garbage, ""},
        {files_.cut, ""},
        {files_.folder + "/../garbage.pem", ""},
    };

    for (const auto &row : rows)
        expect_refused(row.certificate, row.pass_phrase, files_.authority, -ENOENT, kNoKey);
}

TEST_F(TlsContext, reports_authorities_that_cannot_be_loaded) {
    for (const std::string &authority :
         {files_.missing, files_.folder, files_.garbage, files_.cut, files_.empty, files_.only_key, std::string()})
        expect_refused(files_.host, "", authority, -ENOENT, kNoAuthority);
}

TEST_F(TlsContext, passes_over_a_certificate_that_is_refused_without_a_system_error) {
    LogCapture log;
    Context context;
    EXPECT_EQ(make(files_.only_key, "", &context.pointer), 0);
    ASSERT_NE(context.pointer, nullptr);
    EXPECT_EQ(SSL_CTX_get0_certificate(context.pointer), nullptr);
    EXPECT_NE(SSL_CTX_get0_privatekey(context.pointer), nullptr);
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_F(TlsContext, counts_a_certificate_as_failed_by_result_and_errno_together) {
    const struct {
        int result;
        int error;
        int32_t code;
    } rows[] = {
        {1, 0, 0},
        {1, EIO, 0},
        {0, 0, 0},
        {-1, 0, 0},
        {2, 0, 0},
        {0, EIO, -EIO},
        {-1, ENOENT, -ENOENT},
        {2, EMFILE, -EMFILE},
    };

    for (const auto &row : rows) {
        SCOPED_TRACE(std::to_string(row.result) + " " + std::to_string(row.error));
        int at_entry = -1;
        Hook<SSL_CTX_use_certificate_chain_file> answer([&](SSL_CTX *, const char *) {
            at_entry = errno;
            errno = row.error;
            return row.result;
        });
        LogCapture log(1);
        Context context;
        context.pointer = nullptr;
        errno = EBUSY;
        EXPECT_EQ(make(files_.host, "", &context.pointer), row.code);
        EXPECT_EQ(at_entry, 0);
        EXPECT_EQ(context.pointer == nullptr, row.code != 0);
        if (row.code == 0)
            EXPECT_THAT(log.messages(), IsEmpty());
        else
            EXPECT_THAT(log.messages(), ElementsAre(no_certificate(row.code)));
    }
}

TEST_F(TlsContext, reports_a_context_that_cannot_be_made) {
    Hook<SSL_CTX_new> answer([](const SSL_METHOD *) -> SSL_CTX * { return nullptr; });
    SSL_CTX *context = kSentinel;
    EXPECT_EQ(make(files_.host, "", &context), -ENOMEM);
    EXPECT_EQ(context, nullptr);
    EXPECT_EQ(answer.calls(), 1);
}

TEST_F(TlsContext, frees_what_a_failed_call_has_made) {
    const struct {
        std::string certificate;
        std::string authority;
    } rows[] = {{files_.missing, files_.authority}, {files_.no_key, files_.authority}, {files_.host, files_.missing}};

    for (const auto &row : rows) {
        SCOPED_TRACE(row.certificate + " " + row.authority);
        SSL_CTX *made = nullptr;
        SSL_CTX *freed = nullptr;
        Hook<SSL_CTX_new> making([&](const SSL_METHOD *method) { return made = SSL_CTX_new(method); });
        Hook<SSL_CTX_free> freeing([&](SSL_CTX *context) { SSL_CTX_free(freed = context); });
        SSL_CTX *context = kSentinel;
        EXPECT_LT(CTX_Initialize(row.certificate.c_str(), "", row.authority.c_str(), &context), 0);
        EXPECT_NE(made, nullptr);
        EXPECT_EQ(freed, made);
        EXPECT_EQ(freeing.calls(), 1);
    }
}

TEST_F(TlsContext, loses_no_memory) {
    for (const std::string *file : {&files_.host, &files_.locked, &files_.missing, &files_.no_key}) {
        const auto round = [&] {
            Context context;
            make(*file, kPassPhrase, &context.pointer);
        };
        EXPECT_FALSE(loses_memory_in_thread(round)) << *file;
    }
}

TEST_F(TlsContext, destroying_frees_the_context_and_nothing_else) {
    SSL_CTX *context = nullptr;
    ASSERT_EQ(make(files_.host, "", &context), 0);

    SSL_CTX *freed = nullptr;
    Hook<SSL_CTX_free> freeing([&](SSL_CTX *pointer) { SSL_CTX_free(freed = pointer); });
    CTX_Destroy(context);
    EXPECT_EQ(freed, context);
    EXPECT_EQ(freeing.calls(), 1);
    CTX_Destroy(nullptr);
}
