// What the tests of how OpenSSL is found share.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <set>
#include <sstream>
#include <string>

#include "log_capture.h"
#include "sandbox.h"
#include "socket.h"

namespace late_binding_test {

using namespace support;

// Runs `body` in a process in which nobody has called the library before.
inline void in_fresh_process(const std::function<void()> &body) {
    EXPECT_EQ(in_child([&] {
                  body();
                  return testing::Test::HasFailure() ? 1 : 0;
              }),
              0);
}

// The files mapped into this process whose names begin with `name`.
inline std::set<std::string> mapped_files(const std::string &name) {
    std::istringstream maps(read_file("/proc/self/maps"));
    std::set<std::string> files;
    for (std::string line; std::getline(maps, line);) {
        const size_t slash = line.rfind('/');
        if (slash != std::string::npos && line.compare(slash + 1, name.size(), name) == 0)
            files.insert(line.substr(line.find('/')));
    }
    return files;
}

inline std::set<std::string> mapped_openssl() {
    std::set<std::string> files = mapped_files("libssl.so");
    files.merge(mapped_files("libcrypto.so"));
    return files;
}

// A certificate and its key in one file, made by the command line tool: these programs have no OpenSSL themselves.
class CertificateFile {
  public:
    CertificateFile() {
        const std::string command =
            "cd '" + folder_.path() +
            "' && openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 2 "
            "-subj /CN=nas.test -keyout key -out certificate 2>log && cat certificate key > both";
        if (std::system(command.c_str()) != 0)
            throw std::runtime_error("openssl makes no certificate");
    }

    std::string path() const { return folder_.path("both"); }

  private:
    TempFolder folder_;
};

}  // namespace late_binding_test
