// Local domain sockets: listening on a path, connecting to it, and the switch to non-blocking mode.
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cstring>
#include <thread>
#include <vector>

#include "socket_world.h"
#include "stream_pair.h"

using namespace socket_test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

std::string error(const std::string &function, const std::string &text, int code) {
    return "[error] " + function + "(#): " + text + "(" + std::to_string(-code) + ")\n";
}

std::string listen_error(const std::string &text, int code) {
    return error("Domain_Socket_Listen", text, code);
}

std::string connect_error(const std::string &text, int code) {
    return error("Domain_Socket_Connect", text, code);
}

// The address of a path as both functions are to build it: zeroes behind the text, and all of it counts.
sockaddr_un address_of(const std::string &path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path);
    return address;
}

void expect_address(const Arguments &arguments, const std::string &path) {
    const sockaddr_un expected = address_of(path);
    ASSERT_EQ(arguments.at<socklen_t>(2), 110u);
    EXPECT_EQ(std::memcmp(arguments.at<const void *>(1), &expected, sizeof expected), 0);
}

class DomainTest : public SocketTest {
  protected:
    int32_t listen_on(const std::string &path, int32_t nonblocking = 0) {
        return Domain_Socket_Listen(path.c_str(), &socket_, nonblocking);
    }
    int32_t connect_to(const std::string &path, int32_t timeout = 0) {
        return Domain_Socket_Connect(path.c_str(), &socket_, timeout);
    }
    std::string path_of_length(size_t length) const {
        return folder_.path(std::string(length - folder_.path("").size(), 'n'));
    }
    mode_t mode() const {
        struct stat status {};
        EXPECT_EQ(lstat(path_.c_str(), &status), 0);
        return status.st_mode;
    }

    TempFolder folder_;
    const std::string path_ = folder_.path("socket");
    int32_t socket_ = kUntouched;
    LogCapture log_;
};

using SetNonblocking = DomainTest;
using DomainListen = DomainTest;

// A listener stands at the path.
class DomainConnect : public DomainTest {
  protected:
    DomainConnect() { EXPECT_EQ(Domain_Socket_Listen(path_.c_str(), &listener_, 0), 0); }
    ~DomainConnect() override { close(listener_); }

    int32_t listener_ = -1;
};

}  // namespace

TEST_F(SetNonblocking, keeps_the_other_flags) {
    const Descriptor file(folder_.path("file"), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC);
    const Stream stream;
    for (const int descriptor : {+file, +stream.in}) {
        const int flags = fcntl(descriptor, F_GETFL);
        EXPECT_EQ(Domain_Sock_Set_Nonblocking(descriptor), 0);
        EXPECT_EQ(fcntl(descriptor, F_GETFL), flags | O_NONBLOCK);
        EXPECT_EQ(Domain_Sock_Set_Nonblocking(descriptor), 0);
        EXPECT_EQ(fcntl(descriptor, F_GETFL), flags | O_NONBLOCK);
    }
    EXPECT_TRUE(is_blocking(stream.out));
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(SetNonblocking, tells_which_step_failed) {
    const Stream stream;
    for (const int descriptor : {kClosed, -1, INT32_MIN}) {
        EXPECT_EQ(Domain_Sock_Set_Nonblocking(descriptor), -9);
        EXPECT_THAT(log_.messages(), ElementsAre(error("Domain_Sock_Set_Nonblocking", "Get fcntl error!", EBADF)));
        log_.clear();
    }

    const FailCall fault(Call::fcntl, EPERM, 2);
    EXPECT_EQ(Domain_Sock_Set_Nonblocking(stream.in), -1);
    EXPECT_TRUE(is_blocking(stream.in));
    EXPECT_THAT(log_.messages(), ElementsAre(error("Domain_Sock_Set_Nonblocking", "Set fcntl error!", EPERM)));
}

TEST_F(DomainListen, makes_a_listener_that_clients_reach) {
    ASSERT_EQ(listen_on(path_), 0);
    const Descriptor listener(socket_);
    EXPECT_EQ(option(listener, SOL_SOCKET, SO_ACCEPTCONN), 1);
    EXPECT_EQ(option(listener, SOL_SOCKET, SO_DOMAIN), AF_UNIX);
    EXPECT_EQ(option(listener, SOL_SOCKET, SO_TYPE), SOCK_STREAM);
    EXPECT_TRUE(is_blocking(listener));
    EXPECT_TRUE(is_inherited(listener));

    ASSERT_EQ(connect_to(path_), 0);
    const Descriptor client(socket_);
    const Descriptor server(accept(listener, nullptr, nullptr));
    EXPECT_EQ(write(client, "text", 4), 4);
    char text[5] = {};
    EXPECT_EQ(read(server, text, 4), 4);
    EXPECT_STREQ(text, "text");
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(DomainListen, is_open_to_everybody_whatever_the_umask_says) {
    for (const mode_t mask : {0u, 022u, 077u, 0777u}) {
        SCOPED_TRACE(mask);
        const mode_t before = umask(mask);
        ASSERT_EQ(listen_on(path_), 0);
        EXPECT_EQ(umask(before), mask);
        const Descriptor listener(socket_);
        EXPECT_EQ(mode(), static_cast<mode_t>(S_IFSOCK | 0666));
    }
}

TEST_F(DomainListen, takes_clients_of_every_user) {
    if (!can_be_nobody())
        GTEST_SKIP() << "only a privileged program can become another user";
    ASSERT_EQ(listen_on(path_), 0);
    const Descriptor listener(socket_);
    ASSERT_EQ(chmod(folder_.path().c_str(), 0755), 0);
    EXPECT_EQ(in_child_as_nobody([&] { return connect_to(path_); }), 0);
}

TEST_F(DomainListen, hands_the_system_the_whole_address_and_a_backlog_of_128) {
    const BeforeCall making(Call::socket, 1, [](const Arguments &arguments) {
        EXPECT_EQ(arguments.at<int>(0), AF_UNIX);
        EXPECT_EQ(arguments.at<int>(1), SOCK_STREAM);
    });
    const BeforeCall binding(Call::bind, 1, [&](const Arguments &arguments) { expect_address(arguments, path_); });
    const BeforeCall listening(Call::listen, 1,
                               [](const Arguments &arguments) { EXPECT_EQ(arguments.at<int>(1), 128); });
    ASSERT_EQ(listen_on(path_), 0);
    const Descriptor listener(socket_);
    EXPECT_TRUE(making.ran() && binding.ran() && listening.ran());
}

TEST_F(DomainListen, replaces_whatever_file_is_there) {
    const std::string target = folder_.file("target", "content");
    for (const std::string &kind : std::vector<std::string>{"file", "link", "dangling link", "socket"}) {
        SCOPED_TRACE(kind);
        unlink(path_.c_str());
        if (kind == "file")
            write_file(path_, "content");
        else if (kind == "socket")
            mknod(path_.c_str(), S_IFSOCK | 0600, 0);
        else
            ASSERT_EQ(symlink(kind == "link" ? target.c_str() : "nowhere", path_.c_str()), 0);

        ASSERT_EQ(listen_on(path_), 0);
        const Descriptor listener(socket_);
        EXPECT_EQ(mode(), static_cast<mode_t>(S_IFSOCK | 0666));
        ASSERT_EQ(connect_to(path_), 0);
        close(socket_);
    }
    EXPECT_EQ(read_file(target), "content");
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(DomainListen, the_second_listener_takes_the_path_over) {
    ASSERT_EQ(listen_on(path_, 1), 0);
    const Descriptor first(socket_);
    ASSERT_EQ(listen_on(path_, 1), 0);
    const Descriptor second(socket_);
    ASSERT_EQ(connect_to(path_), 0);
    const Descriptor client(socket_);

    EXPECT_EQ(option(first, SOL_SOCKET, SO_ACCEPTCONN), 1);
    EXPECT_EQ(accept(first, nullptr, nullptr), -1);
    const Descriptor server(accept(second, nullptr, nullptr));
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(DomainListen, waits_for_clients_unless_told_not_to) {
    for (const int32_t nonblocking : {0, 1, 2, INT32_MAX}) {
        SCOPED_TRACE(nonblocking);
        ASSERT_EQ(listen_on(path_, nonblocking), 0);
        const Descriptor listener(socket_);
        EXPECT_EQ(is_blocking(listener), nonblocking == 0);
        if (nonblocking != 0) {
            EXPECT_EQ(accept(listener, nullptr, nullptr), -1);
            EXPECT_EQ(errno, EAGAIN);
        }
    }
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(DomainListen, bad_arguments_are_refused) {
    write_file(path_, "content");
    for (const int32_t nonblocking : {-1, INT32_MIN})
        EXPECT_EQ(listen_on(path_, nonblocking), -22);
    for (const int32_t nonblocking : {0, 1}) {
        EXPECT_EQ(Domain_Socket_Listen(nullptr, &socket_, nonblocking), -22);
        EXPECT_EQ(Domain_Socket_Listen(path_.c_str(), nullptr, nonblocking), -22);
    }
    EXPECT_EQ(socket_, kUntouched);
    EXPECT_EQ(read_file(path_), "content");
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(DomainListen, takes_paths_of_up_to_107_characters) {
    const std::string longest = path_of_length(107);
    ASSERT_EQ(listen_on(longest), 0);
    const Descriptor listener(socket_);
    EXPECT_TRUE(exists(longest));
    ASSERT_EQ(connect_to(longest), 0);
    close(socket_);
    EXPECT_THAT(log_.messages(), IsEmpty());

    for (const size_t length : {108u, 109u, 200u}) {
        SCOPED_TRACE(length);
        const std::string path = path_of_length(length);
        write_file(path, "content");
        socket_ = kUntouched;
        EXPECT_EQ(listen_on(path), -36);
        EXPECT_EQ(socket_, -1);
        EXPECT_EQ(read_file(path), "content");

        socket_ = kUntouched;
        EXPECT_EQ(connect_to(path), -36);
        EXPECT_EQ(socket_, kUntouched);
    }
}

TEST_F(DomainListen, each_step_that_fails_ends_it) {
    const struct {
        Call call;
        int error;
        std::string message;
    } table[] = {{Call::socket, EMFILE, listen_error("Create socket error!", EMFILE)},
                 {Call::bind, EACCES, listen_error("Bind domain socket error!", EACCES)},
                 {Call::listen, EOPNOTSUPP, listen_error("Listen domain error!", EOPNOTSUPP)}};

    for (const auto &row : table) {
        SCOPED_TRACE(row.message);
        write_file(path_, "content");
        socket_ = kUntouched;
        const auto before = open_descriptors();
        const FailCall fault(row.call, row.error);
        EXPECT_EQ(listen_on(path_, 1), -row.error);
        EXPECT_EQ(fault.failed(), 1);
        EXPECT_EQ(socket_, -1);
        EXPECT_EQ(open_descriptors(), before);
        EXPECT_THAT(log_.messages(), ElementsAre(row.message));
        log_.clear();
        // The old file is removed first of all.
        if (row.call != Call::listen) {
            EXPECT_FALSE(exists(path_));
        }
        unlink(path_.c_str());
    }
}

TEST_F(DomainListen, gives_the_errors_of_real_paths) {
    const std::string in_use = folder_.path("folder");
    ASSERT_EQ(mkdir(in_use.c_str(), 0777), 0);
    const struct {
        std::string path;
        int error;
    } table[] = {
        {in_use, EADDRINUSE}, {folder_.path("none/socket"), ENOENT}, {folder_.file("file", "") + "/socket", ENOTDIR}};

    for (const auto &row : table) {
        SCOPED_TRACE(row.path);
        socket_ = kUntouched;
        EXPECT_EQ(listen_on(row.path), -row.error);
        EXPECT_EQ(socket_, -1);
        EXPECT_THAT(log_.messages(), ElementsAre(listen_error("Bind domain socket error!", row.error)));
        log_.clear();
    }
    EXPECT_TRUE(exists(in_use));
}

TEST_F(DomainListen, a_mode_that_can_not_be_set_is_only_reported) {
    const mode_t before = umask(077);
    const FailCall fault(Call::chmod, EPERM);
    ASSERT_EQ(listen_on(path_), 0);
    umask(before);
    const Descriptor listener(socket_);
    EXPECT_EQ(fault.failed(), 1);
    EXPECT_EQ(mode(), static_cast<mode_t>(S_IFSOCK | 0700));
    EXPECT_THAT(log_.messages(), ElementsAre(listen_error("Can't chmod for " + path_ + "!", EPERM)));
    ASSERT_EQ(connect_to(path_), 0);
    close(socket_);
}

TEST_F(DomainListen, a_listener_that_can_not_be_switched_waits) {
    const std::string texts[] = {"Get fcntl error!", "Set fcntl error!"};
    for (const int step : {1, 2}) {
        SCOPED_TRACE(step);
        const FailCall fault(Call::fcntl, EPERM, step);
        ASSERT_EQ(listen_on(path_, 1), 0);
        const Descriptor listener(socket_);
        EXPECT_EQ(fault.failed(), 1);
        EXPECT_TRUE(is_blocking(listener));
        EXPECT_EQ(option(listener, SOL_SOCKET, SO_ACCEPTCONN), 1);
        EXPECT_THAT(log_.messages(), ElementsAre(error("Domain_Sock_Set_Nonblocking", texts[step - 1], EPERM),
                                                 listen_error("Can't set domain socket non-blocking! ", EPERM)));
        log_.clear();
    }
}

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
        EXPECT_THAT(log_.messages(), ElementsAre(connect_error("Set domain socket recv timeout error!", EDOM)));
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
    EXPECT_THAT(log_.messages(), ElementsAre(connect_error("Connect domain socket error!", EAGAIN)));
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
        EXPECT_THAT(log_.messages(), ElementsAre(connect_error("Connect domain socket error!", row.error)));
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
    } table[] = {{Call::socket, 1, EMFILE, "Create domain socket error!"},
                 {Call::setsockopt, 1, ENOMEM, "Set domain socket recv timeout error!"},
                 {Call::setsockopt, 2, EPERM, "Set domain socket send timeout error!"},
                 {Call::connect, 1, EINTR, "Connect domain socket error!"}};

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
