// korvex du.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <sstream>

#include "run_korvex.h"

namespace {

class DuCommand : public KorvexTest {
  protected:
    // t: a file of 1536 bytes, a link of 3, and a folder.
    DuCommand() {
        mkdir(folder.path("t").c_str(), 0755);
        mkdir(folder.path("t/d").c_str(), 0755);
        folder.file("t/a", std::string(1536, 'x'));
        (void)!symlink("../", folder.path("t/d/l").c_str());
        (void)!symlink("t", folder.path("to_t").c_str());
        folder.file("f", "12345");
    }

    uint64_t blocks(const Words &names) const {
        uint64_t sum = 0;
        for (const std::string &name : names) {
            struct stat status {};
            EXPECT_EQ(lstat(folder.path(name).c_str(), &status), 0) << name;
            sum += static_cast<uint64_t>(status.st_blocks);
        }
        return sum;
    }
    std::string on_disk(const Words &names) const {
        const std::string text = korvex({"units", "size", std::to_string(blocks(names) * 512)}).out;
        return text.substr(0, text.size() - 1);
    }
};

const Words kTree = {"t", "t/d", "t/a", "t/d/l"};

// The cells of a line, which stand apart by two blanks or more.
Words cells(const std::string &line) {
    Words found;
    for (size_t begin = line.find_first_not_of(' '); begin < line.size();) {
        const size_t end = std::min(line.find("  ", begin), line.size());
        found.push_back(line.substr(begin, end - begin));
        begin = std::min(line.find_first_not_of(' ', end), line.size());
    }
    return found;
}

std::vector<Words> table(const std::string &text) {
    std::vector<Words> rows;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        rows.push_back(cells(line));
    return rows;
}

TEST_F(DuCommand, files_folders_sizes_and_a_total_stand_in_a_table) {
    const Words head = {"files", "folders", "size", "on disk", "path"};
    const Words tree = {"2", "2", "1.50 KB", on_disk(kTree), "t"};
    const Words link = {"1", "0", "1 byte", on_disk({"to_t"}), "to_t"};
    const Words all = {"3", "2", "1.50 KB", on_disk({"t", "t/d", "t/a", "t/d/l", "to_t"}), "total"};
    EXPECT_EQ(table(korvex({"du", "t"}).out), (std::vector<Words>{head, tree}));
    EXPECT_EQ(table(korvex({"du", "t", "to_t"}).out), (std::vector<Words>{head, tree, link, all}));
}

TEST_F(DuCommand, json_has_exact_numbers) {
    const Outcome outcome = korvex({"du", "--json", "t", "f"});
    EXPECT_EQ(outcome.exit_status, 0);
    const auto expected = nlohmann::json::array(
        {{{"path", "t"}, {"files", 2}, {"folders", 2}, {"bytes", 1539}, {"blocks", blocks(kTree)}},
         {{"path", "f"}, {"files", 1}, {"folders", 0}, {"bytes", 5}, {"blocks", blocks({"f"})}}});
    EXPECT_EQ(nlohmann::json::parse(outcome.out), expected);
}

TEST_F(DuCommand, a_missing_path_is_reported_and_the_others_are_measured) {
    const std::string error = "korvex: du: none: No such file or directory\n";
    const Outcome outcome = korvex({"du", "none", "f"});
    EXPECT_EQ(outcome.exit_status, 1);
    EXPECT_EQ(outcome.err, error);
    EXPECT_EQ(table(outcome.out).at(1).at(4), "f");
    EXPECT_EQ(korvex({"du", "none"}), Outcome(1, "", error));
    EXPECT_EQ(korvex({"du", "--json", "none"}), Outcome(1, "[]\n", error));
}

TEST_F(DuCommand, what_people_are_used_to_is_taken_or_explained) {
    const std::string table = output_of({"du", "t"});
    for (const Words &words : {Words{"du", "-h", "t"}, Words{"du", "-s", "t"}, Words{"du", "-sh", "t"}})
        EXPECT_EQ(output_of(words), table) << testing::PrintToString(words);
    const std::string hint = " (see 'korvex du --help')\n";
    expect({
        {{"du", "-b", "t"},
         {2, "",
          "korvex: du: no such option: -b; du prints sizes as people read them by default; use --json for bytes" +
              hint}},
        {{"du", "-ch", "t"},
         {2, "", "korvex: du: no such option: -ch; du prints one line for each PATH, and a total for several" + hint}},
        {{"du", "-h"}, {2, "", "korvex: du: PATH is required" + hint}},
    });
}

}  // namespace
