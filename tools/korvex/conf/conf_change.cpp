#include "conf/conf_change.h"

#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <optional>
#include <stop_token>

#include "conf/conf_failure.h"
#include "files/lock_umask.h"
#include "process/stop_signals.h"

namespace korvex::cli {
namespace {

// The signals that end the tool, as a stop token.
class SignalStop {
  public:
    std::stop_token token() const { return source_.get_token(); }

    void refuse_stopped() const {
        if (signal_ != 0)
            throw Failure(128 + signal_, "stopped by a signal; nothing was changed");
    }

  private:
    std::stop_source source_;
    std::atomic<int> signal_ = 0;
    SignalThread thread_{[this](int signal) {
        int none = 0;
        signal_.compare_exchange_strong(none, signal);
        source_.request_stop();
    }};
};

void run_change(const std::string &file, const ChangeOptions &options,
                const std::function<void(conf::transaction &)> &edit, const SignalStop &signals) {
    // For the locks alone: what a new file may be is the user's umask's to say.
    std::optional<LockUmask> umask(std::in_place);
    conf::transaction change(file, {.durable = !options.no_sync, .backup = options.backup, .stop = signals.token()});
    edit(change);
    umask.reset();

    signals.refuse_stopped();
    if (options.dry_run)
        std::printf("%s", change.diff().c_str());
    else
        change.commit();
}

}  // namespace

void add_change_options(CLI::App &command, ChangeOptions &options) {
    command.add_flag("--dry-run", options.dry_run, "Print what would change, as a unified diff, and write nothing");
    // The parser says "true" for a flag without a value.
    command.add_flag("--backup", options.backup, "Keep the old file under its name and SUFFIX, ~: --backup[=SUFFIX]")
        ->transform([](const std::string &suffix) { return suffix == "true" ? "~" : suffix; })
        ->check([](const std::string &suffix) {
            return std::string(suffix.find('/') == std::string::npos ? "" : "a suffix can't hold a '/'");
        });
    command.add_flag("--no-sync", options.no_sync, "Don't wait until the disk has the new text");
}

void change_conf(const std::string &file, const ChangeOptions &options,
                 const std::function<void(conf::transaction &)> &edit) {
    const SignalStop signals;
    try {
        run_change(file, options, edit, signals);
    } catch (const error &failure) {
        if (failure.code() == std::errc::operation_canceled)
            signals.refuse_stopped();
        throw conf_failure(file, failure);
    }
}

void require_file(const std::string &file) {
    struct stat status {};
    if (stat(file.c_str(), &status) != 0 && errno == ENOENT)
        throw missing_file(file);
}

}  // namespace korvex::cli
