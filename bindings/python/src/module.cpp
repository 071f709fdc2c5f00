// The private module korvex._korvex: the C++ layer's functions and owners, one to one. What Python can do better (names
// arguments, units, context managers, records) stands in the package's Python sources.
#include "module.h"

PYBIND11_MODULE(_korvex, module) {
    using namespace korvex::python;
    module.doc() = "The C++ layer of korvex_util; use the package korvex.";
    bind_failures(module);
    bind_conf(module);
    bind_files(module);
    bind_locks(module);
    bind_logs(module);
    bind_machine(module);
    bind_sockets(module);
    bind_tls(module);
}
