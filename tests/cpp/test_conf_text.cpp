// A configuration's text taken apart and put together, and the check that an edit changed nothing else.
#include <gtest/gtest.h>

#include <iterator>
#include <random>
#include <string>
#include <string_view>

#include "korvex/detail/conf_text.hpp"

namespace {

using korvex::detail::conf_style;

TEST(ConfText, is_put_together_as_it_was) {
    std::mt19937 random(18);
    const auto number = [&](size_t most) { return random() % (most + 1); };
    const std::string pieces[] = {"\n", "\r\n",  "\r\n", "\r", "\xEF\xBB\xBF", "[s]", "k = 1", std::string("\0", 1),
                                  "x",  "\r\r\n"};
    for (int round = 0; round < 20'000; round++) {
        std::string text = number(3) == 0 ? "\xEF\xBB\xBF" : "";
        for (size_t count = number(8); count > 0; count--)
            text += pieces[number(number(1) == 0 ? 2 : std::size(pieces) - 1)];
        std::string body;
        const conf_style style = conf_style::of(text, body);
        ASSERT_EQ(style.text_with(body), text) << testing::PrintToString(text);
        ASSERT_FALSE(body.starts_with('\n')) << testing::PrintToString(text);
    }
}

TEST(ConfText, has_a_body_without_mark_and_returns) {
    struct Row {
        std::string_view text, body;
    };
    const Row table[] = {
        {"[s]\nk = 1\n", "[s]\nk = 1\n"},
        {"\xEF\xBB\xBF[s]\r\nk = 1\r\n", "[s]\nk = 1\n"},
        {"[s]\r\nk = 1\n", "[s]\r\nk = 1\n"},
        {"\n\n[s]\n", "[s]\n"},
        {"\r\n[s]", "[s]"},
        {"a\rb", "a\rb"},
    };
    for (const Row &row : table) {
        std::string body;
        (void)conf_style::of(row.text, body);
        EXPECT_EQ(body, row.body);
    }
}

TEST(ConfText, knows_an_edit_from_another_text) {
    struct Row {
        std::string_view before, after;
        bool is_edit;
    };
    const Row table[] = {
        {"[s]\nk = 1\n", "[s]\nk = v\n", true},
        {"[s]\na = 1", "[s]\na = 1\nk = v\n\n", true},
        {"[s]\na = 1\n\n\n[t]\n", "[s]\na = 1\nk = v\n\n[t]\n", true},
        {"", "[s]\nk = v\n", true},
        {"[t]\n", "[t]\n\n[s]\nk = v\n", true},
        {"[s]\nk = 1\nk = v\n", "[s]\nk = v\nk = v\n", true},
        {"[s]\nk = 1\nk = v\n", "[s]\nk = v\n", true},
        {"[s]\nk = 1\n", "[s]\nk = v\nsecret\n", false},
        {"[s]\nk = 1\n", "secret\n[s]\nk = v\n", false},
        {"[s]\nk = 1\n", "[s]\nk = 1\nk = w\n", false},
        {"[s]\nk = 1\na = 1\nb = 1\n", "[s]\nk = v\n", false},
        {"[s]\nk = 1\n", "other\n", false},
        {"[s]\na = 1\nb = 2\n", "", false},
    };
    const std::string_view value = "v";
    for (const Row &row : table)
        EXPECT_EQ(korvex::detail::is_edit_of(row.before, row.after, "s", "k", &value), row.is_edit)
            << row.before << "->\n"
            << row.after;
    EXPECT_TRUE(korvex::detail::is_edit_of("[s]\nk = 1\nb = 2\n", "[s]\nb = 2\n", "s", "k", nullptr));
    EXPECT_FALSE(korvex::detail::is_edit_of("[s]\nk = 1\nb = 2\n", "[s]\n", "s", "k", nullptr));
}

}  // namespace
