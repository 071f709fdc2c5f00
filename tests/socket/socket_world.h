// What the tests of sockets share.
#pragma once

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <ostream>
#include <stdexcept>
#include <string>

#include "descriptors.h"
#include "faults.h"
#include "log_capture.h"
#include "sandbox.h"
#include "socket.h"

namespace socket_test {

using namespace support;

// Shows whether a descriptor was stored.
constexpr int32_t kUntouched = 12345;

// Where the fake clocks start.
constexpr uint64_t kNow = 1'700'000'000'123;

// The world of one test: no descriptor is left open at the end.
class SocketTest : public testing::Test {
  protected:
    ~SocketTest() override { EXPECT_EQ(open_descriptors(), before_); }

  private:
    const std::map<int, std::string> before_ = open_descriptors();
};

inline int option(int socket, int level, int name) {
    int value = -1;
    socklen_t size = sizeof value;
    EXPECT_EQ(getsockopt(socket, level, name, &value, &size), 0);
    return value;
}

// A time as the options and `select` take it, in a form that can be compared and printed.
struct Time {
    int64_t seconds;
    int64_t microseconds;

    Time(int64_t whole, int64_t rest) : seconds(whole), microseconds(rest) {}
    explicit Time(const timeval &time) : seconds(time.tv_sec), microseconds(time.tv_usec) {}

    friend bool operator==(const Time &, const Time &) = default;
    friend std::ostream &operator<<(std::ostream &out, const Time &time) {
        return out << time.seconds << " s " << time.microseconds << " us";
    }
};

inline Time time_option(int socket, int name) {
    timeval value{-1, -1};
    socklen_t size = sizeof value;
    EXPECT_EQ(getsockopt(socket, SOL_SOCKET, name, &value, &size), 0);
    return Time(value);
}

// A range of addresses, of which memory is taken only as it is written to.
class Reservation {
  public:
    explicit Reservation(size_t size)
        : size_(size),
          begin_(mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0)) {
        if (begin_ == MAP_FAILED)
            throw std::runtime_error("no range of addresses");
    }
    ~Reservation() { munmap(begin_, size_); }
    Reservation(const Reservation &) = delete;
    Reservation &operator=(const Reservation &) = delete;

    char *data() const { return static_cast<char *>(begin_); }

  private:
    size_t size_;
    void *begin_;
};

inline bool is_blocking(int descriptor) {
    return (fcntl(descriptor, F_GETFL) & O_NONBLOCK) == 0;
}

inline bool is_inherited(int descriptor) {
    return (fcntl(descriptor, F_GETFD) & FD_CLOEXEC) == 0;
}

// A message as the library's source has it, with the negated error in the place of its number.
inline std::string with_code(const std::string &format, int error) {
    const size_t place = format.find("%d");
    return format.substr(0, place) + std::to_string(-error) + format.substr(place + 2);
}

// Runs `body` and returns how long it took.
inline std::chrono::milliseconds time_of(const std::function<void()> &body) {
    const auto start = std::chrono::steady_clock::now();
    body();
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
}

}  // namespace socket_test
