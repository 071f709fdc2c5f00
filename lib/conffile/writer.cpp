// Printing nodes, and replacing a file by such a print.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "base/handles.h"
#include "base/message.h"
#include "base/path_buffer.h"
#include "miscfunc.h"
#include "nodes.h"

using namespace korvex;
using namespace korvex::conffile;

int32_t Write_Pair_Node(FILE *pfStream, const Pair_Node *pPairs) {
    if (pfStream == nullptr)
        return -EINVAL;

    for (const Pair_Node *pair = pPairs; pair != nullptr; pair = pair->pNext)
        std::fprintf(pfStream, "%s = %s\n", pair->szKey, pair->pszValue);
    return 0;
}

int32_t Write_Sect_Node(FILE *pfStream, const Sect_Node *pConf) {
    if (pfStream == nullptr)
        return -EINVAL;

    for (const Sect_Node *section = pConf; section != nullptr; section = section->pNext) {
        if (section->szName[0] != '\0')
            std::fprintf(pfStream, "[%s]\n", section->szName);
        Write_Pair_Node(pfStream, section->pPairs);
        std::fputc('\n', pfStream);
    }
    return 0;
}

int32_t Write_Conf_File(const char *pszPath, const Sect_Node *pConf) {
    if (pszPath == nullptr)
        return -EINVAL;

    UniqueFile file(std::fopen(pszPath, "we"));
    if (!file) {
        const int32_t code = -errno;
        LOG_ERROR("Can't open file %s error! (%d)\n", pszPath, code);
        return code;
    }

    const int32_t result = Write_Sect_Node(file.get(), pConf);
    if (result < 0) {
        LOG_ERROR("Can't write conf nodes into file \"%s\" error! (%d)\n", pszPath, result);
        file.reset();
        Fenwa_Really_Unlink(pszPath);
        return result;
    }
    return 0;
}

int32_t Update_Conf_File(const char *pszPath, const Sect_Node *pConf) {
    if (pszPath == nullptr)
        return -EINVAL;

    struct stat before {};
    const bool existed = lstat(pszPath, &before) == 0;

    PathBuffer<kPathSize> temporary;
    if (!temporary.assign({pszPath, ".tmp.", DecimalText(getpid()).c_str()}))
        return -ENAMETOOLONG;

    int32_t result = Write_Conf_File(temporary.c_str(), pConf);
    if (result < 0) {
        LOG_ERROR("Can't write conf file \"%s\" error! (%d)\n", temporary.c_str(), result);
        return result;
    }

    if (rename(temporary.c_str(), pszPath) != 0) {
        result = -errno;
        LOG_ERROR("Can't rename conf file \"%s\" error! (%d)\n", temporary.c_str(), result);
        Fenwa_Really_Unlink(temporary.c_str());
    }

    // Also after a failed rename, when it touches the old file: its outcome is what counts last.
    if (existed && chmod(pszPath, before.st_mode) != 0) {
        result = -errno;
        LOG_ERROR("Can't chmod to %s! (%d)\n", pszPath, result);
    }
    return result;
}
