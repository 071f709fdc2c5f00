// korvex units.
#include "run_korvex.h"

namespace {

class UnitsCommand : public KorvexTest {};

TEST_F(UnitsCommand, sizes_and_durations_are_printed) {
    const struct {
        const char *kind;
        const char *number;
        const char *text;
    } rows[] = {
        {"size", "0", "0 byte"},
        {"size", "1024", "1024 byte"},
        {"size", "1025", "1.00 KB"},
        {"size", "1536", "1.50 KB"},
        {"size", "734003200", "700.00 MB"},
        {"size", "18446744073709551615", "16777216.00 TB"},
        {"time", "0", "0 second"},
        {"time", "90061", "1 day 1 hour 1 minute 1 second"},
        {"time", "172805", "2 days 5 seconds"},
        {"time", "4294967295", "49710 days 6 hours 28 minutes 15 seconds"},
    };
    for (const auto &[kind, number, text] : rows)
        EXPECT_EQ(korvex({"units", kind, number}), Outcome(0, std::string(text) + "\n")) << kind << number;
}

TEST_F(UnitsCommand, what_is_no_whole_number_is_wrong_usage) {
    const struct {
        const char *kind;
        const char *limit;
        std::vector<std::string> numbers;
    } rows[] = {
        {"size", "18446744073709551615", {"", "x", "1x", " 1", "-1", "+1", "1.5", "0x10", "18446744073709551616"}},
        {"time", "4294967295", {"", "x", "-1", "4294967296"}},
    };
    for (const auto &[kind, limit, numbers] : rows)
        for (const std::string &number : numbers)
            EXPECT_EQ(korvex({"units", kind, number}), Outcome(2, "",
                                                               std::string("korvex: units ") + kind + ": '" + number +
                                                                   "' is not a whole number from 0 to " + limit +
                                                                   " (see 'korvex units " + kind + " --help')\n"));
}

}  // namespace
