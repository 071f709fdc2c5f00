// Connecting to a path of a local domain socket.
#include <gmock/gmock.h>

#include <vector>

#include "domain_world.h"

using namespace socket_test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

// A listener stands at the path.
class DomainConnect : public DomainTest {
  protected:
    DomainConnect() { EXPECT_EQ(Domain_Socket_Listen(path_.c_str(), &listener_, 0), 0); }
    ~DomainConnect() override { close(listener_); }

    int32_t listener_ = -1;
};

}  // namespace

TEST_F(DomainConnect, sets_both_times) {
    const struct {
        int32_t timeout;
        Time time;
    } table[] = {{2500, {2, 500'000}}, {1000, {1, 0}}, {0, {0, 0}}, {60'000, {60, 0}}, {7'200'100, {7200, 100'000}}};

    for (const auto &row : table) {
        SCOPED_TRACE(row.timeout);
        ASSERT_EQ(connect_to(path_, row.timeout), 0);
        const Descriptor client(socket_);
        EXPECT_EQ(time_option(client, SO_RCVTIMEO), row.time);
        EXPECT_EQ(time_option(client, SO_SNDTIMEO), row.time);
        EXPECT_TRUE(is_blocking(client));
        EXPECT_TRUE(is_inherited(client));
        const Descriptor server(accept(listener_, nullptr, nullptr));
    }
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(DomainConnect, hands_the_system_the_times_and_then_the_whole_address) {
    const struct {
        int32_t timeout;
        Time time;
    } table[] = {{0, {0, 0}},      {1, {0, 1000}},   {2500, {2, 500'000}},    {INT32_MAX, {2'147'483, 647'000}},
                 {-1, {0, -1000}}, {-1000, {-1, 0}}, {-2500, {-2, -500'000}}, {INT32_MIN, {-2'147'483, -648'000}}};

    for (const auto &row : table) {
        SCOPED_TRACE(row.timeout);
        std::vector<int> options;
        const BeforeCall setting(Call::setsockopt, 0, [&](const Arguments &arguments) {
            EXPECT_EQ(arguments.at<int>(1), SOL_SOCKET);
            options.push_back(arguments.at<int>(2));
            ASSERT_EQ(arguments.at<socklen_t>(4), sizeof(timeval));
            EXPECT_EQ(Time(*arguments.at<const timeval *>(3)), row.time);
        });
        const AnswerCall set(Call::setsockopt, 0, 1, 2);
        const BeforeCall connecting(Call::connect, 1, [&](const Arguments &arguments) {
            expect_address(arguments, path_);
            EXPECT_THAT(options, ElementsAre(SO_RCVTIMEO, SO_SNDTIMEO));
        });
        ASSERT_EQ(connect_to(path_, row.timeout), 0);
        EXPECT_TRUE(connecting.ran());
        close(socket_);
    }
}

TEST_F(DomainConnect, a_negative_time_is_refused_by_the_system) {
    for (const int32_t timeout : {-1, -1500, INT32_MIN}) {
        SCOPED_TRACE(timeout);
        EXPECT_EQ(connect_to(path_, timeout), -33);
        EXPECT_EQ(socket_, kUntouched);
        EXPECT_THAT(log_.messages(), ElementsAre(connect_error("Set domain socket recv timeout error!(%d)\n", EDOM)));
        log_.clear();
    }
}

TEST_F(DomainConnect, the_time_bounds_each_receive_and_the_connection) {
    ASSERT_EQ(connect_to(path_, 60), 0);
    const Descriptor client(socket_);
    char byte = 0;
    EXPECT_GE(time_of([&] { EXPECT_EQ(Exactly_Recv(client, &byte, 1, 60'000), -11); }).count(), 59);
    log_.clear();

    // A listener whose queue is full.
    const std::string busy = folder_.path("busy");
    const sockaddr_un address = address_of(busy);
    const Descriptor listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(bind(listener, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    ASSERT_EQ(listen(listener, 0), 0);
    ASSERT_EQ(connect_to(busy), 0);
    const Descriptor queued(socket_);
    socket_ = kUntouched;
    EXPECT_GE(time_of([&] { EXPECT_EQ(connect_to(busy, 60), -11); }).count(), 59);
    EXPECT_EQ(socket_, kUntouched);
    EXPECT_THAT(log_.messages(), ElementsAre(connect_error("Connect domain socket error!(%d)\n", EAGAIN)));
}

TEST_F(DomainConnect, nobody_who_listens_is_an_error) {
    const std::string left_over = folder_.path("left over");
    ASSERT_EQ(mknod(left_over.c_str(), S_IFSOCK | 0666, 0), 0);
    const struct {
        std::string path;
        int error;
    } table[] = {{left_over, ECONNREFUSED},
                 {folder_.file("file", ""), ECONNREFUSED},
                 {folder_.path("none"), ENOENT},
                 {path_ + "/none", ENOTDIR}};

    for (const auto &row : table) {
        SCOPED_TRACE(row.path);
        const auto before = open_descriptors();
        EXPECT_EQ(connect_to(row.path, 1000), -row.error);
        EXPECT_EQ(socket_, kUntouched);
        EXPECT_EQ(open_descriptors(), before);
        EXPECT_THAT(log_.messages(), ElementsAre(connect_error("Connect domain socket error!(%d)\n", row.error)));
        log_.clear();
    }
    EXPECT_TRUE(exists(left_over));
}

TEST_F(DomainConnect, each_step_that_fails_ends_it) {
    const struct {
        Call call;
        int nth;
        int error;
        std::string text;
    } table[] = {{Call::socket, 1, EMFILE, "Create domain socket error!(%d)\n"},
                 {Call::setsockopt, 1, ENOMEM, "Set domain socket recv timeout error!(%d)\n"},
                 {Call::setsockopt, 2, EPERM, "Set domain socket send timeout error!(%d)\n"},
                 {Call::connect, 1, EINTR, "Connect domain socket error!(%d)\n"}};

    for (const auto &row : table) {
        SCOPED_TRACE(row.text);
        const auto before = open_descriptors();
        const FailCall fault(row.call, row.error, row.nth);
        EXPECT_EQ(connect_to(path_, 1000), -row.error);
        EXPECT_EQ(fault.failed(), 1);
        EXPECT_EQ(socket_, kUntouched);
        EXPECT_EQ(open_descriptors(), before);
        EXPECT_THAT(log_.messages(), ElementsAre(connect_error(row.text, row.error)));
        log_.clear();
    }
}

TEST_F(DomainConnect, all_messages_are_errors) {
    for (const int32_t level : {0, 1, 2}) {
        LogCapture log(level);
        EXPECT_EQ(connect_to(folder_.path("none")), -ENOENT);
        EXPECT_EQ(listen_on(folder_.path("none/socket")), -ENOENT);
        EXPECT_EQ(Domain_Sock_Set_Nonblocking(kClosed), -EBADF);
        EXPECT_THAT(log.messages(), SizeIs(level == 0 ? 0 : 3));
    }
}
