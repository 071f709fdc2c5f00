// Setting and removing one key of a file: what the text becomes.
#include <cstdint>
#include <span>
#include <utility>

#include "conf_file_test.h"
#include "lease_holder.h"

using lists::Messages;

namespace {

using namespace std::string_literals;

class KeyEditor : public ConfFileTest {
  protected:
    int32_t set(const char *section, const char *key, const char *value) const {
        return Set_Conf_File_String_Value(file_, section, key, value);
    }

    // The text after a change that says nothing and succeeds.
    std::string edited(const std::string &text, const char *section, const char *key, const char *value) const {
        write(text);
        EXPECT_EQ(observe([&] { return set(section, key, value); }), (Outcome{0, {}}));
        return content();
    }
};

struct Edit {
    const char *before;
    const char *section;
    const char *key;
    const char *value;
    const char *after;
};

const char *const kTwo = "[a]\nx = 1\n\n[b]\ny = 2\n";

const Edit kReplaced[] = {
    {kTwo, "a", "x", "9", "[a]\nx = 9\n\n[b]\ny = 2\n"},
    {kTwo, "b", "y", "9", "[a]\nx = 1\n\n[b]\ny = 9\n"},
    {kTwo, "a", "x", "1", kTwo},
    {kTwo, "a", "x", "", "[a]\nx = \n\n[b]\ny = 2\n"},
    {"x = 1\n[a]\nx = 1\n", "", "x", "9", "x = 9\n[a]\nx = 1\n"},
    {"x = 1\n[a]\nx = 1\n", nullptr, "x", "9", "x = 9\n[a]\nx = 1\n"},
    {"x = 1\n[a]\nx = 1\n", "a", "x", "9", "x = 1\n[a]\nx = 9\n"},
    // Whatever spacing the line had; a carriage return is part of the value and goes with it.
    {"[a]\n\tx\t=  1  \ny=2\n", "a", "x", "9", "[a]\nx = 9\ny=2\n"},
    {"[a]\r\nx = 1\r\ny = 2\r\n", "a", "x", "9", "[a]\r\nx = 9\ny = 2\r\n"},
    {"[a]\nx=1=2=3", "a", "x", "9", "[a]\nx = 9\n"},
    // The value is written as it is, also where it won't be read back as it was.
    {"[a]\nx = 1\n", "a", "x", " 9\t", "[a]\nx =  9\t\n"},
    {"[a]\nx = 1\nz = 3\n", "a", "x", "9\n[b]\ny = 2", "[a]\nx = 9\n[b]\ny = 2\nz = 3\n"},
    // A last line without its line feed gets one.
    {"[a]\nx = 1\n# end", "a", "x", "9", "[a]\nx = 9\n# end\n"},
    // The first of equal keys and sections.
    {"[a]\nx = 1\nx = 2\n[a]\nx = 3\n", "a", "x", "9", "[a]\nx = 9\nx = 2\n[a]\nx = 3\n"},
    // Comments, blank lines, odd spacing and nonsense stay byte for byte, and so do leading line feeds.
    {"\n\n# c\n[a] t\n\n;x = 0\n #x=0\n  junk\nx=1\n\n\n [b]\n[c", "a", "x", "9",
     "\n\n# c\n[a] t\n\n;x = 0\n #x=0\n  junk\nx = 9\n\n\n [b]\n[c\n"},
    {"\n\nx=1\n\n\n", "", "x", "9", "\n\nx = 9\n\n\n"},
    {"= 1\n", "", "", "9", " = 9\n"},
    {"[a] b ]\nx = 1\n", "a", "x", "9", "[a] b ]\nx = 9\n"},
    {"[a]b]\nx = 1\n", "a]b", "x", "9", "[a]b]\nx = 9\n"},
};

const Edit kRemoved[] = {
    {kTwo, "b", "y", nullptr, "[a]\nx = 1\n\n[b]\n"},
    {kTwo, "a", "x", nullptr, "[a]\n\n[b]\ny = 2\n"},
    {"x = 1", "", "x", nullptr, ""},
    {"x = 1\n", nullptr, "x", nullptr, ""},
    {"\n\nx = 1\n\n", "", "x", nullptr, "\n\n\n"},
    {"[a]\nx = 1\nx = 2\n", "a", "x", nullptr, "[a]\nx = 2\n"},
    {"[a]\n# c\n\t x=\n\n;d\n", "a", "x", nullptr, "[a]\n# c\n\n;d\n"},
    {"[a]\nx = 1\n[b]\nx = 2", "a", "x", nullptr, "[a]\n[b]\nx = 2\n"},
};

const Edit kInserted[] = {
    {kTwo, "a", "z", "3", "[a]\nx = 1\nz = 3\n\n[b]\ny = 2\n"},
    {kTwo, "b", "z", "3", "[a]\nx = 1\n\n[b]\ny = 2\nz = 3\n\n"},
    {kTwo, "a", "y", "3", "[a]\nx = 1\ny = 3\n\n[b]\ny = 2\n"},
    {"[a]\n", "a", "k", "v", "[a]\nk = v\n\n"},
    {"[a]", "a", "k", "v", "[a]\nk = v\n\n"},
    {"[a]\n[b]\n", "a", "k", "v", "[a]\nk = v\n\n[b]\n"},
    {"[a]\nx=1\n[b]\n", "a", "k", "", "[a]\nx=1\nk = \n\n[b]\n"},
    // The blank lines that stood before the next header become one; blank lines inside stay.
    {"[a]\n\nx = 1\n\n\n\n\n[b]\n\n\n", "a", "k", "v", "[a]\n\nx = 1\nk = v\n\n[b]\n\n\n"},
    {"[a]\nx = 1\n\n\n\n", "a", "k", "v", "[a]\nx = 1\nk = v\n\n"},
    // A line of blanks or a comment is no blank line.
    {"[a]\nx = 1\n\n \n\n[b]\n", "a", "k", "v", "[a]\nx = 1\n\n \nk = v\n\n[b]\n"},
    {"[a]\nx = 1\n\n# of b\n\n[b]\n", "a", "k", "v", "[a]\nx = 1\n\n# of b\nk = v\n\n[b]\n"},
    {"[a]\r\nx = 1\r\n\r\n[b]\r\n", "a", "k", "v", "[a]\r\nx = 1\r\n\r\nk = v\n\n[b]\r\n"},
    // Leading line feeds are dropped here, unlike where a line is replaced.
    {"\n\n\n[a]\nx = 1\n", "a", "k", "v", "[a]\nx = 1\nk = v\n\n"},
    {"\n\nx = 1\n\n[a]\n", "", "k", "v", "x = 1\nk = v\n\n[a]\n"},
    // The global section, also an empty one.
    {"x = 1\n[a]\n", "", "k", "v", "x = 1\nk = v\n\n[a]\n"},
    {"x = 1\n", nullptr, "k", "v", "x = 1\nk = v\n\n"},
    {"[a]\nx = 1\n", "", "k", "v", "\nk = v\n\n[a]\nx = 1\n"},
    {"\n\n\n[a]\n", "", "k", "v", "\nk = v\n\n[a]\n"},
    {"[]\nk = v\n", "", "k", "w", "\nk = w\n\n[]\nk = v\n"},
    {"", "", "k", "v", "\nk = v\n\n"},
    {"\n\n\n", nullptr, "k", "v", "\nk = v\n\n"},
    // What does not count as the key: another case, a comment, a later section of the name, a "[" line.
    {"[a]\nK = 1\n#k = 2\n;k = 3\n[a]\nk = 4\n", "a", "k", "v", "[a]\nK = 1\n#k = 2\n;k = 3\nk = v\n\n[a]\nk = 4\n"},
    {"[a]\n[k = 1", "a", "[k", "v", "[a]\n[k = 1\n[k = v\n\n"},
    {"[a]\nx = 1\n", "a", " x", "v", "[a]\nx = 1\n x = v\n\n"},
    // A "[" line ends the section where a "]" stands anywhere behind it.
    {"[a]\nx = 1\n\n[bad\nk = 1\n# ]\n", "a", "k", "v", "[a]\nx = 1\nk = v\n\n[bad\nk = 1\n# ]\n"},
};

const Edit kAppended[] = {
    {kTwo, "c", "k", "v", "[a]\nx = 1\n\n[b]\ny = 2\n\n[c]\nk = v\n"},
    {"[a]\nx = 1\n\n\n\n", "c", "k", "v", "[a]\nx = 1\n\n[c]\nk = v\n"},
    {"[a]\nx = 1", "c", "k", "", "[a]\nx = 1\n\n[c]\nk = \n"},
    {"", "c", "k", "v", "[c]\nk = v\n"},
    {"\n\n\n", "c", "k", "v", "[c]\nk = v\n"},
    {"\n\n\nx = 1\n", "c", "k", "v", "x = 1\n\n[c]\nk = v\n"},
    {"# c\n \n\n", "c", "k", "v", "# c\n \n\n[c]\nk = v\n"},
    {"x = 1\r\n\r\n", "c", "k", "v", "x = 1\r\n\r\n\n[c]\nk = v\n"},
    // What does not count as the header.
    {"[C]\n", "c", "k", "v", "[C]\n\n[c]\nk = v\n"},
    {"[ c ]\n", "c", "k", "v", "[ c ]\n\n[c]\nk = v\n"},
    {" [c]\n", "c", "k", "v", " [c]\n\n[c]\nk = v\n"},
    {"#[c]\n[cc]\n[c\n", "c", "k", "v", "#[c]\n[cc]\n[c\n\n[c]\nk = v\n"},
    {"k = 1\n", "c", "k", "v", "k = 1\n\n[c]\nk = v\n"},
};

TEST_F(KeyEditor, changes_the_one_line_or_adds_it) {
    const std::pair<const char *, std::span<const Edit>> tables[] = {
        {"replaced", kReplaced}, {"removed", kRemoved}, {"inserted", kInserted}, {"appended", kAppended}};
    for (const auto &[name, edits] : tables) {
        for (const Edit &edit : edits) {
            SCOPED_TRACE(name + " in "s + testing::PrintToString(edit.before));
            write(edit.before);
            EXPECT_EQ(set(edit.section, edit.key, edit.value), 0);
            EXPECT_EQ(content(), edit.after);
            expect_nothing_left();
        }
    }
}

TEST_F(KeyEditor, works_in_silence) {
    EXPECT_EQ(edited(kTwo, "a", "x", "9"), "[a]\nx = 9\n\n[b]\ny = 2\n");
    EXPECT_EQ(edited(kTwo, "a", "x", nullptr), "[a]\n\n[b]\ny = 2\n");
    EXPECT_EQ(edited(kTwo, "a", "z", "3"), "[a]\nx = 1\nz = 3\n\n[b]\ny = 2\n");
    EXPECT_EQ(edited(kTwo, "c", "k", "v"), "[a]\nx = 1\n\n[b]\ny = 2\n\n[c]\nk = v\n");
}

TEST_F(KeyEditor, leaves_the_file_alone_where_there_is_nothing_to_remove) {
    struct Row {
        const char *text;
        const char *section;
        const char *key;
        int32_t result;
    };
    const Row rows[] = {
        {kTwo, "a", "y", -ENODATA},  {kTwo, "c", "x", -ENOANO},
        {kTwo, "", "x", -ENODATA},   {kTwo, nullptr, "x", -ENODATA},
        {"", "", "x", -ENODATA},     {"", "a", "x", -ENOANO},
        {"\n\n", "a", "x", -ENOANO}, {"[a]\nx\n[b]\n", "a", "x", -ENODATA},
        {"[a", "a", "x", -ENOANO},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.text));
        write(row.text);
        const FileState before = state_of(path_);
        EXPECT_EQ(observe([&] { return set(row.section, row.key, nullptr); }), (Outcome{row.result, {}}));
        EXPECT_EQ(state_of(path_), before);
        expect_nothing_left();
    }
}

TEST_F(KeyEditor, creates_a_missing_file_with_the_section) {
    const std::pair<const char *, const char *> rows[] = {
        {"s", "[s]\nk = v\n"}, {"", "[]\nk = v\n"}, {nullptr, "[]\nk = v\n"}, {" a]b", "[ a]b]\nk = v\n"}};
    for (const auto &[section, text] : rows) {
        SCOPED_TRACE(text);
        unlink(file_);
        EXPECT_EQ(observe([&] { return set(section, "k", "v"); }), (Outcome{0, {}}));
        EXPECT_EQ(content(), text);
    }
}

TEST_F(KeyEditor, does_not_find_the_global_section_of_a_file_that_it_created) {
    EXPECT_EQ(set("", "k", "v"), 0);
    char value[8];
    int32_t size = sizeof value;
    EXPECT_EQ(Get_Conf_File_String_Value(file_, "", "k", value, &size), -ENODATA);
    EXPECT_EQ(set("", "k", nullptr), -ENODATA);
    EXPECT_EQ(set("", "k", "w"), 0);
    EXPECT_EQ(content(), "\nk = w\n\n[]\nk = v\n");
    EXPECT_EQ(Get_Conf_File_String_Value(file_, "", "k", value, &size), 0);
    EXPECT_STREQ(value, "w");
}

TEST_F(KeyEditor, reports_a_missing_file_to_remove_from) {
    EXPECT_EQ(observe([this] { return set("s", "k", nullptr); }),
              (Outcome{-ENOENT,
                       {"[debug] Set_Conf_File_String_Value(#): Can't cache file \"" + path_ + "\" error! (-2)\n"}}));
    EXPECT_FALSE(support::exists(path_));
}

TEST_F(KeyEditor, refuses_null_paths_and_keys_in_silence) {
    write(kTwo);
    const FileState before = state_of(path_);
    const Outcome refused{-EINVAL, {}};
    EXPECT_EQ(observe([] { return Set_Conf_File_String_Value(nullptr, "a", "x", "1"); }), refused);
    EXPECT_EQ(observe([this] { return set("a", nullptr, "1"); }), refused);
    EXPECT_EQ(observe([this] { return set("a", nullptr, nullptr); }), refused);
    EXPECT_EQ(observe([] { return Set_Conf_File_Integer_Value(nullptr, "a", "x", 1); }), refused);
    EXPECT_EQ(observe([this] { return Set_Conf_File_Integer_Value(file_, nullptr, "x", 1); }), refused);
    EXPECT_EQ(observe([this] { return Set_Conf_File_Integer_Value(file_, "a", nullptr, 1); }), refused);
    EXPECT_EQ(state_of(path_), before);
}

TEST_F(KeyEditor, reports_bad_section_lines_with_all_that_follows_and_keeps_them) {
    const auto bad = [](const std::string &rest) {
        return "[debug] Set_Conf_File_String_Value(#): Bad section line: " + rest + "!\n";
    };
    write("[a]\n[bad = x\n[worse\nk=1\n[behind\nz = 2");
    EXPECT_EQ(observe([this] { return set("a", "k", "v"); }),
              (Outcome{0, {bad("[bad = x\n[worse\nk=1\n[behind\nz = 2\n"), bad("[worse\nk=1\n[behind\nz = 2\n")}}));
    EXPECT_EQ(content(), "[a]\n[bad = x\n[worse\nk = v\n[behind\nz = 2\n");

    write("[a]\nx = 1\n\n[bad\n\n");
    EXPECT_EQ(observe([this] { return set("a", "k", "v"); }), (Outcome{0, {bad("[bad\n\n")}}));
    EXPECT_EQ(content(), "[a]\nx = 1\n\n[bad\nk = v\n\n");
    EXPECT_EQ(observe([this] { return set("a", "z", nullptr); }), (Outcome{-ENODATA, {bad("[bad\nk = v\n\n")}}));
}

TEST_F(KeyEditor, writes_integers_in_decimal) {
    const std::pair<int64_t, const char *> rows[] = {
        {0, "0"}, {-1, "-1"}, {42, "42"}, {INT64_MAX, "9223372036854775807"}, {INT64_MIN, "-9223372036854775808"}};
    for (const auto &[value, text] : rows) {
        SCOPED_TRACE(text);
        write("x\t=\n[a]\nx=7");
        EXPECT_EQ(observe([&, number = value] { return Set_Conf_File_Integer_Value(file_, "a", "x", number); }),
                  (Outcome{0, {}}));
        EXPECT_EQ(content(), "x\t=\n[a]\nx = "s + text + "\n");
        EXPECT_EQ(Set_Conf_File_Integer_Value(file_, "", "x", value), 0);
        EXPECT_EQ(content(), "x = "s + text + "\n[a]\nx = " + text + "\n");
    }
    unlink(file_);
    EXPECT_EQ(Set_Conf_File_Integer_Value(file_, "a", "x", -5), 0);
    EXPECT_EQ(content(), "[a]\nx = -5\n");
}

TEST_F(KeyEditor, keeps_nul_bytes_and_garbage_of_all_other_lines) {
    const std::string head = "\n\0#\0\1\2\xff\n; \0\n[\0]\n"s;
    const std::string junk = "a\0=\0\n\0\n\xfe[a]\0\n\0k = 0\n"s;
    const std::string tail = "\0\0]\n[b]\0\n\0k = \0\n\0"s;
    const std::string all = head + "[a]\0 \0\n"s + junk + "k = 1\n" + tail;

    EXPECT_EQ(edited(all, "a", "k", "2"), head + "[a]\0 \0\n"s + junk + "k = 2\n" + tail + "\n");
    EXPECT_EQ(edited(all, "a", "k", nullptr), head + "[a]\0 \0\n"s + junk + tail + "\n");
    EXPECT_EQ(edited(all, "a", "z", "3"),
              head.substr(1) + "[a]\0 \0\n"s + junk + "k = 1\n\0\0]\nz = 3\n\n[b]\0\n\0k = \0\n\0\n"s);
    EXPECT_EQ(edited(all, "c", "z", "3"), all.substr(1) + "\n\n[c]\nz = 3\n");
}

TEST_F(KeyEditor, edits_keys_values_and_files_of_megabytes) {
    const std::string key(1 << 20, 'k');
    const std::string value(1 << 20, 'v');
    const std::string head(3 << 20, '#');
    const std::string tail = std::string(100'000, '\n') + "[b]\n" + std::string(3 << 20, 'j') + "\n";
    const std::string line = key + " = " + value + "\n";

    EXPECT_EQ(edited(head + "\n[a]\nx = 1\n" + tail, "a", key.c_str(), value.c_str()),
              head + "\n[a]\nx = 1\n" + line + tail.substr(99'999));
    EXPECT_EQ(edited(head + "\n[a]\n" + line + tail, "a", key.c_str(), "9"), head + "\n[a]\n" + key + " = 9\n" + tail);
    EXPECT_EQ(edited(head + "\n[a]\n" + line + tail, "a", key.c_str(), nullptr), head + "\n[a]\n" + tail);
    EXPECT_EQ(edited(tail, value.c_str(), key.c_str(), value.c_str()),
              tail.substr(100'000) + "\n[" + value + "]\n" + line);
}

TEST_F(KeyEditor, may_be_given_the_texts_of_a_list) {
    write(kTwo);
    lists::ConfList conf = lists::make_conf({{"a", {{"x", "of the list"}}}});
    EXPECT_EQ(set(conf->szName, conf->pPairs->szKey, conf->pPairs->pszValue), 0);
    EXPECT_EQ(lists::conf_in_file(path_), (lists::Conf{{"a", {{"x", "of the list"}}}, {"b", {{"y", "2"}}}}));
}

}  // namespace

TEST_F(KeyEditor, waits_for_a_lease_as_a_plain_open_does) {
    write("k = 1\n");
    LeaseHolder holder(path_);
    EXPECT_EQ(set("", "k", "2"), 0);
    EXPECT_EQ(content(), "k = 2\n");
    holder.expect_asked();
}
