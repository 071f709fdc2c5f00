// Who started a program: the way from a process up to the one just below process 1.
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "base/handles.h"
#include "miscfunc.h"

namespace korvex::miscfunc {
namespace {

constexpr int32_t kFirstProcess = 1;
constexpr int32_t kUnknown = -1;

// The kernel's highest limit of processes, so no chain is longer.
constexpr int32_t kMostProcesses = 4'194'304;

// Takes the parent out of a whole text "PID (NAME) STATE PARENT ...". A user chooses the name, and with blanks in it he could make it
// look like the rest of the line, so behind such a name nothing is believed. False for what is no such line.
bool parse_parent(std::string_view line, int32_t &parent) {
    const size_t name = line.find('(');
    const size_t end = line.rfind(')');  // what follows is the kernel's own
    if (name == std::string_view::npos || end == std::string_view::npos)
        return false;

    parent = kUnknown;
    if (line.find_first_of(" \t\n\v\f\r", name) < end)
        return true;

    const char *state = line.data() + end + 1;
    state += std::strspn(state, " ");
    const char *number = *state != '\0' ? state + 1 : state;
    char *behind = nullptr;
    const long value = std::strtol(number, &behind, 10);
    if (behind != number)
        parent = static_cast<int32_t>(value);
    return true;
}

// False when there is no such process.
bool find_parent(int32_t pid, int32_t &parent) {
    std::array<char, 32> path;
    std::snprintf(path.data(), path.size(), "/proc/%d/stat", pid);
    const UniqueFd file(open(path.data(), O_RDONLY | O_CLOEXEC));
    if (!file)
        return false;

    std::array<char, 1024> line;
    const ssize_t length = read(file.get(), line.data(), line.size() - 1);
    if (length <= 0)
        return false;

    line[static_cast<size_t>(length)] = '\0';
    return parse_parent({line.data(), static_cast<size_t>(length)}, parent);
}

// The process just below process 1, or the last one that could be found. Processes come and go meanwhile, so the way may
// run in a circle. Two things end it: a limit of steps, and meeting a process again. To notice that, one process
// is remembered; after 1, 2, 4, 8 ... steps the current one takes its place.
int32_t top_of(int32_t pid) {
    int32_t kept = pid;
    int32_t next_kept = 1;
    for (int32_t step = 1; step < kMostProcesses; step++) {
        int32_t parent = 0;
        if (!find_parent(pid, parent) || parent == kFirstProcess)
            break;

        pid = parent;
        if (pid == kUnknown || pid == kept)
            break;

        if (step == next_kept) {
            kept = pid;
            next_kept *= 2;
        }
    }
    return pid;
}

}  // namespace
}  // namespace korvex::miscfunc

using namespace korvex;
using namespace korvex::miscfunc;

int32_t Get_Ancestry_Pid(const char *pszName, int32_t *pnPid) {
    if (pszName == nullptr || pnPid == nullptr)
        return -EINVAL;

    *pnPid = kUnknown;
    int32_t *all = nullptr;
    int32_t count = 0;
    const int32_t result = Get_All_Pids(pszName, &all, &count);
    if (result != 0)
        return result;

    const MallocPtr<int32_t> pids(all);
    *pnPid = top_of(*pids);
    return 0;
}
