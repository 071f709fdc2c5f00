// Making and freeing nodes.
#include "nodes.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "base/handles.h"
#include "base/texts.h"

namespace korvex::conffile {
Sect_Node *new_section(std::string_view name) {
    auto *section = static_cast<Sect_Node *>(std::malloc(section_size(name)));
    if (section == nullptr)
        return nullptr;

    section->pNext = nullptr;
    section->pPairs = nullptr;
    put_text(section->szName, name);
    return section;
}

Pair_Node *new_pair(std::string_view key, std::string_view value) {
    auto *pair = static_cast<Pair_Node *>(std::malloc(pair_size(key, value)));
    if (pair == nullptr)
        return nullptr;

    pair->pNext = nullptr;
    pair->pszValue = put_text(pair->szKey, key);
    put_text(pair->pszValue, value);
    return pair;
}

}  // namespace korvex::conffile

using namespace korvex;
using namespace korvex::conffile;

int32_t Create_Pair_Node(Pair_Node **ppNode, const char *pszKey, const char *pszValue) {
    if (ppNode == nullptr || pszKey == nullptr || pszValue == nullptr)
        return -EINVAL;

    *ppNode = new_pair(pszKey, pszValue);
    return *ppNode != nullptr ? 0 : -ENOMEM;
}

int32_t Create_Integer_Pair_Node(Pair_Node **ppNode, const char *pszKey, int64_t llValue) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%lld", static_cast<long long>(llValue));
    return Create_Pair_Node(ppNode, pszKey, text.data());
}

int32_t Create_Sect_Node(Sect_Node **ppNode, const char *pszName) {
    if (ppNode == nullptr || pszName == nullptr)
        return -EINVAL;

    *ppNode = new_section(pszName);
    return *ppNode != nullptr ? 0 : -ENOMEM;
}

void Free_Pair_Node(Pair_Node *pNode) {
    while (pNode != nullptr)
        MallocPtr<Pair_Node>(std::exchange(pNode, pNode->pNext)).reset();
}

void Free_Sect_Node(Sect_Node *pNode) {
    while (pNode != nullptr) {
        Free_Pair_Node(pNode->pPairs);
        MallocPtr<Sect_Node>(std::exchange(pNode, pNode->pNext)).reset();
    }
}
