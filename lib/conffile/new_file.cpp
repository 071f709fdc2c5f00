#include "new_file.h"

#include <stdio_ext.h>
#include <sys/stat.h>

#include <cerrno>

namespace korvex::conffile {

NewFile::~NewFile() {
    stream_.reset();
    remove();
}

// Somebody who plants the name again and again can make this fail, but gains nothing else.
UniqueFd NewFile::make_anew() const {
    constexpr int kMostPlants = 100;
    for (int plants = 0; plants < kMostPlants; plants++) {
        UniqueFd file = place_.create(entry(), permissions_.while_written());
        if (file || errno != EEXIST)
            return file;
        if (place_.remove(entry()) != 0 && errno != ENOENT)
            return {};
    }
    errno = EEXIST;
    return {};
}

int32_t NewFile::create(std::string_view suffix, std::string_view suffix_end) {
    if (!name_.assign({place_.path(), suffix, suffix_end}))
        return -ENAMETOOLONG;

    UniqueFd file = make_anew();
    if (!file)
        return -errno;

    to_remove_ = true;
    stream_.reset(fdopen(file.get(), "w"));
    if (!stream_) {
        const int32_t code = -errno;
        remove();
        return code;
    }

    descriptor_ = file.release();
    std::setvbuf(stream_.get(), buffer_.data(), _IOFBF, buffer_.size());
    if (permissions_.carried())
        prepare_permissions();
    return 0;
}

void NewFile::prepare_permissions() {
    constexpr auto kUnknown = static_cast<uid_t>(-1);
    struct stat status {};
    if (permissions_.has_set_id() && fstat(descriptor_, &status) != 0)
        status.st_uid = status.st_gid = kUnknown;
    last_bits_ = permissions_.final_bits(status.st_uid, status.st_gid);

    // The umask may have taken bits that readers need as soon as the file is in place. A failure here is ignored:
    // set_permissions() meets it again, and reports it.
    (void)fchmod(descriptor_, permissions_.while_written());
}

int NewFile::flush() {
    std::fflush(stream_.get());
    const int error = std::ferror(stream_.get());
    __fpurge(stream_.get());
    return error;
}

int32_t NewFile::move_into_place() {
    if (place_.move_here(entry()) != 0)
        return -errno;

    to_remove_ = false;
    return 0;
}

int32_t NewFile::set_permissions() const {
    return !permissions_.carried() || fchmod(descriptor_, last_bits_) == 0 ? 0 : -errno;
}

void NewFile::remove() {
    if (to_remove_)
        place_.remove(entry());
    to_remove_ = false;
}

}  // namespace korvex::conffile
