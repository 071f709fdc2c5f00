// Memory of Python objects, used in place.
#ifndef KORVEX_PYTHON_BUFFERS_H
#define KORVEX_PYTHON_BUFFERS_H

#include <pybind11/pybind11.h>

#include <cstddef>
#include <span>
#include <string_view>

namespace korvex::python {

namespace py = pybind11;

/// The contiguous bytes of an object with the buffer protocol; the object can't change its size meanwhile.
class buffer_bytes {
  public:
    buffer_bytes(const py::object &object, int flags) {
        if (PyObject_GetBuffer(object.ptr(), &view_, flags) != 0)
            throw py::error_already_set();
    }
    buffer_bytes(const buffer_bytes &) = delete;
    buffer_bytes &operator=(const buffer_bytes &) = delete;
    ~buffer_bytes() { PyBuffer_Release(&view_); }

  protected:
    std::span<std::byte> bytes() const noexcept {
        return {static_cast<std::byte *>(view_.buf), static_cast<std::size_t>(view_.len)};
    }

  private:
    Py_buffer view_{};
};

class readable_bytes : public buffer_bytes {
  public:
    explicit readable_bytes(const py::object &object) : buffer_bytes(object, PyBUF_SIMPLE) {}
    std::span<const std::byte> span() const noexcept { return bytes(); }
    std::string_view text() const noexcept { return {reinterpret_cast<const char *>(bytes().data()), bytes().size()}; }
};

class writable_bytes : public buffer_bytes {
  public:
    explicit writable_bytes(const py::object &object) : buffer_bytes(object, PyBUF_WRITABLE) {}
    std::span<std::byte> span() const noexcept { return bytes(); }
};

/// A new bytes object to be filled before anybody sees it.
inline py::bytes unfilled_bytes(std::size_t size) {
    PyObject *const made = PyBytes_FromStringAndSize(nullptr, static_cast<Py_ssize_t>(size));
    if (made == nullptr)
        throw py::error_already_set();
    return py::reinterpret_steal<py::bytes>(made);
}

inline std::span<std::byte> room_of(const py::bytes &made, std::size_t size) noexcept {
    return {reinterpret_cast<std::byte *>(PyBytes_AS_STRING(made.ptr())), size};
}

/// The first bytes of one that was filled in part.
inline py::bytes shortened(py::bytes made, std::size_t size) {
    PyObject *object = made.release().ptr();
    if (_PyBytes_Resize(&object, static_cast<Py_ssize_t>(size)) != 0)
        throw py::error_already_set();
    return py::reinterpret_steal<py::bytes>(object);
}

}  // namespace korvex::python

#endif
