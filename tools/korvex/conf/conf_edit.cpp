#include "conf/conf_edit.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <utility>

#include "fileio.h"
#include "files/leftovers.h"
#include "files/lock_umask.h"
#include "files/new_file.h"

namespace korvex::cli {
namespace {

// The whole text in memory, so that each error of the disk is one of the writes that are looked at.
std::string text_of(const Sect_Node *sections) {
    char *text = nullptr;
    size_t size = 0;
    FILE *const stream = open_memstream(&text, &size);
    if (stream == nullptr)
        throw std::bad_alloc();

    Write_Sect_Node(stream, sections);
    const bool is_whole = std::ferror(stream) == 0;
    const bool is_closed = std::fclose(stream) == 0;
    const std::unique_ptr<char, void (*)(void *)> owner(text, std::free);
    if (!is_whole || !is_closed)
        throw std::bad_alloc();
    return {text, size};
}

}  // namespace

ConfLock::ConfLock(const ConfPlace &place) : file_(place.file) {
    constexpr int32_t kWaitMs = 10000;
    const LockUmask umask;
    if (Get_File_Lock(file_.c_str(), kWaitMs) != 1)
        throw conf_failure(place, -ENOLCK);
}

ConfLock::~ConfLock() {
    Release_File_Lock(file_.c_str());
}

ConfEdit::ConfEdit(const ConfPlace &place) : place_(place), lock_(place_) {
    const int32_t code = Read_Conf_File(place_.file.c_str(), &sections_);
    is_missing_ = code == -ENOENT;
    if (code < 0 && !is_missing_)
        throw conf_failure(place_, code);
}

ConfEdit::~ConfEdit() {
    Free_Sect_Node(sections_);
}

Sect_Node &ConfEdit::section() {
    return **find_existing();
}

void ConfEdit::put(SectionList section) {
    Sect_Node **const link = find();
    if (*link != nullptr)
        section->pNext = std::exchange((*link)->pNext, nullptr);
    const SectionList before(std::exchange(*link, section.release()));
}

void ConfEdit::remove() {
    Sect_Node **const link = find_existing();
    const SectionList removed(*link);
    *link = std::exchange(removed->pNext, nullptr);
}

void ConfEdit::save() const {
    const std::string text = text_of(sections_);
    Leftovers leftovers;
    NewFile file(place_.file, leftovers);
    uint64_t written = 0;
    const int32_t code = File_Write_Bulk(file.descriptor(), text.data(), static_cast<int64_t>(text.size()), &written);
    file.check_written(code, written, text.size());
    file.complete();
}

// The link that leads to the section, or that ends the list.
Sect_Node **ConfEdit::find() {
    Sect_Node **link = &sections_;
    while (*link != nullptr && place_.section != (*link)->szName)
        link = &(*link)->pNext;
    return link;
}

Sect_Node **ConfEdit::find_existing() {
    Sect_Node **const link = find();
    if (*link == nullptr)
        throw conf_failure(place_, is_missing_ ? -ENOENT : -ENOANO);
    return link;
}

}  // namespace korvex::cli
