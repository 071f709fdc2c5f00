// Temporary files.
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <string>

#include "file_scenarios.h"
#include "fileio.h"
#include "messages_tree.h"

namespace faults {
namespace {

constexpr const char *kFirst = "$$@#!$$000";
constexpr const char *kFirstOfSix = "$$@#!$$000000";

// Names a file, of which none is there or the first.
std::function<void(Trial &)> naming(bool first_is_taken) {
    return [=](Trial &trial) {
        if (first_is_taken)
            trial.file(kFirst, "taken");
        const std::string path = trial.path("x");
        std::array<char, 256> name{};
        trial.call([&] { return Generate_Temp_Filename(AT_FDCWD, path.c_str(), name.data(), 256); });
        // Whatever the reason, a name that can't be looked at counts as free.
        const bool second = first_is_taken && trial.injection() == nullptr;
        trial.check(std::string(name.data()).ends_with(second ? "001" : "000") || trial.injection() != nullptr,
                    "the first free name");
    };
}

template <class Open>
std::function<void(Trial &)> opening(Open open, const char *taken) {
    return [=](Trial &trial) {
        if (taken != nullptr)
            trial.file(taken, "taken");
        const std::string path = trial.path("x");
        std::array<char, 256> name{};
        int32_t file = 77;
        trial.call([&] { return open(path.c_str(), name.data(), &file); });
        trial.check((file >= 0) == (trial.result() == 0), "a descriptor comes with success alone");
        if (file < 0)
            return;
        trial.check(support::exists(name.data()), "the name is that of a file");
        close(file);
    };
}

}  // namespace

Scenarios temp_scenarios() {
    const auto open_at = [](const char *path, char *name, int32_t *file) {
        return Open_Unique_Temp_File_At(AT_FDCWD, path, O_RDWR | O_CLOEXEC, 0600, 256, name, file);
    };
    const auto open_here = [](const char *path, char *name, int32_t *file) {
        return Open_Unique_Temp_File(path, O_RDWR | O_CLOEXEC, 0600, 256, name, file);
    };
    const Rules name_rules = {Rule(Call::fstatat).is_overlooked()};
    // A name that is taken is passed over for the next number.
    const auto rules = [](const std::string &begin, const Message &not_opened) {
        const auto taken = [&](int nth) {
            return Rule(Call::openat, nth)
                .with(EEXIST)
                .is_overlooked()
                .leaves(Files::as_before, {new_file(".../" + begin + std::to_string(nth), "", 0600)});
        };
        return Rules{taken(1), taken(2), Rule(Call::openat).says(not_opened)};
    };
    const Rules at_rules = rules("$$@#!$$00", msg::temp_not_opened_at);
    const Rules here_rules = rules("$$@#!$$00000", msg::temp_not_opened);
    const std::map<Call, std::vector<int>> taken_too = {{Call::openat, {EEXIST}}};
    return {
        {"Generate_Temp_Filename", "", naming(false), 0, name_rules},
        {"Generate_Temp_Filename", "the first is taken", naming(true), 0, name_rules},
        {"Open_Unique_Temp_File_At", "", opening(open_at, nullptr), 0, at_rules, {}, taken_too},
        {"Open_Unique_Temp_File_At", "the first is taken", opening(open_at, kFirst), 0, at_rules, {}, taken_too},
        {"Open_Unique_Temp_File", "", opening(open_here, nullptr), 0, here_rules, {}, taken_too},
        {"Open_Unique_Temp_File", "the first is taken", opening(open_here, kFirstOfSix), 0, here_rules, {}, taken_too},
    };
}

}  // namespace faults
