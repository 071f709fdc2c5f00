// The index of a text's sections, beside the search through the text: both must say the same of every name.
#include <gtest/gtest.h>

#include <cerrno>
#include <random>
#include <string>

#include "conffile/section_index.h"
#include "conffile/text_scan.h"
#include "faults.h"

using korvex::conffile::find_body;
using korvex::conffile::kNowhere;
using korvex::conffile::SectionIndex;
using support::Call;
using support::FailCall;

namespace {

// Lines of few sorts of bytes, so that names meet and nearly meet.
std::string random_text(std::mt19937 &random, const std::string &bytes, size_t length) {
    std::string text;
    while (text.size() < length)
        text += bytes[random() % bytes.size()];
    return text + '\n';
}

}  // namespace

TEST(SectionIndex, finds_what_the_search_finds) {
    std::mt19937 random(11);
    size_t found = 0;
    for (int round = 0; round < 3'000; round++) {
        const std::string text = random_text(random, "\n\n[[]]ab# " + std::string(1, '\0'), random() % 200);
        SectionIndex index;
        index.build(text);
        for (int question = 0; question < 20; question++) {
            std::string name = random_text(random, "[]ab# " + std::string(1, '\0'), random() % 3);
            name.pop_back();
            EXPECT_EQ(index.find_body(name), find_body(text, name)) << text << "asked for " << name;
            found += !name.empty() && index.find_body(name) != kNowhere;
        }
    }
    EXPECT_GT(found, 1'000U) << "the names must be such that they are met";
}

TEST(SectionIndex, knows_the_first_of_many) {
    std::string text;
    for (int copy = 0; copy < 3; copy++)
        for (int section = 0; section < 2'000; section++)
            text += "[" + std::to_string(section) + "]\nkey = " + std::to_string(copy) + "\n";
    SectionIndex index;
    index.build(text);
    for (int section = 0; section < 2'000; section++)
        EXPECT_EQ(index.find_body(std::to_string(section)), find_body(text, std::to_string(section)));
    EXPECT_EQ(index.find_body("2000"), kNowhere);
    EXPECT_EQ(index.find_body(""), 0U);
}

TEST(SectionIndex, does_without_memory) {
    const std::string text = "[a]\n[b]\n";
    SectionIndex index;
    {
        const FailCall fault(Call::malloc, ENOMEM);
        index.build(text);
        ASSERT_EQ(fault.failed(), 1);
    }
    EXPECT_EQ(index.find_body("b"), 8U);
    EXPECT_EQ(index.find_body("c"), kNowhere);
}
