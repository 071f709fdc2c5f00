// A connection of either kind for the tests of exact transfer, with a script of what comes in.
#pragma once

#include <sys/socket.h>

#include <cerrno>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "tls_world.h"

namespace tls_test {

enum class Kind { plain, tls };

inline std::ostream &operator<<(std::ostream &out, Kind kind) {
    return out << (kind == Kind::tls ? "tls" : "plain");
}

#define INSTANTIATE_BOTH_KINDS(suite) \
    INSTANTIATE_TEST_SUITE_P(Both, suite, testing::Values(Kind::plain, Kind::tls), testing::PrintToStringParamName())

// The library's end is a record; neither end waits unless the test says so.
class Stream {
  public:
    explicit Stream(Kind kind, Wire::Kind wire = Wire::local);
    ~Stream();
    Stream(const Stream &) = delete;
    Stream &operator=(const Stream &) = delete;

    Kind kind() const { return kind_; }
    SSL_Socket_Info *record() { return record_; }
    // What the library receives next.
    void feed(const std::string &bytes) const;
    // Ends what the library receives, in order.
    void end() const;
    // Up to `size` bytes of what the library has sent.
    std::string drain(size_t size) const;
    // What the library has left of what was fed.
    std::string rest();
    // Closes the other end without a word.
    void vanish();
    // Resets the connection (TCP).
    void reset();

  private:
    const Kind kind_;
    std::optional<Wire> wire_;
    std::optional<Connection> connection_;
    SSL_Socket_Info plain_ = kEmpty;
    SSL_Socket_Info *record_ = &plain_;
};

// Runs an action before each receive of the library on a stream, in this thread.
class BeforeReceive {
  public:
    BeforeReceive(const Stream &stream, std::function<void()> action);
    int receives() const { return *receives_; }

  private:
    // The actions that are handed on share it.
    std::shared_ptr<int> receives_ = std::make_shared<int>(0);
    std::optional<BeforeCall> plain_;
    std::optional<Hook<SSL_read>> reading_;
    std::optional<Hook<SSL_peek>> peeking_;
};

// What has come before each receive: the bytes, or nothing (the receive ends with EAGAIN); nothing after the last step.
using Script = std::vector<std::string>;

// Plays a script, and moves the clock on by a millisecond before each receive.
class Play {
  public:
    Play(const Stream &stream, Script script)
        : script_(std::move(script)), before_(stream, [this, &stream] {
              clock.advance(milliseconds_a_receive);
              if (next_ < script_.size() && !script_[next_].empty())
                  stream.feed(script_[next_]);
              next_++;
              if (also)
                  also();
          }) {}

    int receives() const { return before_.receives(); }

    FakeClock clock{1'700'000'000'000};
    int64_t milliseconds_a_receive = 1;
    std::function<void()> also;

  private:
    const Script script_;
    size_t next_ = 0;
    BeforeReceive before_;
};

// A buffer amid bytes that nobody may write.
class FencedBuffer {
  public:
    explicit FencedBuffer(size_t size) : size_(size), bytes_(kFence + size + kFence, '#') {}
    ~FencedBuffer() {
        EXPECT_EQ(bytes_.substr(0, kFence), std::string(kFence, '#'));
        EXPECT_EQ(bytes_.substr(kFence + size_), std::string(kFence, '#'));
    }
    FencedBuffer(const FencedBuffer &) = delete;
    FencedBuffer &operator=(const FencedBuffer &) = delete;

    char *data() { return bytes_.data() + kFence; }
    std::string text() const { return bytes_.substr(kFence, size_); }

  private:
    static constexpr size_t kFence = 4096;
    const size_t size_;
    std::string bytes_;
};

}  // namespace tls_test
