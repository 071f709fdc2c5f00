// The difference of two texts.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "korvex/detail/unified_diff.hpp"
#include "sandbox.h"

namespace {

std::string diff(const std::string &before, const std::string &after) {
    return korvex::detail::unified_diff(before, after, "a", "b");
}

// `diff -u` of diffutils, without the times behind the names.
std::string diff_of_diffutils(const std::string &before, const std::string &after) {
    const support::TempFolder folder;
    const std::string command = "diff -u --label a --label b " + folder.file("before", before) + " " +
                                folder.file("after", after) + " > " + folder.path("diff");
    EXPECT_LE(WEXITSTATUS(std::system(command.c_str())), 1);
    return support::read_file(folder.path("diff"));
}

TEST(UnifiedDiff, of_equal_texts_is_empty) {
    EXPECT_EQ(diff("", ""), "");
    EXPECT_EQ(diff("a\n", "a\n"), "");
}

TEST(UnifiedDiff, is_what_diff_writes) {
    const std::string lines = "1\n2\n3\n4\n5\n6\n7\n8\n9\n10\n11\n12\n13\n14\n15\n16\n17\n18\n19\n20\n";
    const auto replaced = [&](const std::string &from, const std::string &to, std::string text) {
        text.replace(text.find(from), from.size(), to);
        return text;
    };
    const std::pair<std::string, std::string> table[] = {
        {"", "a\nb\n"},
        {"a\nb\n", ""},
        {"", "a"},
        {"a", "b"},
        {"a\n", "a"},
        {"a", "a\n"},
        {lines, replaced("10\n", "x\n", lines)},
        {lines, replaced("1\n", "x\ny\n", lines)},
        {lines, replaced("20\n", "", lines)},
        {lines, replaced("4\n", "x\n", replaced("11\n", "y\n", lines))},
        {lines, replaced("4\n", "x\n", replaced("12\n", "y\n", lines))},
        {lines, replaced("2\n3\n", "", replaced("19\n", "19\na\nb\n", lines))},
        {"k = v\r\n", "k = w\r\n"},
    };
    for (const auto &[before, after] : table)
        EXPECT_EQ(diff(before, after), diff_of_diffutils(before, after));
}

// Applies hunks to the old text. Where there is more than one shortest difference, any of them will do.
std::string patched(const std::string &before, const std::string &patch) {
    const std::vector<std::string_view> old_lines = korvex::detail::lines_of(before);
    std::string text;
    size_t place = 0;
    for (std::string_view line : korvex::detail::lines_of(patch)) {
        size_t start = 0;
        size_t count = 1;
        if (line.starts_with("@@")) {
            const int fields = std::sscanf(std::string(line).c_str(), "@@ -%zu,%zu", &start, &count);
            const size_t upto = fields == 2 && count == 0 ? start : start - 1;
            for (; place < upto; place++)
                text += old_lines.at(place);
        } else if (line.starts_with("---") || line.starts_with("+++")) {
            continue;
        } else if (line.front() == '\\') {
            text.pop_back();
        } else if (line.front() == '-') {
            EXPECT_EQ(old_lines.at(place++), line.substr(1));
        } else {
            if (line.front() == ' ') {
                EXPECT_EQ(old_lines.at(place++), line.substr(1));
            }
            text += line.substr(1);
        }
    }
    for (; place < old_lines.size(); place++)
        text += old_lines[place];
    return text;
}

TEST(UnifiedDiff, leads_from_one_text_to_the_other_by_as_few_lines_as_diff) {
    std::mt19937 random(14);
    const auto number = [&](int most) { return static_cast<int>(random() % static_cast<unsigned>(most + 1)); };
    const auto changed_lines = [](const std::string &patch) {
        size_t count = 0;
        for (const std::string_view line : korvex::detail::lines_of(patch))
            count += line.front() == '-' || line.front() == '+';
        return count;
    };
    for (int round = 0; round < 400; round++) {
        std::string before;
        std::string after;
        for (int lines = number(30); lines > 0; lines--) {
            const std::string line(1, static_cast<char>('a' + number(3)));
            if (number(4) != 0)
                before += line + "\n";
            if (number(4) != 0)
                after += line + "\n";
        }
        const std::string patch = diff(before, after);
        ASSERT_EQ(patched(before, patch), after) << patch;
        if (round < 60) {
            ASSERT_EQ(changed_lines(patch), changed_lines(diff_of_diffutils(before, after)));
        }
    }
}

TEST(UnifiedDiff, of_large_texts_with_few_changes_takes_little) {
    std::string before;
    for (int line = 0; line < 200'000; line++)
        before += "key" + std::to_string(line) + " = value\n";
    std::string after = before;
    after.replace(after.find("key7 ="), 6, "kez7 =");
    after.replace(after.find("key199990 ="), 11, "kez199990 =");
    EXPECT_EQ(std::ranges::count(diff(before, after), '@'), 8);
}

}  // namespace
