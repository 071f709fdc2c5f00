// Files, and a socket's name, that must not stay behind.
#pragma once

#include <sys/types.h>

#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "process/stop_signals.h"

namespace korvex::cli {

// Removes files when it ends, and before SIGINT, SIGTERM or SIGHUP end the process, at whatever moment they come. A name
// that has got another file since is not touched.
class UnfinishedFiles {
  public:
    UnfinishedFiles();
    ~UnfinishedFiles();

    // Makes a file by `make`, which returns its path, and removes it in the end. No signal comes between the two.
    void add(const std::function<std::string()> &make);
    // The file is to stay: moves it to its own name by `move`. Where that throws, the file is still removed in the end.
    void finish(const std::string &path, const std::function<void()> &move);
    void remove(const std::string &path);

  private:
    struct File {
        std::string path;
        dev_t device;
        ino_t inode;
    };

    void end_process(int signal);
    void forget(const std::string &path);
    void remove_all();
    static void remove_if_same(const File &file);

    std::mutex mutex_;
    std::vector<File> files_;
    SignalThread signals_;
};

}  // namespace korvex::cli
