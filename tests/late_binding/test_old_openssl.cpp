// A host that has loaded an OpenSSL 1.0 for all to see: every call goes there, under the names of that time, and the
// system's newer one stays out of the process, whether there is one or not.
#include <dlfcn.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <string>

#include "hidden_openssl.h"
#include "late_binding.h"

using namespace late_binding_test;
using testing::IsEmpty;

namespace {

enum class System { has_openssl, has_none };

class OldOpenssl : public testing::TestWithParam<System> {
  protected:
    void in_world_of_old(const std::function<void()> &body) {
        in_fresh_process([&] {
            ASSERT_EQ(unshare(CLONE_NEWNS), 0);
            if (GetParam() == System::has_none)
                hide_from_the_system(KORVEX_LIBSSL, folder_);
            void *handle = dlopen(KORVEX_OLD_OPENSSL, RTLD_NOW | RTLD_GLOBAL);
            ASSERT_NE(handle, nullptr) << dlerror();
            steps_ = reinterpret_cast<const char *(*)()>(dlsym(handle, "old_openssl_steps"));
            body();
            EXPECT_THAT(mapped_openssl(), IsEmpty());
        });
    }

    // The calls since it was last asked, each on a line.
    std::string steps() const { return steps_(); }

    const TempFolder folder_;
    const std::string file_ = folder_.file("host.pem", "");
    const std::string authority_ = folder_.file("authority.pem", "");

  private:
    const char *(*steps_)() = nullptr;
};

INSTANTIATE_TEST_SUITE_P(All, OldOpenssl, testing::Values(System::has_openssl, System::has_none),
                         [](const auto &system) {
                             return std::string(system.param == System::has_none ? "alone" : "beside_the_system_s");
                         });

}  // namespace

TEST_P(OldOpenssl, is_asked_for_everything_step_by_step) {
    in_world_of_old([&] {
        std::array<int, 2> ends{};
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
        LogCapture log;

        const std::string initialisation = "SSL_library_init\nSSL_load_error_strings\n";
        const std::string context = "SSLv23_method\nSSL_CTX_new method\nSSL_CTX_use_certificate_chain_file context " +
                                    file_ + "\nSSL_CTX_set_default_passwd_cb context 6 secret\n" +
                                    "SSL_CTX_use_PrivateKey_file context " + file_ +
                                    " 1\nSSL_CTX_load_verify_locations context " + authority_ + " null\n";
        const std::string session =
            "SSL_new context\nBIO_new_socket " + std::to_string(ends[0]) + " 0\nSSL_set_bio session bio bio\n";

        SSL_Socket_Info record{ends[0], nullptr, nullptr, nullptr};
        EXPECT_EQ(SSL_Connect_Socket(file_.c_str(), "secret", authority_.c_str(), &record), 0);
        EXPECT_EQ(steps(), initialisation + context + session + "SSL_connect session\n");
        EXPECT_NE(record.pCtx, nullptr);

        std::string text(4, '\0');
        EXPECT_EQ(SSL_Recv(&record, text.data(), 4, 0), 4);
        EXPECT_EQ(text, "rrrr");
        EXPECT_EQ(SSL_Recv(&record, text.data(), 3, MSG_PEEK), 3);
        EXPECT_EQ(text, "pppr");
        EXPECT_EQ(SSL_Send(&record, "ab", 2, 0), 2);
        EXPECT_EQ(steps(), "SSL_read session 4\nSSL_peek session 3\nSSL_write session 2\n");

        record.fdSocket = -1;
        SSL_Socket_Destroy(&record, 0);
        EXPECT_EQ(steps(), "SSL_shutdown session\nSSL_free session\nSSL_CTX_free context\n");

        record.fdSocket = ends[0];
        EXPECT_EQ(SSL_Accept_Socket(file_.c_str(), "secret", authority_.c_str(), &record), 0);
        EXPECT_EQ(steps(), context + session + "SSL_accept session\n");
        SSL_Socket_Destroy(&record, 1);
        EXPECT_EQ(steps(), "SSL_free session\nSSL_CTX_free context\n");
        close(ends[1]);
        EXPECT_THAT(log.messages(), IsEmpty());
    });
}
