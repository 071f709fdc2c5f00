// The lines of the system's list of IPv6 addresses: which are passed over, and what is read from which column.
#include <cctype>
#include <iterator>

#include "scope_list.h"

using namespace socket_test;

namespace {

using ScopeIdLine = ScopeId;

constexpr size_t kReadable = 1023;

std::string upper_case(std::string text) {
    for (char &letter : text)
        letter = static_cast<char>(std::toupper(static_cast<unsigned char>(letter)));
    return text;
}

}  // namespace

TEST_F(ScopeIdLine, the_loopback_interface_alone_is_passed_over) {
    const struct {
        const char *name;
        uint32_t scope_id;
    } table[] = {
        {"lo", kLastId},
        {"lo0", 7},
        {"l", 7},
        {"o", 7},
        {"LO", 7},
        {"xlo", 7},
        {"lo.", 7},
        {"lo:1", 7},
        {"eth0", 7},
        {"eth0 lo", kLastId},
        {"eth0\tlo", kLastId},
        {"lo eth0", 7},
        {"lo\teth0", 7},
        {"eth0\rlo", 7},
        {"lo ", 7},
        {"lo\t", 7},
        {"123456789012345", 7},
    };
    const std::string digits = "fe800000000000000000000000000001";
    for (const auto &row : table)
        EXPECT_EQ(scope_in(raw_line(digits, "07", "40", row.name) + kLast, "fe80::2"), found(row.scope_id)) << row.name;
    // A tab may stand where blanks do.
    EXPECT_EQ(scope_in(digits + "\t07\t40\t20\t80\tlo\n" + kLast, "fe80::2"), found(kLastId));
    EXPECT_EQ(scope_in(digits + "\t07\t40\t20\t80\teth0\n" + kLast, "fe80::2"), found(7));
}

TEST_F(ScopeIdLine, the_loopback_interface_is_no_answer_to_its_own_address) {
    EXPECT_EQ(scope_in(line("::1", 1, 128, "lo"), "::1"), kNotFound);
    EXPECT_EQ(scope_in(line("::1", 1, 128, "lo") + kLast, "::1"), found(kLastId));
}

TEST_F(ScopeIdLine, a_line_of_44_characters_is_too_short) {
    const std::string long_line = "fe800000000000000000000000000001 07 40 20 80 eth0";
    for (size_t length = 38; length <= long_line.size(); length++) {
        const std::string text = long_line.substr(0, length) + "\n";
        EXPECT_EQ(scope_in(text + kLast, "fe80::2"), found(length <= 44 ? kLastId : 7)) << length;
        EXPECT_EQ(scope_in(text, "fd00::2"), length <= 44 ? kNotFound : found(7)) << length;
    }
}

TEST_F(ScopeIdLine, digits_may_be_upper_case) {
    const std::string content = upper_case(line("fedc:ba98:7654:3210::", 0xaf, 0x40, "eth0"));
    EXPECT_EQ(scope_in(content + kLast, "fedc:ba98:7654:3210::1"), found(0xaf));
    EXPECT_EQ(scope_in(content + kLast, "fedc:ba98:7654:3211::1"), found(kLastId));
    EXPECT_EQ(scope_in(raw_line("FeDcBa9876543210aBcDeF0000000000", "aF", "7c", "eth0") + kLast,
                       "fedc:ba98:7654:3210:abcd:ef00::"),
              found(0xaf));
}

TEST_F(ScopeIdLine, every_index_of_two_digits_is_read) {
    for (unsigned int index = 0; index < 256; index++) {
        const std::string content = line("fe80::1", index, 64, "eth0") + kLast;
        ASSERT_EQ(scope_in(content, "fe80::2"), found(index));
        ASSERT_EQ(scope_in(upper_case(content), "fe80::2"), found(index));
    }
}

TEST_F(ScopeIdLine, a_character_that_is_no_digit_counts_as_0) {
    for (int letter = 1; letter < 256; letter++) {
        if (std::isxdigit(letter) || letter == '\n')
            continue;
        const std::string bad(1, static_cast<char>(letter));
        SCOPED_TRACE(letter);
        const std::string digits = "fe8" + bad + "0000000000000000000000000" + bad + "01";
        EXPECT_EQ(scope_in(raw_line("fe8" + bad + std::string(28, bad[0]), "07", "80", "eth0") + kLast, "fe80::"),
                  found(7));
        EXPECT_EQ(scope_in(raw_line(digits, bad + "7", "40", "eth0") + kLast, "fe80::1"), found(7));
        EXPECT_EQ(scope_in(raw_line(digits, "7" + bad, "40", "eth0") + kLast, "fe80::1"), found(0x70));
        // A prefix of 0 matches nothing.
        EXPECT_EQ(scope_in(raw_line(digits, "07", bad + bad, "eth0") + kLast, "fe80::1"), found(kLastId));
        EXPECT_EQ(scope_in(raw_line(digits, "07", "4" + bad, "eth0") + kLast, "fe80::1:0:0:1"), found(7));
    }
}

TEST_F(ScopeIdLine, every_digit_of_the_address_is_compared) {
    for (size_t digit = 0; digit < 32; digit++) {
        std::string digits = "0123456789abcdef0123456789abcdef";
        digits[digit] = digits[digit] == '1' ? '2' : '1';
        EXPECT_EQ(scope_in(raw_line(digits, "07", "80", "eth0") + kLast, "123:4567:89ab:cdef:123:4567:89ab:cdef"),
                  found(kLastId))
            << digit;
    }
    EXPECT_EQ(scope_in(raw_line("0123456789abcdef0123456789abcdef", "07", "80", "eth0") + kLast,
                       "123:4567:89ab:cdef:123:4567:89ab:cdef"),
              found(7));
}

TEST_F(ScopeIdLine, networks_are_compared_as_subnets_are) {
    const in6_addr asked = address("fd5a:1234:5678:9abc:def0:1357:9bdf:2468");
    for (const char *other : {"fd5a:1234:5678:9abc:def0:1357:9bdf:2469", "fd5a:1234:5678:9abc:5ef0:1357:9bdf:2468",
                              "fd5a:1234:5578:9abc::", "fd7a::", "fd5a:1234:5678:8abc::", "::"})
        for (unsigned int prefix = 0; prefix < 256; prefix++) {
            const in6_addr listed = address(other);
            const bool matches = IPv6_Check_Subnet(&asked, &listed, static_cast<int32_t>(prefix)) == 0;
            ASSERT_EQ(scope_in(line(other, 7, prefix, "eth0") + kLast, "fd5a:1234:5678:9abc:def0:1357:9bdf:2468"),
                      found(matches ? 7 : kLastId))
                << other << " /" << prefix;
        }
}

TEST_F(ScopeIdLine, an_index_of_three_digits_is_read_from_two_and_moves_the_prefix) {
    // " 123 40": the prefix is read from " 4", and four bits are not compared.
    const std::string wide = line("fe80::1", 0x123, 64, "eth0");
    EXPECT_EQ(scope_in(wide + kLast, "fe80::1"), found(0x12));
    EXPECT_EQ(scope_in(wide + kLast, "1234::1"), found(0x12));
    EXPECT_EQ(scope_in(wide, "1234::1"), found(0x12));
    // " 456 80": eight bits.
    EXPECT_EQ(scope_in(line("fe80::1", 0x456, 128, "eth0") + kLast, "feff::"), found(0x45));
    EXPECT_EQ(scope_in(line("fe80::1", 0x456, 128, "eth0") + kLast, "ff80::1"), found(kLastId));
    // " ab01 40": the prefix is read from "1 ", and there are none of 208 bits.
    EXPECT_EQ(scope_in(line("fe80::1", 0xab01, 64, "eth0") + kLast, "fe80:1::"), found(0xab));
    EXPECT_EQ(scope_in(line("fe80::1", 0xab01, 64, "eth0") + kLast, "fe81::1"), found(kLastId));
    EXPECT_EQ(scope_in(line("fe80::1", 0xabcd, 64, "eth0") + kLast, "fe80::1"), found(kLastId));
}

TEST_F(ScopeIdLine, what_lies_behind_1023_bytes_is_never_seen) {
    const std::string eth = line("fd00::1", 2, 64, "eth0");
    std::string begin;
    while (begin.size() + 2 * eth.size() <= kReadable)
        begin += eth;
    // One line more, which ends where it is told.
    const auto with_end_at = [&](size_t end) {
        const size_t name = end - begin.size() - 46;
        return begin + raw_line("fe800000000000000000000000000001", "07", "40", std::string(name, 'n'));
    };
    ASSERT_EQ(with_end_at(kReadable).size(), kReadable);
    const struct {
        std::string content;
        const char *text;
        Answer expected;
    } table[] = {
        {with_end_at(kReadable), "fe80::2", found(7)},
        {with_end_at(kReadable), "2001::", found(7)},
        // The last line that is seen, though another follows.
        {with_end_at(kReadable) + line("2001::1", 9, 64, "eth9"), "2001::1", found(7)},
        {with_end_at(kReadable - 1), "2001::", found(7)},
        // Neither the last nor a match; what follows is cut.
        {with_end_at(kReadable - 1) + line("2001::1", 9, 64, "eth9"), "2001::1", kNotFound},
        {with_end_at(kReadable - 1) + line("2001::1", 9, 64, "eth9"), "fe80::2", found(7)},
        // Its own newline is cut off.
        {with_end_at(kReadable + 1), "fe80::1", kNotFound},
        {with_end_at(kReadable + 1) + kLast, "2001:db8::1", kNotFound},
        {with_end_at(kReadable + 1) + kLast, "fd00::2", found(2)},
    };
    for (size_t i = 0; i < std::size(table); i++)
        EXPECT_EQ(scope_in(table[i].content, table[i].text), table[i].expected) << i;
}

TEST_F(ScopeIdLine, any_text_is_survived) {
    const std::string texts[] = {std::string(2000, 'x'),
                                 std::string(2000, '\n'),
                                 std::string(2000, ' '),
                                 std::string(2000, '\0'),
                                 std::string(100, '\xff') + "\n",
                                 std::string(60, ' ') + "\n",
                                 std::string(60, '\t') + "\n" + kLast,
                                 std::string(45, 'f') + "\n" + kLast};
    for (const std::string &text : texts) {
        const Answer answer = scope_in(text, "fe80::1");
        EXPECT_TRUE(answer == kNotFound || (answer.result == 0 && answer.scope_id <= 0xff)) << answer;
    }
    // A line without a blank is its own name.
    EXPECT_EQ(scope_in(std::string(45, 'f') + "\n", "fe80::1"), found(0xff));
}
