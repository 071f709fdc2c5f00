// korvex conf: what the options of get, set and unset are for, and sections, keys and diff.
#include <sys/stat.h>

#include "run_korvex.h"

namespace {

using support::read_file;

class ConfOptions : public KorvexTest {
  protected:
    std::string text() const { return read_file(file); }

    const std::string before =
        "first = 1\n\n[Global]\nWorkgroup = ATTIC\nhosts = a\nhosts = b\n\n[my share]\nquota = 5\n";
    const std::string file = folder.file("f", before);
};

// --- set: several keys, conditions ---

// The library's editor ends a section that it adds a key to with an empty line.
TEST_F(ConfOptions, set_takes_several_keys_as_one_step) {
    EXPECT_EQ(korvex({"conf", "set", "f", "quota=6", "path = /x=y ", "empty=", "-s", "my share"}), Outcome());
    EXPECT_EQ(text(), before.substr(0, before.find("quota")) + "quota = 6\npath = /x=y\nempty = \n\n");
}

TEST_F(ConfOptions, set_of_several_keys_changes_all_or_nothing) {
    EXPECT_EQ(korvex({"conf", "set", "f", "quota=6", "#path=x", "-s", "my share"}).exit_status, 2);
    EXPECT_EQ(korvex({"conf", "set", "f", "quota=6", "path", "-s", "my share"}).exit_status, 2);
    EXPECT_EQ(korvex({"conf", "set", "f", "quota", "6", "7", "-s", "my share"}),
              Outcome(2, "", "korvex: conf set: 'quota' is not KEY=VALUE (see 'korvex conf set --help')\n"));
    EXPECT_EQ(korvex({"conf", "set", "f", "-s", "my share", "new=1", "quota=6", "--if-missing"}).exit_status, 1);
    EXPECT_EQ(text(), before);
}

TEST_F(ConfOptions, set_under_a_condition_compares_and_swaps) {
    const Words set = {"conf", "set", "f", "-s", "my share"};
    const auto with = [&set](Words more) {
        more.insert(more.begin(), set.begin(), set.end());
        return more;
    };
    expect({
        {with({"quota", "6", "--if", "7"}),
         {1, "", "korvex: conf set: f: key 'quota' in section 'my share' is '5', expected '7'\n"}},
        {with({"none", "6", "--if", ""}),
         {1, "", "korvex: conf set: f: key 'none' in section 'my share' is not there, expected ''\n"}},
        {with({"quota", "6", "--if-missing"}),
         {1, "", "korvex: conf set: f: key 'quota' in section 'my share' is there already: '5'\n"}},
        {with({"a=1", "b=2", "--if", "1"}),
         {2, "", "korvex: conf set: --if is for one key (see 'korvex conf set --help')\n"}},
        {with({"a=1", "--if", "1", "--if-missing"}),
         {2, "", "korvex: conf set: --if and --if-missing exclude each other (see 'korvex conf set --help')\n"}},
        {{"conf", "set", "new", "k", "v", "--if", "u"},
         {1, "", "korvex: conf set: new: key 'k' before the first section is not there, expected 'u'\n"}},
    });
    EXPECT_EQ(text(), before);
    EXPECT_EQ(folder.names(), Words{"f"});

    EXPECT_EQ(korvex(with({"quota", "6", "--if", "5"})), Outcome());
    EXPECT_EQ(korvex(with({"a=1", "b=2", "--if-missing"})), Outcome());
    EXPECT_EQ(text(), before.substr(0, before.find("quota")) + "quota = 6\na = 1\nb = 2\n\n");
}

// Each adds one to what it read, and begins anew where another one was faster: no addition is lost.
TEST_F(ConfOptions, counters_lose_no_count_when_many_swap) {
    constexpr int kWriters = 4;
    constexpr int kCounts = 10;
    std::vector<pid_t> writers;
    for (int writer = 0; writer < kWriters; ++writer)
        writers.push_back(support::start_child([this] {
            for (int count = 0; count < kCounts;) {
                const std::string old = std::to_string(std::stoi(korvex({"conf", "get", "f", "first"}).out));
                const std::string next = std::to_string(std::stoi(old) + 1);
                const Outcome outcome = korvex({"conf", "set", "f", "first", next, "--if", old, "--no-sync"});
                if (outcome.exit_status > 1)
                    return 1;
                count += outcome.exit_status == 0;
            }
            return 0;
        }));
    for (const pid_t writer : writers)
        EXPECT_EQ(support::wait_for(writer), 0);
    EXPECT_EQ(output_of({"conf", "get", "f", "first"}), std::to_string(1 + kWriters * kCounts) + "\n");
}

// --- set: how the change is made ---

TEST_F(ConfOptions, a_dry_run_shows_the_change_and_writes_nothing) {
    const std::string names = "--- " + file + "\n+++ " + file + "\n";
    const std::string input = "quota = 7\n";
    const struct {
        Words words;
        std::string diff;
    } rows[] = {
        {{"set", "f", "first", "2"}, "@@ -1,4 +1,4 @@\n-first = 1\n+first = 2\n \n [Global]\n Workgroup = ATTIC\n"},
        {{"unset", "f", "first"}, "@@ -1,4 +1,3 @@\n-first = 1\n \n [Global]\n Workgroup = ATTIC\n"},
        {{"section", "replace", "f", "my share"},
         "@@ -6,4 +6,4 @@\n hosts = b\n \n [my share]\n-quota = 5\n+quota = 7\n"},
        {{"section", "merge", "f", "my share"},
         "@@ -6,4 +6,4 @@\n hosts = b\n \n [my share]\n-quota = 5\n+quota = 7\n"},
        {{"section", "remove", "f", "my share"},
         "@@ -4,6 +4,3 @@\n Workgroup = ATTIC\n hosts = a\n hosts = b\n-\n-[my share]\n-quota = 5\n"},
    };
    for (const auto &[words, diff] : rows) {
        Words all = {"conf"};
        all.insert(all.end(), words.begin(), words.end());
        all.push_back("--dry-run");
        EXPECT_EQ(korvex(all, input), Outcome(0, names + diff));
        EXPECT_EQ(text(), before);
        EXPECT_EQ(folder.names(), Words{"f"});
    }
    EXPECT_EQ(korvex({"conf", "set", "f", "first", "1", "--dry-run"}), Outcome());
    EXPECT_EQ(korvex({"conf", "set", "new", "k", "v", "--dry-run"}).exit_status, 0);
    EXPECT_EQ(folder.names(), Words{"f"});
}

TEST_F(ConfOptions, a_backup_is_the_old_file) {
    struct stat old {};
    ASSERT_EQ(stat(file.c_str(), &old), 0);
    EXPECT_EQ(korvex({"conf", "set", "f", "first", "2", "--backup"}), Outcome());
    EXPECT_EQ(korvex({"conf", "unset", "f", "first", "--backup=.orig", "--no-sync"}), Outcome());
    EXPECT_EQ(korvex({"conf", "section", "remove", "--backup", "f", "my share"}), Outcome());
    EXPECT_EQ(folder.names(), (Words{"f", "f.orig", "f~"}));
    EXPECT_EQ(read_file(folder.path("f.orig")), "first = 2" + before.substr(9));
    EXPECT_EQ(read_file(folder.path("f~")), before.substr(10));

    struct stat backup {};
    EXPECT_EQ(korvex({"conf", "set", "f", "first", "3", "--backup"}), Outcome());
    ASSERT_EQ(stat(folder.path("f~").c_str(), &backup), 0);
    EXPECT_EQ(backup.st_mode, old.st_mode);
    EXPECT_EQ(korvex({"conf", "set", "f", "a", "1", "--backup=x/y"}),
              Outcome(2, "", "korvex: conf set: --backup: a suffix can't hold a '/' (see 'korvex conf set --help')\n"));
}

// --- upper and lower case ---

TEST_F(ConfOptions, names_are_found_in_any_case_on_request) {
    expect({
        {{"conf", "get", "f", "WORKGROUP", "-s", "global", "--ignore-case"}, {0, "ATTIC\n"}},
        {{"conf", "get", "f", "workgroup", "-s", "GLOBAL"},
         {1, "", "korvex: conf get: f: no section 'GLOBAL'; did you mean 'Global'?\n"}},
        {{"conf", "get", "f", "workgroup", "-s", "Global"},
         {1, "", "korvex: conf get: f: no key 'workgroup' in section 'Global'; did you mean 'Workgroup'?\n"}},
        {{"conf", "get", "f", "FIRST", "--ignore-case"}, {0, "1\n"}},
        {{"conf", "get", "f", "none", "--ignore-case", "-s", "global"},
         {1, "", "korvex: conf get: f: no section 'global'; did you mean 'Global'?\n"}},
    });

    EXPECT_EQ(korvex({"conf", "set", "f", "workgroup=CELLAR", "new=1", "-s", "global", "--ignore-case"}), Outcome());
    EXPECT_EQ(korvex({"conf", "get", "f", "Workgroup", "-s", "Global"}), Outcome(0, "CELLAR\n"));
    EXPECT_EQ(korvex({"conf", "unset", "f", "NEW", "-s", "GLOBAL", "--ignore-case"}), Outcome());
    EXPECT_EQ(korvex({"conf", "set", "f", "workgroup", "X", "-s", "Global"}), Outcome());
    EXPECT_EQ(korvex({"conf", "set", "f", "workgroup", "Y", "-s", "global", "--ignore-case"}), Outcome());
    EXPECT_EQ(korvex({"conf", "get", "f", "Workgroup", "-s", "Global"}), Outcome(0, "CELLAR\n"))
        << "a name as it stands comes first";
}

// --- reading ---

TEST_F(ConfOptions, get_prints_all_values_of_a_key_that_repeats) {
    expect({
        {{"conf", "get", "f", "hosts", "-s", "Global", "--all"}, {0, "a\nb\n"}},
        {{"conf", "get", "f", "first", "--all"}, {0, "1\n"}},
        {{"conf", "get", "f", "hosts", "--all"},
         {1, "", "korvex: conf get: f: no key 'hosts' before the first section; did you mean -s Global?\n"}},
        {{"conf", "get", "f", "quota", "--all"},
         {1, "", "korvex: conf get: f: no key 'quota' before the first section; did you mean -s 'my share'?\n"}},
        {{"conf", "get", "f", "none", "--all", "--default", "d"}, {0, "d\n"}},
    });
}

TEST_F(ConfOptions, get_prints_typed_json) {
    const auto json = [](const std::string &section, const std::string &key, const std::string &values) {
        return Outcome(0, "{\n  \"section\": \"" + section + "\",\n  \"key\": \"" + key + "\",\n  " + values + "\n}\n");
    };
    const std::string list = "\"values\": [\n    \"a\",\n    \"b\"\n  ]";
    expect({
        {{"conf", "get", "f", "first", "--json"}, json("", "first", "\"value\": \"1\"")},
        {{"conf", "get", "f", "first", "--json", "--type", "int"}, json("", "first", "\"value\": 1")},
        {{"conf", "get", "f", "first", "--json", "--type", "bool"}, json("", "first", "\"value\": true")},
        {{"conf", "get", "f", "hosts", "-s", "Global", "--all", "--json"}, json("Global", "hosts", list)},
        {{"conf", "get", "f", "n", "--json", "--type", "int", "--default", "0"}, json("", "n", "\"value\": 0")},
        {{"conf", "get", "f", "n", "--json", "--type", "int", "--default", "-"}, json("", "n", "\"value\": \"-\"")},
    });
}

TEST_F(ConfOptions, sections_and_keys_print_the_names) {
    expect({
        {{"conf", "sections", "f"}, {0, "Global\nmy share\n"}},
        {{"conf", "sections", "f", "--json"}, {0, "[\n  \"Global\",\n  \"my share\"\n]\n"}},
        {{"conf", "keys", "f"}, {0, "first\n"}},
        {{"conf", "keys", "f", "-s", "Global"}, {0, "Workgroup\nhosts\nhosts\n"}},
        {{"conf", "keys", "f", "-s", "my share", "--json"}, {0, "[\n  \"quota\"\n]\n"}},
        {{"conf", "keys", "f", "-s", "none"}, {1, "", "korvex: conf keys: f: no section 'none'\n"}},
        {{"conf", "sections", "none"}, {1, "", "korvex: conf sections: none: no such file\n"}},
        {{"conf", "keys", "."}, {3, "", "korvex: conf keys: .: not a regular file\n"}},
    });
    folder.file("plain", "[a]\n");
    EXPECT_EQ(korvex({"conf", "keys", "plain"}),
              Outcome(1, "", "korvex: conf keys: plain: no pairs before the first section\n"));
}

TEST_F(ConfOptions, a_file_of_windows_reads_as_any_other) {
    folder.file("w", "\xEF\xBB\xBF[s]\r\nk = v\r\nyes = on\r\n");
    expect({
        {{"conf", "get", "w", "k", "-s", "s"}, {0, "v\n"}},
        {{"conf", "get", "w", "yes", "-s", "s", "--type", "bool"}, {0, "true\n"}},
        {{"conf", "list", "w"}, {0, "[s]\nk = v\nyes = on\n"}},
        {{"conf", "section", "show", "w", "s"}, {0, "k = v\nyes = on\n"}},
    });
}

// --- diff ---

TEST_F(ConfOptions, diff_compares_sections_and_keys_and_no_layout) {
    folder.file("same", "# other\n[my share]\n quota=5\n[Global]\nhosts = a\nWorkgroup = ATTIC\nhosts = b\n[]\n");
    folder.file("g", "first=2\nsecond = 2\n[Global]\nWorkgroup = ATTIC\nhosts = b\nhosts = a\n[new]\n[my share]\n");
    EXPECT_EQ(korvex({"conf", "diff", "f", "f"}), Outcome());
    EXPECT_EQ(korvex({"conf", "diff", "same", "same"}), Outcome());
    EXPECT_EQ(korvex({"conf", "diff", "f", "same"}), Outcome(1, "-first = 1\n"));
    EXPECT_EQ(korvex({"conf", "diff", "f", "g"}), Outcome(1,
                                                          "-first = 1\n+first = 2\n+second = 2\n"
                                                          " [Global]\n-hosts = a\n-hosts = b\n+hosts = b\n+hosts = a\n"
                                                          " [my share]\n-quota = 5\n"
                                                          "+[new]\n"));
    EXPECT_EQ(korvex({"conf", "diff", "g", "f"}).out.substr(0, 23), "-first = 2\n+first = 1\n-");
}

TEST_F(ConfOptions, diff_tells_a_file_that_cannot_be_read_from_a_difference) {
    expect({
        {{"conf", "diff", "f", "none"}, {3, "", "korvex: conf diff: none: no such file\n"}},
        {{"conf", "diff", "none/a", "f"}, {3, "", "korvex: conf diff: none/a: no such folder: 'none'\n"}},
        {{"conf", "diff", "f"}, {2, "", "korvex: conf diff: B is required (see 'korvex conf diff --help')\n"}},
    });
}

}  // namespace
