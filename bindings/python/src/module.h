// What each source adds to the module, and what they share.
#ifndef KORVEX_PYTHON_MODULE_H
#define KORVEX_PYTHON_MODULE_H

#include <pybind11/pybind11.h>

#include <chrono>
#include <cstdint>

#include "released_gil.h"
#include "texts.h"

namespace korvex::python {

namespace py = pybind11;
using namespace pybind11::literals;

void bind_conf(py::module_ &module);
void bind_failures(py::module_ &module);
void bind_files(py::module_ &module);
void bind_locks(py::module_ &module);
void bind_logs(py::module_ &module);
void bind_machine(py::module_ &module);
void bind_sockets(py::module_ &module);
void bind_tls(py::module_ &module);

/// Times cross as milliseconds; negative for no limit.
inline std::chrono::milliseconds limit_of(std::int64_t milliseconds) {
    return std::chrono::milliseconds(milliseconds);
}

}  // namespace korvex::python

#endif
