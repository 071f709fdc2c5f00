// Waiting for a lock.
#ifndef KORVEX_PYTHON_WAITING_H
#define KORVEX_PYTHON_WAITING_H

#include <chrono>
#include <stop_token>
#include <type_traits>

#include "korvex/error.hpp"
#include "module.h"
#include "supervision.h"

namespace korvex::python {

/// Makes an owner that holds a lock. Most locks are free, so the first attempt waits for nothing and needs no supervision.
///
/// @param make  called with how long to wait and a stop token; throws `errc::lock_not_obtained`
template <class Make>
std::invoke_result_t<Make, std::chrono::milliseconds, std::stop_token> taken(std::chrono::milliseconds wait,
                                                                             const py::object &stop, Make make) {
    if (stop.is_none() || !py::bool_(stop())) {
        try {
            return without_gil([&make] { return make(std::chrono::milliseconds(0), std::stop_token()); });
        } catch (const error &failure) {
            if (failure.code() != errc::lock_not_obtained || wait.count() == 0)
                throw;
        }
    }
    return supervision(stop).run([&](const work_control &control) { return make(wait, control.stop); });
}

}  // namespace korvex::python

#endif
