// An owner of the C++ layer as a Python object holds it.
#ifndef KORVEX_PYTHON_OWNED_H
#define KORVEX_PYTHON_OWNED_H

#include <pybind11/pybind11.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>
#include <type_traits>
#include <utility>

#include "korvex/error.hpp"
#include "released_gil.h"

namespace korvex::python {

namespace py = pybind11;

/// Holds what one thread at a time may use, until it is closed. A child made by fork has a copy of it, which is left
/// alone: else the child would give back what is its parent's.
template <class Owner>
class owned {
  public:
    explicit owned(Owner owner) : owner_(std::make_unique<Owner>(std::move(owner))) {}
    owned(const owned &) = delete;
    owned &operator=(const owned &) = delete;
    ~owned() { close(); }

    /// Uses it without the interpreter's lock; other threads wait. Throws EBADF where it is closed.
    template <class Use>
    std::invoke_result_t<Use, Owner &> use(std::string_view name, Use work) {
        const released_gil released;
        return use_without_lock(name, std::move(work));
    }

    /// The same for a caller that has given the interpreter's lock up already.
    template <class Use>
    std::invoke_result_t<Use, Owner &> use_without_lock(std::string_view name, Use work) {
        const std::scoped_lock alone(mutex_);
        if (!owner_ || ::getpid() != maker_)
            throw error(EBADF, "can't use", name, owner_ ? "it belongs to the parent process" : "it is closed");
        return work(*owner_);
    }

    /// Gives it back; nothing where it is closed already.
    void close() {
        close_by([](Owner &) {});
    }

    /// Ends it by a last use, even one that fails.
    template <class Use>
    void close_by(Use last_use) {
        const released_gil released;
        const std::scoped_lock alone(mutex_);
        std::unique_ptr<Owner> ended = std::move(owner_);
        if (ended && ::getpid() != maker_)
            (void)ended.release();
        else if (ended)
            last_use(*ended);
    }

    bool is_open() const {
        const released_gil released;
        const std::scoped_lock alone(mutex_);
        return owner_ != nullptr;
    }

  private:
    std::unique_ptr<Owner> owner_;
    mutable std::mutex mutex_;
    pid_t maker_ = ::getpid();
};

}  // namespace korvex::python

#endif
