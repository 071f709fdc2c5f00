// Whether the sweep reports what it is there for: a stand-in for a function of the library, which is right, or has one
// fault at a time.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "heap.h"
#include "modules.h"
#include "sandbox.h"

namespace faults {
namespace {

enum class Flaw {
    none,
    leaves_descriptor,
    closes_twice,
    leaves_block,
    leaves_temporary_file,
    leaves_lock,
    gives_other_code,
    gives_success,
    logs_unknown_message,
    logs_other_code,
    logs_other_level,
    logs_nothing,
    loses_old_bytes,
    cuts_new_bytes,
    changes_mode,
    harms_next_call,
    changes_output,
    // Seen only where a second call fails.
    gives_code_of_removal,
    logs_failed_removal,
    leaves_block_after_failed_removal,
    forgets_temporary_file_after_failed_close,
};

constexpr const char *kName = "Replace_Text";
constexpr Message kNotWritten{kName, Level::error, "Can't write the text %s! (%d)\n", 2};
constexpr const char *kLock = "/var/lock/replace.lck";

// Blocks that a flawed stand-in keeps: reachable, so that a leak checker has nothing to report.
std::vector<void *> g_kept;
bool g_harmed = false;

void log_failure(Flaw flaw, const char *path, int32_t code) {
    const bool unknown = flaw == Flaw::logs_unknown_message;
    const char *format = flaw == Flaw::logs_other_level ? "[debug] %s(%d): Can't write the text %s! (%d)\n"
                         : unknown                      ? "[error] %s(%d): Can't write the text %s (%d)\n"
                                                        : "[error] %s(%d): Can't write the text %s! (%d)\n";
    if (flaw != Flaw::logs_nothing)
        Simp_Log_Write(g_ptslLog, format, kName, __LINE__, path, flaw == Flaw::logs_other_code ? -EPERM : code);
}

void keep_block() {
    void *block = std::malloc(64);
    const support::Undisturbed keeping;
    g_kept.push_back(block);
}

// Its own failure is not reported.
int32_t remove_temporary(Flaw flaw, const std::string &temporary, int32_t code) {
    if (unlink(temporary.c_str()) == 0)
        return code;

    const int32_t other_code = -errno;
    if (flaw == Flaw::leaves_block_after_failed_removal)
        keep_block();
    if (flaw == Flaw::logs_failed_removal)
        log_failure(flaw, temporary.c_str(), other_code);
    return flaw == Flaw::gives_code_of_removal ? other_code : code;
}

// Undoes what was begun, as far as the flaw lets it.
int32_t fail(Flaw flaw, const char *path, const std::string &temporary, int32_t code) {
    log_failure(flaw, path, code);
    if (flaw != Flaw::leaves_temporary_file)
        code = remove_temporary(flaw, temporary, code);

    const support::Undisturbed undoing;
    if (flaw == Flaw::loses_old_bytes && truncate(path, 0) != 0)
        return code;
    if (flaw == Flaw::changes_mode && chmod(path, 0600) != 0)
        return code;
    if (flaw == Flaw::leaves_lock)
        support::write_file(kLock, "");
    g_harmed = flaw == Flaw::harms_next_call;
    return flaw == Flaw::gives_other_code ? -EPERM : flaw == Flaw::gives_success ? 0 : code;
}

// Writes a text beside the file and moves it into place. Its only call that is made to fail is `write`.
int32_t replace_text(Flaw flaw, const char *path, const std::string &temporary, int32_t *count) {
    if (std::exchange(g_harmed, false))
        return -EBUSY;

    const int file = open(temporary.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    const ssize_t written = write(file, "new text", 8);
    const int32_t code = -errno;
    const bool short_write = written >= 0 && written < 8;
    const bool closed = (written < 0 && flaw == Flaw::leaves_descriptor) || close(file) == 0;
    if (written < 0 && flaw == Flaw::closes_twice)
        close(file);
    if (written < 0 && flaw == Flaw::leaves_block)
        keep_block();
    if (written < 0 || (short_write && flaw != Flaw::cuts_new_bytes)) {
        if (flaw == Flaw::changes_output)
            *count = -1;
        const bool forgets = flaw == Flaw::forgets_temporary_file_after_failed_close && !closed;
        return fail(forgets ? Flaw::leaves_temporary_file : flaw, path, temporary, written < 0 ? code : -EIO);
    }

    *count = static_cast<int32_t>(written);
    rename(temporary.c_str(), path);
    return 0;
}

Scenario scenario_of(Flaw flaw) {
    return {kName,
            "",
            [flaw](Trial &trial) {
                const std::string path = trial.file("text", "old text");
                const std::string temporary = path + ".tmp";
                int32_t count = 77;
                trial.call([&] { return replace_text(flaw, path.c_str(), temporary, &count); });
                trial.check(count == (trial.result() == 0 && flaw != Flaw::gives_success ? 8 : 77) ||
                                flaw == Flaw::cuts_new_bytes || flaw == Flaw::gives_success,
                            "the count");
            },
            0,
            {Rule(Call::write).when_short().with_code(-EIO).says(kNotWritten), Rule(Call::write).says(kNotWritten)},
            {},
            {},
            {Call::write}};
}

struct Case {
    Flaw flaw;
    const char *reported;  // in a violation; null: there must be none
};

constexpr std::array kCases = {
    Case{Flaw::none, nullptr},
    Case{Flaw::leaves_descriptor, "left open: descriptor"},
    Case{Flaw::closes_twice, "closed, but not open: 1 descriptors"},
    Case{Flaw::leaves_block, "the heap grew by"},
    Case{Flaw::leaves_temporary_file, "left: .../text.tmp"},
    Case{Flaw::leaves_lock, "left: /var/lock/replace.lck"},
    Case{Flaw::gives_other_code, "expected -28, seen -1"},
    Case{Flaw::gives_success, "expected -28, seen 0"},
    Case{Flaw::logs_unknown_message, "not expected: [error] Replace_Text"},
    Case{Flaw::logs_other_code, "the message carries -1, not the code -28"},
    Case{Flaw::logs_other_level, "promised, but not logged: [error] Replace_Text"},
    Case{Flaw::logs_nothing, "promised, but not logged: [error] Replace_Text"},
    Case{Flaw::loses_old_bytes, "changed: .../text  100644 0:0 \"old text\"  =>  100644 0:0 \"\""},
    Case{Flaw::cuts_new_bytes, "expected -5, seen 0"},
    Case{Flaw::changes_mode, "=>  100600"},
    Case{Flaw::harms_next_call, "the next call gives -16"},
    Case{Flaw::changes_output, "does not hold: the count"},
    Case{Flaw::gives_code_of_removal, "then unlink #1 fails with EACCES: expected -28, seen -13"},
    Case{Flaw::logs_failed_removal, "then unlink #1 fails with EACCES: not expected: [error] Replace_Text"},
    Case{Flaw::leaves_block_after_failed_removal, "then unlink #1 fails with EACCES: the heap grew by"},
    Case{Flaw::forgets_temporary_file_after_failed_close, "then close #1 fails with EINTR: files are not as before:"},
};

bool check_case(const Case &flawed) {
    const Report report = sweep(scenario_of(flawed.flaw));
    bool reported = false;
    for (const std::string &violation : report.violations)
        reported = reported || (flawed.reported != nullptr && violation.find(flawed.reported) != std::string::npos);
    const bool right = flawed.reported == nullptr ? report.violations.empty() : reported;
    std::printf("%-80s %zu injections, %zu pairs, %zu violations  %s\n",
                flawed.reported == nullptr ? "no flaw" : flawed.reported, report.injections, report.pairs,
                report.violations.size(), right ? "as it must be" : "WRONG");
    if (!right)
        for (const std::string &violation : report.violations)
            std::printf("  seen: %s\n", violation.c_str());
    // The close and the removal behind each failure.
    const bool paired = flawed.flaw != Flaw::none || report.pairs == 6;
    return right && paired && report.injections == 3;
}

// A function that no scenario calls, one that stands in both lists, and one that is not exported.
bool check_gaps() {
    const Module module{
        "some", {scenario_of(Flaw::none)}, {{kName, "wrongly", [] {}}, {"Unknown", "not exported", [] {}}}};
    const auto gaps = gaps_of(module, {kName, "Forgotten"});
    const bool right =
        gaps == std::vector<std::string>{std::string(kName) + ": swept, and named as one that can't fail",
                                         "Forgotten: no scenario", "Unknown: not exported"};
    std::printf("%-80s %s\n", "gaps in the list of functions", right ? "as it must be" : "WRONG");
    return right && exported_functions("simplog").contains("Simp_Log_Write");
}

// A scenario that returns before its call: without a result of its own it looks like one in which nothing can fail.
bool check_idle() {
    const Report report = sweep({kName, "idle", [](Trial &) {}});
    const bool right = !report.violations.empty() && report.violations[0].ends_with("the scenario made no call");
    std::printf("%-80s %s\n", "a scenario without a call", right ? "as it must be" : "WRONG");
    return right;
}

}  // namespace

int check_the_sweep() {
    bool right = check_gaps();
    right = check_idle() && right;
    for (const Case &flawed : kCases) {
        const bool needs_figures =
            flawed.flaw == Flaw::leaves_block || flawed.flaw == Flaw::leaves_block_after_failed_removal;
        if (needs_figures && support::heap_in_use() == 0) {
            std::printf("%-80s not looked for here: the sanitizer's allocator gives no figures\n", flawed.reported);
            continue;
        }
        right = check_case(flawed) && right;
    }
    for (void *block : g_kept)
        std::free(block);
    std::printf("the sweep %s what it is there for\n", right ? "reports" : "DOES NOT REPORT");
    return right ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace faults
