// Connections. The descriptors stay those of Python's sockets.
#include <atomic>
#include <cerrno>
#include <optional>
#include <string>
#include <vector>

#include "buffers.h"
#include "korvex/net.hpp"
#include "module.h"
#include "supervision.h"

namespace korvex::python {
namespace {

// A socket that Python has closed has the descriptor -1, which `poll` would pass over.
int open_one(int descriptor) {
    if (descriptor < 0)
        throw error(EBADF, "can't use", "socket", "it is closed");
    return descriptor;
}

/// A socket of the layer for as long as a call takes; the descriptor is not closed.
class borrowed {
  public:
    explicit borrowed(int descriptor) : link_(open_one(descriptor)) {}
    borrowed(borrowed &&) = default;
    borrowed(const borrowed &) = delete;
    borrowed &operator=(const borrowed &) = delete;
    borrowed &operator=(borrowed &&) = delete;
    ~borrowed() { (void)link_.release(); }

    operator const socket &() const noexcept { return link_; }

  private:
    socket link_;
};

int connected(std::string host, std::uint16_t port, std::int64_t timeout, std::string local, const py::object &stop) {
    return supervision(stop).run_or_abandon([=] { return connect(host, port, limit_of(timeout), local); }).release();
}

py::list listening(std::string host, std::uint16_t port, int backlog, const py::object &stop) {
    py::list descriptors;
    auto listeners = supervision(stop).run_or_abandon([=] { return listen(host, port, backlog); });
    for (socket &listener : listeners)
        descriptors.append(listener.release());
    return descriptors;
}

int connected_locally(path_text path, std::int64_t timeout, const py::object &stop) {
    return supervision(stop).run_or_abandon([=] { return connect_local(path, limit_of(timeout)); }).release();
}

int listening_locally(const path_text &path) {
    return without_gil([&] { return listen_local(path).release(); });
}

py::object accepted(int listener, std::int64_t timeout, const py::object &stop) {
    std::optional<socket> link = supervision(stop).run(
        [&](const work_control &control) { return accept(borrowed(listener), limit_of(timeout), control.stop); });
    return link ? py::object(py::int_(link->release())) : py::none();
}

py::object first_of(const std::vector<int> &descriptors, std::int64_t timeout, const py::object &stop) {
    std::vector<socket> links;
    for (const int descriptor : descriptors)
        links.emplace_back(descriptor);
    struct giver {
        std::vector<socket> &links;
        ~giver() {
            for (socket &link : links)
                (void)link.release();
        }
    };
    const giver give_back{links};
    const std::optional<std::size_t> place = supervision(stop).run(
        [&](const work_control &control) { return first_ready(links, limit_of(timeout), control.stop); });
    return place ? py::object(py::int_(*place)) : py::none();
}

bool can_send(int descriptor, std::int64_t timeout, const py::object &stop) {
    return supervision(stop).run([&](const work_control &control) {
        return wait_writable(borrowed(descriptor), limit_of(timeout), control.stop);
    });
}

void send_whole(int descriptor, const py::object &content, std::int64_t timeout, const py::object &stop) {
    const readable_bytes bytes(content);
    supervision(stop).run([&](const work_control &control) {
        send_all(borrowed(descriptor), bytes.span(), limit_of(timeout), control.stop);
    });
}

void receive_to(int descriptor, std::span<std::byte> room, std::int64_t timeout, const py::object &stop) {
    supervision(stop).run([&](const work_control &control) {
        receive_exactly(borrowed(descriptor), room, limit_of(timeout), control.stop);
    });
}

py::bytes receive_whole(int descriptor, std::size_t count, std::int64_t timeout, const py::object &stop) {
    py::bytes made = unfilled_bytes(count);
    receive_to(descriptor, room_of(made, count), timeout, stop);
    return made;
}

void receive_into(int descriptor, const py::object &buffer, std::int64_t timeout, const py::object &stop) {
    const writable_bytes bytes(buffer);
    receive_to(descriptor, bytes.span(), timeout, stop);
}

py::object receive_part(int descriptor, std::size_t most, std::int64_t timeout, const py::object &stop) {
    py::bytes made = unfilled_bytes(most);
    const std::optional<std::size_t> count = supervision(stop).run([&](const work_control &control) {
        return receive_some(borrowed(descriptor), room_of(made, most), limit_of(timeout), control.stop);
    });
    return count ? py::object(shortened(std::move(made), *count)) : py::none();
}

void receive_to_file(int descriptor, int file, std::uint64_t length, std::int64_t silence, const py::object &progress,
                     const py::object &stop) {
    supervision(stop, progress).run([&](const work_control &control) {
        receive_into_file(borrowed(descriptor), file, length,
                          {.silence = limit_of(silence), .stop = control.stop, .progress = control.progress});
    });
}

py::object scope(const std::string &address) {
    const std::optional<std::uint32_t> found = without_gil([&] { return scope_of(address); });
    return found ? py::object(py::int_(*found)) : py::none();
}

}  // namespace

void bind_sockets(py::module_ &module) {
    module.def("connect", connected, "host"_a, "port"_a, "timeout"_a, "local"_a, "stop"_a);
    module.def("listen", listening, "host"_a, "port"_a, "backlog"_a, "stop"_a);
    module.def("connect_local", connected_locally, "path"_a, "timeout"_a, "stop"_a);
    module.def("listen_local", listening_locally, "path"_a);
    module.def("accept", accepted, "listener"_a, "timeout"_a, "stop"_a);
    module.def(
        "first_ready",
        [](const py::iterable &links, std::int64_t timeout, const py::object &stop) {
            std::vector<int> descriptors;
            for (const py::handle link : links)
                descriptors.push_back(open_one(link.cast<int>()));
            return first_of(descriptors, timeout, stop);
        },
        "descriptors"_a, "timeout"_a, "stop"_a);
    module.def("wait_writable", can_send, "descriptor"_a, "timeout"_a, "stop"_a);
    module.def("send_all", send_whole, "descriptor"_a, "content"_a, "timeout"_a, "stop"_a);
    module.def("receive_exactly", receive_whole, "descriptor"_a, "count"_a, "timeout"_a, "stop"_a);
    module.def("receive_exactly_into", receive_into, "descriptor"_a, "buffer"_a, "timeout"_a, "stop"_a);
    module.def("receive_some", receive_part, "descriptor"_a, "most"_a, "timeout"_a, "stop"_a);
    module.def("receive_into_file", receive_to_file, "descriptor"_a, "file"_a, "length"_a, "silence"_a, "progress"_a,
               "stop"_a);
    module.def(
        "resolve",
        [](std::string host, const py::object &stop) {
            const host_address found = supervision(stop).run_or_abandon([=] { return resolve(host); });
            return py::make_tuple(to_text(found.text), found.is_ipv6);
        },
        "host"_a, "stop"_a);
    module.def(
        "is_local",
        [](std::string host, const py::object &stop) {
            return supervision(stop).run_or_abandon([=] { return is_local(host); });
        },
        "host"_a, "stop"_a);
    module.def(
        "same_subnet",
        [](const std::string &one, const std::string &other, unsigned prefix) {
            return same_subnet(one, other, prefix);
        },
        "one"_a, "other"_a, "prefix"_a);
    module.def("scope_of", scope, "address"_a);
}

}  // namespace korvex::python
