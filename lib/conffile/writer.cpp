// Printing nodes, and replacing a file by such a print.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "base/handles.h"
#include "base/message.h"
#include "file_nodes.h"
#include "new_file.h"
#include "nodes.h"

namespace korvex::conffile {
namespace {

// Whose messages these are, also within an update.
constexpr const char *kWrite = "Write_Conf_File";
constexpr const char *kUpdate = "Update_Conf_File";

int32_t not_opened(const char *path, int32_t code) {
    LOG_ERROR_AS(kWrite, "Can't open file %s error! (%d)\n", path, code);
    return code;
}

int32_t print(FILE *stream, const char *path, const Sect_Node *conf) {
    const int32_t result = Write_Sect_Node(stream, conf);
    if (result < 0)
        LOG_ERROR_AS(kWrite, "Can't write conf nodes into file \"%s\" error! (%d)\n", path, result);
    return result;
}

// What can't be written is not reported, by contract: what could be written counts.
int32_t write_new_file(NewFile &file, const Sect_Node *conf) {
    int32_t result = file.create(".tmp.", DecimalText(getpid()).c_str());
    if (result < 0 && file.name()[0] == '\0')
        return result;

    result = result < 0 ? not_opened(file.name(), result) : print(file.stream(), file.name(), conf);
    if (result < 0)
        LOG_ERROR_AS(kUpdate, "Can't write conf file \"%s\" error! (%d)\n", file.name(), result);
    else
        (void)file.flush();
    return result;
}

}  // namespace

int32_t update_file(const FilePlace &place, const Sect_Node *conf, Permissions permissions) {
    struct stat before {};
    if (place.look(&before) == 0)
        permissions.carry(before);
    else if (errno != ENOENT)
        permissions.doubt();

    NewFile file(place, permissions);
    int32_t result = write_new_file(file, conf);
    if (result < 0)
        return result;

    result = file.move_into_place();
    if (result < 0) {
        LOG_ERROR_AS(kUpdate, "Can't rename conf file \"%s\" error! (%d)\n", file.name(), result);
        file.remove();
    }

    // Kept: this is done after a failed rename, too, and its error is then the result instead of the rename's.
    if (const int32_t code = file.set_permissions(); code < 0) {
        LOG_ERROR_AS(kUpdate, "Can't chmod to %s! (%d)\n", place.path(), code);
        result = code;
    }
    return result;
}

}  // namespace korvex::conffile

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

    const FilePlace place(pszPath);
    UniqueFile file;
    int32_t result = place.open_to_write_over(&file);
    if (result < 0)
        return not_opened(pszPath, result);

    result = print(file.get(), pszPath, pConf);
    if (result < 0) {
        file.reset();
        place.remove(place.name());
    }
    return result < 0 ? result : 0;
}

int32_t Update_Conf_File(const char *pszPath, const Sect_Node *pConf) {
    if (pszPath == nullptr)
        return -EINVAL;

    return update_file(FilePlace(pszPath), pConf, Permissions());
}
