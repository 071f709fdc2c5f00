#include "files/unfinished_files.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

namespace korvex::cli {

UnfinishedFiles::UnfinishedFiles() : signals_([this](int signal) { end_process(signal); }) {}

UnfinishedFiles::~UnfinishedFiles() {
    const std::lock_guard guard(mutex_);
    remove_all();
    files_.clear();
}

void UnfinishedFiles::add(const std::function<std::string()> &make) {
    const std::lock_guard guard(mutex_);
    const std::string path = make();
    struct stat status {};
    if (lstat(path.c_str(), &status) == 0)
        files_.push_back({path, status.st_dev, status.st_ino});
}

void UnfinishedFiles::finish(const std::string &path, const std::function<void()> &move) {
    const std::lock_guard guard(mutex_);
    move();
    forget(path);
}

void UnfinishedFiles::remove(const std::string &path) {
    const std::lock_guard guard(mutex_);
    for (const File &file : files_)
        if (file.path == path)
            remove_if_same(file);
    forget(path);
}

// The process ends by the signal itself, so that a shell's loop ends, too. The mutex stays locked: nothing is made or
// kept any more.
void UnfinishedFiles::end_process(int signal) {
    mutex_.lock();
    remove_all();

    sigset_t one;
    sigemptyset(&one);
    sigaddset(&one, signal);
    raise(signal);
    pthread_sigmask(SIG_UNBLOCK, &one, nullptr);
    _exit(128 + signal);
}

void UnfinishedFiles::forget(const std::string &path) {
    std::erase_if(files_, [&path](const File &file) { return file.path == path; });
}

void UnfinishedFiles::remove_all() {
    std::for_each(files_.begin(), files_.end(), remove_if_same);
}

void UnfinishedFiles::remove_if_same(const File &file) {
    struct stat status {};
    if (lstat(file.path.c_str(), &status) == 0 && status.st_dev == file.device && status.st_ino == file.inode)
        unlink(file.path.c_str());
}

}  // namespace korvex::cli
