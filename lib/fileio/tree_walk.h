// What the three walks over a folder tree share: the paths that grow and shrink, and the stack of folders that are still
// to be visited. What a walk does on its way is its own.
//
// A walk goes depth-first without recursion. It reads one folder to its end, closes it, and pushes each subfolder; then
// it goes down into the one found last. Coming back up, it finds that folder marked as visited on top of the stack.
// Paths are what messages show and what is bounded; folders are reached through a HeldTree.
#pragma once

#include <sys/stat.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

#include "base/handles.h"
#include "base/path_buffer.h"

namespace korvex::fileio {

// A path on the stack of the call: room for 4095 bytes and the NUL.
using TreePath = PathBuffer<kPathSize>;

// The folders that the walk is in or has yet to visit, each with what the walk found out about it.
template <class Found>
class PendingFolders final {
  public:
    // Its name follows the last field.
    struct Node {
        Node *below;
        Found found;
        uint16_t name_length;
        bool visited;

        // NOLINTNEXTLINE(bugprone-sizeof-expression,bugprone-dynamic-static-initializers): a link's size; a constant
        static constexpr size_t kNamePlace = sizeof(Node *) + sizeof(Found) + sizeof(uint16_t) + sizeof(bool);
        char *name() { return reinterpret_cast<char *>(this) + kNamePlace; }
    };

    PendingFolders() = default;
    ~PendingFolders() {
        while (top_ != nullptr)
            pop();
    }
    PendingFolders(const PendingFolders &) = delete;
    PendingFolders &operator=(const PendingFolders &) = delete;

    // False without memory.
    [[nodiscard]] bool push(std::string_view name, const Found &found) {
        static_assert(offsetof(Node, visited) + sizeof(bool) == Node::kNamePlace);
        auto *node = static_cast<Node *>(std::malloc(std::max(sizeof(Node), Node::kNamePlace + name.size() + 1)));
        if (node == nullptr)
            return false;

        node->below = top_;
        node->found = found;
        node->name_length = static_cast<uint16_t>(name.size());
        node->visited = false;
        std::memcpy(node->name(), name.data(), name.size());
        node->name()[name.size()] = '\0';
        top_ = node;
        return true;
    }

    void pop() { MallocPtr<Node>(std::exchange(top_, top_->below)).reset(); }

    bool empty() const { return top_ == nullptr; }
    Node &top() { return *top_; }

  private:
    Node *top_ = nullptr;
};

// Writes the path of a folder, given by a descriptor and a name, into `path`; absolute if the name is relative to a
// descriptor.
// 0, -EINVAL for a descriptor without a path, or -ENAMETOOLONG.
[[nodiscard]] int32_t name_tree(TreePath &path, int32_t descriptor, const char *name);

// Whether a name, and a "/", have room behind the path of a folder.
[[nodiscard]] inline bool fits(const TreePath &path, std::string_view name) {
    return path.size() + name.size() + 1 < kPathSize;
}

// Ends the path with one "/". False where there is no room.
[[nodiscard]] inline bool end_with_slash(TreePath &path) {
    return path.back() == '/' || path.append("/");
}

}  // namespace korvex::fileio
