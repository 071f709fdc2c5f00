// What the tests of receiving into a file share.
#pragma once

#include <cstdint>
#include <string>

#include "socket_world.h"
#include "stream_pair.h"

namespace socket_test {

constexpr uint64_t kUncounted = 4711;

class RecvFile : public SocketTest {
  protected:
    int32_t receive(int64_t length, int64_t *offset = nullptr) {
        return Recv_File(socket_.out, file_, offset, length, &received_);
    }
    std::string content() const { return read_file(path_); }
    // The messages; `count` is what was to be moved.
    static std::string socket_error(int socket, int64_t chunk, int32_t code) {
        return "[error] Recv_File(#): Can't splice the socket " + std::to_string(socket) + " error! (" +
               std::to_string(chunk) + ", " + std::to_string(code) + ", " + std::to_string(code) + ")\n";
    }
    static std::string file_error(int file, int64_t count, int32_t code) {
        return "[error] Recv_File(#): Can't splice the destination file " + std::to_string(file) + " error! (" +
               std::to_string(count) + ", " + std::to_string(code) + ", " + std::to_string(code) + ")\n";
    }
    static std::string wait_error(int socket, int32_t code) {
        return "[error] Recv_File(#): Can't check the socket is ready " + std::to_string(socket) + " error! (" +
               std::to_string(code) + ")\n";
    }

    TempFolder folder_;
    const std::string path_ = folder_.path("file");
    Stream socket_;
    const Descriptor file_{path_, O_RDWR | O_CREAT | O_CLOEXEC};
    uint64_t received_ = kUncounted;
    LogCapture log_;
};

}  // namespace socket_test
