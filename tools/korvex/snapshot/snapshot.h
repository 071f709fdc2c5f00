// The state of a machine as one document, and the difference of two.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "output/table.h"

namespace korvex::cli::snapshot {

// The version of the document's form. It is raised when older programs would misread a new document.
constexpr int kSchema = 1;

// A list in the document.
struct Part {
    const char *name;
    Json (*read)();
    std::vector<std::string_view> identity;    // the fields by which an element is known again
    std::vector<std::string_view> incidental;  // those that change by themselves
};
std::span<const Part> parts();

// The machine as it is now. A part that can't be read is null, and the reason joins the problems.
Json take(std::vector<std::string> &problems);

// A document from a file, "-" being standard input. Throws a Failure where it is none of this schema.
Json load(const std::string &file);

struct Field {
    std::string name;
    Json before;
    Json after;
};

struct Difference {
    enum class Kind { came, went, changed, unknown };
    Kind kind;
    std::string part;
    std::string element;             // empty where the part can't be compared
    std::vector<Field> fields = {};  // of one that changed
};

// `all` counts the incidental fields, too.
std::vector<Difference> compare(const Json &before, const Json &after, bool all);

// The document for a collector that reads text files.
std::string open_metrics(const Json &document);

}  // namespace korvex::cli::snapshot
