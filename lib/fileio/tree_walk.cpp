#include "tree_walk.h"

#include <fcntl.h>

#include <array>
#include <cerrno>

#include "fileio.h"
#include "path_status.h"

namespace korvex::fileio {

int32_t name_tree(TreePath &path, int32_t descriptor, const char *name) {
    if (descriptor == AT_FDCWD || name[0] == '/')
        return path.assign({name}) ? 0 : -ENAMETOOLONG;

    std::array<char, kPathSize - 2> folder;
    const int32_t length = Get_FD_Path(descriptor, folder.data(), static_cast<int32_t>(folder.size()));
    if (length < 0)
        return -EINVAL;
    return path.assign({{folder.data(), static_cast<size_t>(length)}, "/", name}) ? 0 : -ENAMETOOLONG;
}

}  // namespace korvex::fileio
