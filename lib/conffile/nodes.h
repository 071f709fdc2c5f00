// What the sources of conffile share about nodes: making them from texts of known length, owning lists of them, and
// narrowing values.
#pragma once

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <string_view>

#include "conffile.h"
#include "miscfunc.h"

namespace korvex::conffile {

static_assert(offsetof(Pair_Node, pNext) == 0 && offsetof(Pair_Node, pszValue) == 8 &&
              offsetof(Pair_Node, szKey) == 16);
static_assert(offsetof(Sect_Node, pNext) == 0 && offsetof(Sect_Node, pPairs) == 8 && offsetof(Sect_Node, szName) == 16);

// The sizes of the blocks, which messages show.
constexpr size_t section_size(std::string_view name) {
    return offsetof(Sect_Node, szName) + name.size() + 1;
}
constexpr size_t pair_size(std::string_view key, std::string_view value) {
    return offsetof(Pair_Node, szKey) + key.size() + value.size() + 2;
}

// New nodes, linked to nothing; null without memory.
[[nodiscard]] Sect_Node *new_section(std::string_view name);
[[nodiscard]] Pair_Node *new_pair(std::string_view key, std::string_view value);

struct SectionFreer {
    void operator()(Sect_Node *section) const { Free_Sect_Node(section); }
};

struct PairFreer {
    void operator()(Pair_Node *pair) const { Free_Pair_Node(pair); }
};

// Owners of a section or pair with all that follows it.
using SectionList = std::unique_ptr<Sect_Node, SectionFreer>;
using PairList = std::unique_ptr<Pair_Node, PairFreer>;

// The address of the pointer to the first section of that name. If there is none, the address of the null at the list's end.
[[nodiscard]] Sect_Node **find_section(Sect_Node **head, const char *name);

// Copies a value of `length` bytes where it fits the caller's buffer; `*size` becomes what it needs, either way.
[[nodiscard]] int32_t copy_value(const char *value, char *buffer, int32_t *size);

// A number as the setters of nodes write it.
class DecimalText final {
  public:
    explicit DecimalText(int64_t value) {
        const auto size = static_cast<int32_t>(text_.size());
        Integer_To_Decimal_String(text_.data(), &size, value);
    }
    const char *c_str() const { return text_.data(); }

  private:
    std::array<char, 32> text_;
};

// A configured number, as every getter reads it: base 10, what follows the digits ignored.
[[nodiscard]] int64_t to_number(const char *value);

// Stores the low bits of a value, always. The range is symmetric: the most negative value counts as out of range, too.
template <class Integer>
[[nodiscard]] int32_t store_narrowed(int64_t value, Integer *target) {
    constexpr int64_t kLimit = std::numeric_limits<Integer>::max();
    *target = static_cast<Integer>(value);
    return value >= -kLimit && value <= kLimit ? 0 : -EOVERFLOW;
}

}  // namespace korvex::conffile
