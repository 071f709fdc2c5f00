// Exact receives from a peer that ends without a word: by close, by shutdown, by a reset; before the call, while it waits
// in the system, in the midst of a record. A session shows what a plain socket shows.
#include <linux/sockios.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <thread>

#include "tls_world.h"

using namespace tls_test;
using testing::ElementsAre;

namespace {

// A connection of one kind; no side: a plain one.
struct Kind {
    const char *name;
    const Side *side;
    int version;

    friend std::ostream &operator<<(std::ostream &out, const Kind &kind) { return out << kind.name; }
};

struct Ending {
    const char *name;
    void (*end)(int descriptor);
    int32_t result;
};

void close_it(int descriptor) {
    close(descriptor);
}

void shut_down_sending(int descriptor) {
    shutdown(descriptor, SHUT_WR);
}

void shut_down_both(int descriptor) {
    shutdown(descriptor, SHUT_RDWR);
}

constexpr Ending kEndings[] = {
    {"close", close_it, -ETIME},
    {"shutdown of sending", shut_down_sending, -ETIME},
    {"shutdown of both", shut_down_both, -ETIME},
    {"reset", reset_connection, -ECONNRESET},
};

constexpr const Ending &kClose = kEndings[0];
constexpr const Ending &kReset = kEndings[3];

void wait_for(int descriptor, short event) {
    pollfd entry{descriptor, event, 0};
    EXPECT_EQ(poll(&entry, 1, 20'000), 1);
}

// A TCP connection of the kind; the test ends the peer's side of it.
class Ended {
  public:
    explicit Ended(const Kind &kind) {
        if (kind.side == nullptr) {
            wire_.emplace(Wire::tcp);
            plain_.fdSocket = wire_->give_ours();
            theirs = wire_->give_theirs();
            return;
        }
        connection_ = std::make_unique<Connection>(*kind.side, PeerSetup{.version = kind.version}, Wire::tcp);
        theirs = connection_->peer.give_descriptor();
    }
    ~Ended() {
        if (theirs != -1)
            close(theirs);
        if (!connection_)
            SSL_Socket_Destroy(&plain_, 0);
    }
    Ended(const Ended &) = delete;
    Ended &operator=(const Ended &) = delete;

    SSL_Socket_Info *record() { return connection_ ? &connection_->session : &plain_; }
    void feed(const std::string &bytes) {
        if (connection_)
            connection_->peer.write(bytes);
        else
            EXPECT_EQ(send(theirs, bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
        // Until all has come: what the receiver's system has not, it acknowledges later.
        for (int on_the_way = 1; on_the_way > 0; std::this_thread::yield())
            EXPECT_EQ(ioctl(theirs, SIOCOUTQ, &on_the_way), 0);
    }
    void end(const Ending &ending) {
        ending.end(theirs);
        if (ending.end == close_it || ending.end == reset_connection)
            theirs = -1;
    }

    int theirs = -1;

  private:
    std::optional<Wire> wire_;
    std::unique_ptr<Connection> connection_;
    SSL_Socket_Info plain_ = kEmpty;
};

// Returns when the thread has taken all that has come, and sleeps in a call that receives more.
void wait_until_receiving(pid_t thread, int descriptor) {
    const std::string path = "/proc/self/task/" + std::to_string(thread) + "/syscall";
    const std::string calls[] = {std::to_string(SYS_read) + " ", std::to_string(SYS_recvfrom) + " "};
    for (;;) {
        int left = 0;
        EXPECT_EQ(ioctl(descriptor, FIONREAD, &left), 0);
        const std::string now = read_file(path);
        if (left == 0 && (now.starts_with(calls[0]) || now.starts_with(calls[1])))
            return;
        std::this_thread::yield();
    }
}

class ExactEnd : public TlsTest, public testing::WithParamInterface<Kind> {
  protected:
    // Receives 8 bytes, of which 3 come.
    void expect_end(Ended &connection, int32_t result) {
        char bytes[9] = "########";
        int32_t count = -7;
        LogCapture log(1);
        errno = 0;  // a plain receive that finds the end leaves it
        EXPECT_EQ(Exactly_SSL_Recv_Ex(connection.record(), bytes, 8, 5, &count), result);
        EXPECT_EQ(errno, -result);
        EXPECT_EQ(count, 3);
        EXPECT_STREQ(bytes, "abc#####");
        const std::string code = std::to_string(-result);
        EXPECT_THAT(log.messages(), ElementsAre(testing::HasSubstr(result == -ETIME ? "Want 8 bytes, got 3 bytes! (0, "
                                                                                    : "Can't receive error (-" + code +
                                                                                          ", " + code + ")!")));
    }
};

INSTANTIATE_TEST_SUITE_P(Over, ExactEnd,
                         testing::Values(Kind{"plain", nullptr, 0}, Kind{"TLS12_as_client", &kClient, TLS1_2_VERSION},
                                         Kind{"TLS12_as_server", &kServer, TLS1_2_VERSION},
                                         Kind{"TLS13_as_client", &kClient, TLS1_3_VERSION},
                                         Kind{"TLS13_as_server", &kServer, TLS1_3_VERSION}),
                         [](const auto &kind) { return std::string(kind.param.name); });

class SessionEnd : public ExactEnd {};
INSTANTIATE_TEST_SUITE_P(Over, SessionEnd,
                         testing::Values(Kind{"TLS12", &kServer, TLS1_2_VERSION},
                                         Kind{"TLS13", &kServer, TLS1_3_VERSION}),
                         [](const auto &kind) { return std::string(kind.param.name); });

}  // namespace

TEST_P(ExactEnd, before_the_call) {
    for (const Ending &ending : kEndings) {
        if (ending.end == kReset.end)
            continue;  // it may take along what was not received
        SCOPED_TRACE(ending.name);
        Ended connection(GetParam());
        connection.feed("abc");
        connection.end(ending);
        expect_end(connection, ending.result);
    }
}

TEST_P(ExactEnd, by_a_reset_before_the_call) {
    Ended connection(GetParam());
    connection.end(kReset);
    wait_for(connection.record()->fdSocket, POLLHUP);
    char bytes[8];
    int32_t count = -7;
    EXPECT_EQ(Exactly_SSL_Recv_Ex(connection.record(), bytes, 8, -1, &count), -ECONNRESET);
    EXPECT_EQ(count, 0);
}

TEST_P(ExactEnd, while_the_call_waits) {
    for (const Ending &ending : kEndings) {
        SCOPED_TRACE(ending.name);
        Ended connection(GetParam());
        connection.feed("abc");
        std::thread peer([&, receiver = gettid()] {
            wait_until_receiving(receiver, connection.record()->fdSocket);
            connection.end(ending);
        });
        expect_end(connection, ending.result);
        peer.join();
    }
}

TEST_P(SessionEnd, in_the_midst_of_a_record) {
    const std::string record = std::string("\x17\x03\x03\x00\x20", 5) + std::string(32, 'r');
    for (const size_t size : {1, 4, 5, 6, 36}) {
        SCOPED_TRACE(size);
        Ended connection(GetParam());
        connection.feed("abc");
        EXPECT_EQ(send(connection.theirs, record.data(), size, 0), static_cast<ssize_t>(size));
        connection.end(kClose);
        expect_end(connection, -ETIME);
    }
}

TEST_P(SessionEnd, is_seen_again_by_every_later_call) {
    Ended connection(GetParam());
    connection.end(kClose);
    char bytes[4];
    for (int call = 0; call < 3; call++) {
        EXPECT_EQ(SSL_Recv(connection.record(), bytes, 4, 0), 0);
        EXPECT_EQ(SSL_Recv(connection.record(), bytes, 4, MSG_PEEK), 0);
        EXPECT_EQ(Exactly_SSL_Recv(connection.record(), bytes, 4, 2), -ETIME);
        EXPECT_EQ(Exactly_SSL_Peek(connection.record(), bytes, 4, 2), -ETIME);
    }
}
