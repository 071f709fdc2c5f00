// What ends receiving into a file, and what is told of it then.
#include <gmock/gmock.h>
#include <sys/resource.h>

#include <memory>
#include <vector>

#include "recv_file_world.h"

using namespace socket_test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

using RecvFileFailure = RecvFile;

}  // namespace

TEST_F(RecvFileFailure, bad_arguments_are_refused) {
    const struct {
        int32_t socket;
        int32_t file;
        int64_t length;
    } table[] = {
        {-1, file_, 1},           {INT32_MIN, file_, 0},           {socket_.out, -1, 1}, {socket_.out, -100, 0},
        {socket_.out, file_, -1}, {socket_.out, file_, INT64_MIN}, {-1, -1, -1}};
    socket_.put("x");
    int64_t offset = 3;
    const CountCalls pipes(Call::pipe);
    for (const auto &row : table) {
        SCOPED_TRACE(testing::Message() << row.socket << ", " << row.file << ", " << row.length);
        EXPECT_EQ(Recv_File(row.socket, row.file, &offset, row.length, &received_), -22);
        EXPECT_EQ(Recv_File(row.socket, row.file, nullptr, row.length, nullptr), -22);
    }
    EXPECT_EQ(pipes.count(), 0);
    EXPECT_EQ(received_, kUncounted);
    EXPECT_EQ(offset, 3);
    EXPECT_EQ(socket_.take(), "x");
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(RecvFileFailure, another_failure_of_the_socket_ends_it) {
    for (const int error : {EINTR, EIO, EINVAL, ENOMEM}) {
        SCOPED_TRACE(error);
        socket_.put("0123");
        const AnswerCall ready(Call::select, 1, 1, 2);
        const FailCall fault(Call::splice, error, 3);
        EXPECT_EQ(receive(10'000), -error);
        EXPECT_EQ(received_, 4u);
        EXPECT_THAT(log_.messages(), ElementsAre(socket_error(socket_.out, 8192, -error)));
        log_.clear();
    }
    EXPECT_EQ(content(), "0123012301230123");
}

TEST_F(RecvFileFailure, a_socket_that_can_not_be_spliced_ends_it) {
    const Descriptor listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(Recv_File(listener, file_, nullptr, 10, &received_), -EINVAL);
    EXPECT_EQ(received_, 0u);
    EXPECT_THAT(log_.messages(), ElementsAre(socket_error(listener, 10, -EINVAL)));
}

TEST_F(RecvFileFailure, a_failed_wait_ends_it) {
    for (const int error : {EINTR, ENOMEM}) {
        SCOPED_TRACE(error);
        socket_.put("0123");
        const FailCall fault(Call::select, error, 2);
        EXPECT_EQ(receive(10), -error);
        EXPECT_EQ(received_, 4u);
        EXPECT_THAT(log_.messages(), ElementsAre(wait_error(socket_.out, -error)));
        log_.clear();
    }
    EXPECT_EQ(Recv_File(kClosed, file_, nullptr, 10, &received_), -EBADF);
    EXPECT_EQ(received_, 0u);
    EXPECT_THAT(log_.messages(), ElementsAre(wait_error(kClosed, -EBADF)));
}

TEST_F(RecvFileFailure, a_signal_ends_it) {
    {
        const Interruptions interruptions;
        EXPECT_EQ(receive(10), -4);
    }
    EXPECT_EQ(received_, 0u);
    EXPECT_THAT(log_.messages(), ElementsAre(wait_error(socket_.out, -EINTR)));
}

TEST_F(RecvFileFailure, a_file_that_takes_less_ends_it) {
    // The second chunk is cut short.
    for (const size_t moved : {0u, 1u, 3u})
        for (const int error : {0, EXDEV}) {
            SCOPED_TRACE(testing::Message() << moved << ", error " << error);
            ASSERT_EQ(ftruncate(file_, 0), 0);
            lseek(file_, 0, SEEK_SET);
            socket_.put("01");
            const BeforeCall more(Call::select, 2, [&] { socket_.put("2345"); });
            const ShortCall little(Call::splice, moved, 4);
            errno = error;
            EXPECT_EQ(receive(10), 0);
            EXPECT_EQ(received_, 2u);
            EXPECT_EQ(content(), std::string("012345").substr(0, 2 + moved));
            EXPECT_THAT(log_.messages(), ElementsAre(file_error(file_, 4, 0)));
            log_.clear();
        }
}

TEST_F(RecvFileFailure, a_file_that_fails_ends_it_with_its_error) {
    const Descriptor read_only(path_, O_RDONLY | O_CLOEXEC);
    const Descriptor appending(path_, O_WRONLY | O_APPEND | O_CLOEXEC);
    const Pipe pipe;
    int64_t negative = -7;
    int64_t zero = 0;
    const struct {
        int file;
        int64_t *offset;
        int error;
    } table[] = {{read_only, nullptr, EBADF},
                 {appending, nullptr, EINVAL},
                 {kClosed, nullptr, EBADF},
                 {file_, &negative, EINVAL},
                 {pipe.in, &zero, ESPIPE}};

    for (const auto &row : table) {
        SCOPED_TRACE(testing::Message() << row.file << ", " << row.error);
        socket_.put("0123");
        EXPECT_EQ(Recv_File(socket_.out, row.file, row.offset, 4, &received_), -row.error);
        EXPECT_EQ(received_, 0u);
        EXPECT_THAT(log_.messages(), ElementsAre(file_error(row.file, 4, -row.error)));
        log_.clear();
    }
    EXPECT_EQ(negative, -7);
    EXPECT_EQ(content(), "");
}

TEST_F(RecvFileFailure, tells_what_was_moved_before_the_file_failed) {
    socket_.put("0123");
    const BeforeCall more(Call::select, 2, [&] { socket_.put("456789"); });
    const FailCall fault(Call::splice, ENOSPC, 4);
    int64_t offset = 0;
    EXPECT_EQ(receive(10, &offset), -28);
    EXPECT_EQ(received_, 4u);
    EXPECT_EQ(offset, 4);
    EXPECT_EQ(content(), "0123");
    EXPECT_THAT(log_.messages(), ElementsAre(file_error(file_, 6, -ENOSPC)));
}

TEST_F(RecvFileFailure, a_full_disk_ends_it) {
    const SmallDisk disk(1 << 20);
    disk.fill_up_to(16'384);
    const Descriptor file(disk.path("file"), O_RDWR | O_CREAT | O_CLOEXEC);
    socket_.put(std::string(100'000, 'x'));

    EXPECT_EQ(Recv_File(socket_.out, file, nullptr, 100'000, &received_), -28);

    EXPECT_EQ(received_, 16'384u);
    EXPECT_TRUE(read_file(disk.path("file")) == std::string(16'384, 'x'));
    EXPECT_THAT(log_.messages(), ElementsAre(file_error(file, 8192, -ENOSPC)));
}

TEST_F(RecvFileFailure, no_pipe_no_transfer) {
    socket_.put("0123");
    {
        const FailCall fault(Call::pipe, ENFILE);
        EXPECT_EQ(receive(4), -23);
    }
    // No number for the second end.
    rlimit outer{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &outer), 0);
    const rlimit limit{64, outer.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    std::vector<std::unique_ptr<Descriptor>> used;
    for (int next = dup(file_); next >= 0; next = dup(file_))
        used.push_back(std::make_unique<Descriptor>(next));
    used.pop_back();
    EXPECT_EQ(receive(4), -24);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &outer), 0);

    EXPECT_EQ(received_, kUncounted);
    EXPECT_EQ(socket_.take(), "0123");
    EXPECT_THAT(log_.messages(), ElementsAre("[error] Recv_File(#): Can't create a pipe error! (-23)\n",
                                             "[error] Recv_File(#): Can't create a pipe error! (-24)\n"));
}

TEST_F(RecvFileFailure, logs_errors_from_level_1) {
    for (const int32_t level : {0, 1, 2}) {
        LogCapture log(level);
        EXPECT_EQ(Recv_File(kClosed, file_, nullptr, 1, nullptr), -EBADF);
        EXPECT_THAT(log.messages(), SizeIs(level == 0 ? 0 : 1));
    }
}
