// Configurations of any shape: an edit changes one key, and what is read stays what it was everywhere else.
#include <gtest/gtest.h>

#include <array>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "korvex/conf.hpp"
#include "lock_content.h"
#include "sandbox.h"

namespace {

namespace conf = korvex::conf;
using namespace std::string_view_literals;

// The names that the texts and the edits are about, and pieces of lines as people, programs and accidents write them.
constexpr std::array sections = {""sv, "a"sv, "b"sv, "a b"sv};
constexpr std::array keys = {"k"sv, "l"sv, "k l"sv, "\"k\""sv};
constexpr std::array pieces = {"[a]\n"sv,     "[b]\n"sv,         "[a b]\n"sv,     " [a]\n"sv,    "[a] ; note\n"sv,
                               "[a\n"sv,      "[]\n"sv,          "k = 1\n"sv,     "k=2\n"sv,     "  k = 3\n"sv,
                               "l =\n"sv,     "k l = x = y\n"sv, "\"k\" = q\n"sv, "\n"sv,        "\n\n"sv,
                               "# k = c\n"sv, ";l=c\n"sv,        "junk\n"sv,      "= 5\n"sv,     " \t\n"sv,
                               "k\n"sv,       "l = \r\n"sv,      "[b]\r\n"sv,     "k = 4\r\n"sv, "\r\n"sv,
                               "\r"sv,        "k = \xff\n"sv,    "[c]k = 6\n"sv,  "l = 7"sv,     "\\\n"sv,
                               "k = a\\\n"sv};
constexpr std::array values = {""sv, "1"sv, "new"sv, "a = b"sv, "[a]"sv, "# no"sv, "\\"sv, "\xc3\xa4"sv};

constexpr int kTurns = 200;

class Generator {
  public:
    explicit Generator(unsigned seed) : random_(seed) {}

    template <class List>
    std::string_view one_of(const List &list) {
        return list[random_() % list.size()];
    }
    bool is_one_in(unsigned count) { return random_() % count == 0; }

    std::string text() {
        std::string made(is_one_in(8) ? "\xEF\xBB\xBF" : "");
        for (unsigned left = random_() % 12; left > 0; left--)
            made += one_of(pieces);
        if (is_one_in(6))
            made = with_returns(made);
        return made;
    }

    // A text, and a key of it to be changed.
    struct Change {
        std::string text;
        std::string_view section;
        std::string_view key;
        std::string_view value;
    };
    Change change() { return {text(), one_of(sections), one_of(keys), one_of(values)}; }

  private:
    static std::string with_returns(const std::string &text) {
        std::string made;
        for (const char byte : text)
            made += byte == '\n' ? "\r\n" : std::string(1, byte);
        return made;
    }

    std::mt19937 random_;
};

using Content = std::map<std::pair<std::string_view, std::string_view>, std::optional<std::string>>;

Content content_of(const conf::transaction &edit) {
    Content content;
    for (const std::string_view section : sections)
        for (const std::string_view key : keys)
            content[{section, key}] = edit.get(section, key);
    return content;
}

Content content_of(const conf::document &document) {
    Content content;
    for (const std::string_view section : sections)
        for (const std::string_view key : keys) {
            const std::optional<std::string_view> value = document.find(section, key);
            content[{section, key}] = value ? std::optional<std::string>(*value) : std::nullopt;
        }
    return content;
}

// "[]" anywhere but at the beginning.
bool has_misplaced_section(const conf::document &document) {
    bool is_first = true;
    for (const conf::section &section : document)
        if (!std::exchange(is_first, false) && section.name().empty())
            return true;
    return false;
}

// A line that begins with "[" and has no "]" may be in the way: to the library it begins to end the section before it as
// soon as a "]" follows.
bool is_in_the_way(const korvex::error &failure) {
    return failure.code() == korvex::errc::would_not_read_back &&
           failure.reason().starts_with("a line begins with '['");
}

bool was_set(conf::transaction &edit, std::string_view section, std::string_view key, std::string_view value) try {
    edit.set(section, key, value);
    return true;
} catch (const korvex::error &failure) {
    EXPECT_TRUE(is_in_the_way(failure)) << failure.what();
    return false;
}

// An erase of what is not there removes nothing, and of what is there fails for no other reason.
bool was_erased(conf::transaction &edit, std::string_view section, std::string_view key) {
    const bool was_there = edit.get(section, key).has_value();
    try {
        EXPECT_EQ(edit.erase(section, key), was_there);
        return was_there;
    } catch (const korvex::error &failure) {
        EXPECT_TRUE(was_there && is_in_the_way(failure)) << failure.what();
        return false;
    }
}

class RandomConf : public testing::Test {
  protected:
    void SetUp() override { support::empty_lock_folder(); }

    // What a text's keys are in a file of its own.
    Content content_of_file() const { return content_of(conf::transaction(path_)); }

    support::TempFolder folder_;
    const std::string path_ = folder_.path("app.conf");
    const conf::transaction_options quick_{.durable = false};
};

TEST_F(RandomConf, has_one_key_changed_by_a_set_and_no_other) {
    Generator generator(1);
    for (int turn = 0; turn < kTurns; turn++) {
        const auto [text, section, key, value] = generator.change();
        SCOPED_TRACE(testing::PrintToString(text) + " [" + std::string(section) + "] " + std::string(key) + " = " +
                     std::string(value));
        support::write_file(path_, text);
        conf::transaction edit(path_, quick_);
        Content expected = content_of(edit);
        if (was_set(edit, section, key, value))
            expected[{section, key}] = value;
        ASSERT_EQ(content_of(edit), expected);
        ASSERT_NO_THROW(edit.commit());
        ASSERT_EQ(content_of_file(), expected);
    }
}

TEST_F(RandomConf, loses_one_line_to_an_erase_and_no_other) {
    Generator generator(2);
    for (int turn = 0; turn < kTurns; turn++) {
        const auto [text, section, key, value] = generator.change();
        SCOPED_TRACE(testing::PrintToString(text) + " [" + std::string(section) + "] " + std::string(key) + " = " +
                     std::string(value));
        support::write_file(path_, text);
        conf::transaction edit(path_, quick_);
        Content expected = content_of(edit);
        const bool erased = was_erased(edit, section, key);
        if (!erased) {
            ASSERT_EQ(content_of(edit), expected);
        }
        Content after = content_of(edit);
        // Where the key repeats the next one shows.
        expected.erase({section, key});
        after.erase({section, key});
        ASSERT_EQ(after, expected);
        ASSERT_EQ(edit.diff().empty(), !erased);
        ASSERT_NO_THROW(edit.commit());
        if (!erased) {
            ASSERT_EQ(support::read_file(path_), text);
        }
    }
}

TEST_F(RandomConf, is_the_same_after_a_document_wrote_and_read_it) {
    Generator generator(3);
    for (int turn = 0; turn < kTurns; turn++) {
        const auto [text, section, key, value] = generator.change();
        SCOPED_TRACE(testing::PrintToString(text) + " [" + std::string(section) + "] " + std::string(key) + " = " +
                     std::string(value));
        auto document = conf::document::parse(text);
        if (has_misplaced_section(document)) {
            ASSERT_THROW(document.text(), korvex::error);
            continue;
        }
        Content expected = content_of(document);
        ASSERT_EQ(content_of(conf::document::parse(document.text())), expected);
        document.set(section, key, value);
        expected[{section, key}] = value;
        ASSERT_EQ(content_of(document), expected);
        ASSERT_EQ(content_of(conf::document::parse(document.text())), expected);
    }
}

TEST_F(RandomConf, reads_the_same_from_a_file_and_from_a_document) {
    Generator generator(4);
    for (int turn = 0; turn < kTurns; turn++) {
        const std::string text = generator.text();
        // In memory "[]" is a section without a name, and "[a" a bad line; on the file both end the section before them.
        if (text.find("[]") != std::string::npos || text.find("[a\n") != std::string::npos ||
            text.find("[a\r") != std::string::npos)
            continue;
        SCOPED_TRACE(testing::PrintToString(text));
        support::write_file(path_, text);
        const conf::transaction edit(path_, quick_);
        ASSERT_EQ(content_of(conf::document::read(path_)), content_of(edit));
    }
}

}  // namespace
