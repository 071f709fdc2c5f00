#include "sample_appliance.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "sandbox.h"

namespace fs = std::filesystem;

namespace sysinfo_test {
namespace {

// Every machine has this folder; in the program's own world it is where the new root is built.
const std::string kRoot = "/mnt";

// What a test fills: each is a file system of its own, gone with all that is mounted below it at the test's end.
const char *const kFilled[] = {"/share", "/etc/config", "/sys/block", "/usr/local/sbin"};

const std::string kTool = "/usr/local/sbin/blkid";
const std::string kToolOutput = "/etc/config/tool_output";

[[noreturn]] void skip_program(const std::string &step) {
    std::fprintf(stderr, "SKIPPED: this machine does not let the tests have a root folder of their own (%s: %s)\n",
                 step.c_str(), std::strerror(errno));
    std::_Exit(support::kSkipStatus);
}

void require(int result, const std::string &step) {
    if (result != 0)
        skip_program(step);
}

void mount_tmpfs(const std::string &path) {
    require(mount("korvex-test", path.c_str(), "tmpfs", 0, "size=64m,mode=755"), "tmpfs on " + path);
}

void bind(const std::string &path) {
    require(mount(path.c_str(), (kRoot + path).c_str(), nullptr, MS_BIND | MS_REC, nullptr), "bind " + path);
}

// Shows the machine's folders in the new root, all but those that the appliance has for itself.
void show_machine() {
    for (const auto &entry : fs::directory_iterator("/")) {
        const std::string path = entry.path();
        if (path == kRoot || path == "/share" || path == "/etc" || path == "/dev")
            continue;

        if (entry.is_symlink()) {
            fs::copy_symlink(path, kRoot + path);
        } else if (entry.is_directory()) {
            fs::create_directory(kRoot + path);
            bind(path);
        }
    }
}

void make_devices() {
    fs::create_directory(kRoot + "/dev");
    for (const char *device : {"/dev/null", "/dev/zero", "/dev/random", "/dev/urandom", "/dev/tty"}) {
        support::write_file(kRoot + device, "");
        bind(device);
    }
    fs::create_symlink("/proc/self/fd", kRoot + "/dev/fd");
}

// The tool, the shell that runs it, and the test program itself find their libraries sooner by the loader's cache.
void make_etc() {
    fs::create_directories(kRoot + "/etc/config");
    std::error_code ignored;
    fs::copy_file("/etc/ld.so.cache", kRoot + "/etc/ld.so.cache", ignored);
}

void move_into_own_root() {
    mount_tmpfs(kRoot);
    show_machine();
    make_devices();
    make_etc();
    fs::create_directory(kRoot + "/share");
    fs::create_directory(kRoot + kRoot);
    require(chroot(kRoot.c_str()), "chroot");
    require(chdir("/"), "chdir");
}

}  // namespace

Appliance::Appliance() {
    [[maybe_unused]] static const bool moved = (move_into_own_root(), true);
    for (const char *path : kFilled)
        mount_tmpfs(path);
    fs::remove("/etc/mtab");
    fs::remove("/dev/NULL");
}

Appliance::~Appliance() {
    for (const char *path : kFilled)
        umount2(path, MNT_DETACH);
}

void Appliance::folder(const std::string &path) const {
    fs::create_directories(path);
}

void Appliance::volume(const std::string &path) const {
    folder(path);
    mount_tmpfs(path);
}

void Appliance::link(const std::string &target, const std::string &name) const {
    fs::create_symlink(target, "/share/" + name);
}

void Appliance::share(const std::string &target, const std::string &name) const {
    folder("/share/" + target);
    link(target, name);
}

void Appliance::mount_table(const std::string &lines) const {
    support::write_file("/etc/mtab", lines);
}

void Appliance::mount_table_of_kernel() const {
    fs::remove("/etc/mtab");
    fs::create_symlink("/proc/self/mounts", "/etc/mtab");
}

void Appliance::share_options(const std::string &text) const {
    support::write_file("/etc/config/smb.conf", text);
}

void Appliance::tool_prints(const std::string &lines) const {
    support::write_file(kToolOutput, lines);
    tool_runs("exec cat " + kToolOutput);
}

void Appliance::tool_runs(const std::string &script) const {
    support::write_file(kTool, "#!/bin/sh\n" + script + "\n");
    if (chmod(kTool.c_str(), 0755) != 0)
        throw std::system_error(errno, std::generic_category(), kTool);
}

void Appliance::disk(const std::string &name, const std::string &sectors, const std::string &model,
                     const std::string &vendor) const {
    const std::string folder_of_disk = "/sys/block/" + name;
    folder(folder_of_disk + "/device");
    support::write_file(folder_of_disk + "/size", sectors);
    support::write_file(folder_of_disk + "/device/model", model);
    support::write_file(folder_of_disk + "/device/vendor", vendor);
}

void Appliance::partition(const std::string &disk, const std::string &name, const std::string &sectors) const {
    const std::string folder_of_partition = "/sys/block/" + disk + "/" + name;
    folder(folder_of_partition);
    support::write_file(folder_of_partition + "/size", sectors);
}

void Appliance::unreadable(const std::string &attribute) const {
    fs::remove_all("/sys/block/" + attribute);
    folder("/sys/block/" + attribute);
}

ApplianceTest::ApplianceTest() : before_(support::open_descriptors()) {}

ApplianceTest::~ApplianceTest() {
    EXPECT_EQ(support::open_descriptors(), before_);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child was not waited for";
}

std::vector<std::string> messages_of(support::LogCapture &log, std::string_view function) {
    std::vector<std::string> messages = log.messages();
    std::erase_if(messages, [&](const std::string &message) {
        const size_t name = message.find("] ") + 2;
        const size_t end = message.find("(#): ");
        return end == std::string::npos || message.substr(name, end - name) != function;
    });
    return messages;
}

}  // namespace sysinfo_test
