// The sockets, and the threads that serve who comes.
//
// A turn of a connection is short: one handshake, or one request and its answer. Then it goes to the end of the queue,
// unless nobody else waits. So all connections move on, however many there are and however few threads.
#pragma once

#include <sys/stat.h>

#include <atomic>
#include <korvex/log.hpp>
#include <korvex/net.hpp>
#include <korvex/queue.hpp>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "connection.hpp"
#include "note.hpp"
#include "options.hpp"
#include "settings.hpp"

// The file of the local socket. A second daemon replaces it, and then the first one must leave it alone.
class socket_file {
  public:
    explicit socket_file(std::string path);
    ~socket_file();
    socket_file(const socket_file &) = delete;
    socket_file &operator=(const socket_file &) = delete;
    bool is_ours() const;

  private:
    std::string path_;
    struct stat made_ {};
};

class server {
  public:
    // Begins to listen. `stop_signals` becomes readable when it is time to stop.
    server(const options &chosen, korvex::log &log, korvex::socket stop_signals);

    // Serves until a stop signal comes, or another daemon takes the path over. Answers that are under way go out.
    void run();

  private:
    static constexpr int most_connections = 512;  // below the usual limit of 1024 descriptors a process

    void accept_until_stopped();
    void accept_from(const korvex::socket &listener, bool speaks_tls);
    void serve(const std::stop_token &stop);
    bool take_turn(connection &peer, const std::stop_token &stop);

    const options &chosen_;
    korvex::log &log_;
    settings settings_;
    std::vector<korvex::socket> listeners_;  // the stop signals, the local socket, and those for TLS
    std::optional<socket_file> file_;
    korvex::queue<std::unique_ptr<connection>> waiting_{most_connections};
    std::atomic<int> connections_ = 0;  // waiting or being served
};
