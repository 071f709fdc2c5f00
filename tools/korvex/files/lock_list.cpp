#include "files/lock_list.h"

#include <pwd.h>
#include <sys/stat.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <string>
#include <vector>

#include "output/table.h"

namespace korvex::cli {
namespace {

using Milliseconds = std::chrono::milliseconds;

const char *name_of(lock_status status) {
    switch (status) {
        case lock_status::free:
            return "free";
        case lock_status::held:
            return "held";
        case lock_status::stale:
            return "stale";
        case lock_status::incomplete:
            return "incomplete";
        case lock_status::blocked:
            return "blocked";
        case lock_status::unreadable:
            break;
    }
    return "unreadable";
}

const char *name_of(lock_kind kind) {
    switch (kind) {
        case lock_kind::common:
            return "common";
        case lock_kind::side:
            return "side";
        case lock_kind::watched:
            break;
    }
    return "watched";
}

// "stale (no such process)", "blocked by a folder".
std::string state_text(const lock_state &state) {
    if (state.status == lock_status::blocked)
        return "blocked by " + state.reason;
    return name_of(state.status) + (state.reason.empty() ? "" : " (" + state.reason + ")");
}

// By the wall clock, so it is negative for a lock that is dated in the future.
int64_t age_of(const lock_state &state) {
    return std::chrono::duration_cast<Milliseconds>(std::chrono::system_clock::now() - state.since).count();
}

bool has_time(const lock_state &state) {
    return state.since != decltype(state.since){};
}

std::string time_text(const lock_state &state) {
    if (!has_time(state))
        return "";
    const std::time_t second = std::chrono::system_clock::to_time_t(state.since);
    std::tm time{};
    localtime_r(&second, &time);
    std::array<char, 64> text{};
    return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &time)};
}

// The user whose process holds it, by name or number; empty where the process has ended.
std::string user_of(pid_t pid) {
    struct stat status {};
    if (pid <= 0 || stat(("/proc/" + std::to_string(pid)).c_str(), &status) != 0)
        return "";
    const passwd *const user = getpwuid(status.st_uid);
    return user == nullptr ? std::to_string(status.st_uid) : user->pw_name;
}

// What comes of it, if nobody does anything.
std::string next_of(const lock_state &state) {
    constexpr Milliseconds lifetime = std::chrono::minutes(10);
    switch (state.status) {
        case lock_status::held:
            return "expires in " + std::to_string((lifetime - state.age).count() / 1000) + " s";
        case lock_status::stale:
            return "the next who waits takes it over";
        case lock_status::incomplete:
            return "the next who waits takes it over after 2 s";
        case lock_status::blocked:
            return "stays until somebody removes it";
        default:
            return "";
    }
}

Row row_of(const named_lock &lock) {
    const lock_state &state = lock.state;
    return {name_of(lock.kind), state.pid > 0 ? std::to_string(state.pid) : "",
            user_of(state.pid), state.program,
            time_text(state),   state_text(state),
            next_of(state),     lock.kind == lock_kind::side ? lock.file : lock.name};
}

}  // namespace

Json json_of(const named_lock &lock) {
    const lock_state &state = lock.state;
    return {{"name", lock.name},
            {"kind", name_of(lock.kind)},
            {"file", lock.file},
            {"status", name_of(state.status)},
            {"reason", text_or_null(state.reason)},
            {"pid", state.pid > 0 ? Json(state.pid) : Json()},
            {"user", text_or_null(user_of(state.pid))},
            {"program", text_or_null(state.program)},
            {"since_ms", has_time(state) ? Json(state.since.time_since_epoch().count()) : Json()},
            {"age_ms", has_time(state) ? Json(age_of(state)) : Json()},
            {"next", text_or_null(next_of(state))}};
}

std::string status_line(const lock_state &state) {
    const std::string pid = " pid " + std::to_string(state.pid);
    const std::string age = " age " + std::to_string(has_time(state) ? age_of(state) : 0) + " ms";
    switch (state.status) {
        case lock_status::held:
            return "held" + pid + age;
        case lock_status::stale:
            return "stale" + pid + age + " (" + state.reason + ")";
        case lock_status::incomplete:
            return "incomplete" + age;
        default:
            return state_text(state);
    }
}

std::string holder_text(const lock_state &state) {
    if (state.status == lock_status::blocked)
        return ", blocked by " + state.reason;
    if (state.status != lock_status::held)
        return "";
    return ", held by process " + std::to_string(state.pid) +
           (state.program.empty() ? "" : " (" + state.program + ")") + " for " + std::to_string(state.age.count()) +
           " ms";
}

void print_locks(const std::string &file, bool json) {
    std::vector<named_lock> all = locks();
    if (!file.empty()) {
        lock_state state = inspect(file, lock_kind::side);
        if (state.status != lock_status::free)
            all.push_back({.name = file, .kind = lock_kind::side, .state = std::move(state), .file = file + ".lck"});
    }

    std::vector<Row> rows = {{"kind", "pid", "user", "program", "since", "state", "next", "name"}};
    auto list = Json::array();
    for (const named_lock &lock : all) {
        rows.push_back(row_of(lock));
        list.push_back(json_of(lock));
    }
    json ? print_json(list) : print_table(rows);
}

}  // namespace korvex::cli
