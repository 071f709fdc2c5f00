// Descriptors that close themselves, and connected pairs of them.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>

#include "sandbox.h"

namespace support {

// A descriptor that is closed at the end of its life.
class Descriptor {
  public:
    explicit Descriptor(int number) : number_(number) {
        if (number < 0)
            throw std::runtime_error("no descriptor");
    }
    Descriptor(const std::string &path, int flags, mode_t mode = 0666)
        : Descriptor(::open(path.c_str(), flags, mode)) {}
    ~Descriptor() { reset(); }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;

    operator int() const { return number_; }
    void reset() {
        if (number_ >= 0)
            close(number_);
        number_ = -1;
    }
    int64_t position() const { return lseek(number_, 0, SEEK_CUR); }
    // The name that the system gives it.
    std::string name() const { return open_descriptors().at(number_); }

  private:
    int number_;
};

// Two connected descriptors.
struct Pair {
    explicit Pair(const std::array<int, 2> &ends) : out(ends[0]), in(ends[1]) {}

    Descriptor out;  // what goes in comes out here
    Descriptor in;

    void put(const std::string &bytes) const {
        EXPECT_EQ(write(in, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }
    std::string take() const {
        std::string bytes(1 << 20, '\0');
        const ssize_t length = read(out, bytes.data(), bytes.size());
        bytes.resize(length < 0 ? 0 : static_cast<size_t>(length));
        return bytes;
    }
};

inline std::array<int, 2> two_ends(const std::function<int(int *)> &make) {
    std::array<int, 2> ends{};
    if (make(ends.data()) != 0)
        throw std::runtime_error("no two ends");
    return ends;
}

// Neither end ever waits, unless the flags leave it to.
struct Pipe : Pair {
    explicit Pipe(int flags = O_NONBLOCK)
        : Pair(two_ends([flags](int *ends) { return pipe2(ends, flags | O_CLOEXEC); })) {}
};

// Neither end ever waits.
struct Connection : Pair {
    Connection()
        : Pair(two_ends(
              [](int *ends) { return socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends); })) {}
};

// The same file under a number that the sets of `select` were not made for.
inline int as_high_number(int descriptor) {
    constexpr int number = 2000;
    const rlimit limit{number + 100, number + 100};
    EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    return fcntl(descriptor, F_DUPFD_CLOEXEC, number);
}

// A number that no file is open under. It lies within every process's table: `select` overlooks what lies beyond.
constexpr int kClosed = 60;

}  // namespace support
