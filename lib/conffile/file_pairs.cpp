// Setting several keys of one section of a file through its nodes.
#include <cerrno>

#include "base/message.h"
#include "file_lock.h"
#include "file_nodes.h"
#include "nodes.h"

namespace korvex::conffile {
namespace {

constexpr const char *kFunction = "Set_Conf_File_Pair_Values";

// Makes the first section of a configuration, with copies of all the pairs. False when one can't be made.
bool begin_list(Sect_Node **head, const char *section, const Pair_Node *pairs) {
    int32_t result = Create_Sect_Node(head, section);
    if (result < 0) {
        LOG_DEBUG_AS(kFunction, "Can'r create a sect node error! (%d, %s)\n", result, section);
        return false;
    }

    Pair_Node **end = &(*head)->pPairs;
    for (const Pair_Node *pair = pairs; pair != nullptr; pair = pair->pNext) {
        result = Create_Pair_Node(end, pair->szKey, pair->pszValue);
        if (result < 0) {
            LOG_DEBUG_AS(kFunction, "Can't create a pair node error! (%d, %s, %s)\n", result, pair->szKey,
                         pair->pszValue);
            return false;
        }
        end = &(*end)->pNext;
    }
    return true;
}

bool set_each(Sect_Node *head, const char *section, const Pair_Node *pairs) {
    for (const Pair_Node *pair = pairs; pair != nullptr; pair = pair->pNext) {
        const int32_t result = Set_Conf_String_Value(head, section, pair->szKey, pair->pszValue);
        if (result != 0) {
            LOG_DEBUG_AS(kFunction, "Can't set conf string %p/%s/%s/%s error! (%d)\n", static_cast<void *>(head),
                         section, pair->szKey, pair->pszValue, result);
            return false;
        }
    }
    return true;
}

}  // namespace
}  // namespace korvex::conffile

using namespace korvex::conffile;

// 0 for every outcome after the argument checks, by contract.
int32_t Set_Conf_File_Pair_Values(const char *pszPath, const char *pszSection, const Pair_Node *pPairs) {
    if (pszPath == nullptr || pszSection == nullptr || pPairs == nullptr)
        return -EINVAL;

    const FileLock lock(pszPath, __func__);
    if (!lock.held())
        return 0;

    FileNodes file(pszPath, __func__);
    if (file.read_or_begin() < 0)
        return 0;

    const bool set =
        file.head == nullptr ? begin_list(&file.head, pszSection, pPairs) : set_each(file.head, pszSection, pPairs);
    if (set)
        (void)file.write();  // reported by its message alone
    return 0;
}
