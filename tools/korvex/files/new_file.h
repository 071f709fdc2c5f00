// A new content for a path: complete under its name, or not there at all.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

#include "cli.h"
#include "files/descriptor.h"
#include "files/unfinished_files.h"

namespace korvex::cli {

// Why a file can't be stored. 'korvex recv' tells the sender the error, too.
class FileRefused : public Failure {
  public:
    FileRefused(int error, const std::string &text) : Failure(kFailure, text), error_(error) {}

    int error() const { return error_; }

  private:
    int error_;
};

// Throws where no file can be made under this name, as far as that is known beforehand.
void refuse_target(const std::string &target);

// A temporary file beside the target, which takes its place at the end.
class NewFile {
  public:
    NewFile(const std::string &target, UnfinishedFiles &unfinished);
    ~NewFile();
    NewFile(const NewFile &) = delete;
    NewFile &operator=(const NewFile &) = delete;

    int descriptor() const { return file_.get(); }
    void refuse_larger_than_disk(uint64_t size) const;
    // Throws where a write to the file failed, or took only `written` of `wanted` bytes.
    void check_written(int32_t code, uint64_t written, uint64_t wanted) const;
    // Syncs it to the disk and gives it its name.
    void complete();

  private:
    const std::string target_;
    UnfinishedFiles &unfinished_;
    std::string name_;
    Descriptor file_;
};

}  // namespace korvex::cli
