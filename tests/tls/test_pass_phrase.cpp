// How OpenSSL is given the pass phrase of a key.
#include <openssl/pem.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <string>
#include <thread>

#include "openssl_hooks.h"
#include "tls_world.h"

using namespace tls_test;
using testing::ElementsAre;

namespace {

class PassPhrase : public TlsTest {
  protected:
    ~PassPhrase() override { CTX_Destroy(context_); }

    // Installs the callback for a text, and returns what OpenSSL was given.
    pem_password_cb *callback_for(const char *pass_phrase) {
        CTX_Destroy(context_);
        context_ = nullptr;
        EXPECT_EQ(CTX_Initialize(certificates().host.c_str(), pass_phrase, certificates().authority.c_str(), &context_),
                  0);
        return SSL_CTX_get_default_passwd_cb(context_);
    }

    SSL_CTX *context_ = nullptr;
    std::array<char, 64> buffer_{};
};

// The size of the buffer that OpenSSL offers while it loads a locked key.
int offered_size() {
    int size = 0;
    SSL_CTX *context = SSL_CTX_new(TLS_method());
    SSL_CTX_set_default_passwd_cb(context, [](char *, int offered, int, void *data) {
        *static_cast<int *>(data) = offered;
        return -1;
    });
    SSL_CTX_set_default_passwd_cb_userdata(context, &size);
    SSL_CTX_use_PrivateKey_file(context, certificates().locked.c_str(), SSL_FILETYPE_PEM);
    SSL_CTX_free(context);
    return size;
}

}  // namespace

TEST_F(PassPhrase, is_copied_with_its_end_where_it_fits) {
    const struct {
        const char *text;
        int size;
        int result;
    } rows[] = {
        {"secret", 64, 6},
        {"secret", 8, 6},
        {"secret", 7, 6},
        {"secret", 6, 0},
        {"secret", 1, 0},
        {"secret", 0, 0},
        {"", 1, 0},
        {"", 0, 0},
        // The size is compared unsigned.
        {"secret", -1, 6},
        {"secret", INT_MIN, 6},
    };

    for (const auto &row : rows) {
        SCOPED_TRACE(std::string(row.text) + " " + std::to_string(row.size));
        pem_password_cb *callback = callback_for(row.text);
        ASSERT_NE(callback, nullptr);
        for (const int writing : {0, 1}) {
            buffer_.fill('#');
            EXPECT_EQ(callback(buffer_.data(), row.size, writing, writing == 0 ? nullptr : this), row.result);
            const bool fits = static_cast<size_t>(row.size) >= std::strlen(row.text) + 1;
            const size_t written = fits ? std::strlen(row.text) + 1 : 0;
            EXPECT_EQ(std::string(buffer_.data(), written), std::string(row.text, written));
            EXPECT_EQ(buffer_[written], '#');
        }
    }
}

TEST_F(PassPhrase, is_the_caller_s_own_text) {
    std::string text = "before";
    pem_password_cb *callback = callback_for(text.c_str());
    text.replace(0, text.size(), "after!");
    EXPECT_EQ(callback(buffer_.data(), static_cast<int>(buffer_.size()), 0, nullptr), 6);
    EXPECT_STREQ(buffer_.data(), "after!");
}

TEST_F(PassPhrase, is_that_of_the_latest_context_for_all_of_them) {
    pem_password_cb *first = callback_for("one");
    SSL_CTX *other = nullptr;
    ASSERT_EQ(CTX_Initialize(certificates().host.c_str(), "three", certificates().authority.c_str(), &other), 0);
    EXPECT_EQ(first(buffer_.data(), static_cast<int>(buffer_.size()), 0, nullptr), 5);
    EXPECT_STREQ(buffer_.data(), "three");
    CTX_Destroy(other);
}

TEST_F(PassPhrase, opens_a_key_only_as_far_as_openssl_s_buffer_takes_it) {
    const int size = offered_size();
    ASSERT_GT(size, 8);
    const std::string longest(static_cast<size_t>(size) - 1, 'p');
    const std::string too_long(static_cast<size_t>(size), 'p');
    const char *authority = certificates().authority.c_str();

    EXPECT_EQ(CTX_Initialize(certificates().locked_with(longest).c_str(), longest.c_str(), authority, &context_), 0);
    CTX_Destroy(context_);

    LogCapture log(1);
    EXPECT_EQ(CTX_Initialize(certificates().locked_with(too_long).c_str(), too_long.c_str(), authority, &context_),
              -ENOENT);
    EXPECT_EQ(context_, nullptr);
    EXPECT_THAT(log.messages(), ElementsAre("[error] CTX_Initialize(#): Can't read key file!\n"));
}

TEST_F(PassPhrase, is_a_thread_s_own_while_it_loads_its_key) {
    const Hook<SSL_CTX_use_PrivateKey_file> hook([](SSL_CTX *context, const char *path, int type) {
        std::thread([] {
            SSL_CTX *other = nullptr;
            const std::string text = "that of another thread";
            EXPECT_EQ(
                CTX_Initialize(certificates().host.c_str(), text.c_str(), certificates().authority.c_str(), &other), 0);
            CTX_Destroy(other);
        }).join();
        return SSL_CTX_use_PrivateKey_file(context, path, type);
    });
    EXPECT_EQ(CTX_Initialize(certificates().locked.c_str(), kPassPhrase, certificates().authority.c_str(), &context_),
              0);
}
