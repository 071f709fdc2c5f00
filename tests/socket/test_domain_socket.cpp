// Listening on a path of a local domain socket, and the switch to non-blocking mode.
#include <gmock/gmock.h>

#include <vector>

#include "domain_world.h"
#include "stream_pair.h"

using namespace socket_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using SetNonblocking = DomainTest;
using DomainListen = DomainTest;

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
        EXPECT_THAT(log_.messages(),
                    ElementsAre(step_error("Domain_Sock_Set_Nonblocking", "Get fcntl error!(%d)\n", EBADF)));
        log_.clear();
    }

    const FailCall fault(Call::fcntl, EPERM, 2);
    EXPECT_EQ(Domain_Sock_Set_Nonblocking(stream.in), -1);
    EXPECT_TRUE(is_blocking(stream.in));
    EXPECT_THAT(log_.messages(),
                ElementsAre(step_error("Domain_Sock_Set_Nonblocking", "Set fcntl error!(%d)\n", EPERM)));
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
        ASSERT_EQ(is_blocking(listener), nonblocking == 0);
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
    } table[] = {{Call::socket, EMFILE, listen_error("Create socket error!(%d)\n", EMFILE)},
                 {Call::bind, EACCES, listen_error("Bind domain socket error!(%d)\n", EACCES)},
                 {Call::listen, EOPNOTSUPP, listen_error("Listen domain error!(%d)\n", EOPNOTSUPP)}};

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
        EXPECT_THAT(log_.messages(), ElementsAre(listen_error("Bind domain socket error!(%d)\n", row.error)));
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
    EXPECT_THAT(log_.messages(), ElementsAre(listen_error("Can't chmod for " + path_ + "!(%d)\n", EPERM)));
    ASSERT_EQ(connect_to(path_), 0);
    close(socket_);
}

TEST_F(DomainListen, a_listener_that_can_not_be_switched_waits) {
    const std::string texts[] = {"Get fcntl error!(%d)\n", "Set fcntl error!(%d)\n"};
    for (const int step : {1, 2}) {
        SCOPED_TRACE(step);
        const FailCall fault(Call::fcntl, EPERM, step);
        ASSERT_EQ(listen_on(path_, 1), 0);
        const Descriptor listener(socket_);
        EXPECT_EQ(fault.failed(), 1);
        EXPECT_TRUE(is_blocking(listener));
        EXPECT_EQ(option(listener, SOL_SOCKET, SO_ACCEPTCONN), 1);
        EXPECT_THAT(log_.messages(), ElementsAre(step_error("Domain_Sock_Set_Nonblocking", texts[step - 1], EPERM),
                                                 listen_error("Can't set domain socket non-blocking! (%d)\n", EPERM)));
        log_.clear();
    }
}
