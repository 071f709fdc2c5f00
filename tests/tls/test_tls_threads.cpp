// Sessions in many threads at a time, and many sessions one after the other.
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "heap.h"
#include "port.h"
#include "tls_world.h"

using namespace tls_test;

namespace {

constexpr int kThreads = 16;
constexpr int kSessionsAThread = 5;

std::string message_of(int thread, int session) {
    std::string text = std::to_string(thread) + " " + std::to_string(session) + " ";
    while (text.size() < 40'000)
        text += text;
    return text;
}

// Opens a session on the socket, sends the text, expects it back, and ends the session.
void send_then_receive(const Side &side, int descriptor, const std::string &certificate, const std::string &text) {
    SSL_Socket_Info session{descriptor, nullptr, nullptr, nullptr};
    ASSERT_EQ(side.open(certificate.c_str(), kPassPhrase, certificates().authority.c_str(), &session), 0);
    EXPECT_EQ(Exactly_SSL_Send(&session, text.data(), text.size(), 0), static_cast<int64_t>(text.size()));
    std::string back(text.size(), '\0');
    int32_t count = 0;
    EXPECT_EQ(Exactly_SSL_Recv_Ex(&session, back.data(), static_cast<int32_t>(back.size()), 20'000, &count),
              static_cast<int32_t>(text.size()));
    EXPECT_TRUE(back == text);
    SSL_Socket_Destroy(&session, 0);
}

void echo(const Side &side, int descriptor, const std::string &certificate, size_t size) {
    SSL_Socket_Info session{descriptor, nullptr, nullptr, nullptr};
    ASSERT_EQ(side.open(certificate.c_str(), kPassPhrase, certificates().authority.c_str(), &session), 0);
    std::string text(size, '\0');
    EXPECT_EQ(Exactly_SSL_Recv(&session, text.data(), static_cast<int32_t>(size), 20'000), static_cast<int32_t>(size));
    EXPECT_EQ(Exactly_SSL_Send(&session, text.data(), size, 0), static_cast<int64_t>(size));
    SSL_Socket_Destroy(&session, 0);
}

// The first context of all is made alone, as the threads' users have to see to.
void make_first_context() {
    SSL_CTX *context = nullptr;
    ASSERT_EQ(CTX_Initialize(certificates().host.c_str(), kPassPhrase, certificates().authority.c_str(), &context), 0);
    CTX_Destroy(context);
}

// In threads, whose caches of freed memory end with them, so that the figures of the heap are exact.
void connect_many_times(int cycles) {
    const Port port(Port::listening);
    std::thread server([&] {
        for (int i = 0; i < cycles; i++)
            echo(kServer, port.accept_one(), certificates().host, 5);
    });

    std::thread client([&] {
        for (int i = 0; i < cycles; i++) {
            SSL_Socket_Info session = kEmpty;
            ASSERT_EQ(SSL_Socket_Connect("127.0.0.1", port.number(), 20'000, certificates().host.c_str(), "",
                                         certificates().authority.c_str(), &session),
                      0);
            std::string answer(5, '\0');
            EXPECT_EQ(Exactly_SSL_Send(&session, "hello", 5, 0), 5);
            EXPECT_EQ(Exactly_SSL_Recv(&session, answer.data(), 5, 20'000), 5);
            EXPECT_EQ(answer, "hello");
            SSL_Socket_Destroy(&session, i % 2);
        }
    });
    client.join();
    server.join();
}

using TlsThreads = TlsTest;
using TlsSoak = TlsTest;

}  // namespace

TEST_F(TlsThreads, hold_sessions_independently_of_each_other) {
    make_first_context();
    // The pass phrase is one for the whole process, so all of them use the same.
    const std::string *const files[] = {&certificates().host, &certificates().locked};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; thread++)
        threads.emplace_back([=] {
            for (int session = 0; session < kSessionsAThread; session++) {
                const std::string &file = *files[(thread + session) % 2];
                const std::string text = message_of(thread, session);
                Wire wire;
                const int theirs = wire.give_theirs();
                const bool client = thread % 2 == 0;
                std::thread other([&] { echo(client ? kServer : kClient, theirs, file, text.size()); });
                send_then_receive(client ? kClient : kServer, wire.give_ours(), file, text);
                other.join();
            }
        });
    for (std::thread &thread : threads)
        thread.join();
}

TEST_F(TlsThreads, fail_independently_of_each_other) {
    make_first_context();
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; thread++)
        threads.emplace_back([=] {
            for (int round = 0; round < 10; round++) {
                Wire wire;
                SSL_Socket_Info session = untouched_record(wire.ours);
                const Side &side = thread % 2 == 0 ? kClient : kServer;
                EXPECT_EQ(send(wire.theirs, "no TLS at all\n", 14, 0), 14);
                EXPECT_EQ(open_session(side, session), -EPROTO);
                expect_equal(session, untouched_record(wire.ours));
            }
        });
    for (std::thread &thread : threads)
        thread.join();
}

TEST_F(TlsSoak, a_thousand_sessions_leave_nothing_behind) {
    const auto before = open_descriptors();
    connect_many_times(50);
    const size_t full = heap_in_use();
    connect_many_times(1000);
    EXPECT_LT(heap_in_use(), full + size_t{1000} * 24);
    EXPECT_EQ(open_descriptors(), before);
}

TEST_F(TlsSoak, ten_thousand_plain_connections_leave_nothing_behind) {
    size_t full = 0;
    for (int i = 0; i < 10'000; i++) {
        Wire wire;
        SSL_Socket_Info one{wire.give_ours(), nullptr, nullptr, nullptr};
        SSL_Socket_Info other{wire.give_theirs(), nullptr, nullptr, nullptr};
        std::string answer(5, '\0');
        EXPECT_EQ(Exactly_SSL_Send(&one, "hello", 5, MSG_NOSIGNAL), 5);
        EXPECT_EQ(Exactly_SSL_Peek(&other, answer.data(), 5, 20'000), 5);
        EXPECT_EQ(Exactly_SSL_Recv(&other, answer.data(), 5, 20'000), 5);
        EXPECT_EQ(answer, "hello");
        SSL_Socket_Destroy(&one, i % 2);
        SSL_Socket_Destroy(&other, i % 2);
        if (i == 100)
            full = heap_in_use();
    }
    EXPECT_LT(heap_in_use(), full + size_t{10'000} * 24 / 4);
}
