// The trees that the walks go over.
#pragma once

#include <string>

#include "sweep.h"

namespace faults {

// Folders "from" of one entry each, so that the order in which a folder gives its entries does not matter.
void put_tree_of_file(Trial &trial);
void put_tree_of_link(Trial &trial);
void put_tree_of_folder(Trial &trial);
// One of all of them: "file", "link", and "sub" with another file.
void put_full_tree(Trial &trial);

// The blocks of a walk over a tree with one subfolder, in the order in which they are taken.
namespace walk_block {
constexpr int read_buffer = 1;
constexpr int pending_folder = 2;  // its place on the stack
}  // namespace walk_block

}  // namespace faults
