// Certificates and keys for the tests, made on the spot.
#pragma once

#include <string>

#include "sandbox.h"

namespace tls_test {

constexpr const char *kPassPhrase = "correct horse";

// Files in PEM form; the keys are EC P-256 where nothing else is said.
class CertificateFiles {
  public:
    CertificateFiles();

    std::string authority;        // a CA, which has signed the certificates below
    std::string other_authority;  // a CA that has signed none of them
    std::string host;             // certificate and plain key
    std::string key_first;        // the same, the other way round
    std::string expired;          // a certificate of last week, and its key
    std::string chain;            // host, intermediate and root certificates, and the host's key
    std::string locked;           // certificate, and key that kPassPhrase opens
    std::string locked_old_form;  // the same with the key in OpenSSL's own form from before PKCS#8
    std::string no_key;           // certificate alone
    std::string only_key;         // key alone
    std::string other_key;        // certificate, and the key of another one
    std::string garbage;          // bytes
    std::string cut;              // a certificate that ends in the middle
    std::string empty;
    std::string folder;
    std::string missing;

    // A certificate, and its plain RSA key: a function, since such a key takes its time.
    std::string rsa() const;
    // A certificate, and its key locked by `pass_phrase`.
    std::string locked_with(const std::string &pass_phrase) const;

  private:
    support::TempFolder place_;
};

// Made on first use, once a program.
const CertificateFiles &certificates();

}  // namespace tls_test
