// The sections of a configuration file while a command changes them.
#pragma once

#include <string>

#include "conf/conf_place.h"
#include "conffile.h"

namespace korvex::cli {

// A file's held lock, waited for as the library's own setters do.
class ConfLock {
  public:
    explicit ConfLock(const ConfPlace &place);
    ~ConfLock();
    ConfLock(const ConfLock &) = delete;
    ConfLock &operator=(const ConfLock &) = delete;

  private:
    const std::string file_;
};

// Holds the file's lock from before the read until after the write. The library's calls for whole sections don't look
// at write errors, by contract, and let a text that was cut short replace the file; here the old one stays.
class ConfEdit {
  public:
    // Takes the lock and reads the file; a missing one counts as empty.
    explicit ConfEdit(const ConfPlace &place);
    ~ConfEdit();
    ConfEdit(const ConfEdit &) = delete;
    ConfEdit &operator=(const ConfEdit &) = delete;

    // The first section of the file; null for an empty one.
    const Sect_Node *first() const { return sections_; }
    // The first section of the place's name; throws where there is none.
    Sect_Node &section();
    // Puts a section in its place, or at the end where there is none.
    void put(SectionList section);
    // Takes it out; throws where there is none.
    void remove();
    // Replaces the file by the sections, or throws and leaves it as it was.
    void save() const;

  private:
    Sect_Node **find();
    Sect_Node **find_existing();

    const ConfPlace place_;
    const ConfLock lock_;
    Sect_Node *sections_ = nullptr;
    bool is_missing_ = false;
};

}  // namespace korvex::cli
