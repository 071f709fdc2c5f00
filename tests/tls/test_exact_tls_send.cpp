// Sending exact numbers of bytes on plain and on TLS connections.
#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "exact_stream.h"

using namespace tls_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::string short_send(int64_t asked, int sent) {
    return "[debug] Exactly_SSL_Send(#): Not exactly send: " + std::to_string(asked) + ", " + std::to_string(sent) +
           "! Send again!\n";
}

std::string failed(int code, int error) {
    return "[error] Exactly_SSL_Send(#): Can't send error! (" + std::to_string(code) + ", " + std::to_string(error) +
           ")\n";
}

std::string pattern(size_t size) {
    std::string bytes(size, '\0');
    for (size_t i = 0; i < size; i++)
        bytes[i] = static_cast<char>(i * 7 + i / 253);
    return bytes;
}

class ExactSend : public TlsTest, public testing::WithParamInterface<Kind> {
  protected:
    int64_t send_all(const std::string &bytes, uint32_t flags = 0) {
        return Exactly_SSL_Send(stream_.record(), bytes.data(), bytes.size(), flags);
    }

    Stream stream_{GetParam()};
};
INSTANTIATE_BOTH_KINDS(ExactSend);

using PlainSend = TlsTest;

// OpenSSL's part played by a table.
class TlsSend : public TlsTest {
  protected:
    static constexpr int kNone = -1;  // errno stays as the library left it

    struct Answer {
        int result;
        int error;
    };
    struct Asked {
        const char *bytes;
        int size;
    };

    // Sends `size` bytes from `bytes`, each SSL_write answered by the next row.
    int64_t send_to(const std::vector<Answer> &answers, const char *bytes, uint64_t size) {
        asked_.clear();
        Hook<SSL_write> writing([&](SSL *, const void *from, int length) {
            const Answer &answer = answers.at(asked_.size());
            asked_.push_back({static_cast<const char *>(from), length});
            if (answer.error != kNone)
                errno = answer.error;
            return answer.result;
        });
        return Exactly_SSL_Send(stream_.record(), bytes, size, 0);
    }

    Stream stream_{Kind::tls};
    std::vector<Asked> asked_;
};

}  // namespace

TEST_P(ExactSend, sends_all_of_it) {
    LogCapture log;
    EXPECT_EQ(send_all("abcdefgh"), 8);
    EXPECT_EQ(stream_.drain(8), "abcdefgh");
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_P(ExactSend, sends_nothing_for_a_length_of_0) {
    const CountCalls sends(Call::send);
    Hook<SSL_write> writing(SSL_write);
    EXPECT_EQ(Exactly_SSL_Send(stream_.record(), nullptr, 0, 0), 0);
    EXPECT_EQ(sends.count(), 0);
    EXPECT_EQ(writing.calls(), 0);
}

TEST_P(ExactSend, sends_more_than_the_socket_holds) {
    const int descriptor = stream_.record()->fdSocket;
    ASSERT_EQ(fcntl(descriptor, F_SETFL, fcntl(descriptor, F_GETFL) & ~O_NONBLOCK), 0);
    const std::string sent = pattern(4 << 20);
    std::string there;
    std::thread reader([&] {
        while (there.size() < sent.size())
            there += stream_.drain(sent.size() - there.size());
    });
    EXPECT_EQ(send_all(sent), static_cast<int64_t>(sent.size()));
    reader.join();
    EXPECT_TRUE(there == sent);
}

TEST_P(ExactSend, ends_in_time_when_the_peer_takes_nothing) {
    const std::string much(8 << 20, 'm');
    LogCapture log(1);
    EXPECT_EQ(send_all(much), -ETIME);
    EXPECT_THAT(log.messages(), ElementsAre(failed(-ETIME, EAGAIN)));
}

TEST_P(ExactSend, ends_with_the_socket_s_own_time_out) {
    const int descriptor = stream_.record()->fdSocket;
    ASSERT_EQ(fcntl(descriptor, F_SETFL, fcntl(descriptor, F_GETFL) & ~O_NONBLOCK), 0);
    set_send_timeout(descriptor, 30);
    const std::string much(8 << 20, 'm');
    LogCapture log(1);
    EXPECT_EQ(send_all(much), -ETIME);
    EXPECT_THAT(log.messages(), ElementsAre(failed(-ETIME, EAGAIN)));
}

TEST_P(ExactSend, ends_with_the_error_of_a_send) {
    LogCapture log(1);
    const FailCall failing(Call::send, EIO);
    Hook<SSL_write> answer([](SSL *, const void *, int) {
        errno = EIO;
        return -1;
    });
    EXPECT_EQ(send_all("abc"), -EIO);
    EXPECT_THAT(log.messages(), ElementsAre(failed(-EIO, EIO)));
}

TEST_P(ExactSend, ends_when_the_peer_has_gone) {
    stream_.vanish();
    LogCapture log(1);
    EXPECT_EQ(send_all("abc", MSG_NOSIGNAL), -EPIPE);
    EXPECT_THAT(log.messages(), ElementsAre(failed(-EPIPE, EPIPE)));
}

TEST_P(ExactSend, raises_sigpipe_where_the_host_lets_it) {
    stream_.vanish();
    EXPECT_EQ(in_child([&] {
                  signal(SIGPIPE, SIG_DFL);
                  send_all("abc");
                  return 0;
              }),
              128 + SIGPIPE);
}

TEST_F(PlainSend, repeats_short_sends_until_all_is_sent) {
    Stream stream(Kind::plain);
    const std::string sent = pattern(3 << 20);
    std::string there;
    BeforeCall before(Call::send, 0, [&] { there += stream.drain(sent.size()); });
    LogCapture log;
    EXPECT_EQ(Exactly_SSL_Send(stream.record(), sent.data(), sent.size(), 0), static_cast<int64_t>(sent.size()));
    there += stream.drain(sent.size());
    EXPECT_TRUE(there == sent);

    // Each message asks for what the ones before it have left.
    auto left = static_cast<int64_t>(sent.size());
    const std::vector<std::string> messages = log.messages();
    EXPECT_GE(messages.size(), 2U);
    for (const std::string &message : messages) {
        const std::regex numbers(R"((-?\d+), (-?\d+)!)");
        std::smatch match;
        ASSERT_TRUE(std::regex_search(message, match, numbers)) << message;
        const int sent_now = std::stoi(match[2]);
        EXPECT_EQ(message, short_send(left, sent_now));
        left -= sent_now;
    }
}

TEST_F(PlainSend, hands_the_flags_on) {
    Stream stream(Kind::plain, Wire::tcp);
    const int descriptor = stream.record()->fdSocket;
    ASSERT_EQ(fcntl(descriptor, F_SETFL, fcntl(descriptor, F_GETFL) & ~O_NONBLOCK), 0);
    EXPECT_EQ(Exactly_SSL_Send(stream.record(), "abc!", 4, MSG_OOB), 4);
    EXPECT_EQ(stream.drain(64), "abc");  // the last byte is out of band

    const std::string much(64 << 20, 'm');
    EXPECT_EQ(Exactly_SSL_Send(stream.record(), much.data(), much.size(), MSG_DONTWAIT), -ETIME);
}

TEST_F(TlsSend, goes_on_after_short_and_empty_sends) {
    const char *bytes = "abcdefghij";
    LogCapture log;
    EXPECT_EQ(send_to({{3, 0}, {0, 0}, {0, EAGAIN}, {6, EIO}, {1, 0}}, bytes, 10), 10);
    const std::vector<std::pair<int, int>> expected = {{0, 10}, {3, 7}, {3, 7}, {3, 7}, {9, 1}};
    ASSERT_EQ(asked_.size(), expected.size());
    for (size_t i = 0; i < expected.size(); i++) {
        EXPECT_EQ(asked_[i].bytes - bytes, expected[i].first);
        EXPECT_EQ(asked_[i].size, expected[i].second);
    }
    EXPECT_THAT(log.messages(), ElementsAre(short_send(10, 3), short_send(7, 0), short_send(7, 0), short_send(7, 6)));
}

TEST_F(TlsSend, tells_short_sends_to_those_who_listen_only) {
    LogCapture log(2);
    EXPECT_EQ(send_to({{3, 0}, {7, 0}}, "abcdefghij", 10), 10);
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_F(TlsSend, ends_with_the_first_failure) {
    const struct {
        int result;
        int error;
        int64_t code;
    } rows[] = {{-1, EAGAIN, -ETIME}, {-2, EPIPE, -EPIPE}, {-1, EINTR, -EINTR}, {INT_MIN, ETIME, -ETIME}};

    for (const auto &row : rows) {
        LogCapture log(1);
        EXPECT_EQ(send_to({{3, 0}, {row.result, row.error}}, "abcdefghij", 10), row.code);
        EXPECT_EQ(asked_.size(), 2U);
        EXPECT_THAT(log.messages(), ElementsAre(failed(static_cast<int>(row.code), row.error)));
    }
}

// A failure is never told as success, also where OpenSSL leaves no system error.
TEST_F(TlsSend, ends_with_a_protocol_error_where_openssl_tells_none) {
    LogCapture log(1);
    errno = EAGAIN;  // of before: it is not taken for this call's
    EXPECT_EQ(send_to({{-1, kNone}}, "abc", 3), -EPROTO);
    EXPECT_THAT(log.messages(), ElementsAre(failed(-EPROTO, EPROTO)));
}

TEST_F(TlsSend, sends_what_is_too_long_for_one_call_in_parts) {
    constexpr uint64_t size = (uint64_t{3} << 30) + 5;
    void *area = mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(area, MAP_FAILED);
    const auto *bytes = static_cast<const char *>(area);
    constexpr int second = static_cast<int>(size - INT_MAX);

    EXPECT_EQ(send_to({{INT_MAX, 0}, {second, 0}}, bytes, size), static_cast<int64_t>(size));
    ASSERT_EQ(asked_.size(), 2U);
    EXPECT_EQ(asked_[0].bytes, bytes);
    EXPECT_EQ(asked_[0].size, INT_MAX);
    EXPECT_EQ(asked_[1].bytes, bytes + INT_MAX);
    EXPECT_EQ(asked_[1].size, second);
    munmap(area, size);
}
