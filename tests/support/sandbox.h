// A private world for the test program: nothing that a test does under the fixed paths of the library reaches the
// machine's own.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace support {

// Puts this process into a mount namespace of its own with an empty /var/lock, and with an /etc in which "localhost" is
// the only name of a host, as 127.0.0.1 and ::1. Where that is not permitted it says so on standard error and ends the
// program with the exit status that CTest counts as "skipped".
void enter_sandbox();

// Exit status of a test program that can't run on this machine.
constexpr int kSkipStatus = 77;

// A folder of its own under the system's folder for temporary files, removed with all that is in it.
class TempFolder {
  public:
    TempFolder();
    ~TempFolder();
    TempFolder(const TempFolder &) = delete;
    TempFolder &operator=(const TempFolder &) = delete;

    std::string path() const { return path_; }
    std::string path(const std::string &name) const { return path_ + "/" + name; }
    // Writes a file in it and returns its path.
    std::string file(const std::string &name, const std::string &content) const;
    // The names in it, sorted.
    std::vector<std::string> names() const;

  private:
    std::string path_;
};

// A small tmpfs, mounted for as long as the object lives.
class SmallDisk {
  public:
    explicit SmallDisk(int64_t bytes);
    ~SmallDisk();
    SmallDisk(const SmallDisk &) = delete;
    SmallDisk &operator=(const SmallDisk &) = delete;

    std::string path(const std::string &name) const { return folder_.path(name); }
    std::string file(const std::string &name, const std::string &content) const { return folder_.file(name, content); }
    std::vector<std::string> names() const { return folder_.names(); }
    // Leaves at most `bytes` free.
    void fill_up_to(int64_t bytes) const;

  private:
    TempFolder folder_;
};

// Shows a file or a folder of the test at the place of another one for as long as the object lives.
class BindMount {
  public:
    BindMount(const std::string &source, const std::string &target);
    ~BindMount();
    BindMount(const BindMount &) = delete;
    BindMount &operator=(const BindMount &) = delete;

  private:
    std::string target_;
};

std::string read_file(const std::string &path);
void write_file(const std::string &path, const std::string &content);
bool exists(const std::string &path);

// The open descriptors of this process: number and what each leads to. Equal before and after: nothing leaked.
std::map<int, std::string> open_descriptors();

// Runs `body` in a child process and returns its exit status (what `body` returned), or 128 plus the signal's number.
int in_child(const std::function<int()> &body);
pid_t start_child(const std::function<int()> &body);
int wait_for(pid_t child);

// As `in_child`, with `body` run by an unprivileged user. Only a privileged program can do that: see `can_be_nobody`.
int in_child_as_nobody(const std::function<int()> &body);
bool can_be_nobody();

// A process id that belonged to a process that has ended.
pid_t dead_process();

// Runs `body` with standard output led into a text, which is returned.
std::string capture_stdout(const std::function<void()> &body);

}  // namespace support
