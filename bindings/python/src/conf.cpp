// Configuration files: keys, documents and transactions.
#include "korvex/conf.hpp"

#include <optional>
#include <string>
#include <utility>

#include "module.h"
#include "owned.h"
#include "waiting.h"

namespace korvex::python {
namespace {

py::object to_optional_text(const std::optional<std::string> &text) {
    return text ? py::object(to_text(*text)) : py::none();
}

py::object get(const path_text &path, const free_text &section, const free_text &key) {
    return to_optional_text(without_gil([&] { return conf::get(path, section, key); }));
}

py::list shown(const conf::document &document) {
    py::list sections;
    for (const conf::section &section : document) {
        py::list pairs;
        for (const conf::pair &pair : section)
            pairs.append(py::make_tuple(to_text(pair.key), to_text(pair.value)));
        sections.append(py::make_tuple(to_text(section.name()), pairs));
    }
    return sections;
}

py::list read(const path_text &path) {
    return shown(without_gil([&] { return conf::document::read(path); }));
}

py::list parse(const free_text &text) {
    return shown(without_gil([&] { return conf::document::parse(text); }));
}

// A value as a number or truth value, with the words of `conf::get_as`.
template <class Type>
Type value_as(const free_text &text, const path_text &path, const free_text &section, const free_text &key, Type least,
              Type most) {
    return detail::value_or_throw<Type>(text, path, section, key, conf::range<Type>{least, most});
}

class transaction {
  public:
    transaction(path_text path, std::int64_t wait, bool durable, std::string backup, bool force, bool lenient,
                const py::object &stop)
        : name_(std::move(path)), edit_(taken(limit_of(wait), stop, [&](auto limit, auto token) {
              return conf::transaction(name_, {.wait = limit,
                                               .durable = durable,
                                               .backup = backup,
                                               .force = force,
                                               .lenient = lenient,
                                               .stop = token});
          })) {}

    py::object get(const free_text &section, const free_text &key) {
        return to_optional_text(edit_.use(name_, [&](conf::transaction &edit) { return edit.get(section, key); }));
    }
    void set(const free_text &section, const free_text &key, const free_text &value) {
        edit_.use(name_, [&](conf::transaction &edit) { edit.set(section, key, std::string_view(value)); });
    }
    bool erase(const free_text &section, const free_text &key) {
        return edit_.use(name_, [&](conf::transaction &edit) { return edit.erase(section, key); });
    }
    void expect(const free_text &section, const free_text &key, const py::object &value) {
        std::optional<free_text> wanted;
        if (!value.is_none())
            wanted = value.cast<free_text>();
        edit_.use(name_, [&](conf::transaction &edit) {
            edit.expect(section, key, wanted ? std::make_optional<std::string_view>(*wanted) : std::nullopt);
        });
    }
    py::str diff() {
        return to_text(edit_.use(name_, [](conf::transaction &edit) { return edit.diff(); }));
    }
    py::str text() {
        return to_text(edit_.use(name_, [](conf::transaction &edit) { return edit.file_text(); }));
    }
    py::str path() {
        return to_path_text(edit_.use(name_, [](conf::transaction &edit) { return edit.path(); }));
    }
    // A failed commit can be tried again, so it leaves the transaction open.
    void commit() {
        edit_.use(name_, [](conf::transaction &edit) { edit.commit(); });
        edit_.close();
    }
    void close() { edit_.close(); }
    bool is_open() const { return edit_.is_open(); }

  private:
    path_text name_;
    owned<conf::transaction> edit_;
};

}  // namespace

void bind_conf(py::module_ &module) {
    module.def("conf_get", get, "path"_a, "section"_a, "key"_a);
    module.def("conf_read", read, "path"_a);
    module.def("conf_parse", parse, "text"_a);
    module.def("value_as_bool", value_as<bool>, "text"_a, "path"_a, "section"_a, "key"_a, "least"_a = false,
               "most"_a = true);
    module.def("value_as_int", value_as<std::int64_t>, "text"_a, "path"_a, "section"_a, "key"_a, "least"_a, "most"_a);
    module.def("value_as_float", value_as<double>, "text"_a, "path"_a, "section"_a, "key"_a, "least"_a, "most"_a);

    py::class_<transaction>(module, "Transaction")
        .def(py::init<path_text, std::int64_t, bool, std::string, bool, bool, py::object>(), "path"_a, "wait"_a,
             "durable"_a, "backup"_a, "force"_a, "lenient"_a, "stop"_a)
        .def("get", &transaction::get, "section"_a, "key"_a)
        .def("set", &transaction::set, "section"_a, "key"_a, "value"_a)
        .def("erase", &transaction::erase, "section"_a, "key"_a)
        .def("expect", &transaction::expect, "section"_a, "key"_a, "value"_a)
        .def("diff", &transaction::diff)
        .def("text", &transaction::text)
        .def("path", &transaction::path)
        .def("commit", &transaction::commit)
        .def("close", &transaction::close)
        .def("is_open", &transaction::is_open);
}

}  // namespace korvex::python
