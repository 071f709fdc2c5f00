// Optional programs and libraries, the clock, and the room for logs.
#include <dlfcn.h>
#include <link.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <regex>
#include <string>

#include "cli.h"
#include "doctor/check.h"
#include "socket.h"

namespace korvex::cli::doctor {
namespace {

// --- OpenSSL ---

// The file of the loaded libssl; empty where the process has none.
std::string loaded_libssl() {
    std::string path;
    dl_iterate_phdr(
        [](dl_phdr_info *object, size_t, void *found) {
            const std::string_view name = object->dlpi_name;
            if (name.find("/libssl.so") == std::string_view::npos)
                return 0;
            *static_cast<std::string *>(found) = name;
            return 1;
        },
        &path);
    return path;
}

std::string version_of(const std::string &libssl) {
    void *const library = dlopen(libssl.c_str(), RTLD_NOW | RTLD_NOLOAD);
    if (library == nullptr)
        return {};
    using VersionFunction = const char *(*)(int);
    const auto version = reinterpret_cast<VersionFunction>(dlsym(library, "OpenSSL_version"));
    std::string text = version == nullptr ? "" : version(0);
    dlclose(library);
    return text;
}

// --- the clock ---

constexpr time_t kEarliest = 1704067200;  // 2024-01-01, before the first release
constexpr time_t kTolerance = 86400;      // what a wrong time zone may make of a file's time

std::string time_text(time_t seconds) {
    tm parts{};
    char text[64];
    gmtime_r(&seconds, &parts);
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M UTC", &parts);
    return text;
}

// The files whose time lies ahead of the clock.
struct Later {
    time_t now;
    std::string path = {};
    time_t time = 0;
    size_t count = 0;

    void look(const std::string &file, const struct stat &status) {
        if (status.st_mtim.tv_sec <= now + kTolerance)
            return;
        ++count;
        if (status.st_mtim.tv_sec > time) {
            time = status.st_mtim.tv_sec;
            path = file;
        }
    }
};

// --- the time zone ---

bool is_zone_file(const std::string &path) {
    int error = 0;
    return content_of(path, 4, error) == "TZif";
}

// A zone that is written out, as POSIX has it: "CET-1CEST,M3.5.0,M10.5.0/3".
bool is_written_out(const std::string &zone) {
    static const std::regex form("([A-Za-z]{3,}|<[A-Za-z0-9+-]{3,}>)[+-]?[0-9]{1,2}.*");
    return std::regex_match(zone, form);
}

std::string local_offset() {
    const time_t now = std::time(nullptr);
    tm parts{};
    char text[64];
    tzset();
    localtime_r(&now, &parts);
    std::strftime(text, sizeof text, "%Z (%z)", &parts);
    return text;
}

void report_named_zone(Findings &findings, const std::string &zone) {
    const std::string name = zone.substr(zone.starts_with(':') ? 1 : 0);
    const char *const folder = std::getenv("TZDIR");
    const std::string path =
        name.starts_with('/') ? name : std::string(folder == nullptr ? "/usr/share/zoneinfo" : folder) + "/" + name;
    if (name.empty() || is_zone_file(path) || is_written_out(name))
        findings.ok("times are in " + local_offset() + ", by TZ");
    else
        findings.warn("TZ is '" + zone + "', which is no time zone: times are in UTC",
                      "set it to a name below /usr/share/zoneinfo, or unset it");
}

}  // namespace

void check_identification(const Places &, Findings &findings) {
    const std::string path = "/usr/local/sbin/blkid";
    struct stat status {};
    if (stat(path.c_str(), &status) != 0)
        return findings.warn(path + ": " + error_text(errno) + ", so no block device is identified",
                             "ln -s \"$(command -v blkid)\" " + path);
    if (!S_ISREG(status.st_mode) || (status.st_mode & (S_IXUSR | S_IXGRP | S_IXOTH)) == 0)
        return findings.fail(path + " is no program", "chmod +x " + path);
    if ((status.st_mode & S_IWOTH) != 0 || (status.st_uid != 0 && status.st_uid != geteuid()))
        return findings.fail("others may change " + path + ", which root runs",
                             "chown root " + path + "; chmod go-w " + path);
    findings.ok(path + " is there");
}

void check_openssl(const Places &, Findings &findings) {
    // The file holds no certificate. But the library looks for OpenSSL before it finds that out.
    SSL_CTX *context = nullptr;
    const int32_t code = CTX_Initialize("/dev/null", "", "/dev/null", &context);
    if (context != nullptr)
        CTX_Destroy(context);
    if (code == -EOPNOTSUPP)
        return findings.warn("no OpenSSL is found, so there is no TLS", "install it: apt-get install libssl3");
    const std::string path = loaded_libssl();
    const std::string version = version_of(path);
    findings.ok((version.empty() ? "OpenSSL" : version) + " is found" + (path.empty() ? "" : ", " + path));
}

void check_clock(const Places &places, Findings &findings) {
    Later later{.now = std::time(nullptr)};
    if (later.now < kEarliest)
        return findings.fail("the clock is wrong, it says " + time_text(later.now),
                             "set it: locks and logs are stamped by it");

    struct stat status {};
    if (stat("/proc/self/exe", &status) == 0)
        later.look("this program", status);
    for (const std::string &folder : places.configurations)
        for (const ConfigurationFile &file : configuration_files(folder))
            later.look(file.path, file.status);
    if (later.count > 0)
        return findings.warn("the clock says " + time_text(later.now) + ", but " +
                                 count_text(later.count, "file is", "files are") + " dated later, such as " +
                                 later.path + " (" + time_text(later.time) + ")",
                             "set the clock, or, where it is right: touch the files");
    findings.ok("the clock says " + time_text(later.now));
}

void check_time_zone(const Places &, Findings &findings) {
    if (const char *const zone = std::getenv("TZ"); zone != nullptr)
        return report_named_zone(findings, zone);
    struct stat status {};
    if (lstat("/etc/localtime", &status) != 0)
        return findings.warn("/etc/localtime: " + error_text(errno) + ", so times are in UTC",
                             "ln -s /usr/share/zoneinfo/ZONE /etc/localtime");
    if (!is_zone_file("/etc/localtime"))
        return findings.warn("/etc/localtime can't be read as a time zone, so times are in UTC",
                             "install the zones (tzdata), or: ln -sf /usr/share/zoneinfo/ZONE /etc/localtime");
    findings.ok("times are in " + local_offset());
}

void check_log_room(const Places &places, Findings &findings) {
    report_room(findings, places.logs, 1 << 20, 64 << 20);
}

}  // namespace korvex::cli::doctor
