// Large random contents in pieces of random lengths, over real connections that the library made.
#include <gmock/gmock.h>

#include <algorithm>
#include <random>
#include <thread>

#include "stream_pair.h"
#include "tcp_world.h"

using namespace socket_test;
using testing::IsEmpty;

namespace {

constexpr size_t kSize = 8'000'000;

using Random = std::mt19937_64;

std::string random_content(Random &random, size_t size) {
    std::string content(size, '\0');
    for (char &byte : content)
        byte = static_cast<char>(random());
    return content;
}

// Lengths of pieces that make up a whole: many small ones, some large.
size_t random_piece(Random &random, size_t left) {
    const size_t most = size_t{1} << random() % 21;
    return std::min(left, random() % most + 1);
}

struct Ends {
    int32_t client = -1;
    int32_t server = -1;
};

Ends tcp_ends_of_the_library(const char *host) {
    Ends ends;
    std::array<int32_t, 2> listeners{};
    EXPECT_EQ(TCP_Socket_Listen(host, kPort, 1, listeners.data(), 1), 0);
    EXPECT_EQ(TCP_Socket_Connect(nullptr, host, kPort, kPatient, &ends.client), 0);
    ends.server = accept4(listeners[0], nullptr, nullptr, SOCK_CLOEXEC);
    close(listeners[0]);
    return ends;
}

Ends local_ends_of_the_library(const std::string &path) {
    Ends ends;
    int32_t listener = -1;
    EXPECT_EQ(Domain_Socket_Listen(path.c_str(), &listener, 0), 0);
    EXPECT_EQ(Domain_Socket_Connect(path.c_str(), &ends.client, kPatient), 0);
    ends.server = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    close(listener);
    return ends;
}

// Over "::1", "127.0.0.1" or a local path.
class RandomTransfer : public NetworkTest, public testing::WithParamInterface<const char *> {
  protected:
    // Sends with the library, or with plain calls, which may cut the pieces again.
    void send_all(const std::string &content, uint64_t seed, bool plain) const {
        Random random(seed);
        for (size_t done = 0; done < content.size();) {
            const size_t piece = random_piece(random, content.size() - done);
            const int64_t sent = plain ? send(client_, content.data() + done, piece, MSG_NOSIGNAL)
                                       : Exactly_Send(client_, content.data() + done, piece, MSG_NOSIGNAL);
            ASSERT_GT(sent, 0);
            if (!plain) {
                ASSERT_EQ(sent, static_cast<int64_t>(piece));
            }
            done += static_cast<size_t>(sent);
        }
    }

    TempFolder folder_;
    const Ends ends_ = std::string(GetParam()) == "local" ? local_ends_of_the_library(folder_.path("socket"))
                                                          : tcp_ends_of_the_library(GetParam());
    const Descriptor client_{ends_.client};
    const Descriptor server_{ends_.server};
    LogCapture log_;
};

std::string name_of_case(const testing::TestParamInfo<const char *> &one) {
    const std::string name = one.param;
    return name == "local" ? "local" : name == "::1" ? "tcp_ipv6" : "tcp_ipv4";
}

INSTANTIATE_TEST_SUITE_P(, RandomTransfer, testing::Values("local", "127.0.0.1", "::1"), name_of_case);

}  // namespace

TEST_P(RandomTransfer, is_received_as_it_was_sent) {
    for (const uint64_t seed : {1u, 2u}) {
        SCOPED_TRACE(seed);
        Random random(seed);
        const std::string content = random_content(random, kSize);
        std::thread sender([&] { send_all(content, seed + 100, seed == 2); });

        std::string received(kSize, '\0');
        for (size_t done = 0; done < kSize;) {
            const size_t piece = random_piece(random, kSize - done);
            const int32_t result = Exactly_Recv(server_, received.data() + done, static_cast<int32_t>(piece), 0);
            ASSERT_EQ(result, static_cast<int32_t>(piece));
            done += piece;
        }
        sender.join();
        EXPECT_TRUE(received == content);
    }
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_P(RandomTransfer, goes_into_a_file_as_it_was_sent) {
    Random random(3);
    const std::string content = random_content(random, kSize);
    const std::string path = folder_.path("file");
    const Descriptor file(path, O_RDWR | O_CREAT | O_CLOEXEC);
    std::thread sender([&] { send_all(content, 103, false); });

    // Every other piece goes where the file stands.
    int64_t done = 0;
    for (bool with_offset = false; done < static_cast<int64_t>(kSize); with_offset = !with_offset) {
        const auto piece = static_cast<int64_t>(random_piece(random, kSize - static_cast<size_t>(done)));
        int64_t offset = done;
        uint64_t moved = 0;
        lseek(file, done, SEEK_SET);
        ASSERT_EQ(Recv_File(server_, file, with_offset ? &offset : nullptr, piece, &moved), 0);
        ASSERT_EQ(moved, static_cast<uint64_t>(piece));
        done += piece;
        ASSERT_EQ(with_offset ? offset : file.position(), done);
    }
    sender.join();
    EXPECT_TRUE(read_file(path) == content);
    EXPECT_THAT(log_.messages(), IsEmpty());
}
