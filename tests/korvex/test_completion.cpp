// What the completion offers, asked as bash asks it. check_shell_completion.py types into bash, zsh and fish.
#include <cstdlib>
#include <filesystem>
#include <regex>
#include <set>
#include <sstream>

#include "run_korvex.h"

namespace {

std::string quoted(const std::string &word) {
    return "'" + std::regex_replace(word, std::regex("'"), "'\\''") + "'";
}

class Completion : public KorvexTest {
  protected:
    // What bash would offer for the last of the words.
    Words offered(const Words &words) const {
        std::string line;
        for (const std::string &word : words)
            line += " " + quoted(word);
        const std::string program = KORVEX_PROGRAM;
        const std::string script =
            scripts.file("script", "PATH=" + quoted(program.substr(0, program.rfind('/'))) + ":$PATH\nsource " +
                                       quoted(KORVEX_COMPLETION) + "\nCOMP_WORDS=(korvex" + line +
                                       ")\nCOMP_CWORD=" + std::to_string(words.size()) +
                                       "\n_korvex\n[ ${#COMPREPLY[@]} = 0 ] || printf '%s\\n' \"${COMPREPLY[@]}\"\n");
        // `korvex lock` is a way to run a program in the folder and see what it prints.
        std::istringstream stream(korvex({"lock", script, "--", "bash", "--norc", script}).out);
        Words lines;
        for (std::string one; std::getline(stream, one);)
            lines.push_back(one);
        return lines;
    }

    support::TempFolder scripts;
};

TEST_F(Completion, commands_files_sections_keys_and_values_are_offered) {
    folder.file("f.conf", "g = 1\n[attic]\nread only = yes\npath = /x\n[my share]\na = 1\n[attic]\n");
    const struct {
        Words words;
        Words offered;
    } rows[] = {
        {{"sh"}, {"shares"}},
        {{"mounts", ""}, {}},
        {{"volume", ""}, {"f.conf"}},
        {{"ps", "--parent", ""}, {}},
        {{"conf", "s"}, {"set", "sections", "section"}},
        {{"conf", "section", "re"}, {"replace", "remove"}},
        {{"--verbose", "units", ""}, {"size", "time"}},
        {{"--log-file", "conf", "l"}, {"lock", "log"}},
        {{"conf", "get", ""}, {"f.conf"}},
        {{"lock", "f"}, {"f.conf"}},
        {{"--log-file", ""}, {"f.conf"}},
        {{"conf", "get", "f.conf", ""}, {"g"}},
        {{"conf", "get", "-s", "attic", "f.conf", ""}, {"read\\ only", "path"}},
        {{"conf", "set", "f.conf", "--section", "my\\ share", ""}, {"a"}},
        {{"conf", "get", "f.conf", "a", "-s", "my\\ "}, {"my\\ share"}},
        {{"conf", "get", "f.conf", "-s", ""}, {"attic", "my\\ share"}},
        {{"conf", "section", "show", "f.conf", "a"}, {"attic"}},
        {{"conf", "get", "--type", ""}, {"string", "int", "bool"}},
        {{"log", "--clock", ""}, {"12", "24"}},
        {{"log", "--date", ""}, {"1", "2", "3", "4", "5", "6", "7", "8", "9"}},
        {{"lock", "f.conf", "--", "cat", ""}, {"f.conf"}},
        {{"cp", "f.conf", ""}, {"f.conf"}},
        {{"du", "--json", "f.conf", ""}, {"f.conf"}},
        {{"temp", "--mode", "600", ""}, {"f.conf"}},
        {{"net", "r"}, {"resolve"}},
        {{"net", "resolve", ""}, {}},
        {{"send", "nas", "4000", ""}, {"f.conf"}},
        {{"send", "--timeout", "500", "nas", "4000", ""}, {"f.conf"}},
        {{"send", "--unix", "f"}, {"f.conf"}},
        {{"send", "--unix", "s", ""}, {"f.conf"}},
        {{"recv", "4000", ""}, {"f.conf"}},
        {{"recv", "--tls", "--cert", ""}, {"f.conf"}},
        {{"recv", "--host", "f"}, {}},
        {{"units", "size", ""}, {}},
        {{"conf", "get", "f.conf", "--section", "=", "at"}, {"attic"}},
        {{"conf", "get", "f.conf", "--section", "="}, {"attic", "my\\ share"}},
        {{"conf", "get", "--type", "=", "b"}, {"bool"}},
        {{"lock", "f.conf", ""}, {"--"}},
        {{"doctor", "--config", "a", "--json", ""}, {}},
        {{"snapshot", ""}, {"diff"}},
        {{"snapshot", "diff", "f.conf", ""}, {"f.conf"}},
        {{"none", "of", ""}, {}},
        {{"conf", "get", "none", "-s", ""}, {}},
    };
    for (const auto &[words, expected] : rows)
        EXPECT_EQ(offered(words), expected) << testing::PrintToString(words);
}

TEST_F(Completion, where_a_folder_is_meant_no_file_is_offered) {
    folder.file("f.conf", "");
    std::filesystem::create_directory(folder.path("deep"));
    EXPECT_EQ(offered({"temp", "--clean", ""}), Words({"deep"}));
    EXPECT_THAT(offered({"du", ""}), testing::UnorderedElementsAre("deep", "f.conf"));
}

TEST_F(Completion, a_command_is_offered_behind_the_dashes) {
    EXPECT_THAT(offered({"lock", "f", "--", "pri"}), testing::Contains("printf"));
}

// A name that a line of the answer can't hold, and one that would steer a terminal, are not offered.
TEST_F(Completion, names_that_would_break_the_answer_are_left_out) {
    folder.file("f.conf", "[a\tb]\n[c\033d]\n[fine]\n");
    EXPECT_EQ(offered({"conf", "get", "f.conf", "-s", ""}), Words({"fine"}));
}

TEST_F(Completion, the_tool_answers_with_the_kind_and_the_summaries) {
    folder.file("f.conf", "[attic]\n");
    expect({
        {{"--complete", "units", ""},
         {0,
          "words\nsize\tBytes in byte, KB, MB, GB or TB\n"
          "time\tSeconds in days, hours, minutes and seconds\n"}},
        {{"--complete", "conf", "get", ""}, {0, "files\n"}},
        {{"--complete", "doctor", "--config", ""}, {0, "folders\n"}},
        {{"--complete", "lock", "f", "--", ""}, {0, "commands\n"}},
        {{"--complete", "conf", "get", "-sattic", "none", ""}, {0, "words\n"}},
        {{"--complete", "conf", "get", "f.conf", "--section=a"}, {0, "words\n--section=attic\t\n"}},
    });
    EXPECT_EQ(korvex({"--complete"}).out.substr(0, 11), "words\nconf\t") << "without a word, as with an empty one";
}

// The names in one paragraph of a help text: the long options, or the commands.
std::set<std::string> names_in_help(const std::string &help, const std::string &title, const std::regex &name) {
    const size_t begin = help.find("\n" + title + ":\n");
    if (begin == std::string::npos)
        return {};
    const std::string paragraph = help.substr(begin, help.find("\n\n", begin) - begin);
    std::set<std::string> names;
    for (std::sregex_iterator match(paragraph.begin(), paragraph.end(), name), end; match != end; ++match)
        names.insert((*match)[1]);
    return names;
}

std::set<std::string> as_set(const Words &words) {
    return {words.begin(), words.end()};
}

TEST_F(Completion, it_knows_exactly_the_commands_and_options_of_the_help) {
    const std::regex option("\n  (?:-\\w,)?(--[\\w-]+|-\\w(?= ))");
    const std::regex command("\n  (\\w+)");
    const std::set<std::string> everywhere = {"--help", "--verbose", "--log-file"};

    std::vector<Words> commands = {{}};
    for (size_t i = 0; i < commands.size(); ++i) {
        const Words words = commands[i];
        SCOPED_TRACE(testing::PrintToString(words));
        auto with = [&words](const std::string &word) {
            Words more = words;
            more.push_back(word);
            return more;
        };
        const std::string help = korvex(with("--help")).out;
        std::set<std::string> options = names_in_help(help, "Options", option);
        options.insert(everywhere.begin(), everywhere.end());
        EXPECT_EQ(as_set(offered(with("-"))), options);

        const std::set<std::string> below = names_in_help(help, "Subcommands", command);
        if (!below.empty()) {
            EXPECT_EQ(as_set(offered(with(""))), below);
        }
        for (const std::string &name : below)
            commands.push_back(with(name));
    }
    EXPECT_EQ(commands.size(), 39U);
}

}  // namespace
