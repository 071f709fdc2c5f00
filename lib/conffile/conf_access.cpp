// Looking up and changing a whole configuration: the section first, then its pairs.
#include <cstring>

#include "base/message.h"
#include "nodes.h"

namespace korvex::conffile {

Sect_Node **find_section(Sect_Node **head, const char *name) {
    Sect_Node **link = head;
    while (*link != nullptr && std::strcmp((*link)->szName, name) != 0)
        link = &(*link)->pNext;
    return link;
}

namespace {

template <class Integer>
int32_t get_narrow(const Sect_Node *conf, const char *section, const char *key, Integer *target) {
    if (conf == nullptr || section == nullptr || key == nullptr || target == nullptr)
        return -EINVAL;

    int64_t value = 0;
    const int32_t result = Get_Conf_Int64_Value(conf, section, key, &value);
    return result < 0 ? result : store_narrowed(value, target);
}

}  // namespace
}  // namespace korvex::conffile

using namespace korvex::conffile;

int32_t Get_Conf_String_Pointer(const Sect_Node *pConf, const char *pszSection, const char *pszKey, char **ppszValue) {
    if (pConf == nullptr || pszSection == nullptr || pszKey == nullptr || ppszValue == nullptr)
        return -EINVAL;

    const Sect_Node *section = pConf;
    while (section != nullptr && std::strcmp(section->szName, pszSection) != 0)
        section = section->pNext;
    if (section == nullptr)
        return -ENOANO;
    if (section->pPairs == nullptr)
        return -ENODATA;
    return Get_Pair_String_Buffer(section->pPairs, pszKey, ppszValue);
}

int32_t Get_Conf_String_Value(const Sect_Node *pConf, const char *pszSection, const char *pszKey, char *pszBuf,
                              int32_t *pnSize) {
    if (pConf == nullptr || pszSection == nullptr || pszKey == nullptr || pszBuf == nullptr || pnSize == nullptr)
        return -EINVAL;

    char *value = nullptr;
    const int32_t result = Get_Conf_String_Pointer(pConf, pszSection, pszKey, &value);
    return result < 0 ? result : copy_value(value, pszBuf, pnSize);
}

int32_t Get_Conf_Int64_Value(const Sect_Node *pConf, const char *pszSection, const char *pszKey, int64_t *pllValue) {
    if (pConf == nullptr || pszSection == nullptr || pszKey == nullptr || pllValue == nullptr)
        return -EINVAL;

    char *value = nullptr;
    const int32_t result = Get_Conf_String_Pointer(pConf, pszSection, pszKey, &value);
    if (result < 0)
        return result;

    *pllValue = to_number(value);
    return 0;
}

int32_t Get_Conf_Int8_Value(const Sect_Node *pConf, const char *pszSection, const char *pszKey, int8_t *pnValue) {
    return get_narrow(pConf, pszSection, pszKey, pnValue);
}

int32_t Get_Conf_Int16_Value(const Sect_Node *pConf, const char *pszSection, const char *pszKey, int16_t *pnValue) {
    return get_narrow(pConf, pszSection, pszKey, pnValue);
}

int32_t Get_Conf_Int32_Value(const Sect_Node *pConf, const char *pszSection, const char *pszKey, int32_t *pnValue) {
    return get_narrow(pConf, pszSection, pszKey, pnValue);
}

int32_t Set_Conf_String_Value(Sect_Node *pConf, const char *pszSection, const char *pszKey, const char *pszValue) {
    if (pConf == nullptr || pszSection == nullptr || pszKey == nullptr)
        return -EINVAL;

    Sect_Node **link = find_section(&pConf, pszSection);
    if (*link != nullptr)
        return Set_Pair_String_Value(&(*link)->pPairs, pszKey, pszValue);
    if (pszValue == nullptr)
        return 0;

    Pair_Node *pair = nullptr;
    int32_t result = Create_Pair_Node(&pair, pszKey, pszValue);
    if (result < 0) {
        LOG_DEBUG("Can't create a pair node error! (%d, %s, %s)\n", result, pszKey, pszValue);
        return result;
    }

    PairList only_pair(pair);
    Sect_Node *section = nullptr;
    result = Create_Sect_Node(&section, pszSection);
    if (result < 0) {
        LOG_DEBUG("Can'r create a sect node error! (%d, %s)\n", result, pszSection);
        return result;
    }

    section->pPairs = only_pair.release();
    *link = section;
    return 0;
}

int32_t Set_Conf_Integer_Value(Sect_Node *pConf, const char *pszSection, const char *pszKey, int64_t llValue) {
    if (pConf == nullptr || pszSection == nullptr || pszKey == nullptr)
        return -EINVAL;

    return Set_Conf_String_Value(pConf, pszSection, pszKey, DecimalText(llValue).c_str());
}
