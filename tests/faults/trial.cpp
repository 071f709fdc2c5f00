// One run: what is armed around the call, and what is looked at before and after.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <system_error>

#include "sweep.h"

namespace faults {
namespace {

namespace fs = std::filesystem;

// What can be read on a terminal, and told apart from any other.
std::string readable(const std::string &bytes) {
    std::string text;
    for (const char byte : bytes) {
        char shown[8];
        std::snprintf(shown, sizeof shown, byte >= ' ' && byte != '\\' && byte < 127 ? "%c" : "\\x%02x",
                      static_cast<unsigned char>(byte));
        text += shown;
    }
    return text;
}

std::string describe(const fs::path &path) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0)
        throw std::system_error(errno, std::generic_category(), path);

    char head[64];
    std::snprintf(head, sizeof head, "%06o %u:%u ", status.st_mode, status.st_uid, status.st_gid);
    std::string text = head;
    if (S_ISLNK(status.st_mode))
        return text + "-> " + fs::read_symlink(path).string();
    if (!S_ISREG(status.st_mode))
        return text;

    const std::string content = support::read_file(path);
    constexpr size_t most = 200;
    if (content.size() <= most)
        return text + '"' + readable(content) + '"';
    return text + std::to_string(content.size()) + " bytes, hash " + std::to_string(std::hash<std::string>{}(content));
}

void add_tree(Snapshot &snapshot, const std::string &root, const std::string &shown) {
    snapshot[shown] = describe(root);
    for (const auto &entry : fs::recursive_directory_iterator(root))
        snapshot[shown + entry.path().string().substr(root.size())] = describe(entry.path());
}

Snapshot take_snapshot(const support::TempFolder &folder) {
    Snapshot snapshot;
    add_tree(snapshot, folder.path(), "...");
    add_tree(snapshot, "/var/lock", "/var/lock");
    return snapshot;
}

}  // namespace

Trial::Trial(const support::TempFolder &folder, const Injection *injection, Level level)
    : folder_(folder), injection_(injection), level_(level) {}

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
    if (injection_ == nullptr)
        recording_.emplace();
    else if (injection_->is_short())
        shortening_.emplace(injection_->call, 1, injection_->nth);
    else
        failing_.emplace(injection_->call, injection_->error, injection_->nth);
    errno = EBUSY;  // what an earlier call left there tells nothing of this one
}

void Trial::end(int64_t result) {
    const support::Undisturbed looking;
    const bool failed = !failing_ || failing_->failed() > 0;
    struck_ = !shortening_ || shortening_->struck();
    if (recording_)
        calls_ = recording_->calls();
    recording_.reset();
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
