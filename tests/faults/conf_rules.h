// The rules for steps that several functions on configuration files share: what is expected when such a step fails.
#pragma once

#include <cerrno>
#include <string>
#include <vector>

#include "sweep.h"

namespace faults {

using Messages = std::vector<Message>;

// A configuration of two sections, the first without a name; and how its parse fails.
inline constexpr const char *kConf = "a = 1\n[s]\nb = 2\n";
// The file that holds it.
inline constexpr const char *kConfEntry = ".../x.conf";

// The blocks of a read and parse of it, in the order in which they are taken.
namespace block {
constexpr int text = 1;
constexpr int nameless_section = 2;
constexpr int first_pair = 3;
constexpr int second_section = 4;
constexpr int second_pair = 5;
constexpr int after_parse = 6;  // what the caller takes next
}  // namespace block

// Its parse. `nth_nameless` says which block the nameless section is. Without memory for a section the list ends there,
// which is a success; without memory for a pair the parse fails.
Rules parse_rules(const char *function, int64_t result_without_section, int nth_nameless = block::nameless_section);

// The read of a file. `failed` and `missing`: what the callers say, after Cache_Conf_File's own message, of a file that
// can't be read, and of one that is not there.
Rules cache_rules(const Messages &failed, const Messages &missing);

// The same for a file that is to be changed, whose folder is opened first. `nth` says which `fstat` and `read` it is.
Rules change_rules(const Messages &failed, const Messages &missing, int nth = 1);

// The ordinal of each of these calls that makes the file of the new text.
struct NewFileCalls {
    int nth_openat;
    int nth_malloc;  // of the stream
};

// What each of these prints puts out, one after the other.
using Prints = std::vector<std::string>;
// What the file holds where one of them failed, or where all of it could not be handed to the system: nobody is told.
Changes without_a_print(const Prints &prints);

// The write of nodes to a new file, which replaces the old one; the callers' messages follow.
Rules update_rules(const NewFileCalls &calls, const Prints &prints, const Messages &callers);

// The look at the old file just before the new one is made. It may fail: what the read has shown is enough.
inline Rule look_before_update() {
    return Rule(Call::fstatat, 2).is_overlooked();
}
// The same where there was nothing to read: a file that can't be looked at may be there, and so its owner alone gets the new
// one.
inline Rules look_before_making(int nth = 2) {
    return {Rule(Call::fstatat, nth).with(ENOENT).is_overlooked(),
            Rule(Call::fstatat, nth).is_overlooked().leaves(Files::as_unharmed, {with_bits(kConfEntry, 0600)})};
}

// The release of a lock is not reported: it stays.
Rule lock_not_released(int nth_unlink = 0);

// Writes kConf to "x.conf" with a mode of its own; its path.
std::string put_conf(Trial &trial, const std::string &content = kConf);

}  // namespace faults
