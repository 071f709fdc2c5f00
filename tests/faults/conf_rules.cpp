#include "conf_rules.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "lock_content.h"
#include "messages_conffile.h"

namespace faults {
namespace {

Messages then(const Message &first, const Messages &others) {
    Messages all{first};
    all.insert(all.end(), others.begin(), others.end());
    return all;
}

// The lock that a change holds.
Change held_lock() {
    constexpr int64_t kTrialBegan = 1'700'000'000'000;
    return new_file("/var/lock/_x.conf.lck", support::lock_bytes(kTrialBegan, getpid()), 0755);
}

// The steps of a read from the opened file on.
Rules opened_rules(const Messages &failed, int nth = 1) {
    return {
        Rule(Call::fstat, nth).says(then(msg::cache_no_status, failed)),
        Rule(Call::malloc, block::text).says(then(msg::cache_no_memory, failed)),
        // A short read sets no errno, which the message shows.
        Rule(Call::read, nth).when_short().with_code(-EIO).says(then(msg::cache_not_read.with_any_code(), failed)),
        Rule(Call::read, nth).says(then(msg::cache_not_read, failed)),
        Rule(Call::close).is_overlooked(),
    };
}

}  // namespace

Rules parse_rules(const char *function, int64_t result_without_section, int nth_nameless) {
    const auto nth = [&](int which) { return nth_nameless + which - block::nameless_section; };
    return {
        Rule(Call::malloc, nth(block::nameless_section)).says(msg::parse_no_memory(function)),
        Rule(Call::malloc, nth(block::first_pair)).says(msg::parse_no_pair(function)),
        Rule(Call::malloc, nth(block::second_section))
            .gives(result_without_section)
            .says(msg::parse_no_section(function)),
        Rule(Call::malloc, nth(block::second_pair)).says(msg::parse_no_pair(function)),
    };
}

Rules cache_rules(const Messages &failed, const Messages &missing) {
    return join({{
                     Rule(Call::stat, 1).with(ENOENT).says(missing),
                     Rule(Call::stat, 1).says(then(msg::cache_no_status, failed)),
                     Rule(Call::openat, 1).says(then(msg::cache_not_opened, failed)),
                 },
                 opened_rules(failed)});
}

Rules change_rules(const Messages &failed, const Messages &missing, int nth) {
    return join({{
                     Rule(Call::openat, 1).says(then(msg::cache_no_status, failed)),  // the folder
                     Rule(Call::fstatat, 1).with(ENOENT).says(missing),
                     Rule(Call::fstatat, 1).says(then(msg::cache_no_status, failed)),
                     Rule(Call::openat, 2).says(then(msg::cache_not_opened, failed)),
                 },
                 opened_rules(failed, nth)});
}

Changes without_a_print(const Prints &prints) {
    Changes changes{holding(kConfEntry, "")};
    for (size_t failed = 0; failed < prints.size(); failed++) {
        std::string rest;
        for (size_t each = 0; each < prints.size(); each++)
            rest += each != failed ? prints[each] : "";
        changes.push_back(holding(kConfEntry, rest));
    }
    return changes;
}

Rules update_rules(const NewFileCalls &calls, const Prints &prints, const Messages &callers) {
    const Messages not_opened = then(msg::write_not_opened, then(msg::update_not_written, callers));
    return {
        Rule(Call::openat, calls.nth_openat).says(not_opened),
        Rule(Call::fdopen).says(not_opened),
        Rule(Call::malloc, calls.nth_malloc).says(not_opened),
        // No failure of a print is reported, and what could be printed is moved into place.
        Rule({Call::fprintf, Call::fputc, Call::fflush})
            .is_overlooked()
            .leaves(Files::as_unharmed, without_a_print(prints)),
        Rule({Call::setvbuf, Call::fclose, Call::close}).is_overlooked(),
        Rule(Call::rename).says(then(msg::update_not_renamed, callers)),
        Rule(Call::fchmod, 1).is_overlooked(),
        // The new text is in place, with the bits that it was written with.
        Rule(Call::fchmod, 2).leaves(Files::as_unharmed).says(then(msg::update_no_mode, callers)),
    };
}

Rule lock_not_released(int nth_unlink) {
    return Rule(Call::unlink, nth_unlink).is_overlooked().leaves(Files::as_unharmed, {held_lock()});
}

std::string put_conf(Trial &trial, const std::string &content) {
    const std::string path = trial.file("x.conf", content);
    chmod(path.c_str(), 0640);
    return path;
}

}  // namespace faults
