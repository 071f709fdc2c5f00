// settings: what is asked of the daemon over either kind of connection, and what comes of it.
#include "settingsd_world.h"

namespace {

using testing::HasSubstr;
using testing::Not;

class SettingsClient : public SettingsdTest {
  protected:
    struct Step {
        Words words;
        Outcome outcome;
    };

    // A life of a few settings, told as a client sees it.
    static const std::vector<Step> &steps() {
        static const std::vector<Step> kSteps = {
            {{"list"}, {0}},
            {{"get", "color"}, {1, "", "settings: no such key\n"}},
            {{"unset", "color"}, {1, "", "settings: no such key\n"}},
            {{"set", "color", "blue"}, {0}},
            {{"get", "color"}, {0, "blue\n"}},
            {{"set", "net bios name", "a = b; #c [d]"}, {0}},
            {{"get", "net bios name"}, {0, "a = b; #c [d]\n"}},
            {{"set", "empty", ""}, {0}},
            {{"get", "empty"}, {0, "\n"}},
            {{"list"}, {0, "color=blue\nnet bios name=a = b; #c [d]\nempty=\n"}},
            {{"set", "color", "gr\xc3\xbcn"}, {0}},
            {{"unset", "empty"}, {0}},
            {{"get", "empty"}, {1, "", "settings: no such key\n"}},
            {{"list"}, {0, "color=gr\xc3\xbcn\nnet bios name=a = b; #c [d]\n"}},
            {{"set", "[color]", "red"}, {3, "", "settings: not a key\n"}},
            {{"get", ""}, {3, "", "settings: not a key\n"}},
            {{"set", "color", " red"}, {3, "", "settings: not a value\n"}},
            {{"set", "color", "red\n[other]"}, {3, "", "settings: not a value\n"}},
            {{"get", "color"}, {0, "gr\xc3\xbcn\n"}},
            {{"unset", "color"}, {0}},
            {{"unset", "net bios name"}, {0}},
            {{"list"}, {0}},
        };
        return kSteps;
    }
};

TEST_F(SettingsClient, changes_settings_over_the_local_socket) {
    const auto daemon = start();
    for (const auto &[words, outcome] : steps())
        EXPECT_EQ(settings(words), outcome) << testing::PrintToString(words);
    expect_clean_stop(*daemon);
}

TEST_F(SettingsClient, changes_settings_by_tls) {
    make_certificate();
    const auto daemon = start(tls_words());
    for (const auto &[words, outcome] : steps())
        EXPECT_EQ(tls_settings(words), outcome) << testing::PrintToString(words);
    expect_clean_stop(*daemon);
}

TEST_F(SettingsClient, keeps_what_people_wrote_into_the_file) {
    folder.file("conf", "# ours\n[other]\ncolor = red\n\n[settings]\n; why\ncolor\t=\tblue\nshape = round\n");
    const auto daemon = start();
    EXPECT_EQ(settings({"set", "color", "green"}), Outcome(0));
    EXPECT_EQ(settings({"list"}), Outcome(0, "color=green\nshape=round\n"));
    EXPECT_EQ(conf(), "# ours\n[other]\ncolor = red\n\n[settings]\n; why\ncolor = green\nshape = round\n");
}

TEST_F(SettingsClient, leaves_no_error_in_the_log_of_a_daemon_that_served_well) {
    make_certificate();
    const auto daemon = start(tls_words());
    settings({"set", "a", "1"});
    tls_settings({"set", "b", "2"});
    settings({"get", "none"});
    tls_settings({"list"});
    expect_clean_stop(*daemon);
    EXPECT_THAT(log(), HasSubstr("] set a\n"));
    EXPECT_THAT(log(), HasSubstr("] set b\n"));
    EXPECT_THAT(log(), Not(HasSubstr("[error]")));
}

TEST_F(SettingsClient, tells_that_there_is_no_daemon) {
    EXPECT_EQ(settings({"list"}), Outcome(3, "", "settings: no answer: No such file or directory\n"));
    make_certificate();
    EXPECT_EQ(tls_settings({"list"}), Outcome(3, "", "settings: no answer: Connection refused\n"));
}

TEST_F(SettingsClient, refuses_a_command_line_that_it_can_not_make_out) {
    const Words lines[] = {{},
                           {"get"},
                           {"get", "a", "b"},
                           {"set", "a"},
                           {"list", "a"},
                           {"delete", "a"},
                           {"--port", "x", "list"},
                           {"--port", "0", "list"},
                           {"--port", "4711", "list"},
                           {"--password-file", "none", "list"},
                           {"--color", "list"},
                           {"set", "a", std::string(4096, 'v')}};
    for (const Words &words : lines) {
        const Outcome outcome = settings(words);
        EXPECT_EQ(outcome.exit_status, 2) << testing::PrintToString(words) << outcome;
        EXPECT_NE(outcome.err, "") << testing::PrintToString(words);
    }
    EXPECT_EQ(Program(SETTINGS_PROGRAM, {"list"}, folder.path()).wait().exit_status, 2);
}

}  // namespace
