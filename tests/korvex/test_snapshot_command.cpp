// korvex snapshot of a sample appliance: the document, its schema, what differs between two, and the figures.
#include <sys/mount.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "run_korvex.h"
#include "sample_appliance.h"

namespace fs = std::filesystem;

namespace {

using nlohmann::json;
using testing::HasSubstr;

class SnapshotCommand : public KorvexTest {
  protected:
    SnapshotCommand() {
        appliance_.tool_prints(
            "/dev/sda3: LABEL=\"Data\" UUID=\"id-data\" TYPE=\"ext4\"\n"
            "/dev/md9: UUID=\"id-md\" TYPE=\"ext4\"\n");
        appliance_.disk("sda", "10000\n", "Disk One  \n", "Acme\n");
        appliance_.partition("sda", "sda3", "9000\n");
        appliance_.volume("/share/MD0_DATA");
        appliance_.volume("/share/MD9_DATA");
        appliance_.link("MD0_DATA", "DataVol1");
        appliance_.share("MD0_DATA/Public", "Public");
        appliance_.share_options("[Public]\n[DataVol1]\nbrowsable = no\n");
        appliance_.mount_table(kMounts);
        support::write_file("/var/lock/_smb.conf.lck", lock_of(getpid()));
    }

    std::string taken() const { return output_of({"snapshot"}); }
    json document() const { return json::parse(taken()); }

    // What the schema has against a document, or the checker against figures; empty for nothing.
    std::string complaints_of(const std::string &checker, const std::string &text) const {
        const std::string input = folder.file("checked", text);
        const std::string said = folder.path("said");
        const int status = std::system((checker + " <" + input + " >" + said + " 2>&1").c_str());
        const std::string complaints = support::read_file(said);
        return status != 0 && complaints.empty() ? "it failed" : complaints;
    }
    std::string schema_complaints(const std::string &text) const {
        return complaints_of("python3 -B " KORVEX_SNAPSHOT_CHECK, text);
    }

    static constexpr const char *kMounts =
        "/dev/sda3 /share/MD0_DATA ext4 rw 0 0\n/dev/md9 /share/MD9_DATA ext4 rw 0 0\nnone /tmp tmpfs rw 0 0\n";
    const sysinfo_test::Appliance appliance_;
};

TEST_F(SnapshotCommand, it_holds_what_the_commands_list_one_by_one) {
    const json found = document();
    EXPECT_EQ(found["schema"], 1);
    EXPECT_EQ(found["korvex"], KORVEX_VERSION);
    EXPECT_EQ(found["mounts"], json::parse(output_of({"mounts", "--json"})));
    EXPECT_EQ(found["shares"], json::parse(output_of({"shares", "--json"})));
    EXPECT_EQ(found["blocks"], json::parse(output_of({"blocks", "--json"})));
    EXPECT_EQ(found["volumes"][0], json::parse(output_of({"volume", "/dev/sda3", "--json"})));
    EXPECT_EQ(found["shares"].size(), 2U);
    EXPECT_EQ(found["interfaces"], json::parse(output_of({"net", "interfaces", "--json"})));
    EXPECT_EQ(found["interfaces"][0]["name"], "lo");
    ASSERT_EQ(found["locks"].size(), 1U);
    EXPECT_EQ(found["locks"][0]["name"], "smb.conf");
    EXPECT_EQ(found["locks"][0]["kind"], "common");
    EXPECT_EQ(found["locks"][0]["status"], "held");
    EXPECT_EQ(found["locks"][0]["pid"], getpid());
    EXPECT_EQ(found["locks"][0]["program"], "test_korvex");
    EXPECT_EQ(found["locks"][0]["reason"], nullptr);
}

TEST_F(SnapshotCommand, a_volume_whose_disk_the_kernel_does_not_describe_is_there_too) {
    const json expected = {{"device", "/dev/md9"},    {"mount_path", "/share/MD9_DATA"},
                           {"uuid", "id-md"},         {"label", nullptr},
                           {"type", "ext4"},          {"vendor", nullptr},
                           {"model", nullptr},        {"partition", 0},
                           {"total_bytes", 64 << 20}, {"free_bytes", 64 << 20}};
    const json volumes = document()["volumes"];
    ASSERT_EQ(volumes.size(), 2U);
    EXPECT_EQ(volumes[1], expected);
}

TEST_F(SnapshotCommand, the_schema_knows_every_field) {
    support::write_file("/var/lock/_stale.lck", lock_of(support::dead_process()));
    support::write_file("/var/lock/new.lck", "");
    EXPECT_EQ(schema_complaints(taken()), "");

    json wrong = document();
    wrong["shares"][0]["mode"] = 755;
    wrong["surplus"] = 1;
    const std::string complaints = schema_complaints(wrong.dump());
    EXPECT_THAT(complaints, HasSubstr("$.shares[0].mode: 755 is not of type 'string'"));
    EXPECT_THAT(complaints, HasSubstr("surplus"));
}

TEST_F(SnapshotCommand, a_part_that_can_not_be_read_is_null_and_named) {
    fs::remove("/etc/mtab");
    const Outcome outcome = korvex({"snapshot"});
    EXPECT_EQ(outcome.exit_status, 3);
    EXPECT_EQ(outcome.err,
              "korvex: snapshot: mounts: can't read '/etc/mtab': no such file or folder\n"
              "korvex: snapshot: volumes: can't read '/etc/mtab': no such file or folder\n");
    const json found = json::parse(outcome.out);
    EXPECT_EQ(found["mounts"], nullptr);
    EXPECT_EQ(found["volumes"], nullptr);
    EXPECT_EQ(found["shares"].size(), 2U);
    EXPECT_EQ(schema_complaints(outcome.out), "");
    EXPECT_THAT(korvex({"snapshot", "--openmetrics"}).out,
                HasSubstr("\nkorvex_snapshot_part_readable{part=\"mounts\"} 0\n"));
}

TEST_F(SnapshotCommand, it_writes_nothing_so_it_works_where_nothing_can_be_written) {
    for (const char *path : {"/etc/config", "/share", "/usr/local/sbin"})
        ASSERT_EQ(mount(nullptr, path, nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0) << path;
    EXPECT_EQ(document()["shares"].size(), 2U);
}

// --- figures ---

TEST_F(SnapshotCommand, the_figures_pass_the_collectors_own_check) {
    support::write_file("/var/lock/_stale.lck", lock_of(support::dead_process()));
    // A folder with two mounts on it, and names that could end a line, a label, or steer a terminal.
    appliance_.mount_table(std::string(kMounts) + "none /tmp tmpfs rw 0 0\nbad\\012name /a\"\033b\\134 \xff rw 0 0\n");
    const std::string text = output_of({"snapshot", "--openmetrics"});
    EXPECT_EQ(complaints_of("promtool check metrics", text), "");
    EXPECT_NE(complaints_of("promtool check metrics", text + "again 1\nagain 1\n"), "") << "it sees what is wrong";

    EXPECT_TRUE(text.ends_with("\n# EOF\n"));
    for (const char *line : {
             "# HELP korvex_volume_free_bytes What unprivileged users may still write to a volume.\n"
             "# TYPE korvex_volume_free_bytes gauge\n"
             "# UNIT korvex_volume_free_bytes bytes\n"
             "korvex_volume_free_bytes{device=\"/dev/sda3\",path=\"/share/DataVol1\"} 67108864\n",
             "\nkorvex_snapshot_part_readable{part=\"locks\"} 1\n",
             "\nkorvex_mount_info{device=\"none\",path=\"/tmp\",type=\"tmpfs\"} 1\n"
             "korvex_mount_info{device=\"bad\\\\nname\",path=\"/a\\\"\\\\x1bb\\\\\",type=\"\xef\xbf\xbd\"} 1\n",
             "\nkorvex_share_info{share=\"DataVol1\",flags=\"hidden\",mode=\"0755\"} 1\n",
             "\nkorvex_block_info{device=\"/dev/sda3\",uuid=\"id-data\",type=\"ext4\"} 1\n",
             "\nkorvex_interface_up{interface=\"lo\",mac=\"00:00:00:00:00:00\"} ",
             "\nkorvex_locks{status=\"held\"} 1\nkorvex_locks{status=\"stale\"} 1\n",
             "\nkorvex_lock_age_seconds{name=\"stale\",kind=\"common\",status=\"stale\"} ",
         })
        EXPECT_THAT(text, HasSubstr(line));
}

// --- differences ---

class SnapshotDiff : public SnapshotCommand {
  protected:
    SnapshotDiff() { before_ = folder.file("before", taken()); }

    Outcome differences(const json &after, const Words &options = {}) const {
        Words words = {"snapshot", "diff", before_, folder.file("after", after.dump())};
        words.insert(words.end(), options.begin(), options.end());
        return korvex(words);
    }

    std::string before_;
};

TEST_F(SnapshotDiff, two_of_one_machine_are_the_same) {
    const std::string later = folder.file("later", taken());
    EXPECT_EQ(korvex({"snapshot", "diff", before_, later}), Outcome(0));
    EXPECT_EQ(korvex({"snapshot", "diff", before_, "-"}, taken()), Outcome(0));
    EXPECT_EQ(korvex({"snapshot", "diff", before_, later, "--json"}),
              Outcome(0, "{\n  \"came\": [],\n  \"went\": [],\n  \"changed\": [],\n  \"unknown\": []\n}\n"));
}

TEST_F(SnapshotDiff, what_the_machine_gained_lost_and_changed_is_told) {
    appliance_.share("MD0_DATA/New", "New\033");
    fs::remove("/share/Public");
    appliance_.tool_prints("/dev/sda3: LABEL=\"Attic\" UUID=\"id-data\" TYPE=\"ext4\"\n");
    fs::remove("/var/lock/_smb.conf.lck");
    const std::string after = folder.file("after", taken());
    EXPECT_EQ(korvex({"snapshot", "diff", before_, after}), Outcome(1,
                                                                    "~ volumes /dev/md9: uuid \"id-md\" -> null\n"
                                                                    "~ volumes /dev/sda3: label \"Data\" -> \"Attic\"\n"
                                                                    "- shares Public\n"
                                                                    "+ shares New\\x1b\n"
                                                                    "- blocks /dev/md9\n"
                                                                    "- locks common smb.conf\n"));

    const json found = json::parse(korvex({"snapshot", "diff", before_, after, "--json"}).out);
    EXPECT_EQ(found["came"], json::array({{{"part", "shares"}, {"element", "New\033"}}}));
    EXPECT_EQ(found["went"].size(), 3U);
    const json fields = json::array({{{"field", "label"}, {"old", "Data"}, {"new", "Attic"}}});
    EXPECT_EQ(found["changed"][1], json({{"part", "volumes"}, {"element", "/dev/sda3"}, {"fields", fields}}));
}

TEST_F(SnapshotDiff, what_changes_by_itself_counts_when_it_is_asked_for) {
    json after = json::parse(support::read_file(before_));
    const json age = after["locks"][0]["age_ms"];
    after["locks"][0]["age_ms"] = 77;
    after["volumes"][0]["free_bytes"] = 5;
    after["shares"][0]["mtime"] = 6;
    after["taken"] = "2030-01-01T00:00:00Z";
    EXPECT_EQ(differences(after), Outcome(0));
    const std::string mtime = json::parse(support::read_file(before_))["shares"][0]["mtime"].dump();
    EXPECT_EQ(differences(after, {"--all"}),
              Outcome(1, "~ volumes /dev/sda3: free_bytes 67108864 -> 5\n~ shares DataVol1: mtime " + mtime +
                             " -> 6\n~ locks common smb.conf: age_ms " + age.dump() + " -> 77\n"));
}

TEST_F(SnapshotDiff, things_of_one_name_are_told_apart_by_their_order) {
    json after = json::parse(support::read_file(before_));
    after["mounts"].push_back(after["mounts"][2]);
    EXPECT_EQ(differences(after), Outcome(1, "+ mounts /tmp (2)\n"));
}

TEST_F(SnapshotDiff, a_part_that_one_could_not_read_is_a_difference) {
    json after = json::parse(support::read_file(before_));
    after["shares"] = nullptr;
    EXPECT_EQ(differences(after), Outcome(1, "? shares could be read for one of the two alone\n"));
}

TEST_F(SnapshotDiff, what_is_no_snapshot_is_a_failure_and_not_a_difference) {
    const std::string error = "korvex: snapshot diff: ";
    const std::string help = " (see 'korvex snapshot diff --help')\n";
    folder.file("text", "no json");
    folder.file("list", "[1]");
    folder.file("later", R"({"schema": 2})");
    folder.file("part", R"({"schema": 1, "mounts": [{"device": "x"}]})");
    fs::create_directory(folder.path("folder"));
    expect({
        {{"snapshot", "diff", before_, "none"}, {3, "", error + "none: No such file or directory\n"}},
        {{"snapshot", "diff", "folder", before_}, {3, "", error + "folder: Is a directory\n"}},
        {{"snapshot", "diff", before_, "text"}, {3, "", error + "text: not a snapshot\n"}},
        {{"snapshot", "diff", before_, "list"}, {3, "", error + "list: not a snapshot\n"}},
        {{"snapshot", "diff", before_, "later"},
         {3, "", error + "later: a snapshot of schema 2, and schema 1 is read here\n"}},
        {{"snapshot", "diff", before_, "part"}, {3, "", error + "part: not a snapshot: no list of mounts\n"}},
        {{"snapshot", "diff", "-", "-"}, {2, "", error + "only one of the two can be standard input" + help}},
        {{"snapshot", "diff", before_}, {2, "", error + "NEW is required" + help}},
        {{"snapshot", "diff", "--openmetrics", "a", "b"}, {2, "", error + "diff excludes --openmetrics" + help}},
        {{"snapshot", "bogus"},
         {2, "", "korvex: snapshot: the following argument was not expected: bogus (see 'korvex snapshot --help')\n"}},
    });
}

}  // namespace
