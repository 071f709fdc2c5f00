// korvex conf get, set, unset, list.
#include "run_korvex.h"

namespace {

using support::read_file;

class ConfCommand : public KorvexTest {
  protected:
    const std::string text =
        "# made by hand\n"
        "name =  attic \n"
        "\n"
        "[ports]\n"
        "  web=\t080\n"
        "low = -9223372036854775808\n"
        "high = 9223372036854775808\n"
        "plus = +7\n"
        "half = 1.5\n"
        "; done\n"
        "[flags]\n"
        "up = TRUE\n"
        "also = true\n"
        "short = t\n"
        "none =\n"
        "one = 1\n";
    const std::string file = folder.file("f", text);
};

TEST_F(ConfCommand, get_prints_the_value) {
    const std::string long_value(70000, 'x');
    folder.file("long", "k = " + long_value + "\n");
    expect({
        {{"conf", "get", "f", "name"}, {0, "attic\n"}},
        {{"conf", "get", "f", "name", "-s", ""}, {0, "attic\n"}},
        {{"conf", "get", "f", "web", "-s", "ports"}, {0, "080\n"}},
        {{"conf", "get", "f", "none", "--section", "flags"}, {0, "\n"}},
        {{"conf", "get", "long", "k"}, {0, long_value + "\n"}},
    });
}

TEST_F(ConfCommand, get_says_what_is_not_there) {
    expect({
        {{"conf", "get", "nofile", "k"}, {1, "", "korvex: conf get: nofile: no such file\n"}},
        {{"conf", "get", "f", "k"}, {1, "", "korvex: conf get: f: no key 'k' before the first section\n"}},
        {{"conf", "get", "f", "k", "-s", "ports"}, {1, "", "korvex: conf get: f: no key 'k' in section 'ports'\n"}},
        {{"conf", "get", "f", "k", "-s", "rooms"}, {1, "", "korvex: conf get: f: no section 'rooms'\n"}},
        {{"conf", "get", "f", "a\nb"}, {1, "", "korvex: conf get: f: no key 'a\\nb' before the first section\n"}},
        {{"conf", "get", ".", "k"}, {3, "", "korvex: conf get: .: not a regular file\n"}},
        {{"conf", "get", "f/g", "k"}, {3, "", "korvex: conf get: f/g: Not a directory\n"}},
    });
}

TEST_F(ConfCommand, get_prints_the_default_only_for_what_is_not_there) {
    expect({
        {{"conf", "get", "nofile", "k", "--default", "d"}, {0, "d\n"}},
        {{"conf", "get", "f", "k", "-s", "rooms", "--default", "d"}, {0, "d\n"}},
        {{"conf", "get", "f", "k", "--default", ""}, {0, "\n"}},
        {{"conf", "get", "f", "k", "--default", "-1", "--type", "int"}, {0, "-1\n"}},
        {{"conf", "get", "f", "k", "--default", "[a,b]"}, {0, "[a,b]\n"}},
        {{"conf", "get", "f", "name", "--default", "d"}, {0, "attic\n"}},
        {{"conf", "get", ".", "k", "--default", "d"}, {3, "", "korvex: conf get: .: not a regular file\n"}},
    });
}

TEST_F(ConfCommand, get_reads_whole_integers) {
    const struct {
        const char *key;
        Outcome outcome;
    } rows[] = {
        {"web", {0, "80\n"}},
        {"low", {0, "-9223372036854775808\n"}},
        {"plus", {0, "7\n"}},
        {"high", {3, "", "korvex: conf get: f: not an integer: key 'high' is '9223372036854775808'\n"}},
        {"half", {3, "", "korvex: conf get: f: not an integer: key 'half' is '1.5'\n"}},
    };
    for (const auto &[key, outcome] : rows) {
        SCOPED_TRACE(key);
        EXPECT_EQ(korvex({"conf", "get", "f", key, "-s", "ports", "--type", "int"}), outcome);
    }
    EXPECT_EQ(korvex({"conf", "get", "f", "none", "-s", "flags", "--type", "int"}).exit_status, 3);
}

TEST_F(ConfCommand, get_reads_truth_values_in_any_case_and_refuses_all_else) {
    for (const char *value : {"yes", "On", "1", "tRUE"}) {
        folder.file("g", std::string("k = ") + value + "\n");
        EXPECT_EQ(korvex({"conf", "get", "g", "k", "--type", "bool"}), Outcome(0, "true\n")) << value;
    }
    for (const char *value : {"no", "OFF", "0", "False"}) {
        folder.file("g", std::string("k = ") + value + "\n");
        EXPECT_EQ(korvex({"conf", "get", "g", "k", "--type", "bool"}), Outcome(0, "false\n")) << value;
    }
    for (const std::string value : {"t", "", "y", "2", "yes no", "truе"}) {
        folder.file("g", "k = " + value + "\n");
        EXPECT_EQ(korvex({"conf", "get", "g", "k", "--type", "bool", "--default", "d"}),
                  Outcome(3, "",
                          "korvex: conf get: g: neither yes, on, 1, true nor no, off, 0, false: key 'k' is '" + value +
                              "'\n"));
    }
}

TEST_F(ConfCommand, set_changes_one_line_and_no_other_byte) {
    const std::string old_line = "  web=\t080\n";
    std::string expected = text;
    expected.replace(expected.find(old_line), old_line.size(), "web = 81\n");

    EXPECT_EQ(korvex({"conf", "set", "f", "web", "81", "-s", "ports"}), Outcome());
    EXPECT_EQ(read_file(file), expected);
}

TEST_F(ConfCommand, unset_removes_one_line_and_no_other_byte) {
    const std::string old_line = "plus = +7\n";
    std::string expected = text;
    expected.erase(expected.find(old_line), old_line.size());

    EXPECT_EQ(korvex({"conf", "unset", "f", "plus", "-s", "ports"}), Outcome());
    EXPECT_EQ(read_file(file), expected);
}

TEST_F(ConfCommand, unset_says_what_is_not_there_and_changes_nothing) {
    expect({
        {{"conf", "unset", "nofile", "k"}, {1, "", "korvex: conf unset: nofile: no such file\n"}},
        {{"conf", "unset", "f", "k"}, {1, "", "korvex: conf unset: f: no key 'k' before the first section\n"}},
        {{"conf", "unset", "f", "k", "-s", "ports"}, {1, "", "korvex: conf unset: f: no key 'k' in section 'ports'\n"}},
        {{"conf", "unset", "f", "k", "-s", "rooms"}, {1, "", "korvex: conf unset: f: no section 'rooms'\n"}},
    });
    EXPECT_EQ(read_file(file), text);
    EXPECT_EQ(folder.names(), (Words{"f"}));
}

TEST_F(ConfCommand, set_adds_a_file_a_section_and_a_key) {
    EXPECT_EQ(korvex({"conf", "set", "new", "k", "v", "-s", "a"}), Outcome());
    EXPECT_EQ(korvex({"conf", "set", "new", "k", "", "-s", "b"}), Outcome());
    EXPECT_EQ(korvex({"conf", "set", "new", "l", "-5", "-s", "a"}), Outcome());
    EXPECT_EQ(korvex({"conf", "set", "new", "m", "-s", "a", "--", "--default"}), Outcome());
    EXPECT_EQ(read_file(folder.path("new")), "[a]\nk = v\nl = -5\nm = --default\n\n[b]\nk = \n");
}

TEST_F(ConfCommand, a_key_of_the_global_section_is_found_again_in_a_new_file) {
    EXPECT_EQ(korvex({"conf", "set", "new", "k", "v"}), Outcome());
    EXPECT_EQ(korvex({"conf", "set", "new", "l", "w"}), Outcome());
    EXPECT_EQ(korvex({"conf", "list", "new"}), Outcome(0, "k = v\nl = w\n"));
    EXPECT_EQ(korvex({"conf", "get", "new", "k"}), Outcome(0, "v\n"));
}

TEST_F(ConfCommand, set_takes_words_that_look_like_something_else) {
    for (const std::string word : {"get", "conf", "[a,b]", "[", "{}", "%%", "a=b", "'q'", "\x01", "true"}) {
        SCOPED_TRACE(word);
        EXPECT_EQ(korvex({"conf", "set", "g", "set", word, "-s", "lock"}), Outcome());
        EXPECT_EQ(korvex({"conf", "get", "g", "set", "-s", "lock"}), Outcome(0, word + "\n"));
    }
}

TEST_F(ConfCommand, set_refuses_names_that_would_not_be_read_back) {
    const struct {
        Words words;
        std::string text;
    } rows[] = {
        {{"", "v"}, "bad key '': it can't be empty"},
        {{"a=b", "v"}, "'v' is not KEY=VALUE"},
        {{"a"}, "VALUE is required"},
        {{"=v"}, "bad key '': it can't be empty"},
        {{"a=v\rw"}, "bad value 'v\\rw': it can't hold a line feed"},
        {{"a=v", "#b=w"}, "bad key '#b': it can't begin with '[', ';' or '#'"},
        {{"a\nb", "v"}, "bad key 'a\\nb': it can't hold a '=' or a line feed"},
        {{"[a", "v"}, "bad key '[a': it can't begin with '[', ';' or '#'"},
        {{"#a", "v"}, "bad key '#a': it can't begin with '[', ';' or '#'"},
        {{" a", "v"}, "bad key ' a': it can't begin or end with white space"},
        {{"a\t", "v"}, "bad key 'a\\t': it can't begin or end with white space"},
        {{"a", "v\nw"}, "bad value 'v\\nw': it can't hold a line feed"},
        {{"a", "v", "-s", "x]y"}, "bad section 'x]y': it can't hold a ']' or a line feed"},
    };
    for (const auto &[words, error] : rows) {
        Words all = {"conf", "set", "f"};
        all.insert(all.end(), words.begin(), words.end());
        EXPECT_EQ(korvex(all), Outcome(2, "", "korvex: conf set: " + error + " (see 'korvex conf set --help')\n"));
    }
    EXPECT_EQ(read_file(file), text);
}

TEST_F(ConfCommand, set_tells_why_it_could_not_write) {
    EXPECT_EQ(korvex({"conf", "set", "nofolder/f", "k", "v"}),
              Outcome(3, "", "korvex: conf set: nofolder/f: no such folder: 'nofolder'\n"));

    const support::SmallDisk disk(65536);
    const std::string full = disk.file("f", "k = v\n");
    disk.fill_up_to(0);
    EXPECT_EQ(korvex({"conf", "set", full, "k", std::string(8192, 'w')}),
              Outcome(3, "", "korvex: conf set: " + full + ": No space left on device\n"));
    EXPECT_EQ(read_file(full), "k = v\n");
}

TEST_F(ConfCommand, list_prints_sections_in_the_order_of_the_file) {
    folder.file("g", "bad\na=1\na = 2\n[y]\n\n[x] tail\nk = =\n[]\nlast = 1\n[y]\n");
    EXPECT_EQ(korvex({"conf", "list", "g"}), Outcome(0, "a = 1\na = 2\n\n[y]\n\n[x]\nk = =\n\n[]\nlast = 1\n\n[y]\n"));
    EXPECT_EQ(korvex({"conf", "list", "g", "-s", "x"}), Outcome(0, "[x]\nk = =\n"));
    EXPECT_EQ(korvex({"conf", "list", "g", "-s", ""}), Outcome(0, "a = 1\na = 2\n"));
    EXPECT_EQ(korvex({"conf", "list", "g", "-s", "z"}), Outcome(1, "", "korvex: conf list: g: no section 'z'\n"));
    EXPECT_EQ(korvex({"conf", "list", "h"}), Outcome(1, "", "korvex: conf list: h: no such file\n"));
}

TEST_F(ConfCommand, list_prints_json_that_keeps_order_and_repeats) {
    folder.file("g", "a = \"q\"\na = \xff\n[y]\n[x]\nk = \xc3\xa4\n");
    const std::string x = R"(  {
    "section": "x",
    "pairs": [
      {
        "key": "k",
        "value": "ä"
      }
    ]
  }
]
)";
    const std::string before_x = R"([
  {
    "section": "",
    "pairs": [
      {
        "key": "a",
        "value": "\"q\""
      },
      {
        "key": "a",
        "value": "�"
      }
    ]
  },
  {
    "section": "y",
    "pairs": []
  },
)";
    EXPECT_EQ(korvex({"conf", "list", "g", "--json"}), Outcome(0, before_x + x));
    EXPECT_EQ(korvex({"conf", "list", "g", "--json", "-s", "x"}), Outcome(0, "[\n" + x));

    folder.file("empty", "# nothing\n");
    EXPECT_EQ(korvex({"conf", "list", "empty", "--json"}), Outcome(0, "[]\n"));
    EXPECT_EQ(korvex({"conf", "list", "empty"}), Outcome(0, ""));
}

TEST_F(ConfCommand, eight_writers_at_once_lose_nothing) {
    constexpr int kWriters = 8;
    constexpr int kKeys = 25;
    // On a machine under load a writer may find no chance in its 10 seconds; it says so, and tries again.
    const auto is_too_late = [](const Outcome &outcome) {
        return outcome.err.starts_with("korvex: conf set: f: lock not obtained within 10 seconds");
    };
    const auto name = [](int writer, int key) { return "w" + std::to_string(writer) + "k" + std::to_string(key); };

    std::vector<pid_t> writers;
    for (int writer = 0; writer < kWriters; ++writer)
        writers.push_back(support::start_child([&] {
            for (int key = 0; key < kKeys; ++key) {
                const Words words = {"conf", "set", "f", name(writer, key), name(writer, key) + "!", "-s", "ports"};
                Outcome outcome = korvex(words);
                while (is_too_late(outcome))
                    outcome = korvex(words);
                if (outcome != Outcome()) {
                    std::cerr << name(writer, key) << ": " << outcome << "\n";
                    return 1;
                }
            }
            return 0;
        }));
    for (const pid_t writer : writers)
        EXPECT_EQ(support::wait_for(writer), 0);

    const std::string result = read_file(file);
    for (int writer = 0; writer < kWriters; ++writer)
        for (int key = 0; key < kKeys; ++key) {
            const std::string line = name(writer, key) + " = " + name(writer, key) + "!";
            EXPECT_NE(result.find("\n" + line + "\n"), std::string::npos) << line;
        }
    EXPECT_EQ(folder.names(), (Words{"f"}));
    EXPECT_FALSE(support::exists("/var/lock/_f.lck"));
}

}  // namespace
