// One run: what is armed around the call, and what is looked at before and after.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "sweep.h"

namespace faults {
namespace {

// The path that a call is to remove: its argument, or a name in a folder's descriptor.
std::string path_of_removal(const support::Arguments &arguments) {
    const char *name = arguments.at<const char *>(1);
    if (name == nullptr)
        return arguments.at<const char *>(0);

    const int folder = arguments.at<int>(0);
    return *name == '/' || folder == AT_FDCWD ? name : "/proc/self/fd/" + std::to_string(folder) + "/" + name;
}

bool removes(Call call) {
    return call == Call::unlink || call == Call::unlinkat || call == Call::rmdir;
}

}  // namespace

Trial::Trial(const support::TempFolder &folder, const Harm *harm, Level level)
    : folder_(folder), harm_(harm), level_(level) {}

void Trial::check(bool holds, const std::string &what) {
    if (!holds)
        complaints_.push_back("does not hold: " + what);
}

void Trial::begin() {
    called_ = true;
    before_ = take_snapshot(folder_);
    closing_.emplace(support::Call::close, 0, [this](const support::Arguments &arguments) {
        const support::Undisturbed looking;
        const int error = errno;
        closed_in_vain_ += fcntl(arguments.at<int>(0), F_GETFD) < 0 ? 1 : 0;
        errno = error;
    });
    log_.emplace(level_);
    recording_.emplace();
    if (harm_ != nullptr && harm_->first.is_short())
        shortening_.emplace(harm_->first.call, 1, harm_->first.nth);
    else if (harm_ != nullptr)
        failing_.emplace(harm_->first.call, harm_->first.error, harm_->first.nth);
    if (harm_ != nullptr && harm_->second)
        arm_second(*harm_->second);
    errno = EBUSY;  // what an earlier call left there tells nothing of this one
}

// What it can't remove may stay, as it is then.
void Trial::arm_second(const Injection &second) {
    if (removes(second.call))
        removing_.emplace(second.call, second.nth, [this](const support::Arguments &arguments) {
            const support::Undisturbed looking;
            stayed_ = look_at(folder_, path_of_removal(arguments));
        });
    failing_again_.emplace(second.call, second.error, second.nth);
}

void Trial::end(int64_t result) {
    const support::Undisturbed looking;
    const bool failed = (!failing_ || failing_->failed() > 0) && (!failing_again_ || failing_again_->failed() > 0);
    struck_ = !shortening_ || shortening_->struck();
    calls_ = recording_->calls();
    recording_.reset();
    failing_again_.reset();
    removing_.reset();
    failing_.reset();
    shortening_.reset();
    closing_.reset();
    said_ = log_->said();
    log_.reset();

    result_ = result;
    after_ = take_snapshot(folder_);
    if (!failed)
        complaints_.push_back("the call that was to fail was not made: the run is not the same each time");
    if (closed_in_vain_ > 0)
        complaints_.push_back("closed, but not open: " + std::to_string(closed_in_vain_) + " descriptors");
}

}  // namespace faults
