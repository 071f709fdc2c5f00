// What tree_bench and tree_growth do in processes of their own: each of these programs runs itself with a job as its
// argument.
#pragma once

#include <string>

#include "commands.h"

namespace bench {

// A folder of that many folders with so many files of `bytes` bytes each.
void make_tree(const std::string &path, size_t folders, size_t files, size_t bytes = 100);

// A tree as text: equal texts, equal trees, as far as a measuring shows it.
std::string measured(const std::string &path);

// This program with a job: "measure", "remove", "copy", "copy-file" and "copy-data" by the library, "fs-measure",
// "fs-remove" and "fs-copy" by std::filesystem, "bare-copy" by read and write, and "make" with the files of each of 100
// folders in place of a target. Most need only the source.
Command work(const std::string &job, const std::string &source, const std::string &target = "");

// Does the job of such arguments and ends the program; returns where there are none.
void work_if_asked(int argc, char **argv);

// cp as it does the job of Copy_Folder_Tree.
Command cp_command(const std::string &source, const std::string &target);

}  // namespace bench
