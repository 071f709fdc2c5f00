#include "snapshot/snapshot.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <exception>
#include <map>
#include <memory>
#include <utility>

#include "cli.h"
#include "output/machine_json.h"

namespace korvex::cli::snapshot {
namespace {

std::string now_text() {
    const time_t now = std::time(nullptr);
    tm parts{};
    char text[64];
    gmtime_r(&now, &parts);
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text;
}

std::string host_text() {
    std::array<char, 256> name{};
    return gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

std::string whole_text(const std::string &file) {
    const bool is_input = file == "-";
    const std::unique_ptr<FILE, int (*)(FILE *)> stream(
        is_input ? stdin : std::fopen(file.c_str(), "re"),
        [](FILE *open) { return open == stdin ? 0 : std::fclose(open); });
    if (!stream)
        throw file_failure(file, -errno);
    std::string text;
    std::array<char, 65536> block{};
    errno = 0;
    for (size_t size; (size = std::fread(block.data(), 1, block.size(), stream.get())) > 0;)
        text.append(block.data(), size);
    if (std::ferror(stream.get()) != 0)
        throw file_failure(file, -errno);
    return text;
}

// What the comparison relies on: each part is null or a list of objects that have their identity.
bool is_part(const Json &document, const Part &part) {
    const auto list = document.find(part.name);
    if (list == document.end() || !(list->is_null() || list->is_array()))
        return false;
    return list->is_null() || std::all_of(list->begin(), list->end(), [&part](const Json &element) {
               return element.is_object() &&
                      std::all_of(part.identity.begin(), part.identity.end(), [&element](std::string_view field) {
                          const auto found = element.find(std::string(field));
                          return found != element.end() && found->is_string();
                      });
           });
}

// The elements of a part by their identities; those of one identity are told apart by their order.
using Elements = std::map<std::string, const Json *>;
Elements elements_of(const Json &list, const Part &part) {
    Elements elements;
    for (const Json &element : list) {
        std::string name;
        for (const std::string_view field : part.identity)
            name += (name.empty() ? "" : " ") + element[std::string(field)].get<std::string>();
        std::string unique = name;
        for (size_t number = 2; elements.contains(unique); ++number)
            unique = name + " (" + std::to_string(number) + ")";
        elements.emplace(unique, &element);
    }
    return elements;
}

std::vector<Field> changed_fields(const Json &before, const Json &after, const Part &part, bool all) {
    Json names = before;
    names.update(after);
    std::vector<Field> fields;
    for (const auto &[name, value] : names.items()) {
        const bool counts =
            all || std::find(part.incidental.begin(), part.incidental.end(), name) == part.incidental.end();
        const Json old_value = before.value(name, Json());
        const Json new_value = after.value(name, Json());
        if (counts && old_value != new_value)
            fields.push_back({name, old_value, new_value});
    }
    return fields;
}

void compare_part(const Json &before, const Json &after, const Part &part, bool all, std::vector<Difference> &found) {
    const Elements old_elements = elements_of(before, part);
    const Elements new_elements = elements_of(after, part);
    for (const auto &[name, element] : old_elements)
        if (!new_elements.contains(name))
            found.push_back({Difference::Kind::went, part.name, name});
    for (const auto &[name, element] : new_elements) {
        const auto old_element = old_elements.find(name);
        if (old_element == old_elements.end()) {
            found.push_back({Difference::Kind::came, part.name, name});
            continue;
        }
        std::vector<Field> fields = changed_fields(*old_element->second, *element, part, all);
        if (!fields.empty())
            found.push_back({Difference::Kind::changed, part.name, name, std::move(fields)});
    }
}

}  // namespace

std::span<const Part> parts() {
    static const std::array<Part, 6> all{{{"mounts", mounts_json, {"path"}, {}},
                                          {"volumes", volumes_json, {"device"}, {"free_bytes"}},
                                          {"shares", shares_json, {"name"}, {"mtime", "mtime_nsec", "free_bytes"}},
                                          {"blocks", blocks_json, {"device"}, {}},
                                          {"interfaces", interfaces_json, {"name"}, {}},
                                          {"locks", locks_json, {"kind", "name"}, {"age_ms", "next"}}}};
    return all;
}

Json take(std::vector<std::string> &problems) {
    Json document = {{"schema", kSchema}, {"taken", now_text()}, {"host", host_text()}, {"korvex", KORVEX_VERSION}};
    for (const Part &part : parts()) {
        try {
            document[part.name] = part.read();
        } catch (const std::exception &failure) {
            document[part.name] = nullptr;
            problems.push_back(std::string(part.name) + ": " + failure.what());
        }
    }
    return document;
}

Json load(const std::string &file) {
    Json document = Json::parse(whole_text(file), nullptr, false);
    const bool has_schema = document.is_object() && document.contains("schema");
    if (!has_schema || !document["schema"].is_number_integer())
        throw Failure(kFailure, file + ": not a snapshot");
    if (document["schema"] != kSchema)
        throw Failure(kFailure, file + ": a snapshot of schema " + document["schema"].dump() + ", and schema " +
                                    std::to_string(kSchema) + " is read here");
    for (const Part &part : parts())
        if (!is_part(document, part))
            throw Failure(kFailure, file + ": not a snapshot: no list of " + part.name);
    return document;
}

std::vector<Difference> compare(const Json &before, const Json &after, bool all) {
    std::vector<Difference> found;
    for (const Part &part : parts()) {
        const Json &old_list = before[part.name];
        const Json &new_list = after[part.name];
        if (old_list.is_null() != new_list.is_null())
            found.push_back({Difference::Kind::unknown, part.name, ""});
        else if (!old_list.is_null())
            compare_part(old_list, new_list, part, all, found);
    }
    return found;
}

}  // namespace korvex::cli::snapshot
