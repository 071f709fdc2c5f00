#include "sandbox.h"

#include <grp.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace support {
namespace {

[[noreturn]] void skip_program(const char *step) {
    std::fprintf(stderr, "SKIPPED: this machine does not let the tests have a private world (%s: %s)\n", step,
                 std::strerror(errno));
    std::_Exit(kSkipStatus);
}

void enter_namespaces() {
    if (geteuid() == 0) {
        if (unshare(CLONE_NEWNS) != 0)
            skip_program("mount namespace");
        return;
    }

    const std::string uid_map = "0 " + std::to_string(geteuid()) + " 1\n";
    const std::string gid_map = "0 " + std::to_string(getegid()) + " 1\n";
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0)
        skip_program("user namespace");

    write_file("/proc/self/setgroups", "deny");
    write_file("/proc/self/uid_map", uid_map);
    write_file("/proc/self/gid_map", gid_map);
}

// What tells names and the order of their addresses, whatever the machine's files say, and without asking anybody.
constexpr std::pair<const char *, const char *> kNameFiles[] = {
    {"hosts", "127.0.0.1 localhost\n::1 localhost\n"},
    {"nsswitch.conf", "hosts: files\n"},
    {"resolv.conf", ""},
    {"gai.conf", ""},
};

// Shows these files among the machine's in /etc, from a file system that stays hidden. Where overlays can't be had, or
// no more of them, each covers the machine's own, which must be there then.
void have_own_names() {
    const std::string folder = "/var/lock/etc";
    if (mount("korvex-test", "/var/lock", "tmpfs", 0, "mode=0755") != 0)
        skip_program("files of its own");
    std::filesystem::create_directory(folder);
    chmod(folder.c_str(), 0755);
    for (const auto &[name, content] : kNameFiles) {
        write_file(folder + "/" + name, content);
        chmod((folder + "/" + name).c_str(), 0644);
    }

    const std::string layers = "lowerdir=" + folder + ":/etc";
    if (mount("korvex-test", "/etc", "overlay", MS_RDONLY, layers.c_str()) != 0)
        for (const auto &[name, content] : kNameFiles)
            if (mount((folder + "/" + name).c_str(), ("/etc/" + std::string(name)).c_str(), nullptr, MS_BIND,
                      nullptr) != 0)
                skip_program("/etc of its own");
    umount2("/var/lock", MNT_DETACH);
}

bool become_nobody() {
    constexpr uid_t nobody = 65534;
    return setgroups(0, nullptr) == 0 && setresgid(nobody, nobody, nobody) == 0 &&
           setresuid(nobody, nobody, nobody) == 0;
}

[[noreturn]] void fail(const std::string &what) {
    throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

void enter_sandbox() {
    enter_namespaces();

    if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        skip_program("private mounts");
    have_own_names();
    if (mount("korvex-test", "/var/lock", "tmpfs", 0, "size=64m,mode=1777") != 0)
        skip_program("/var/lock of its own");
}

TempFolder::TempFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "korvex-test-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr)
        fail("mkdtemp");
    path_ = name;
}

TempFolder::~TempFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::string TempFolder::file(const std::string &name, const std::string &content) const {
    write_file(path(name), content);
    return path(name);
}

std::vector<std::string> TempFolder::names() const {
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(path_))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

SmallDisk::SmallDisk(int64_t bytes) {
    const std::string options = "size=" + std::to_string(bytes) + ",mode=0777";
    if (mount("korvex-test", folder_.path().c_str(), "tmpfs", 0, options.c_str()) != 0)
        fail("mount a small disk");
}

SmallDisk::~SmallDisk() {
    umount2(folder_.path().c_str(), MNT_DETACH);
}

void SmallDisk::fill_up_to(int64_t bytes) const {
    struct statvfs status {};
    if (statvfs(folder_.path().c_str(), &status) != 0)
        fail("statvfs");

    const auto block = static_cast<int64_t>(status.f_bsize);
    const int64_t blocks = static_cast<int64_t>(status.f_bavail) - bytes / block;
    if (blocks > 0)
        write_file(path("filler"), std::string(static_cast<size_t>(blocks * block), 'x'));
}

BindMount::BindMount(const std::string &source, const std::string &target) : target_(target) {
    if (mount(source.c_str(), target.c_str(), nullptr, MS_BIND, nullptr) != 0)
        fail("mount " + source + " over " + target);
}

BindMount::~BindMount() {
    umount2(target_.c_str(), MNT_DETACH);
}

std::string read_file(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    if (!in)
        throw std::runtime_error("can't read " + path);
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

void write_file(const std::string &path, const std::string &content) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
    out.close();
    if (!out)
        throw std::runtime_error("can't write " + path);
}

bool exists(const std::string &path) {
    std::error_code ignored;
    return std::filesystem::exists(std::filesystem::symlink_status(path, ignored));
}

std::map<int, std::string> open_descriptors() {
    std::map<int, std::string> descriptors;
    const auto own = std::filesystem::canonical("/proc/self/fd");  // which is open during the look
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        const auto target = std::filesystem::read_symlink(entry.path(), gone);
        if (!gone && target != own)
            descriptors[std::stoi(entry.path().filename().string())] = target.string();
    }
    return descriptors;
}

// How a child ends. Its counters, where the library has them, are written by what is called at an orderly exit.
#ifdef KORVEX_COVERAGE
constexpr auto kEndChild = std::exit;
#else
constexpr auto kEndChild = _exit;
#endif

pid_t start_child(const std::function<int()> &body) {
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child < 0)
        fail("fork");
    // An exception ends the child: it must not run on into the parent's tests.
    if (child == 0)
        [&]() noexcept { kEndChild(body()); }();
    return child;
}

int wait_for(pid_t child) {
    int status = 0;
    while (waitpid(child, &status, 0) < 0)
        if (errno != EINTR)
            fail("waitpid");
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

int in_child(const std::function<int()> &body) {
    return wait_for(start_child(body));
}

int in_child_as_nobody(const std::function<int()> &body) {
    return in_child([&] {
        if (!become_nobody()) {
            std::perror("become an unprivileged user");
            return 1;
        }
        return body();
    });
}

bool can_be_nobody() {
    return in_child([] { return become_nobody() ? 0 : 1; }) == 0;
}

pid_t dead_process() {
    const pid_t child = start_child([] { return 0; });
    wait_for(child);
    return child;
}

std::string capture_stdout(const std::function<void()> &body) {
    std::fflush(stdout);
    FILE *file = std::tmpfile();
    const int saved = dup(STDOUT_FILENO);
    dup2(fileno(file), STDOUT_FILENO);
    body();
    std::fflush(stdout);
    dup2(saved, STDOUT_FILENO);
    close(saved);

    std::string text;
    std::rewind(file);
    for (int byte = std::fgetc(file); byte != EOF; byte = std::fgetc(file))
        text += static_cast<char>(byte);
    std::fclose(file);
    return text;
}

}  // namespace support
