// Logs, and the library's own messages for whoever wants to read them.
#include <fcntl.h>
#include <stdio.h>

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <string>
#include <utility>

#include "korvex/log.hpp"
#include "module.h"
#include "supervision.h"

namespace korvex::python {
namespace {

/// A log that threads share; `close` and `reopen` wait until nobody writes.
class shared_log {
  public:
    shared_log(const path_text &path, hour_clock clock, date_format date, bool truncate)
        : name_(path), log_(without_gil([&] {
              return std::make_unique<log>(path, log_options{.clock = clock, .date = date, .truncate = truncate});
          })) {}

    // Another program's lock on the log can make the write wait for 10 s, then it is written in any case. So there is
    // nothing that could be stopped.
    void write(const free_text &line) {
        const released_gil released;
        const std::shared_lock together(mutex_);
        open_log().write(line);
    }
    void reopen() {
        const released_gil released;
        const std::scoped_lock alone(mutex_);
        open_log().reopen();
    }
    void close() {
        const released_gil released;
        const std::scoped_lock alone(mutex_);
        log_.reset();
    }
    bool is_open() const {
        const released_gil released;
        const std::shared_lock together(mutex_);
        return log_ != nullptr;
    }

  private:
    log &open_log() {
        if (!log_)
            throw error(EBADF, "can't write to", name_, "it is closed");
        return *log_;
    }

    path_text name_;
    std::unique_ptr<log> log_;
    mutable std::shared_mutex mutex_;
};

/// Takes the library's messages as long as it is open, and keeps them until they are read. The library writes into a stream
/// that only adds to a list, so whoever caused a message neither waits nor needs the interpreter.
class messages {
  public:
    explicit messages(log_level level) : log_(log::standard_output()) {
        const cookie_io_functions_t functions{.read = nullptr, .write = add, .seek = nullptr, .close = nullptr};
        stream_.reset(::fopencookie(this, "w", functions));
        if (!stream_)
            throw error(errno, "can't take", "the library's messages");
        ::setvbuf(stream_.get(), nullptr, _IONBF, 0);  // so each message comes in one piece
        log_.handle()->fpLog = stream_.get();
        taking_.emplace(log_, level);
    }
    messages(const messages &) = delete;
    messages &operator=(const messages &) = delete;
    ~messages() {
        taking_.reset();
        log_.handle()->fpLog = nullptr;  // the stream is not the log's
    }

    /// The next message, without its stamp; nothing when it is closed and all are read.
    std::optional<std::string> next() {
        std::unique_lock alone(mutex_);
        arrived_.wait(alone, [this] { return is_closed_ || !lines_.empty(); });
        if (lines_.empty())
            return {};
        std::string line = std::move(lines_.front());
        lines_.pop_front();
        return line;
    }

    /// No more messages are taken; `next` gives the rest.
    void close() {
        taking_.reset();
        const std::scoped_lock alone(mutex_);
        is_closed_ = true;
        arrived_.notify_all();
    }

  private:
    static constexpr std::size_t most_kept = 10'000;  // what nobody reads must not fill the memory

    static ssize_t add(void *self, const char *bytes, std::size_t size) noexcept {
        try {
            static_cast<messages *>(self)->add_line({bytes, size});
        } catch (...) {
            return 0;  // no memory: the library counts it as a line that could not be written
        }
        return static_cast<ssize_t>(size);
    }
    void add_line(std::string_view line) {
        const std::size_t stamp = line.find("] ");
        if (stamp != std::string_view::npos)
            line.remove_prefix(stamp + 2);
        if (line.ends_with('\n'))
            line.remove_suffix(1);
        const std::scoped_lock alone(mutex_);
        if (lines_.size() < most_kept)
            lines_.emplace_back(line);
        arrived_.notify_one();
    }

    struct closer {
        void operator()(FILE *stream) const noexcept { ::fclose(stream); }
    };
    std::mutex mutex_;
    std::condition_variable arrived_;
    std::deque<std::string> lines_;
    bool is_closed_ = false;
    std::unique_ptr<FILE, closer> stream_;
    log log_;
    std::optional<library_log> taking_;
};

}  // namespace

void bind_logs(py::module_ &module) {
    py::class_<shared_log>(module, "Log")
        .def(py::init([](const path_text &path, int clock, int date, bool truncate) {
                 return std::make_unique<shared_log>(path, static_cast<hour_clock>(clock),
                                                     static_cast<date_format>(date), truncate);
             }),
             "path"_a, "clock"_a, "date"_a, "truncate"_a)
        .def("write", &shared_log::write, "line"_a)
        .def("reopen", &shared_log::reopen)
        .def("close", &shared_log::close)
        .def("is_open", &shared_log::is_open);
    module.attr("LONGEST_LINE") = static_cast<int>(log::longest_line);

    py::class_<messages>(module, "Messages")
        .def(py::init([](int level) { return std::make_unique<messages>(static_cast<log_level>(level)); }), "level"_a)
        .def("next",
             [](messages &self) -> py::object {
                 const std::optional<std::string> line = without_gil([&self] { return self.next(); });
                 return line ? py::object(to_text(*line)) : py::none();
             })
        .def("close", [](messages &self) { without_gil([&self] { self.close(); }); });
}

}  // namespace korvex::python
