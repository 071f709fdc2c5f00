// What the tests of descriptors and files share.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdint>
#include <map>
#include <string>

#include "descriptors.h"
#include "faults.h"
#include "fileio.h"
#include "guarded_buffer.h"
#include "log_capture.h"
#include "sandbox.h"

namespace fileio_test {

using namespace support;

inline struct stat status_of(const std::string &path) {
    struct stat status {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return status;
}

// The world of one test: a folder of its own, and no descriptor left open at the end.
class FileTest : public testing::Test {
  protected:
    ~FileTest() override { EXPECT_EQ(open_descriptors(), before_); }

    TempFolder folder_;

  private:
    const std::map<int, std::string> before_ = open_descriptors();
};

}  // namespace fileio_test
