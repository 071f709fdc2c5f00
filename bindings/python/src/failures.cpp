// The layer's failures become exceptions of korvex.errors.
#include <exception>
#include <string>

#include "korvex/error.hpp"
#include "korvex/net_transfer.hpp"
#include "module.h"

namespace korvex::python {
namespace {

// The errno that stands for a code of the layer's own.
int errno_of(const std::error_code &code) {
    switch (static_cast<errc>(code.value())) {
        case errc::changed_meanwhile:
        case errc::expectation_failed:
            return ESTALE;
        case errc::not_carried_over:
            return ENOTSUP;
        case errc::no_certificate:
        case errc::not_trusted:
        case errc::certificate_expired:
        case errc::certificate_not_yet_valid:
        case errc::name_mismatch:
        case errc::not_verified:
            return EKEYREJECTED;
        default: {
            const std::error_condition condition = code.default_error_condition();
            return condition.category() == std::generic_category() ? condition.value() : EIO;
        }
    }
}

void raise(const error &failure, std::uint64_t moved) {
    const py::object make = py::module_::import("korvex.errors").attr("_made");
    const py::object exception = make(failure.code().value(), errno_of(failure.code()), to_text(failure.reason()),
                                      to_path_text(failure.subject()), to_text(failure.what()), moved);
    PyErr_SetObject(reinterpret_cast<PyObject *>(Py_TYPE(exception.ptr())), exception.ptr());
}

void translate(std::exception_ptr thrown) {
    try {
        std::rethrow_exception(thrown);
    } catch (const transfer_error &failure) {
        raise(failure, failure.moved());
    } catch (const error &failure) {
        raise(failure, 0);
    } catch (const std::system_error &failure) {  // a thread that can't be made
        raise(error(failure.code().value(), "can't start", "a thread"), 0);
    }
}

}  // namespace

void bind_failures(py::module_ &module) {
    py::register_local_exception_translator(translate);
    // The layer's codes without an errno of their own, for korvex.errors.
    py::dict codes;
    const auto add = [&codes](const char *name, errc code) { codes[name] = static_cast<int>(code); };
    add("no_such_section", errc::no_such_section);
    add("no_such_key", errc::no_such_key);
    add("not_a_regular_file", errc::not_a_regular_file);
    add("lock_not_obtained", errc::lock_not_obtained);
    add("time_is_over", errc::time_is_over);
    add("canceled", errc::canceled);
    add("changed_meanwhile", errc::changed_meanwhile);
    add("expectation_failed", errc::expectation_failed);
    add("lock_lost", errc::lock_lost);
    add("would_not_read_back", errc::would_not_read_back);
    add("not_carried_over", errc::not_carried_over);
    add("not_a_number", errc::not_a_number);
    add("peer_closed", errc::peer_closed);
    add("no_certificate", errc::no_certificate);
    add("not_trusted", errc::not_trusted);
    add("certificate_expired", errc::certificate_expired);
    add("certificate_not_yet_valid", errc::certificate_not_yet_valid);
    add("name_mismatch", errc::name_mismatch);
    add("not_verified", errc::not_verified);
    module.attr("CODES") = codes;
}

}  // namespace korvex::python
