// Looking up and changing one list of pairs.
#include <cstdlib>
#include <cstring>

#include "base/message.h"
#include "nodes.h"

namespace korvex::conffile {

int32_t copy_value(const char *value, char *buffer, int32_t *size) {
    const size_t length = std::strlen(value);
    const bool fits = static_cast<int64_t>(length) < *size;
    if (fits)
        std::memcpy(buffer, value, length + 1);

    *size = static_cast<int32_t>(length + 1);
    return fits ? 0 : -EOVERFLOW;
}

int64_t to_number(const char *value) {
    constexpr int kDecimal = 10;
    return std::strtoll(value, nullptr, kDecimal);
}

namespace {

// The address of the pointer to the first pair of that key. If there is none, the address of the null at the list's end.
Pair_Node **find_pair(Pair_Node **head, const char *key) {
    Pair_Node **link = head;
    while (*link != nullptr && std::strcmp((*link)->szKey, key) != 0)
        link = &(*link)->pNext;
    return link;
}

void remove_pair(Pair_Node **link) {
    PairList removed(*link);
    *link = removed->pNext;
    removed->pNext = nullptr;
}

template <class Integer>
int32_t get_narrow(const Pair_Node *pairs, const char *key, Integer *target) {
    if (pairs == nullptr || key == nullptr || target == nullptr)
        return -EINVAL;

    int64_t value = 0;
    const int32_t result = Get_Pair_Int64_Value(pairs, key, &value);
    return result < 0 ? result : store_narrowed(value, target);
}

}  // namespace
}  // namespace korvex::conffile

using namespace korvex::conffile;

int32_t Get_Pair_String_Buffer(const Pair_Node *pPairs, const char *pszKey, char **ppszValue) {
    if (pPairs == nullptr || pszKey == nullptr || ppszValue == nullptr)
        return -EINVAL;

    for (const Pair_Node *pair = pPairs; pair != nullptr; pair = pair->pNext)
        if (std::strcmp(pair->szKey, pszKey) == 0) {
            *ppszValue = pair->pszValue;
            return 0;
        }
    return -ENODATA;
}

int32_t Get_Pair_String_Value(const Pair_Node *pPairs, const char *pszKey, char *pszBuf, int32_t *pnSize) {
    if (pPairs == nullptr || pszKey == nullptr || pszBuf == nullptr || pnSize == nullptr)
        return -EINVAL;

    char *value = nullptr;
    const int32_t result = Get_Pair_String_Buffer(pPairs, pszKey, &value);
    return result < 0 ? result : copy_value(value, pszBuf, pnSize);
}

int32_t Get_Pair_Int64_Value(const Pair_Node *pPairs, const char *pszKey, int64_t *pllValue) {
    if (pPairs == nullptr || pszKey == nullptr || pllValue == nullptr)
        return -EINVAL;

    char *value = nullptr;
    const int32_t result = Get_Pair_String_Buffer(pPairs, pszKey, &value);
    if (result < 0)
        return result;

    *pllValue = to_number(value);
    return 0;
}

int32_t Get_Pair_Int8_Value(const Pair_Node *pPairs, const char *pszKey, int8_t *pnValue) {
    return get_narrow(pPairs, pszKey, pnValue);
}

int32_t Get_Pair_Int16_Value(const Pair_Node *pPairs, const char *pszKey, int16_t *pnValue) {
    return get_narrow(pPairs, pszKey, pnValue);
}

int32_t Get_Pair_Int32_Value(const Pair_Node *pPairs, const char *pszKey, int32_t *pnValue) {
    return get_narrow(pPairs, pszKey, pnValue);
}

int32_t Set_Pair_String_Value(Pair_Node **ppPairs, const char *pszKey, const char *pszValue) {
    if (ppPairs == nullptr || pszKey == nullptr)
        return -EINVAL;

    Pair_Node **link = find_pair(ppPairs, pszKey);
    Pair_Node *found = *link;
    if (pszValue == nullptr) {
        if (found != nullptr)
            remove_pair(link);
        return 0;
    }

    // Written in the old value's place where there is room. The new value may be the node's own text, or a part of it.
    const size_t length = std::strlen(pszValue);
    if (found != nullptr && length <= std::strlen(found->pszValue)) {
        std::memmove(found->pszValue, pszValue, length + 1);
        return 0;
    }

    Pair_Node *created = nullptr;
    const int32_t result = Create_Pair_Node(&created, pszKey, pszValue);
    if (result < 0) {
        LOG_DEBUG("Can't create a pair node error! (%d, %s, %s)\n", result, pszKey, pszValue);
        return result;
    }

    if (found != nullptr)
        remove_pair(link);
    created->pNext = *link;
    *link = created;
    return 0;
}

int32_t Set_Pair_Integer_Value(Pair_Node **ppPairs, const char *pszKey, int64_t llValue) {
    if (ppPairs == nullptr || pszKey == nullptr)
        return -EINVAL;

    return Set_Pair_String_Value(ppPairs, pszKey, DecimalText(llValue).c_str());
}
