// The configuration folders: what was left behind in them, and who may read and write what is there.
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <string_view>

#include "cli.h"
#include "conf/conf_text.h"
#include "doctor/check.h"
#include "fileio.h"
#include "files/path_text.h"
#include "korvex/lock.hpp"

namespace korvex::cli::doctor {
namespace {

bool ends_in_number(std::string_view name, std::string_view mark) {
    const size_t place = name.rfind(mark);
    if (place == std::string_view::npos || place + mark.size() == name.size())
        return false;
    return name.find_first_not_of("0123456789", place + mark.size()) == std::string_view::npos;
}

// NAME.tmp, NAME.tmp.PID, and the names that 'korvex temp' finds.
bool has_temporary_name(const std::string &path) {
    return path.ends_with(".tmp") || ends_in_number(last_name(path), ".tmp.") || Check_Temp_Filename(path.c_str()) == 0;
}

// Nobody works on a private copy without the file's lock.
bool is_in_work(const struct stat &status) {
    const std::chrono::seconds age(std::time(nullptr) - status.st_mtim.tv_sec);
    return age.count() >= 0 && age < lock_lifetime;
}

std::string mode_text(const struct stat &status) {
    char text[16];
    std::snprintf(text, sizeof text, "%04o", status.st_mode & 07777U);
    return text;
}

std::string lower(std::string_view text) {
    std::string made(text);
    for (char &byte : made)
        byte = byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte - 'A' + 'a') : byte;
    return made;
}

// Whether a line has a secret, such as a password. A key that only switches something on or off has none.
bool is_secret(const Line &line) {
    if (line.kind != LineKind::pair)
        return line.text.find("PRIVATE KEY-----") != std::string_view::npos;

    constexpr std::string_view kBlanks = " \t\r";
    const size_t equals = line.text.find('=');
    std::string key = lower(line.text.substr(0, equals));
    key.erase(key.find_last_not_of(kBlanks) + 1);
    std::string value = lower(line.text.substr(equals + 1));
    value.erase(0, value.find_first_not_of(kBlanks));
    value.erase(value.find_last_not_of(kBlanks) + 1);

    constexpr std::string_view kSwitches[] = {"", "yes", "no", "true", "false", "on", "off", "0", "1"};
    if (std::find(std::begin(kSwitches), std::end(kSwitches), value) != std::end(kSwitches))
        return false;
    constexpr std::string_view kSecrets[] = {"password", "passwd", "passphrase", "secret"};
    return std::any_of(std::begin(kSecrets), std::end(kSecrets),
                       [&key](std::string_view word) { return key.ends_with(word); });
}

bool holds_secret(const std::string &path) {
    constexpr size_t kLimit = 1 << 20;
    int error = 0;
    const std::string content = content_of(path, kLimit, error);
    const std::vector<Line> lines = classified_lines(content);
    return std::any_of(lines.begin(), lines.end(), is_secret);
}

void report_permissions(Findings &findings, const ConfigurationFile &file) {
    const mode_t mode = file.status.st_mode;
    const std::string name = file.path + " (" + mode_text(file.status) + ")";
    if ((mode & S_IWOTH) != 0)
        findings.fail("everybody may write to " + name, "chmod o-w " + shell_word(file.path));
    if ((mode & S_IROTH) != 0 && holds_secret(file.path))
        findings.warn("everybody may read the secrets in " + name, "chmod o-rwx " + shell_word(file.path));
    if ((mode & (S_ISUID | S_ISGID)) != 0)
        findings.warn("a set-id bit is on " + name, "chmod ug-s " + shell_word(file.path));
}

// Without any of the folders there is nothing to report.
bool is_one_there(const Places &places) {
    return std::any_of(places.configurations.begin(), places.configurations.end(), [](const std::string &folder) {
        struct stat status {};
        return stat(folder.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
    });
}

void report_folder(Findings &findings, const std::string &folder, bool is_named) {
    struct stat status {};
    if (stat(folder.c_str(), &status) != 0) {
        const std::string what = folder + ": " + error_text(errno);
        const std::string remedy = "name the folder of the configuration with --config";
        return is_named ? findings.fail(what, remedy) : findings.warn(what, remedy);
    }
    if (!S_ISDIR(status.st_mode))
        return findings.fail(folder + " is not a folder", "name the folder of the configuration with --config");

    if ((status.st_mode & S_IWOTH) != 0 && (status.st_mode & S_ISVTX) == 0)
        findings.fail("everybody may replace what is in " + folder + " (" + mode_text(status) + ")",
                      "chmod o-w " + shell_word(folder));
    std::vector<std::string> unreadable;
    const size_t count = configuration_files(folder, &unreadable).size();
    for (const std::string &path : unreadable)
        findings.warn(path + " can't be read", "look again as root: sudo korvex doctor");
    if (unreadable.empty())
        findings.ok(folder + " has " + count_text(count, "file", "files"));
}

}  // namespace

void check_configuration_folders(const Places &places, Findings &findings) {
    for (const std::string &folder : places.configurations)
        report_folder(findings, folder, places.are_named);
}

void check_leftovers(const Places &places, Findings &findings) {
    for (const std::string &folder : places.configurations)
        for (const ConfigurationFile &file : configuration_files(folder))
            if (has_temporary_name(file.path) && !is_in_work(file.status))
                findings.warn(file.path + " was left behind by a change that did not end",
                              "if you don't miss what is in it: rm " + shell_word(file.path));
    if (is_one_there(places))
        findings.ok_unless_more("no temporary file was left beside the configuration");
}

void check_permissions(const Places &places, Findings &findings) {
    for (const std::string &folder : places.configurations)
        for (const ConfigurationFile &file : configuration_files(folder))
            report_permissions(findings, file);
    if (is_one_there(places))
        findings.ok_unless_more("no configuration file is open to more people than it should be");
}

}  // namespace korvex::cli::doctor
