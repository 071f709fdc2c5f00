#include "server.hpp"

#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <span>
#include <thread>

using namespace std::chrono_literals;

namespace {

constexpr auto tick = 100ms;  // between two looks at the room and at the socket's file
constexpr auto turn = 5ms;    // how long a worker waits for one peer while others may have something to say

}  // namespace

socket_file::socket_file(std::string path) : path_(std::move(path)) {
    lstat(path_.c_str(), &made_);
}

socket_file::~socket_file() {
    if (is_ours())
        unlink(path_.c_str());
}

// While this daemon holds the socket, its file's number is not given to another.
bool socket_file::is_ours() const {
    struct stat present {};
    return lstat(path_.c_str(), &present) == 0 && present.st_dev == made_.st_dev && present.st_ino == made_.st_ino;
}

server::server(const options &chosen, korvex::log &log, korvex::socket stop_signals)
    : chosen_(chosen), log_(log), settings_(chosen.conf_path, log) {
    std::vector<korvex::socket> ports;
    if (chosen.port != 0) {
        const korvex::tls::context check(chosen.own);  // a wrong certificate ends the start
        ports = korvex::listen(chosen.host, chosen.port);
    }
    // A port that is in use has ended the start before the path is taken from the daemon that uses both.
    listeners_.push_back(std::move(stop_signals));
    listeners_.push_back(korvex::listen_local(chosen.socket_path));
    file_.emplace(chosen.socket_path);
    std::ranges::move(ports, std::back_inserter(listeners_));
}

void server::run() {
    std::vector<std::jthread> workers;
    for (int i = 0; i < chosen_.workers; i++)
        workers.emplace_back([this](const std::stop_token &stop) { serve(stop); });

    note(log_, "process " + std::to_string(getpid()) + " serves " + chosen_.conf_path);
    accept_until_stopped();
    file_.reset();
    listeners_.clear();
    for (std::jthread &worker : workers)
        worker.request_stop();
}

void server::accept_until_stopped() {
    for (;;) {
        // Where there is no room, peers wait in the kernel's backlog.
        const std::size_t watched = connections_ < most_connections ? listeners_.size() : 1;
        const std::optional<std::size_t> ready = korvex::first_ready(std::span(listeners_).first(watched), tick);
        if (ready == 0U)
            return note(log_, "stopping");
        if (!file_->is_ours())
            return note(log_, "stopping: " + chosen_.socket_path + " is no longer this daemon's");
        // Only the first that is ready is told: all are tried, or a busy one would keep the others out.
        for (std::size_t i = 1; ready && i < listeners_.size() && connections_ < most_connections; i++)
            accept_from(listeners_[i], i > 1);
    }
}

void server::accept_from(const korvex::socket &listener, bool speaks_tls) try {
    if (std::optional<korvex::socket> link = korvex::accept(listener, 0ms)) {
        waiting_.push(std::make_unique<connection>(chosen_, std::move(*link), speaks_tls));
        connections_++;
    }
} catch (const std::exception &failure) {
    note(log_, failure.what());
    std::this_thread::sleep_for(tick);  // the peer still waits, and would be accepted in vain again at once
}

void server::serve(const std::stop_token &stop) try {
    while (std::optional<std::unique_ptr<connection>> next = waiting_.pop(stop)) {
        bool lasts = take_turn(**next, stop);
        while (lasts && waiting_.empty())
            lasts = take_turn(**next, stop);
        // The push can't be refused: the queue has room for all the connections that there may be.
        if (lasts && waiting_.try_push(*next))
            continue;
        next->reset();
        connections_--;
    }
} catch (const korvex::error &failure) {
    if (failure.code() != std::errc::operation_canceled)
        note(log_, failure.what());
}

// True when the connection is to have more turns.
bool server::take_turn(connection &peer, const std::stop_token &stop) try {
    const std::optional<request> asked = peer.receive(turn, stop);
    if (!asked)
        return true;
    peer.send(settings_.answer_to(*asked));
    return asked->unreadable == status::done;
} catch (const peer_gone &) {
    return false;
} catch (const std::exception &failure) {
    if (!stop.stop_requested())
        note(log_, failure.what());
    return false;
}
