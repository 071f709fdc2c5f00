// korvex doctor: what a support engineer looks at first.
#include <algorithm>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "commands/commands.h"
#include "doctor/check.h"
#include "output/shown_name.h"
#include "output/table.h"

namespace korvex::cli {
namespace {

struct DoctorArguments {
    std::vector<std::string> configurations;
    std::string logs = "/var/log";
    bool json = false;
};

const char *word_of(doctor::Verdict verdict) {
    switch (verdict) {
        case doctor::Verdict::ok:
            return "ok";
        case doctor::Verdict::warning:
            return "warning";
        case doctor::Verdict::failure:
            break;
    }
    return "failure";
}

void print_lines(const std::vector<doctor::Finding> &findings) {
    for (const auto &[verdict, check, what, remedy] : findings)
        std::printf("%s: %s%s\n", word_of(verdict), shown(what).c_str(),
                    remedy.empty() ? "" : (": " + shown(remedy)).c_str());
}

void print_findings_json(const std::vector<doctor::Finding> &findings) {
    Json list = Json::array();
    for (const auto &[verdict, check, what, remedy] : findings)
        list.push_back(
            {{"check", check}, {"verdict", word_of(verdict)}, {"what", what}, {"remedy", text_or_null(remedy)}});
    print_json(list);
}

int run_doctor(const DoctorArguments &arguments) {
    doctor::Places places{.configurations = arguments.configurations,
                          .are_named = !arguments.configurations.empty(),
                          .logs = arguments.logs};
    if (!places.are_named)
        places.configurations = {"/etc/config"};

    doctor::Findings findings;
    for (const doctor::Check &check : doctor::checks()) {
        findings.begin(check.name);
        try {
            check.run(places, findings);
        } catch (const std::exception &failure) {  // what a check can't read keeps no other from its turn
            findings.fail(std::string(check.name) + ": " + failure.what(), "look again as root: sudo korvex doctor");
        }
    }

    const std::vector<doctor::Finding> &all = findings.all();
    arguments.json ? print_findings_json(all) : print_lines(all);
    const bool fails = std::any_of(all.begin(), all.end(), [](const doctor::Finding &finding) {
        return finding.verdict == doctor::Verdict::failure;
    });
    return fails ? kNegativeAnswer : kSuccess;
}

constexpr const char *kDoctorDetails =
    R"(Looks at what is wrong first where something is wrong: the folder of the locks and the locks in it, the
configuration files (what was left behind, who may read and write them, smb.conf), the mount table, the
shares, the identification command, OpenSSL, the clock, the time zone, and the room for logs. Each line is
"ok: WHAT", "warning: WHAT: REMEDY" or "failure: WHAT: REMEDY". Exit status 1 where something fails.

It changes nothing. To see whether a lock can be made it creates one empty file in /var/lock, which it removes
at once; no program is run, and no lock taken.

--json prints an array of objects with "check", "verdict", "what" and "remedy" (null where there is none).

Example:
  korvex doctor --config /etc/config --config /share/Web/config)";

}  // namespace

void add_doctor_command(CLI::App &program, Session &session) {
    auto [command, arguments] = add_command(
        program, session, {"doctor", "Look for what is wrong with this machine", kDoctorDetails}, run_doctor);
    CLI::Option &folders = add_texts(command, "--config", arguments.configurations,
                                     "A folder of configuration files, may be repeated [/etc/config]");
    refuse_empty(
        *folders.type_name("FOLDER")->type_size(1)->expected(1)->multi_option_policy(CLI::MultiOptionPolicy::TakeAll));
    refuse_empty(*add_text(command, "--logs", arguments.logs, "The folder of the logs [/var/log]").type_name("FOLDER"));
    command.add_flag("--json", arguments.json, "Print JSON");
}

}  // namespace korvex::cli
