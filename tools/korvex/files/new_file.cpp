#include "files/new_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>

#include "fileio.h"

namespace korvex::cli {
namespace {

FileRefused refused(const std::string &target, int error) {
    return {error, target + ": " + error_text(error)};
}

std::string folder_of(const std::string &path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

// The permission bits that the old file leaves to the new one. Another user may have put his file there for its wide bits:
// then the new file gets no more than any new file would.
struct OldBits {
    mode_t mode = 0666;
    bool beyond_umask = false;
};

OldBits old_bits(const std::string &path) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode))
        return {};
    const bool is_foreign = status.st_uid != 0 && status.st_uid != geteuid();
    return {status.st_mode & (is_foreign ? 0666U : 0777U), !is_foreign};
}

}  // namespace

// A name that leads to a device or a pipe would be replaced by a file, not written to.
void refuse_target(const std::string &target) {
    struct stat status {};
    const bool is_there = stat(target.c_str(), &status) == 0;
    if (target.ends_with('/') || (is_there && S_ISDIR(status.st_mode)))
        throw refused(target, EISDIR);
    if (is_there && !S_ISREG(status.st_mode))
        throw Failure(kFailure, target + ": exists and is not a file");
    if (faccessat(AT_FDCWD, folder_of(target).c_str(), W_OK | X_OK, AT_EACCESS) != 0)
        throw refused(target, errno);
}

NewFile::NewFile(const std::string &target, UnfinishedFiles &unfinished) : target_(target), unfinished_(unfinished) {
    unfinished_.add([this] {
        char name[PATH_MAX];
        int32_t file = -1;
        const int32_t code = Open_Unique_Temp_File(target_.c_str(), O_WRONLY | O_CLOEXEC, old_bits(target_).mode,
                                                   sizeof name, name, &file);
        if (code < 0)
            throw refused(target_, -code);
        file_ = Descriptor(file);
        return name_ = name;
    });
}

NewFile::~NewFile() {
    unfinished_.remove(name_);
}

// A file system that does not tell its size is believed to be large enough.
void NewFile::refuse_larger_than_disk(uint64_t size) const {
    struct statvfs disk {};
    if (fstatvfs(descriptor(), &disk) != 0)
        throw refused(target_, errno);
    const uint64_t largest = INT64_MAX;
    const uint64_t room = disk.f_blocks == 0 ? largest : std::min<uint64_t>(largest, disk.f_bavail * disk.f_frsize);
    if (size > room)
        throw FileRefused(size > largest ? EFBIG : ENOSPC, target_ + ": " + std::to_string(size) +
                                                               " bytes are announced, and there is room for " +
                                                               std::to_string(room));
}

// A short write has no errno: a full disk is assumed.
void NewFile::check_written(int32_t code, uint64_t written, uint64_t wanted) const {
    if (code < 0 || written < wanted)
        throw refused(target_, code < 0 ? -code : ENOSPC);
}

// The sender may remove its own file once it knows that this one is complete, so it must be on the disk. Some file
// systems can't sync a folder.
void NewFile::complete() {
    const OldBits old = old_bits(target_);
    if ((old.beyond_umask && fchmod(descriptor(), old.mode) != 0) || fsync(descriptor()) != 0)
        throw refused(target_, errno);

    unfinished_.finish(name_, [this] {
        if (std::rename(name_.c_str(), target_.c_str()) != 0)
            throw refused(target_, errno);
    });
    const Descriptor folder(open(folder_of(target_).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    (void)fsync(folder.get());
}

}  // namespace korvex::cli
