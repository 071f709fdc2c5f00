// A set of descriptors for `select` that is large enough for any descriptor: fd_set ends at 1023, the kernel does not.
#pragma once

#include <sys/select.h>

#include <array>
#include <climits>
#include <cstddef>
#include <cstdlib>

#include "base/handles.h"

namespace korvex {

class DescriptorSet final {
  public:
    // Makes room for the descriptors from 0 to `highest`, which is not negative, and empties the set. False without
    // memory, which only a descriptor above 1023 needs.
    [[nodiscard]] bool reserve(int highest) {
        const size_t words = static_cast<size_t>(highest) / kWordBits + 1;
        if (words > small_.size()) {
            large_.reset(static_cast<Word *>(std::calloc(words, sizeof(Word))));
            if (!large_)
                return false;
        }
        words_ = large_ ? large_.get() : small_.data();
        return true;
    }

    void add(int descriptor) { word_of(descriptor) |= bit_of(descriptor); }

    // As `select` takes it.
    fd_set *get() { return reinterpret_cast<fd_set *>(words_); }

  private:
    using Word = unsigned long;
    static constexpr size_t kWordBits = sizeof(Word) * CHAR_BIT;

    Word &word_of(int descriptor) { return words_[static_cast<size_t>(descriptor) / kWordBits]; }
    static Word bit_of(int descriptor) { return Word{1} << (static_cast<size_t>(descriptor) % kWordBits); }

    std::array<Word, FD_SETSIZE / kWordBits> small_{};
    MallocPtr<Word> large_;
    Word *words_ = small_.data();
};

}  // namespace korvex
