// Whole sections of a file: fetched, replaced, appended, removed, merged.
#include <cerrno>
#include <utility>

#include "base/message.h"
#include "file_lock.h"
#include "file_nodes.h"
#include "nodes.h"

namespace korvex::conffile {
namespace {

// Takes the section out of the list that `link` leads to.
Sect_Node *detach(Sect_Node **link) {
    Sect_Node *section = *link;
    *link = std::exchange(section->pNext, nullptr);
    return section;
}

}  // namespace
}  // namespace korvex::conffile

using namespace korvex::conffile;

int32_t Get_Conf_File_Section(const char *pszPath, const char *pszSection, Sect_Node **ppSection) {
    if (pszPath == nullptr || pszSection == nullptr || ppSection == nullptr)
        return -EINVAL;

    *ppSection = nullptr;
    Sect_Node *head = nullptr;
    const int32_t result = Read_Conf_File(pszPath, &head);
    if (result < 0)
        return result;

    Sect_Node **link = find_section(&head, pszSection);
    if (*link != nullptr)
        *ppSection = detach(link);
    Free_Sect_Node(head);
    return *ppSection != nullptr ? 0 : -ENOANO;
}

int32_t Set_Conf_File_Section(const char *pszPath, const char *pszSection, Sect_Node *pSection) {
    if (pszPath == nullptr || pszSection == nullptr)
        return -EINVAL;

    const FileLock lock(pszPath, __func__);
    if (!lock.held())
        return -ENOLCK;

    FileNodes file(pszPath, __func__);
    int32_t result = file.read_or_begin();
    if (result < 0)
        return result;

    Sect_Node **link = find_section(&file.head, pszSection);
    if (*link != nullptr)
        Free_Sect_Node(detach(link));
    else if (pSection == nullptr)
        return file.missing() ? -ENOENT : -ENOANO;

    // The caller's node is in the list for the time of the write only.
    if (pSection != nullptr)
        pSection->pNext = std::exchange(*link, pSection);
    result = file.write();
    if (pSection != nullptr)
        detach(link);
    return result;
}

int32_t Update_Conf_File_Section(const char *pszPath, const char *pszSection, const Sect_Node *pSection) {
    if (pszPath == nullptr || pszSection == nullptr || pSection == nullptr)
        return -EINVAL;

    const FileLock lock(pszPath, __func__);
    if (!lock.held())
        return -ENOLCK;

    FileNodes file(pszPath, __func__);
    int32_t result = file.read();
    if (result < 0)
        return result;

    Sect_Node *section = *find_section(&file.head, pszSection);
    if (section == nullptr)
        return -ENOANO;

    for (const Pair_Node *pair = pSection->pPairs; pair != nullptr; pair = pair->pNext) {
        result = Set_Pair_String_Value(&section->pPairs, pair->szKey, pair->pszValue);
        if (result != 0) {
            LOG_ERROR("Can't set pair string %s %s! (%d)\n", pair->szKey, pair->pszValue, result);
            return result;
        }
    }
    return file.write();
}
