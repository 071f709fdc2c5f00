// Work without the interpreter's lock.
#ifndef KORVEX_PYTHON_RELEASED_GIL_H
#define KORVEX_PYTHON_RELEASED_GIL_H

#include <pybind11/pybind11.h>
#include <unistd.h>

#include <type_traits>

namespace korvex::python {

/// For a thread that the ending interpreter wants to end: the process will be gone in a moment.
[[noreturn]] inline void sleep_until_the_end() noexcept {
    for (;;)
        ::pause();
}

/// Gives the interpreter's lock up, and takes it again at its end. A daemon thread that asks for the lock while the
/// interpreter ends is unwound by `pthread_exit`; destructors on its way would end the process with a message, or touch
/// Python's objects without the lock. So it goes no further than here.
class released_gil {
  public:
    released_gil() noexcept : state_(PyEval_SaveThread()) {}
    released_gil(const released_gil &) = delete;
    released_gil &operator=(const released_gil &) = delete;
    ~released_gil() {
        try {
            PyEval_RestoreThread(state_);
        } catch (...) {
            sleep_until_the_end();
        }
    }

  private:
    PyThreadState *state_;
};

/// A call that does not wait for others, but may wait for the disk.
template <class Work>
std::invoke_result_t<Work> without_gil(Work work) {
    const released_gil released;
    return work();
}

}  // namespace korvex::python

#endif
