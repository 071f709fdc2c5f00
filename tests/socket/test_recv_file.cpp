// Receiving into a file through a pipe.
#include <gmock/gmock.h>

#include <algorithm>
#include <thread>
#include <vector>

#include "recv_file_world.h"

using namespace socket_test;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// Splices of the socket into the pipe, as the flags tell.
constexpr unsigned int kFromSocket = SPLICE_F_MOVE | SPLICE_F_NONBLOCK | SPLICE_F_MORE;
constexpr unsigned int kIntoFile = SPLICE_F_MOVE | SPLICE_F_MORE;

// What `splice` was asked for.
struct Request {
    int in;
    void *in_offset;
    int out;
    void *out_offset;
    size_t size;
    unsigned int flags;

    bool from_socket() const { return flags == kFromSocket; }
};

}  // namespace

TEST_F(RecvFile, moves_what_it_is_told_and_leaves_the_rest) {
    socket_.put("0123456789");
    EXPECT_EQ(receive(4), 0);
    EXPECT_EQ(received_, 4u);
    EXPECT_EQ(content(), "0123");
    EXPECT_EQ(receive(1), 0);
    EXPECT_EQ(received_, 1u);
    EXPECT_EQ(content(), "01234");
    EXPECT_EQ(socket_.take(), "56789");
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(RecvFile, writes_at_the_file_position_without_an_offset) {
    write_file(path_, "..........");
    lseek(file_, 3, SEEK_SET);
    socket_.put("0123");
    EXPECT_EQ(receive(4), 0);
    EXPECT_EQ(content(), "...0123...");
    EXPECT_EQ(file_.position(), 7);
}

TEST_F(RecvFile, advances_a_given_offset_and_leaves_the_position) {
    write_file(path_, "..........");
    lseek(file_, 3, SEEK_SET);
    int64_t offset = 5;
    socket_.put("0123");
    EXPECT_EQ(receive(2, &offset), 0);
    EXPECT_EQ(offset, 7);
    EXPECT_EQ(receive(2, &offset), 0);
    EXPECT_EQ(offset, 9);
    EXPECT_EQ(content(), ".....0123.");
    EXPECT_EQ(file_.position(), 3);
}

TEST_F(RecvFile, reaches_beyond_4_gibibytes) {
    constexpr int64_t far = 5ll << 30;
    const SmallDisk disk(1 << 20);
    const Descriptor file(disk.path("sparse"), O_RDWR | O_CREAT | O_CLOEXEC);
    int64_t offset = far;
    socket_.put("0123");
    EXPECT_EQ(Recv_File(socket_.out, file, &offset, 4, &received_), 0);
    EXPECT_EQ(offset, far + 4);
    char text[5] = {};
    EXPECT_EQ(pread(file, text, 4, far), 4);
    EXPECT_STREQ(text, "0123");
}

TEST_F(RecvFile, needs_no_count) {
    socket_.put("0123");
    EXPECT_EQ(Recv_File(socket_.out, file_, nullptr, 4, nullptr), 0);
    EXPECT_EQ(content(), "0123");
    socket_.put("0123");
    EXPECT_EQ(Recv_File(socket_.out, kClosed, nullptr, 4, nullptr), -EBADF);
}

TEST_F(RecvFile, makes_and_closes_a_pipe_even_for_nothing) {
    const CountCalls pipes(Call::pipe);
    const CountCalls waits(Call::select);
    const CountCalls splices(Call::splice);
    EXPECT_EQ(receive(0), 0);
    EXPECT_EQ(received_, 0u);
    EXPECT_EQ(Recv_File(kClosed, kClosed, nullptr, 0, nullptr), 0);
    EXPECT_EQ(pipes.count(), 2);
    EXPECT_EQ(waits.count() + splices.count(), 0);
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(RecvFile, splices_chunks_of_at_most_8192_bytes_with_their_flags) {
    constexpr int64_t size = 20'000;
    std::string sent(size, '\0');
    for (size_t i = 0; i < sent.size(); i++)
        sent[i] = static_cast<char>(i * 31 + i / 256);
    socket_.put(sent);
    std::vector<Request> requests;
    std::vector<Time> waits;
    int64_t offset = 0;
    {
        const BeforeCall look(Call::splice, 0, [&](const Arguments &arguments) {
            requests.push_back({arguments.at<int>(0), arguments.at<void *>(1), arguments.at<int>(2),
                                arguments.at<void *>(3), arguments.at<size_t>(4), arguments.at<unsigned int>(5)});
        });
        const BeforeCall wait(Call::select, 0,
                              [&](const Arguments &arguments) { waits.emplace_back(*arguments.at<timeval *>(4)); });
        const CountCalls reads(Call::read);
        const CountCalls receives(Call::recv);
        const CountCalls writes(Call::write);
        EXPECT_EQ(receive(size, &offset), 0);
        EXPECT_EQ(reads.count() + receives.count() + writes.count(), 0);
    }

    EXPECT_TRUE(content() == sent);
    EXPECT_EQ(received_, static_cast<uint64_t>(size));
    EXPECT_THAT(waits, Each(Time(1, 0)));
    EXPECT_GE(requests.size(), 6u);
    size_t left = size;
    for (size_t i = 0; i < requests.size(); i++) {
        SCOPED_TRACE(i);
        const bool last = i + 1 == requests.size();
        EXPECT_EQ(requests[i].in_offset, nullptr);
        if (requests[i].from_socket()) {
            EXPECT_EQ(requests[i].in, socket_.out);
            EXPECT_EQ(requests[i].out_offset, nullptr);
            EXPECT_EQ(requests[i].size, std::min<size_t>(left, 8192));
            ASSERT_FALSE(last);
            EXPECT_EQ(requests[i + 1].flags, kIntoFile);
        } else {
            EXPECT_EQ(requests[i].flags, kIntoFile);
            EXPECT_EQ(requests[i].out, file_);
            EXPECT_EQ(requests[i].out_offset, &offset);
            left -= requests[i].size;
        }
    }
    EXPECT_EQ(left, 0u);
    EXPECT_EQ(waits.size() * 2, requests.size());
}

TEST_F(RecvFile, moves_exactly_what_arrived) {
    std::string sent;
    std::vector<size_t> moved;
    const BeforeCall arrive(Call::splice, 0, [&](const Arguments &arguments) {
        if (arguments.at<unsigned int>(5) == kIntoFile) {
            moved.push_back(arguments.at<size_t>(4));
            return;
        }
        EXPECT_EQ(arguments.at<size_t>(4), 15 - sent.size());
        const std::string piece(moved.size() + 1, static_cast<char>('a' + moved.size()));
        socket_.put(piece);
        sent += piece;
    });
    const AnswerCall ready(Call::select, 1, 1, 5);
    EXPECT_EQ(receive(15), 0);
    EXPECT_THAT(moved, ElementsAre(1, 2, 3, 4, 5));
    EXPECT_EQ(content(), "abbcccddddeeeee");
}

TEST_F(RecvFile, a_second_of_silence_does_not_end_it) {
    socket_.put("01");
    std::thread sender;
    // The second wait runs for its whole second.
    const BeforeCall third_wait(Call::select, 3, [&] { sender = std::thread([&] { socket_.put("23"); }); });
    const CountCalls waits(Call::select);
    const auto time = time_of([&] { EXPECT_EQ(receive(4), 0); });
    sender.join();
    EXPECT_GE(time.count(), 999);
    EXPECT_GE(waits.count(), 3);
    EXPECT_EQ(received_, 4u);
    EXPECT_EQ(content(), "0123");
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(RecvFile, goes_on_without_a_pause_when_there_is_nothing_yet) {
    const FakeClock clock(kNow);
    const AnswerCall silence(Call::select, 0, 1, 100);
    const BeforeCall arrive(Call::splice, 100, [&] { socket_.put("0123"); });
    const CountCalls splices(Call::splice);
    EXPECT_EQ(receive(4), 0);
    EXPECT_EQ(splices.count(), 101);
    EXPECT_EQ(clock.sleeps(), 0);
    EXPECT_EQ(content(), "0123");
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(RecvFile, asks_a_closed_peer_once_a_second_for_ever) {
    constexpr int passes = 5000;
    socket_.put("0123");
    socket_.in.reset();
    const FakeClock clock(kNow);
    const CountCalls waits(Call::select);
    const FailCall end(Call::splice, EIO, 3 + passes);
    EXPECT_EQ(receive(10), -EIO);
    EXPECT_EQ(end.failed(), 1);
    EXPECT_EQ(waits.count(), passes + 2);
    EXPECT_EQ(clock.sleeps(), passes);
    EXPECT_EQ(clock.now(), kNow + passes * 1000ull);
    EXPECT_EQ(received_, 4u);
    EXPECT_EQ(content(), "0123");
    EXPECT_THAT(log_.messages(), ElementsAre(socket_error(socket_.out, 6, -EIO)));
}

// The kernel splices no further than to a byte that was sent as urgent, and nobody takes that byte away.
TEST_F(RecvFile, an_urgent_byte_holds_it_up_like_a_closed_peer) {
    constexpr int passes = 100;
    const Stream stream(Kind::tcp);
    ASSERT_EQ(send(stream.in, "01!", 3, MSG_OOB), 3);
    ASSERT_EQ(send(stream.in, "23", 2, 0), 2);
    const FakeClock clock(kNow);
    const FailCall end(Call::splice, EIO, 3 + passes);
    EXPECT_EQ(Recv_File(stream.out, file_, nullptr, 4, &received_), -EIO);
    EXPECT_EQ(end.failed(), 1);
    EXPECT_EQ(clock.sleeps(), passes);
    EXPECT_EQ(received_, 2u);
    EXPECT_EQ(content(), "01");
    // To receive what follows is to pass over it.
    EXPECT_EQ(stream.take(), "23");
}

TEST_F(RecvFile, goes_on_after_a_splice_of_nothing) {
    const FakeClock clock(kNow);
    socket_.put("0123");
    const AnswerCall nothing(Call::splice, 0, 1, 3);
    EXPECT_EQ(receive(4), 0);
    EXPECT_EQ(clock.sleeps(), 3);
    EXPECT_EQ(content(), "0123");
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(RecvFile, the_destination_need_not_be_a_file) {
    const Pipe pipe;
    const Stream onward;
    socket_.put("01234567");
    EXPECT_EQ(Recv_File(socket_.out, pipe.in, nullptr, 4, &received_), 0);
    EXPECT_EQ(pipe.take(), "0123");
    EXPECT_EQ(Recv_File(socket_.out, onward.in, nullptr, 4, &received_), 0);
    EXPECT_EQ(onward.take(), "4567");
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(RecvFile, takes_descriptors_of_any_number) {
    const Descriptor high_socket(as_high_number(socket_.out));
    const Descriptor high_file(as_high_number(file_));
    socket_.put("0123");
    EXPECT_EQ(Recv_File(high_socket, high_file, nullptr, 4, &received_), 0);
    EXPECT_EQ(content(), "0123");
}
