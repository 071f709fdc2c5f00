// What the tests of local domain sockets share.
#pragma once

#include <sys/stat.h>
#include <sys/un.h>

#include <cstring>
#include <string>

#include "socket_world.h"

namespace socket_test {

// The address of a path as both functions are to build it: zeroes behind the text, and all of it counts.
inline sockaddr_un address_of(const std::string &path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path);
    return address;
}

inline void expect_address(const Arguments &arguments, const std::string &path) {
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
    // The messages of a step that failed.
    static std::string step_error(const std::string &function, const std::string &text, int code) {
        return "[error] " + function + "(#): " + with_code(text, code);
    }
    static std::string listen_error(const std::string &text, int code) {
        return step_error("Domain_Socket_Listen", text, code);
    }
    static std::string connect_error(const std::string &text, int code) {
        return step_error("Domain_Socket_Connect", text, code);
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

}  // namespace socket_test
