// korvex conf: what each command that changes a file keeps of it.
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <filesystem>

#include "run_korvex.h"
#include "transaction_world.h"

namespace {

namespace world = transaction_world;
using support::read_file;

// The commands, on a file with "[s]" and "k = v", and what comes in.
const Words kChanges[] = {
    {"set", "f", "k", "new", "-s", "s"}, {"set", "f", "k=new", "l=new", "-s", "s"},
    {"unset", "f", "k", "-s", "s"},      {"section", "replace", "f", "s"},
    {"section", "merge", "f", "s"},      {"section", "remove", "f", "s"},
};
constexpr const char *kInput = "k = new\n";
constexpr const char *kText = "# top\n[s]\nk = v\n\n# t\n[t]\nx = y\n";

class ConfKeeps : public KorvexTest {
  protected:
    Outcome change(const Words &words, const std::string &file) const {
        Words all = {"conf"};
        for (const std::string &word : words)
            all.push_back(word == "f" ? file : word);
        return korvex(all, kInput);
    }

    // What the text without carriage returns became, and that the file's every line still ends in one.
    void expect_changed(const std::string &file, const std::string &before) const {
        EXPECT_NE(read_file(file), before);
        EXPECT_NE(read_file(file).find("# top"), std::string::npos);
        EXPECT_NE(read_file(file).find("# t"), std::string::npos);
    }
};

TEST_F(ConfKeeps, owner_group_bits_access_list_and_attributes) {
    for (const Words &words : kChanges) {
        SCOPED_TRACE(testing::PrintToString(words));
        const support::SmallDisk disk(1 << 20);
        const std::string file = disk.file("f", kText);
        world::make_special(file);
        const world::Attributes before = world::attributes_of(file);
        EXPECT_EQ(change(words, file), Outcome());
        EXPECT_EQ(world::attributes_of(file), before);
        expect_changed(file, kText);
        EXPECT_EQ(disk.names(), Words{"f"});
    }
}

TEST_F(ConfKeeps, a_link_and_what_the_file_behind_it_is) {
    for (const Words &words : kChanges) {
        SCOPED_TRACE(testing::PrintToString(words));
        const support::TempFolder other;
        const std::string target = other.file("target", kText);
        ASSERT_EQ(chmod(target.c_str(), 0600), 0);
        const std::string link = folder.path("link");
        std::filesystem::remove(link);
        std::filesystem::create_symlink(target, link);

        EXPECT_EQ(change(words, "link"), Outcome());
        EXPECT_TRUE(std::filesystem::is_symlink(link));
        EXPECT_EQ(world::attributes_of(target).bits, 0600U);
        expect_changed(target, kText);
        EXPECT_EQ(other.names(), Words{"target"});
    }
}

TEST_F(ConfKeeps, carriage_returns_a_byte_order_mark_and_a_missing_line_end) {
    for (const Words &words : kChanges) {
        SCOPED_TRACE(testing::PrintToString(words));
        const std::string plain = folder.file("plain", kText);
        EXPECT_EQ(change(words, "plain"), Outcome());
        std::string expected = "\xEF\xBB\xBF";
        for (const char byte : read_file(plain).substr(0, read_file(plain).size() - 1))
            expected += byte == '\n' ? std::string("\r\n") : std::string(1, byte);

        const std::string file = folder.file("f", "\xEF\xBB\xBF# top\r\n[s]\r\nk = v\r\n\r\n# t\r\n[t]\r\nx = y");
        EXPECT_EQ(change(words, "f"), Outcome());
        EXPECT_EQ(read_file(file), expected);
    }
}

TEST_F(ConfKeeps, a_section_behind_a_byte_order_mark_is_found) {
    const std::string file = folder.file("f", "\xEF\xBB\xBF[s]\nk = v\n");
    EXPECT_EQ(korvex({"conf", "set", "f", "k", "w", "-s", "s"}), Outcome());
    EXPECT_EQ(read_file(file), "\xEF\xBB\xBF[s]\nk = w\n");
    EXPECT_EQ(korvex({"conf", "get", "f", "k", "-s", "s"}), Outcome(0, "w\n"));
    EXPECT_EQ(korvex({"conf", "get", "f", "k", "-s", "s", "--all"}), Outcome(0, "w\n"));
}

TEST_F(ConfKeeps, what_the_umask_says_of_a_new_file_and_nobody_may_write_to_its_lock) {
    const mode_t mask_before = umask(0002);
    EXPECT_EQ(korvex({"conf", "set", "new", "k", "v", "-s", "s"}), Outcome());
    EXPECT_EQ(korvex({"conf", "section", "replace", "other", "s"}, kInput), Outcome());
    umask(mask_before);
    EXPECT_EQ(world::attributes_of(folder.path("new")).bits, 0664U);
    EXPECT_EQ(world::attributes_of(folder.path("other")).bits, 0664U);
}

}  // namespace
