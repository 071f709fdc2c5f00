// A sample appliance to ask about: the fixed paths that the library reads, with the contents of a test.
//
// The program moves into a root folder of its own first. That root shows the machine's folders, but its /share, /etc
// and /dev are its own, so that nothing is made under those paths of the machine, which need not even have them.
#pragma once

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "log_capture.h"

namespace sysinfo_test {

// The fixed paths of one test: without shares, mounts, options, disks and tool, until the test adds some. What an
// earlier one left is gone.
class Appliance {
  public:
    Appliance();
    ~Appliance();
    Appliance(const Appliance &) = delete;
    Appliance &operator=(const Appliance &) = delete;

    // Makes a folder with the folders above it.
    void folder(const std::string &path) const;
    // Mounts a volume, a small tmpfs, whose mount point is made where it is missing. No table lists it.
    void volume(const std::string &path) const;
    // Makes a link in /share.
    void link(const std::string &target, const std::string &name) const;
    // A folder, with the folders above it, and the link that shares it.
    void share(const std::string &target, const std::string &name) const;

    // Writes /etc/mtab.
    void mount_table(const std::string &lines) const;
    // Leads /etc/mtab to what the kernel says.
    void mount_table_of_kernel() const;
    // Writes /etc/config/smb.conf.
    void share_options(const std::string &text) const;

    // Makes the tool print this, and nothing on standard error.
    void tool_prints(const std::string &lines) const;
    // Makes the tool a shell script.
    void tool_runs(const std::string &script) const;

    // Makes /sys/block/DISK with its attributes, as the kernel writes them.
    void disk(const std::string &name, const std::string &sectors, const std::string &model,
              const std::string &vendor) const;
    // Adds a partition to a disk: its folder with its size.
    void partition(const std::string &disk, const std::string &name, const std::string &sectors) const;
    // Makes an attribute below /sys/block of a disk unreadable: there is a folder in its place, as no test that is run
    // by root can rely on a mode.
    void unreadable(const std::string &attribute) const;
};

// The world of one test. At its end no descriptor is left open and no child unwaited for.
class ApplianceTest : public testing::Test {
  protected:
    ApplianceTest();
    ~ApplianceTest() override;

    const Appliance appliance_;

  private:
    const std::map<int, std::string> before_;
};

// Leaves the process no descriptor that it could still open.
class NoDescriptors {
  public:
    NoDescriptors() {
        getrlimit(RLIMIT_NOFILE, &before_);
        const rlimit none{0, before_.rlim_max};
        EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    }
    ~NoDescriptors() { setrlimit(RLIMIT_NOFILE, &before_); }
    NoDescriptors(const NoDescriptors &) = delete;
    NoDescriptors &operator=(const NoDescriptors &) = delete;

  private:
    rlimit before_{};
};

// The messages of one function: what it calls may have its own to tell.
std::vector<std::string> messages_of(support::LogCapture &log, std::string_view function);

// A record of the caller's, filled with rubbish, amid guard bytes.
template <class Record>
class Guarded {
  public:
    Guarded() {
        for (std::byte &byte : bytes_)
            byte = kGuard;
    }

    Record *get() { return reinterpret_cast<Record *>(bytes_ + kRoom); }
    Record *operator->() { return get(); }

    bool guards_are_whole() const {
        for (size_t i = 0; i < kRoom; i++)
            if (bytes_[i] != kGuard || bytes_[kRoom + sizeof(Record) + i] != kGuard)
                return false;
        return true;
    }

  private:
    static constexpr std::byte kGuard{0x5a};
    static constexpr size_t kRoom = 256;
    alignas(Record) std::byte bytes_[kRoom + sizeof(Record) + kRoom];
};

}  // namespace sysinfo_test
