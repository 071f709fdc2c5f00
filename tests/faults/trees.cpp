#include "trees.h"

#include <sys/stat.h>
#include <unistd.h>

namespace faults {
namespace {

void put_folder(Trial &trial, const std::string &name) {
    trial.check(mkdir(trial.path(name).c_str(), 0750) == 0, "a folder for the tree");
}

void put_file(Trial &trial, const std::string &name) {
    chmod(trial.file(name, "content").c_str(), 0640);
}

void put_link(Trial &trial, const std::string &name) {
    trial.check(symlink("nowhere", trial.path(name).c_str()) == 0, "a link for the tree");
}

}  // namespace

void put_tree_of_file(Trial &trial) {
    put_folder(trial, "from");
    put_file(trial, "from/file");
}

void put_tree_of_link(Trial &trial) {
    put_folder(trial, "from");
    put_link(trial, "from/link");
}

void put_tree_of_folder(Trial &trial) {
    put_folder(trial, "from");
    put_folder(trial, "from/sub");
}

void put_full_tree(Trial &trial) {
    put_folder(trial, "from");
    put_file(trial, "from/file");
    put_link(trial, "from/link");
    put_folder(trial, "from/sub");
    put_file(trial, "from/sub/file");
}

}  // namespace faults
