// Whole configurations in memory.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <iterator>
#include <string>
#include <type_traits>
#include <vector>

#include "failure_of.h"
#include "korvex/conf.hpp"
#include "sandbox.h"

namespace {

using korvex::conf::document;
using support::failure_of;
using testing::Optional;

static_assert(!std::is_copy_constructible_v<document> && std::is_nothrow_move_constructible_v<document>);
static_assert(std::forward_iterator<document::iterator>);

// "name: key=value key=value;" for each section.
std::string shape_of(const document &config) {
    std::string shape;
    for (const auto &section : config) {
        shape += std::string(section.name()) + ":";
        for (const auto &pair : section)
            shape += " " + std::string(pair.key) + "=" + std::string(pair.value);
        shape += ";";
    }
    return shape;
}

constexpr const char *kText = "g = 0\n# comment\n[a]\nx = 1\ny = 2\nnonsense\n[b]\n[a]\nx = 9\nlast = z";

TEST(Document, shows_sections_and_pairs_in_their_order) {
    EXPECT_EQ(shape_of(document::parse(kText)), ": g=0;a: x=1 y=2;b:;a: x=9 last=z;");
    EXPECT_EQ(shape_of(document::parse("")), "");
    EXPECT_EQ(shape_of(document()), "");
    EXPECT_TRUE(document().empty());
}

TEST(Document, finds_the_first_of_a_name) {
    const document config = document::parse(kText);
    EXPECT_THAT(config.find("a", "x"), Optional(std::string_view("1")));
    EXPECT_THAT(config.find("", "g"), Optional(std::string_view("0")));
    EXPECT_EQ(config.find("a", "last"), std::nullopt);
    EXPECT_EQ(config.find("c", "x"), std::nullopt);
    EXPECT_FALSE(config.find("c"));
    EXPECT_THAT(config.find("a")->find("y"), Optional(std::string_view("2")));
}

TEST(Document, sets_and_adds) {
    document config = document::parse(kText);
    config.set("a", "x", "a longer value than before");
    config.set("b", "n", 7);
    config.set("c", "t", true);
    EXPECT_EQ(shape_of(config), ": g=0;a: x=a longer value than before y=2;b: n=7;a: x=9 last=z;c: t=yes;");
}

TEST(Document, grows_from_nothing_and_keeps_the_nameless_section_first) {
    document config;
    config.set("a", "x", "1");
    config.set("", "g", "0");
    config.set("b", "y", "2");
    EXPECT_EQ(shape_of(config), ": g=0;a: x=1;b: y=2;");
    EXPECT_EQ(shape_of(document::parse(config.text())), shape_of(config));
}

TEST(Document, erases_keys_and_sections) {
    document config = document::parse(kText);
    EXPECT_TRUE(config.erase("a", "x"));
    EXPECT_FALSE(config.erase("a", "x"));
    EXPECT_TRUE(config.erase("b"));
    EXPECT_FALSE(config.erase("b"));
    EXPECT_EQ(shape_of(config), ": g=0;a: y=2;a: x=9 last=z;");
    EXPECT_TRUE(config.erase(""));
    EXPECT_TRUE(config.erase("a"));
    EXPECT_EQ(shape_of(config), "a: x=9 last=z;");
    EXPECT_TRUE(config.erase("a"));
    EXPECT_TRUE(config.empty());
}

TEST(Document, refuses_what_would_not_read_back) {
    document config = document::parse(kText);
    EXPECT_EQ(failure_of([&] { config.set("a", "x", "1\n2"); }).code(), korvex::errc::would_not_read_back);
    EXPECT_THAT(config.find("a", "x"), Optional(std::string_view("1")));
}

TEST(Document, keeps_a_byte_order_mark_and_carriage_returns) {
    const document config = document::parse("\xEF\xBB\xBF[s]\r\nk = v\r\n");
    EXPECT_EQ(shape_of(config), "s: k=v;");
    EXPECT_EQ(config.text(), "\xEF\xBB\xBF[s]\r\nk = v\r\n\r\n");
}

TEST(Document, shows_values_without_a_carriage_return_as_keys_are_read) {
    const document mixed = document::parse("[s]\r\nk = v\r\nl = w\n");
    EXPECT_THAT(mixed.find("s", "k"), Optional(std::string_view("v")));
    EXPECT_EQ(mixed.text(), "[s]\nk = v\r\nl = w\n\n");
}

TEST(Document, is_not_written_with_a_section_without_a_name_behind_another) {
    document odd = document::parse("[s]\nk = v\n[]\nl = w\n");
    EXPECT_EQ(failure_of([&] { (void)odd.text(); }).code(), korvex::errc::would_not_read_back);
    EXPECT_EQ(odd.find(""), std::nullopt) << "no reader finds its keys either";
    EXPECT_EQ(odd.find("", "l"), std::nullopt);
    EXPECT_FALSE(odd.erase(""));
    odd.set("", "top", "1");
    EXPECT_THAT(odd.find("", "top"), Optional(std::string_view("1")));
    EXPECT_EQ(odd.find("", "l"), std::nullopt);
}

TEST(Document, is_read_and_written) {
    const support::TempFolder folder;
    const std::string path = folder.file("app.conf", kText);
    document config = document::read(path);
    config.set("b", "n", 7);
    config.write(path);
    EXPECT_EQ(shape_of(document::read(path)), shape_of(config));
    EXPECT_EQ(folder.names(), std::vector<std::string>{"app.conf"});
    config.write(folder.path("new.conf"));
    EXPECT_EQ(support::read_file(folder.path("new.conf")), config.text());
}

TEST(Document, that_is_not_there_throws) {
    const korvex::error failure = failure_of([] { (void)document::read("/tmp/none/of.conf"); });
    EXPECT_EQ(failure.code(), std::errc::no_such_file_or_directory);
    const support::TempFolder folder;
    EXPECT_EQ(failure_of([&] { (void)document::read(folder.path("none")); }).code(),
              std::errc::no_such_file_or_directory);
    EXPECT_EQ(failure_of([&] { (void)document::read(folder.path()); }).code(), korvex::errc::not_a_regular_file);
}

TEST(Document, keeps_the_old_file_on_a_full_disk) {
    const support::SmallDisk disk(1 << 16);
    const std::string path = disk.file("app.conf", kText);
    document config = document::read(path);
    config.set("a", "x", std::string(100'000, 'x'));
    EXPECT_EQ(failure_of([&] { config.write(path); }).code(), std::errc::no_space_on_device);
    EXPECT_EQ(support::read_file(path), kText);
    EXPECT_EQ(disk.names(), std::vector<std::string>{"app.conf"});
}

}  // namespace
