// What this machine is made of and what runs on it: tuples, which the package makes records of.
#include <optional>
#include <string>

#include "korvex/process.hpp"
#include "korvex/system.hpp"
#include "module.h"

namespace korvex::python {
namespace {

py::list all_mounts() {
    py::list found;
    const mount_list list = without_gil([] { return mounts(); });
    for (const mount &one : list)
        found.append(py::make_tuple(to_path_text(one.source), to_path_text(one.folder), to_text(one.type),
                                    to_text(one.options), one.frequency, one.pass));
    return found;
}

py::list all_shares() {
    py::list found;
    const share_list list = without_gil([] { return shares(); });
    for (const share &one : list)
        found.append(py::make_tuple(to_path_text(one.name), static_cast<std::uint32_t>(one.flags), one.mode, one.user,
                                    one.group, one.modified.time_since_epoch().count(), one.file_system, one.block_size,
                                    one.free_bytes));
    return found;
}

py::list all_blocks() {
    py::list found;
    const block_list list = without_gil([] { return blocks(); });
    for (const block &one : list)
        found.append(
            py::make_tuple(to_path_text(one.device), to_text(one.uuid), to_text(one.type), to_text(one.second_type)));
    return found;
}

py::list all_interfaces() {
    py::list found;
    const interface_list list = without_gil([] { return interfaces(); });
    for (const interface &one : list) {
        py::list addresses;
        for (const ipv6_address &address : one.ipv6)
            addresses.append(py::make_tuple(to_text(address.address), address.prefix));
        found.append(py::make_tuple(to_text(one.name), to_text(one.mac), to_text(one.ipv4), one.ipv4_prefix,
                                    py::tuple(addresses), one.flags, one.index));
    }
    return found;
}

py::object volume_named(const path_text &name) {
    const std::optional<volume> found = without_gil([&] { return find_volume(name); });
    if (!found)
        return py::none();
    return py::make_tuple(to_path_text(found->device), to_path_text(found->mount_path), to_text(found->uuid),
                          to_text(found->type), to_text(found->label), to_text(found->model), to_text(found->vendor),
                          found->partition, found->free_bytes, found->total_bytes);
}

py::object shown(const std::optional<block_content> &found) {
    if (!found)
        return py::none();
    return py::make_tuple(to_path_text(found->device), to_text(found->uuid), to_text(found->label),
                          to_text(found->type));
}

py::object content_on(const path_text &device) {
    return shown(without_gil([&] { return content_of(device); }));
}

py::object block_of(const free_text &uuid) {
    return shown(without_gil([&] { return find_block(uuid); }));
}

py::object disk_of(const path_text &device) {
    const std::optional<disk> found = without_gil([&] { return find_disk(device); });
    if (!found)
        return py::none();
    return py::make_tuple(to_text(found->vendor), to_text(found->model), found->size, found->partition);
}

py::object link_to(const path_text &path) {
    const std::optional<std::string> found = without_gil([&] { return share_link_to(path); });
    return found ? py::object(to_path_text(*found)) : py::none();
}

py::object to_number(const std::optional<pid_t> &pid) {
    return pid ? py::object(py::int_(*pid)) : py::none();
}

py::list processes(const path_text &name) {
    py::list found;
    for (const pid_t pid : without_gil([&] { return processes_named(name); }))
        found.append(pid);
    return found;
}

}  // namespace

void bind_machine(py::module_ &module) {
    const auto add = [&module](const char *name, share_flags flag) {
        module.attr(name) = static_cast<std::uint32_t>(flag);
    };
    add("SHARE_READ_ONLY", share_flags::read_only);
    add("SHARE_HIDDEN", share_flags::hidden);
    add("SHARE_EXTERNAL", share_flags::external);
    add("SHARE_DISC", share_flags::disc);
    add("SHARE_REMOVABLE", share_flags::removable);
    module.def("mounts", all_mounts);
    module.def("shares", all_shares);
    module.def("blocks", all_blocks);
    module.def("interfaces", all_interfaces);
    module.def("find_volume", volume_named, "name"_a);
    module.def("content_of", content_on, "device"_a);
    module.def("find_block", block_of, "uuid"_a);
    module.def("find_disk", disk_of, "device"_a);
    module.def("share_link_to", link_to, "path"_a);
    module.def(
        "process_exists", [](pid_t pid) { return process_exists(pid); }, "pid"_a);
    module.def(
        "parent_of", [](pid_t pid) { return to_number(parent_of(pid)); }, "pid"_a);
    module.def("processes_named", processes, "name"_a);
    module.def(
        "ancestor_of", [](const path_text &name) { return to_number(without_gil([&] { return ancestor_of(name); })); },
        "name"_a);
}

}  // namespace korvex::python
