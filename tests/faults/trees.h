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

}  // namespace faults
