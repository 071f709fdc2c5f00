#include "process/deadline.h"

#include <fcntl.h>
#include <sys/socket.h>

#include <cerrno>
#include <chrono>

#include "cli.h"

namespace korvex::cli {

Deadline::Deadline(int socket, int32_t limit_ms)
    : limit_ms_(limit_ms), socket_(limit_ms > 0 ? fcntl(socket, F_DUPFD_CLOEXEC, 0) : -1) {
    if (limit_ms_ <= 0)
        return;
    if (socket_.get() < 0)
        throw file_failure("socket", -errno);
    thread_ = std::thread([this] { wait_for_end(); });
}

Deadline::~Deadline() {
    if (!thread_.joinable())
        return;
    {
        const std::lock_guard guard(mutex_);
        ended_ = true;
    }
    end_.notify_one();
    thread_.join();
}

std::string Deadline::text() const {
    return "the transfer took longer than " + std::to_string(limit_ms_) + " ms";
}

void Deadline::wait_for_end() {
    std::unique_lock guard(mutex_);
    if (end_.wait_for(guard, std::chrono::milliseconds(limit_ms_), [this] { return ended_; }))
        return;
    is_over_ = true;
    shutdown(socket_.get(), SHUT_RDWR);
}

}  // namespace korvex::cli
