// Whether a share is browsable, as its options in the configuration of the file sharing say.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "faults.h"
#include "log_capture.h"
#include "sample_appliance.h"
#include "sandbox.h"
#include "share_scan.h"
#include "sysinfo.h"

using namespace std::string_literals;
using namespace sysinfo_test;
using support::BeforeCall;
using support::Call;
using support::CountCalls;
using support::FailCall;
using support::LogCapture;

namespace {

constexpr uint32_t kHidden = 0x0010;

// One share, "Public".
class ShareOptions : public ApplianceTest {
  protected:
    ShareOptions() { appliance_.share("MD0_DATA/Public", "Public"); }

    // Its flags under such a configuration.
    uint32_t flags_with(const std::string &configuration) const {
        appliance_.share_options(configuration);
        return flags();
    }
    static uint32_t flags() { return Shares()["Public"].uFlags; }
};

}  // namespace

TEST_F(ShareOptions, hide_a_share_whose_value_is_no) {
    const struct {
        const char *value;
        uint32_t flags;
    } cases[] = {
        {"no", kHidden},
        {"No", kHidden},
        {"NO", kHidden},
        {"nO", kHidden},
        {"  no\t ", kHidden},
        {"yes", 0},
        {"Yes", 0},
        {"", 0},
        {"n", 0},
        {"non", 0},
        {"none", 0},
        {"no no", 0},
        {"false", 0},
        {"0", 0},
        {"\"no\"", 0},
        {"no\r", 0},
        {"no;", 0},
        {"not", 0},
        {"0123456789012345678901234567890", 0},  // 31 bytes
    };
    for (const auto &[value, flags] : cases)
        for (const char *key : {"browsable", "browseable"}) {
            SCOPED_TRACE(std::string(key) + " = " + value);
            EXPECT_EQ(flags_with("[Public]\n" + std::string(key) + " = " + value + "\n"), flags);
        }
}

TEST_F(ShareOptions, hide_a_share_whose_value_is_too_long) {
    for (const char *key : {"browsable", "browseable"})
        for (const size_t length : {32, 33, 1000}) {
            SCOPED_TRACE(std::string(key) + " of " + std::to_string(length));
            EXPECT_EQ(flags_with("[Public]\n" + std::string(key) + " = " + std::string(length, 'y') + "\n"), kHidden);
        }
    // A first key of that sort is no reason to look at the second.
    EXPECT_EQ(flags_with("[Public]\nbrowsable = " + std::string(32, 'y') + "\nbrowseable = yes\n"), kHidden);
}

TEST_F(ShareOptions, have_two_keys_of_which_one_goes_first) {
    EXPECT_EQ(flags_with("[Public]\nbrowsable = yes\nbrowseable = no\n"), 0U);
    EXPECT_EQ(flags_with("[Public]\nbrowseable = no\nbrowsable = yes\n"), 0U);
    EXPECT_EQ(flags_with("[Public]\nbrowsable = no\nbrowseable = yes\n"), kHidden);
    EXPECT_EQ(flags_with("[Public]\nbrowseable = yes\nbrowsable = no\n"), kHidden);
    EXPECT_EQ(flags_with("[Public]\nbrowsable =\nbrowseable = no\n"), 0U);
}

TEST_F(ShareOptions, are_read_once_for_all_shares) {
    for (const char *name : {"A", "B", "C"})
        appliance_.share("MD0_DATA/x", name);
    for (const char *configuration :
         {"[Public]\nbrowsable = yes\n", "[Public]\nbrowseable = yes\n", "[A]\n", "[Other]\n"}) {
        SCOPED_TRACE(configuration);
        appliance_.share_options(configuration);
        const CountCalls opened(Call::openat);
        flags();
        EXPECT_EQ(opened.count(), 1);
    }
}

// Between the first share's options and the next one's they change: in place, by another file, to none.
TEST_F(ShareOptions, are_read_again_when_they_have_changed) {
    for (const char *name : {"A", "B", "C"})
        appliance_.share("MD0_DATA/x", name);
    const std::string all_hidden =
        "[A]\nbrowsable = no\n[B]\nbrowsable = no\n[C]\nbrowsable = no\n[Public]\nbrowsable = no\n";
    const std::string none_hidden =
        "[A]\nbrowsable = ye\n[B]\nbrowsable = ye\n[C]\nbrowsable = ye\n[Public]\nbrowsable = ye\n";
    const std::string longer = none_hidden + "# and a comment\n";
    const char *const path = "/etc/config/smb.conf";
    const std::function<void()> changes[] = {
        [&] { support::write_file(path, longer); },
        [&] { support::write_file(path, none_hidden); },
        [&] {
            support::write_file("/etc/config/new", none_hidden);
            std::filesystem::rename("/etc/config/new", path);
        },
    };
    for (const auto &change : changes) {
        appliance_.share_options(all_hidden);
        // The clock of the file system moves on, so that a change can be seen by the times of the file.
        const timespec long_ago[2] = {{.tv_sec = 1'000'000, .tv_nsec = 0}, {.tv_sec = 1'000'000, .tv_nsec = 0}};
        ASSERT_EQ(utimensat(AT_FDCWD, path, long_ago, 0), 0);
        const BeforeCall second(Call::fstatat, 1, change);  // of the first share's folder
        const Shares shares;
        size_t hidden = 0;
        for (const Share_Info *share = shares.list(); share != nullptr; share = share->pNext)
            hidden += (share->uFlags & kHidden) != 0;
        EXPECT_EQ(hidden, 1U) << "only the one that was looked at before";
    }
    appliance_.share_options(none_hidden);
    const BeforeCall second(Call::fstatat, 1, [&] { std::filesystem::remove(path); });
    const Shares shares;
    size_t hidden = 0;
    for (const Share_Info *share = shares.list(); share != nullptr; share = share->pNext)
        hidden += (share->uFlags & kHidden) != 0;
    EXPECT_EQ(hidden, 3U) << "all others: they can't be read any more";
}

// The same list, whether it is logged what is read (and the file is read for each share) or not.
TEST_F(ShareOptions, are_found_by_the_same_rules_with_and_without_a_log) {
    const std::vector<std::string> names = {"A", "B", "a]b", "a", "[x]", "x", "]", "with blank", "A ", "Z"};
    for (const std::string &name : names)
        appliance_.share("MD0_DATA/x", name);
    for (const std::string &configuration :
         {std::string("[A]\nbrowsable=no\n[B]\n[A]\nbrowsable=yes\n[a]b]\nbrowsable=no\n[a]\nbrowsable=no\n"),
          std::string("[a]b]c\nbrowsable=no\n[a]\nbrowsable=yes\n[a]b]\nbrowsable=yes\n"),
          std::string("[[x]]\nbrowsable=no\n[x]]\nbrowsable = no\n[]]\nbrowseable=no\n[]\n"),
          std::string("[A\nbrowsable=no\n[A]\n[B\nbrowsable=no\n"),
          std::string("[A]\n[broken\nbrowsable=no\n[B]\nbrowsable=no"), std::string("[A]\n[broken\nbrowsable=no\n"),
          std::string("\n\n#[A]\n [A]\n[with blank] ; \nbrowsable=no\n[A ]\nbrowsable=no\n"),
          "[Z]\0\nbrowsable=no\n[B\0]\n[B]\nbrowsable\0=no\nbrowseable=no\n"s, std::string("x"), std::string()}) {
        SCOPED_TRACE(configuration);
        appliance_.share_options(configuration);
        const Shares silent;
        const LogCapture log;
        const Shares logged;
        for (const std::string &name : names)
            EXPECT_EQ(silent[name].uFlags, logged[name].uFlags) << name;
    }
}

TEST_F(ShareOptions, leave_a_share_without_the_key_browsable) {
    for (const char *configuration :
         {"[Public]\n", "[Public]", "[Public]\npath = /share/MD0_DATA/Public\nguest ok = no\n",
          "[Public]\nBrowsable = no\nBROWSEABLE = no\n", "[Public]\n;browsable = no\n# browseable = no\n",
          "[Public]\nbrowsable\n", "[Public]\nbrowsables = no\n",
          // Elsewhere it counts for nothing.
          "browsable = no\n[global]\nbrowsable = no\n[Public]\n[homes]\nbrowseable = no\n"}) {
        SCOPED_TRACE(configuration);
        EXPECT_EQ(flags_with(configuration), 0U);
    }
}

TEST_F(ShareOptions, hide_a_share_without_a_section) {
    for (const char *configuration :
         {"", "browsable = yes\n", "[global]\nbrowsable = yes\n", "[public]\nbrowsable = yes\n",
          "[Public ]\nbrowsable = yes\n", "[Publi]\nbrowsable = yes\n", " [Public]\nbrowsable = yes\n"}) {
        SCOPED_TRACE(configuration);
        EXPECT_EQ(flags_with(configuration), kHidden);
    }
}

TEST_F(ShareOptions, that_cannot_be_read_hide_all_shares) {
    EXPECT_EQ(flags(), kHidden) << "no configuration";

    std::filesystem::create_directory("/etc/config/smb.conf");
    EXPECT_EQ(flags(), kHidden) << "a folder";
    std::filesystem::remove("/etc/config/smb.conf");

    appliance_.share_options("[Public]\nbrowsable = yes\n");
    {
        const FailCall fault(Call::openat, EACCES);
        EXPECT_EQ(flags(), kHidden) << "no permission";
        EXPECT_EQ(fault.failed(), 1);
    }
    EXPECT_EQ(flags(), 0U);

    // The second look alone.
    appliance_.share_options("[Public]\nbrowseable = yes\n");
    const FailCall fault(Call::stat, EACCES, 3);  // the first is followed by that of the reading
    EXPECT_EQ(flags(), kHidden);
    EXPECT_EQ(fault.failed(), 1);
}

TEST_F(ShareOptions, of_each_share_are_its_own) {
    for (const char *name : {"A", "B", "C", "D", "with blank", "Gr\xc3\xbc\xc3\x9f"})
        appliance_.share("MD0_DATA/x", name);
    appliance_.share_options(
        "[global]\nworkgroup = HOME\n\n[A]\nbrowsable = no\n[B]\nbrowseable = no\n[C]\nbrowsable = yes\n"
        "[with blank]\nbrowsable = No\n[Gr\xc3\xbc\xc3\x9f]\nbrowsable = No\n[D]\n[D]\nbrowsable = no\n[Public]\n");
    const Shares shares;
    EXPECT_EQ(shares["A"].uFlags, kHidden);
    EXPECT_EQ(shares["B"].uFlags, kHidden);
    EXPECT_EQ(shares["C"].uFlags, 0U);
    EXPECT_EQ(shares["D"].uFlags, 0U) << "the first section of a name is the one that counts";
    EXPECT_EQ(shares["with blank"].uFlags, kHidden);
    EXPECT_EQ(shares["Gr\xc3\xbc\xc3\x9f"].uFlags, kHidden);
    EXPECT_EQ(shares["Public"].uFlags, 0U);
}
