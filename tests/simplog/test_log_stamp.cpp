// The stamps of lines, of which a thread keeps the last: what they depend on, and that each change shows.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <string>
#include <thread>

#include "faults.h"
#include "sandbox.h"
#include "simplog.h"

using support::BindMount;
using support::Call;
using support::CountCalls;
using support::FailCall;
using support::FakeClock;
using support::read_file;
using support::TempFolder;
using support::write_file;

namespace {

constexpr uint64_t kStart = 1'705'323'845'000;  // 2024-01-15 13:04:05 UTC

class KeptStamp : public testing::Test {
  protected:
    KeptStamp() { setenv("TZ", "UTC0", 1); }
    ~KeptStamp() override {
        setenv("TZ", "UTC0", 1);
        Simp_Log_Release(log_);
    }

    // Writes a line and returns its stamp.
    std::string stamp(uint32_t hour_clock = 24, uint32_t date_format = 3) {
        Simp_Log_Release(log_);
        EXPECT_EQ(Simp_Log_Create(path_.c_str(), &log_, hour_clock, date_format, 1), 0);
        EXPECT_EQ(Simp_Log_Open(log_, 0), 0);
        EXPECT_EQ(Simp_Log_Write(log_, "text"), 0);
        const std::string line = read_file(path_);
        return line.substr(0, line.find("] ") + 1);
    }

    // A file of a zone that is always `hours` east of Greenwich, as zic would make it.
    std::string zone_file(const std::string &name, int hours) const {
        std::string bytes = "TZif" + std::string(16 + 4 * 4, '\0');  // no version, no rules, no leap seconds
        bytes += std::string("\0\0\0\1\0\0\0\4", 8);                 // one kind of time, a name of four bytes
        const auto offset = static_cast<uint32_t>(hours * 3600);
        for (const int shift : {24, 16, 8, 0})
            bytes += static_cast<char>(offset >> shift & 0xff);
        return folder_.file(name, bytes + std::string("\0\0XYZ\0", 6));
    }

    TempFolder folder_;
    const std::string path_ = folder_.path("app.log");

  private:
    Simp_Log *log_ = nullptr;
};

}  // namespace

TEST_F(KeptStamp, is_made_once_a_second) {
    FakeClock clock(kStart);
    EXPECT_EQ(stamp(), "[2024-01-15 13:04:05]");
    {
        const CountCalls made(Call::strftime);
        for (int line = 0; line < 10; line++)
            EXPECT_EQ(stamp(), "[2024-01-15 13:04:05]");
        EXPECT_EQ(made.count(), 0);
    }
    clock.advance(999);
    EXPECT_EQ(stamp(), "[2024-01-15 13:04:05]");
    clock.advance(1);
    EXPECT_EQ(stamp(), "[2024-01-15 13:04:06]");
}

TEST_F(KeptStamp, goes_back_with_the_clock) {
    FakeClock clock(kStart);
    EXPECT_EQ(stamp(), "[2024-01-15 13:04:05]");
    clock.advance(-1000);
    EXPECT_EQ(stamp(), "[2024-01-15 13:04:04]");
}

TEST_F(KeptStamp, of_the_first_second_of_all_is_no_empty_one) {
    const FakeClock clock(0);
    std::string seen;
    std::thread([&] {
        const FakeClock own(0);
        seen = stamp();
    }).join();
    EXPECT_EQ(seen, "[1970-01-01 00:00:00]");
}

TEST_F(KeptStamp, has_the_formats_of_its_handle) {
    const FakeClock clock(kStart);
    for (int round = 0; round < 2; round++) {
        EXPECT_EQ(stamp(24, 3), "[2024-01-15 13:04:05]");
        EXPECT_EQ(stamp(12, 3), "[2024-01-15 01:04:05 pm]");
        EXPECT_EQ(stamp(24, 7), "[15/01/2024 13:04:05]");
    }
}

TEST_F(KeptStamp, follows_each_change_of_tz_at_once) {
    const std::string path = zone_file("long" + std::string(60, 'x'), -3);
    const std::string other = zone_file("long" + std::string(60, 'y'), -4);
    const struct {
        const char *zone;  // null: TZ is not set
        const char *hour;
    } table[] = {{"UTC0", "13"},       {"AAA-1", "14"},      {"AAA-2", "15"},       {"", "13"},
                 {"AAA-1", "14"},      {path.c_str(), "10"}, {other.c_str(), "09"}, {"UTC0", "13"},
                 {path.c_str(), "10"}, {nullptr, nullptr},   {"AAA-2", "15"}};

    const FakeClock clock(kStart);
    for (int round = 0; round < 2; round++) {
        for (const auto &row : table) {
            SCOPED_TRACE(row.zone != nullptr ? row.zone : "none");
            if (row.zone == nullptr)
                unsetenv("TZ");
            else
                setenv("TZ", row.zone, 1);
            const std::string seen = stamp();
            if (row.hour != nullptr) {
                EXPECT_EQ(seen.substr(12, 2), row.hour);
            }
        }
    }
}

TEST_F(KeptStamp, follows_a_change_of_the_systems_zone_within_a_second) {
    const std::string place = "/etc/localtime";
    ASSERT_TRUE(support::exists(place)) << "no zone of the system to put another in the place of";
    unsetenv("TZ");
    FakeClock clock(kStart);
    const std::string before = stamp();
    {
        const BindMount other(zone_file("zone", 7), place);
        clock.advance(1000);
        EXPECT_EQ(stamp(), "[2024-01-15 20:04:06]");
    }
    clock.advance(-1000);
    EXPECT_EQ(stamp(), before);
}

TEST_F(KeptStamp, of_another_thread_is_its_own) {
    const FakeClock clock(kStart);
    EXPECT_EQ(stamp(), "[2024-01-15 13:04:05]");
    std::string seen;
    std::thread([&] {
        const FakeClock later(kStart + 60'000);
        seen = stamp();
    }).join();
    EXPECT_EQ(seen, "[2024-01-15 13:05:05]");
    EXPECT_EQ(stamp(), "[2024-01-15 13:04:05]");
}

TEST_F(KeptStamp, keeps_the_error_number) {
    const FakeClock clock(kStart);
    setenv("TZ", "Nowhere/Land", 1);
    for (int line = 0; line < 2; line++) {
        errno = 0;
        EXPECT_EQ(Simp_Log_Write(nullptr, "%s", std::string(16'464, 'x').c_str()), -EOVERFLOW);
    }
}
