// TLS sessions.
#include "korvex/tls.hpp"

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "buffers.h"
#include "module.h"
#include "owned.h"
#include "supervision.h"

namespace korvex::python {
namespace {

constexpr const char *kName = "TLS session";

class session {
  public:
    using maker = tls::session (*)(korvex::socket, const tls::credentials &, std::chrono::milliseconds);

    // The socket belongs to the session from here on, even where the handshake fails.
    static std::unique_ptr<session> on_socket(int descriptor, tls::credentials own, std::int64_t timeout,
                                              const py::object &stop, maker make) {
        // Shared, since a task is copied.
        auto link = std::make_shared<korvex::socket>(descriptor);
        return std::make_unique<session>(
            supervision(stop).run_or_abandon([=] { return make(std::move(*link), own, limit_of(timeout)); }));
    }

    explicit session(tls::session made) : session_(std::move(made)) {}

    void verify_peer(const std::string &host) {
        session_.use(kName, [&](tls::session &own) { own.verify_peer(host); });
    }
    py::object receive(std::size_t most, std::int64_t timeout, const py::object &stop) {
        py::bytes made = unfilled_bytes(most);
        std::optional<std::size_t> count;
        run(stop, [&](tls::session &own, const work_control &control) {
            count = own.receive(room_of(made, most), limit_of(timeout), control.stop);
        });
        return count ? py::object(shortened(std::move(made), *count)) : py::none();
    }
    py::bytes receive_exactly(std::size_t count, std::int64_t timeout, const py::object &stop) {
        py::bytes made = unfilled_bytes(count);
        run(stop, [&](tls::session &own, const work_control &control) {
            own.receive_exactly(room_of(made, count), limit_of(timeout), control.stop);
        });
        return made;
    }
    py::bytes peek_exactly(std::size_t count, std::int64_t timeout, const py::object &stop) {
        py::bytes made = unfilled_bytes(count);
        run(stop, [&](tls::session &own, const work_control &control) {
            own.peek_exactly(room_of(made, count), limit_of(timeout), control.stop);
        });
        return made;
    }
    void send_all(const py::object &content, std::int64_t timeout, const py::object &stop) {
        const readable_bytes bytes(content);
        run(stop, [&](tls::session &own, const work_control &control) {
            own.send_all(bytes.span(), limit_of(timeout), control.stop);
        });
    }
    int descriptor() {
        return session_.use(kName, [](tls::session &own) { return own.native_handle()->fdSocket; });
    }
    void close() { session_.close(); }

  private:
    template <class Work>
    void run(const py::object &stop, Work work) {
        supervision(stop).run([&](const work_control &control) {
            session_.use_without_lock(kName, [&](tls::session &own) { work(own, control); });
        });
    }

    owned<tls::session> session_;
};

}  // namespace

void bind_tls(py::module_ &module) {
    const auto made_by = [](session::maker make) {
        return [make](int descriptor, const path_text &certificate, const std::string &phrase,
                      const path_text &authorities, std::int64_t timeout, const py::object &stop) {
            return session::on_socket(descriptor, {certificate, phrase, authorities}, timeout, stop, make);
        };
    };
    const auto client = [](korvex::socket link, const tls::credentials &own, std::chrono::milliseconds limit) {
        return tls::session::client(std::move(link), own, limit);
    };
    const auto server = [](korvex::socket link, const tls::credentials &own, std::chrono::milliseconds limit) {
        return tls::session::server(std::move(link), own, limit);
    };
    module.def("tls_client", made_by(client), "descriptor"_a, "certificate"_a, "phrase"_a, "authorities"_a, "timeout"_a,
               "stop"_a);
    module.def("tls_server", made_by(server), "descriptor"_a, "certificate"_a, "phrase"_a, "authorities"_a, "timeout"_a,
               "stop"_a);
    py::class_<session>(module, "TlsSession")
        .def("verify_peer", &session::verify_peer, "host"_a)
        .def("receive", &session::receive, "most"_a, "timeout"_a, "stop"_a)
        .def("receive_exactly", &session::receive_exactly, "count"_a, "timeout"_a, "stop"_a)
        .def("peek_exactly", &session::peek_exactly, "count"_a, "timeout"_a, "stop"_a)
        .def("send_all", &session::send_all, "content"_a, "timeout"_a, "stop"_a)
        .def("descriptor", &session::descriptor)
        .def("close", &session::close);
}

}  // namespace korvex::python
