// Files and folder trees.
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "buffers.h"
#include "korvex/file.hpp"
#include "korvex/tree.hpp"
#include "module.h"
#include "owned.h"
#include "supervision.h"

namespace korvex::python {
namespace {

py::bytes read_whole(const path_text &path, const py::object &stop) {
    return supervision(stop).run([&](const work_control &) { return read_file(path); });
}

void write_whole(const path_text &path, const py::object &content, bool durable, const std::string &backup,
                 bool lenient) {
    const readable_bytes bytes(content);
    without_gil([&] { write_file(path, bytes.text(), {.durable = durable, .backup = backup, .lenient = lenient}); });
}

void copy(const path_text &source, const path_text &destination, bool durable, const py::object &progress,
          const py::object &stop) {
    supervision(stop, progress).run([&](const work_control &control) {
        copy_file(source, destination, {.stop = control.stop, .progress = control.progress, .durable = durable});
    });
}

py::list shown(const tree_report &report) {
    py::list entries;
    for (const left_out &entry : report.entries)
        entries.append(py::make_tuple(to_path_text(entry.path), to_text(entry.reason)));
    return entries;
}

py::list copy_whole_tree(const path_text &source, const path_text &destination, bool durable, const py::object &stop) {
    return shown(supervision(stop).run([&](const work_control &control) {
        return copy_tree(source, destination, {.stop = control.stop, .durable = durable});
    }));
}

py::list remove_whole_tree(const path_text &path, const py::object &stop) {
    return shown(supervision(stop).run([&](const work_control &control) { return remove_tree(path, control.stop); }));
}

py::tuple measure(const path_text &path, const py::object &stop) {
    const tree_state state =
        supervision(stop).run([&](const work_control &control) { return measure_tree(path, control.stop); });
    return py::make_tuple(state.files, state.folders, state.bytes, state.blocks);
}

class temporary {
  public:
    temporary(const path_text &beside, unsigned mode)
        : file_(without_gil([&] { return temporary_file(beside, mode); })) {}

    py::str path() {
        return to_path_text(file_.use("temporary file", [](temporary_file &file) { return file.path(); }));
    }
    int descriptor() {
        return file_.use("temporary file", [](temporary_file &file) { return file.descriptor(); });
    }
    py::str keep() {
        std::string path;
        file_.close_by([&path](temporary_file &file) { path = file.keep(); });
        return to_path_text(path);
    }
    void close() { file_.close(); }

  private:
    owned<temporary_file> file_;
};

}  // namespace

void bind_files(py::module_ &module) {
    module.def("read_file", read_whole, "path"_a, "stop"_a);
    module.def("write_file", write_whole, "path"_a, "content"_a, "durable"_a, "backup"_a, "lenient"_a);
    module.def("copy_file", copy, "source"_a, "destination"_a, "durable"_a, "progress"_a, "stop"_a);
    module.def(
        "copy_link",
        [](const path_text &source, const path_text &destination) {
            without_gil([&] { copy_link(source, destination); });
        },
        "source"_a, "destination"_a);
    module.def(
        "remove_file", [](const path_text &path) { return without_gil([&] { return remove_file(path); }); }, "path"_a);
    module.def("copy_tree", copy_whole_tree, "source"_a, "destination"_a, "durable"_a, "stop"_a);
    module.def("remove_tree", remove_whole_tree, "path"_a, "stop"_a);
    module.def("measure_tree", measure, "path"_a, "stop"_a);
    module.def(
        "is_temporary_name", [](const path_text &path) { return is_temporary_name(path); }, "path"_a);
    py::class_<temporary>(module, "TemporaryFile")
        .def(py::init<path_text, unsigned>(), "beside"_a, "mode"_a)
        .def("path", &temporary::path)
        .def("descriptor", &temporary::descriptor)
        .def("keep", &temporary::keep)
        .def("close", &temporary::close);
}

}  // namespace korvex::python
