// What a neighbour plants in his folder. All of it throws where it does not succeed.
#pragma once

#include <string>

namespace neighbours {

void plant_link(const std::string &target, const std::string &name);
void plant_pipe(const std::string &name);
void plant_socket(const std::string &name);
// Must run as root, which stands for a kernel that lets everybody do it: see world.h.
void plant_hard_link(const std::string &file, const std::string &name);

// Swaps two names in one step (RENAME_EXCHANGE): at no time is either of them missing.
void exchange(const std::string &one, const std::string &other);
// Puts `source` where `name` is, which goes, in one step.
void replace(const std::string &source, const std::string &name);
void unlink_name(const std::string &name);
void make_folder(const std::string &name);

// A chain of links that ends at `target`. Each of them leads through 1,300 steps down and up again, 39 of them one after
// the other: so looking its name up takes the kernel about a millisecond and more, which is the time to swap something
// within one system call. `folder` must not exist; what is returned is the chain's entrance.
std::string plant_maze(const std::string &folder, const std::string &target);

}  // namespace neighbours
