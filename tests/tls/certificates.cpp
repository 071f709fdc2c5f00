#include "certificates.h"

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <sys/stat.h>

#include <functional>
#include <memory>
#include <stdexcept>

namespace tls_test {
namespace {

template <auto Free>
struct Freeing {
    template <class Type>
    void operator()(Type *object) const {
        Free(object);
    }
};

using Key = std::unique_ptr<EVP_PKEY, Freeing<EVP_PKEY_free>>;
using Certificate = std::unique_ptr<X509, Freeing<X509_free>>;

constexpr long kDay = 24 * 60 * 60;

void require(bool done, const char *what) {
    if (!done)
        throw std::runtime_error(std::string("can't make ") + what);
}

Key new_key() {
    Key key(EVP_EC_gen("P-256"));
    require(key != nullptr, "an EC key");
    return key;
}

struct Wish {
    const char *name;
    bool authority;
    long begin;  // seconds from now
    long end;
};

void extend(X509 *certificate, int kind, const char *value) {
    X509_EXTENSION *extension = X509V3_EXT_conf_nid(nullptr, nullptr, kind, value);
    require(extension != nullptr && X509_add_ext(certificate, extension, -1) == 1, "an extension");
    X509_EXTENSION_free(extension);
}

// Without an issuer the certificate is signed by its own key.
Certificate issue(const Wish &wish, const Key &key, const Certificate &issuer, const Key &issuer_key) {
    static long serial = 1;
    Certificate certificate(X509_new());
    require(certificate != nullptr, "a certificate");

    X509_set_version(certificate.get(), X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), serial++);
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), wish.begin);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), wish.end);
    X509_set_pubkey(certificate.get(), key.get());
    X509_NAME *name = X509_get_subject_name(certificate.get());
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char *>(wish.name), -1, -1, 0);
    X509_set_issuer_name(certificate.get(), issuer ? X509_get_subject_name(issuer.get()) : name);
    extend(certificate.get(), NID_basic_constraints, wish.authority ? "critical,CA:TRUE" : "CA:FALSE");

    require(X509_sign(certificate.get(), issuer ? issuer_key.get() : key.get(), EVP_sha256()) > 0, "a signature");
    return certificate;
}

std::string text_of(const std::function<int(BIO *)> &write) {
    std::unique_ptr<BIO, Freeing<BIO_free>> memory(BIO_new(BIO_s_mem()));
    require(write(memory.get()) == 1, "a PEM text");
    char *data = nullptr;
    const long size = BIO_get_mem_data(memory.get(), &data);
    return {data, static_cast<size_t>(size)};
}

std::string pem(const Certificate &certificate) {
    return text_of([&](BIO *out) { return PEM_write_bio_X509(out, certificate.get()); });
}

std::string pem(const Key &key) {
    return text_of(
        [&](BIO *out) { return PEM_write_bio_PKCS8PrivateKey(out, key.get(), nullptr, nullptr, 0, nullptr, nullptr); });
}

std::string locked_pem(const Key &key, const std::string &phrase) {
    return text_of([&](BIO *out) {
        return PEM_write_bio_PKCS8PrivateKey(out, key.get(), EVP_aes_256_cbc(), phrase.data(),
                                             static_cast<int>(phrase.size()), nullptr, nullptr);
    });
}

std::string old_locked_pem(const Key &key, const std::string &phrase) {
    const auto *bytes = reinterpret_cast<const unsigned char *>(phrase.data());
    return text_of([&](BIO *out) {
        return PEM_write_bio_PrivateKey_traditional(out, key.get(), EVP_aes_256_cbc(), bytes,
                                                    static_cast<int>(phrase.size()), nullptr, nullptr);
    });
}

constexpr Wish kRoot{"korvex test root", true, -kDay, 30 * kDay};
constexpr Wish kIntermediate{"korvex test intermediate", true, -kDay, 30 * kDay};
constexpr Wish kHost{"nas.test", false, -kDay, 30 * kDay};
constexpr Wish kExpired{"nas.test", false, -7 * kDay, -kDay};

}  // namespace

CertificateFiles::CertificateFiles() {
    const Key root_key = new_key();
    const Key middle_key = new_key();
    const Key key = new_key();
    const Certificate root = issue(kRoot, root_key, {}, {});
    const Certificate middle = issue(kIntermediate, middle_key, root, root_key);
    const Certificate certificate = issue(kHost, key, root, root_key);
    const Key other_root_key = new_key();

    authority = place_.file("authority.pem", pem(root));
    other_authority = place_.file("other_authority.pem", pem(issue(kRoot, other_root_key, {}, {})));
    host = place_.file("host.pem", pem(certificate) + pem(key));
    key_first = place_.file("key_first.pem", pem(key) + pem(certificate));
    expired = place_.file("expired.pem", pem(issue(kExpired, key, root, root_key)) + pem(key));
    chain = place_.file("chain.pem", pem(issue(kHost, key, middle, middle_key)) + pem(middle) + pem(root) + pem(key));
    locked = place_.file("locked.pem", pem(certificate) + locked_pem(key, kPassPhrase));
    locked_old_form = place_.file("locked_old_form.pem", pem(certificate) + old_locked_pem(key, kPassPhrase));
    no_key = place_.file("no_key.pem", pem(certificate));
    only_key = place_.file("only_key.pem", pem(key));
    other_key = place_.file("other_key.pem", pem(certificate) + pem(middle_key));
    garbage = place_.file("garbage.pem", std::string("\x7f\x00\xff-----BEGIN nothing\n", 20));
    cut = place_.file("cut.pem", pem(certificate).substr(0, 200));
    empty = place_.file("empty.pem", "");
    folder = place_.path("folder");
    mkdir(folder.c_str(), 0755);
    missing = place_.path("missing.pem");
}

std::string CertificateFiles::rsa() const {
    const Key key(EVP_RSA_gen(2048));
    require(key != nullptr, "an RSA key");
    return place_.file("rsa.pem", pem(issue(kHost, key, {}, {})) + pem(key));
}

std::string CertificateFiles::locked_with(const std::string &pass_phrase) const {
    const Key key = new_key();
    return place_.file("locked_with_" + std::to_string(pass_phrase.size()) + ".pem",
                       pem(issue(kHost, key, {}, {})) + locked_pem(key, pass_phrase));
}

const CertificateFiles &certificates() {
    static const CertificateFiles files;
    return files;
}

}  // namespace tls_test
