// The list of the shared folders as the tests look at it, and an appliance with a volume to share.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "sample_appliance.h"
#include "sysinfo.h"

namespace sysinfo_test {

inline std::vector<std::string> names_of(const Share_Info *list) {
    std::vector<std::string> names;
    for (const Share_Info *share = list; share != nullptr; share = share->pNext)
        names.emplace_back(share->szName);
    return names;
}

// The list of one scan, given back at the end of its life.
class Shares {
  public:
    Shares() : result_(Scan_Share_List(&list_, &count_)) {}
    ~Shares() { Release_Share_List(&list_); }
    Shares(const Shares &) = delete;
    Shares &operator=(const Shares &) = delete;

    int32_t result() const { return result_; }
    int32_t count() const { return count_; }
    std::vector<std::string> names() const { return names_of(list_); }
    const Share_Info *list() const { return list_; }

    // The share of a name, which must be there.
    const Share_Info &operator[](const std::string &name) const {
        for (const Share_Info *share = list_; share != nullptr; share = share->pNext)
            if (name == share->szName)
                return *share;
        ADD_FAILURE() << "no share " << name;
        static const Share_Info none{};
        return none;
    }

  private:
    // Rubbish, which the scan is to clear.
    Share_Info *list_ = reinterpret_cast<Share_Info *>(8);
    int32_t count_ = 77;
    int32_t result_;
};

// A volume with nothing in it, and options that hide nothing by themselves.
class ShareScan : public ApplianceTest {
  protected:
    ShareScan() {
        appliance_.volume("/share/MD0_DATA");
        appliance_.mount_table("/dev/md0 /share/MD0_DATA ext4 rw 0 0\n");
        appliance_.share_options("");
    }

    // A share on the volume, with a section for its options.
    void plain_share(const std::string &name, const std::string &options = "") {
        appliance_.share("MD0_DATA/" + name, name);
        all_options_ += "[" + name + "]\n" + options + "\n";
        appliance_.share_options(all_options_);
    }

  private:
    std::string all_options_;
};

}  // namespace sysinfo_test
