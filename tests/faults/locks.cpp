#include "locks.h"

#include <unistd.h>

#include <cerrno>

#include "lock_content.h"
#include "messages_conffile.h"
#include "messages_fileio.h"

namespace faults {

void put_stale_lock(Trial &trial, const std::string &path) {
    static const pid_t ended = support::dead_process();
    support::write_file(path, support::lock_bytes(static_cast<int64_t>(trial.clock().now()), ended));
}

void put_live_lock(Trial &trial, const std::string &path) {
    support::write_file(path, support::lock_bytes(static_cast<int64_t>(trial.clock().now()), getpid()));
}

void put_empty_lock(const std::string &path) {
    support::write_file(path, "");
}

Rules stale_lock_rules(const char *function, int nth) {
    // A look or a removal that fails now works in the next pass.
    Rules rules;
    const auto overlook = [&](Call call, int last) {
        for (int each = last == 0 ? 0 : 1; each <= last; each++)
            rules.push_back(Rule(call, each).is_overlooked().says(msg::lock_of_dead(function)));
    };
    for (const Call call : {Call::kill, Call::flock, Call::close})
        overlook(call, 0);
    for (const Call call : {Call::read, Call::fstat, Call::lstat, Call::unlink})
        overlook(call, nth == 0 ? 0 : nth - 1);
    overlook(Call::open, nth == 0 ? 0 : 3);  // the first creation, the look, the second creation
    return rules;
}

Rules conf_lock_rules(const char *function) {
    return {
        Rule(Call::open, 1).is_overlooked(),  // the next pass creates it
        Rule(Call::write, 1).gives(-ENOLCK).says({msg::lock_not_filled("Get_File_Lock"), msg::conf_no_lock(function)}),
    };
}

}  // namespace faults
