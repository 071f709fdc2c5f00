/// @file
/// Questions about processes.
#ifndef KORVEX_PROCESS_HPP
#define KORVEX_PROCESS_HPP

#include <sys/types.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "korvex/detail/c_text.hpp"
#include "korvex/detail/call.hpp"
#include "miscfunc.h"

namespace korvex {

/// Whether a process exists, whoever it belongs to. (The C call gives an error for another user's.)
///
/// @param pid  its number
/// @return whether it does
inline bool process_exists(pid_t pid) noexcept {
    const std::int32_t answer = Is_Process_Existed(pid);
    return answer == 1 || answer == -EPERM;
}

/// The parent of a process; nothing where there is no such process, or where its parent can't be told.
///
/// @param pid  its number
/// @return its parent's
inline std::optional<pid_t> parent_of(pid_t pid) {
    std::int32_t parent = -1;
    if (pid < 0 || Get_Parent_Pid(pid, &parent) != 0 || parent < 0)
        return {};
    return parent;
}

/// The processes of a name or of a program, in the order of /proc.
///
/// @param name  a command's name as in /proc/PID/comm; or a path that begins with "/", which every command line matches
///              that begins with it: "/usr/bin/tool" finds "/usr/bin/toolx", too
/// @return empty where there is none; throws where /proc can't be read
inline std::vector<pid_t> processes_named(std::string_view name) {
    std::int32_t *ids = nullptr;
    std::int32_t count = 0;
    const std::int32_t result = Get_All_Pids(detail::c_path(name), &ids, &count);
    if (result == -ENODATA)
        return {};
    detail::check(result, "can't look for processes named", name);

    struct freer {
        void operator()(std::int32_t *memory) const noexcept { std::free(memory); }
    };
    const std::unique_ptr<std::int32_t, freer> owner(ids);
    return {ids, ids + count};
}

/// Who started a program: the ancestor, just below process 1, of the first process of a name.
///
/// @param name  as for `processes_named`
/// @return nothing where there is no such process, or where the ancestry can't be told
inline std::optional<pid_t> ancestor_of(std::string_view name) {
    std::int32_t pid = -1;
    const std::int32_t result = Get_Ancestry_Pid(detail::c_path(name), &pid);
    if (result == -ENODATA)
        return {};
    detail::check(result, "can't look for the ancestor of", name);
    if (pid <= 0)
        return {};
    return pid;
}

}  // namespace korvex

#endif
