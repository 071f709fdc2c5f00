// How paths and texts cross between Python and C++: bytes that are no UTF-8 survive both ways.
#ifndef KORVEX_PYTHON_TEXTS_H
#define KORVEX_PYTHON_TEXTS_H

#include <pybind11/pybind11.h>

#include <string>
#include <string_view>
#include <utility>

namespace korvex::python {

namespace py = pybind11;

/// What another process wrote into a file need not be UTF-8; such bytes become lone surrogates, as Python's paths do it.
inline py::str to_text(std::string_view bytes) {
    PyObject *const text = PyUnicode_DecodeUTF8(bytes.data(), static_cast<Py_ssize_t>(bytes.size()), "surrogateescape");
    if (text == nullptr)
        throw py::error_already_set();
    return py::reinterpret_steal<py::str>(text);
}

inline py::str to_path_text(std::string_view bytes) {
    PyObject *const text = PyUnicode_DecodeFSDefaultAndSize(bytes.data(), static_cast<Py_ssize_t>(bytes.size()));
    if (text == nullptr)
        throw py::error_already_set();
    return py::reinterpret_steal<py::str>(text);
}

inline std::string bytes_in(py::handle object) {
    char *data = nullptr;
    Py_ssize_t size = 0;
    if (PyBytes_AsStringAndSize(object.ptr(), &data, &size) != 0)
        throw py::error_already_set();
    return {data, static_cast<std::size_t>(size)};
}

/// A parameter that is a path: str, bytes, or an object with __fspath__.
struct path_text : std::string {};

/// A parameter that is a text; any str.
struct free_text : std::string {};

}  // namespace korvex::python

namespace pybind11::detail {

template <>
struct type_caster<korvex::python::path_text> {
    PYBIND11_TYPE_CASTER(korvex::python::path_text, const_name("str | bytes | os.PathLike"));

    bool load(handle source, bool) {
        PyObject *bytes = nullptr;
        if (PyUnicode_FSConverter(source.ptr(), &bytes) == 0)
            throw error_already_set();
        value.assign(korvex::python::bytes_in(reinterpret_steal<object>(bytes)));
        return true;
    }
};

template <>
struct type_caster<korvex::python::free_text> {
    PYBIND11_TYPE_CASTER(korvex::python::free_text, const_name("str"));

    bool load(handle source, bool) {
        if (!PyUnicode_Check(source.ptr()))
            return false;
        const auto bytes =
            reinterpret_steal<object>(PyUnicode_AsEncodedString(source.ptr(), "utf-8", "surrogateescape"));
        if (!bytes)
            throw error_already_set();
        value.assign(korvex::python::bytes_in(bytes));
        return true;
    }
};

}  // namespace pybind11::detail

#endif
