// Locks between processes.
#include <optional>

#include "korvex/lock.hpp"
#include "module.h"
#include "owned.h"
#include "supervision.h"
#include "waiting.h"

namespace korvex::python {
namespace {

lock_kind kind_of(bool is_side) noexcept {
    return is_side ? lock_kind::side : lock_kind::common;
}

class lock {
  public:
    lock(path_text path, std::int64_t wait, bool is_side, const py::object &stop)
        : name_(std::move(path)), held_(taken(limit_of(wait), stop, [&](auto limit, auto token) {
              return file_lock(name_, limit, kind_of(is_side), token);
          })) {}

    void release() {
        held_.close_by([](file_lock &held) { held.release(); });
    }
    bool is_held() {
        return held_.is_open() && held_.use(name_, [](file_lock &held) { return held.is_held(); });
    }
    std::int64_t time_left() {
        return held_.use(name_, [](file_lock &held) { return held.time_left().count(); });
    }
    bool is_open() const { return held_.is_open(); }

  private:
    path_text name_;
    owned<file_lock> held_;
};

py::tuple shown(const lock_state &state) {
    return py::make_tuple(static_cast<int>(state.status), state.pid, to_text(state.program), state.age.count(),
                          to_text(state.reason));
}

py::tuple inspect_lock(const path_text &path, bool is_side) {
    return shown(without_gil([&] { return inspect(path, kind_of(is_side)); }));
}

py::list all_locks() {
    py::list shown_locks;
    for (const named_lock &one : without_gil([] { return locks(); }))
        shown_locks.append(py::make_tuple(to_path_text(one.name), one.kind == lock_kind::watched, shown(one.state)));
    return shown_locks;
}

// In slices, since the layer's wait can't be stopped: whoever waits for a watched lock takes nothing, so nothing is lost
// between them.
bool wait_until_free(const path_text &path, std::int64_t wait, const py::object &stop) {
    constexpr std::chrono::milliseconds slice{50};
    return supervision(stop).run([&](const work_control &control) {
        const auto start = std::chrono::steady_clock::now();
        for (;;) {
            const auto spent =
                std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
            const auto left = limit_of(wait) - spent;
            const bool is_last = wait >= 0 && left <= slice;
            if (wait_until_unwatched(path, is_last ? std::max(left, std::chrono::milliseconds(0)) : slice))
                return true;
            if (is_last)
                return false;
            if (control.stop.stop_requested())
                throw error(errc::canceled, "can't wait for", path);
        }
    });
}

}  // namespace

void bind_locks(py::module_ &module) {
    module.attr("USUAL_WAIT") = usual_wait.count();
    py::class_<lock>(module, "Lock")
        .def(py::init<path_text, std::int64_t, bool, py::object>(), "path"_a, "wait"_a, "side"_a, "stop"_a)
        .def("release", &lock::release)
        .def("is_held", &lock::is_held)
        .def("time_left", &lock::time_left)
        .def("is_open", &lock::is_open);
    module.def("inspect_lock", inspect_lock, "path"_a, "side"_a);
    module.def("locks", all_locks);
    module.def("wait_until_unwatched", wait_until_free, "path"_a, "wait"_a, "stop"_a);
}

}  // namespace korvex::python
