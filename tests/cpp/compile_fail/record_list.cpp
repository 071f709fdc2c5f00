// An owning list can't be copied, and no element of a temporary list can be kept.
#include "korvex/detail/record_list.hpp"

#include <string_view>
#include <utility>

struct node {
    node *next;
    const char *name;
};
struct element {
    std::string_view name;
};
struct traits {
    using record = node;
    using element = ::element;
    static const node *next(const node &at) { return at.next; }
    static element show(const node &at) { return {at.name}; }
    static void free(node *) {}
};
using list = korvex::detail::record_list<traits>;
list make();

void use() {
    list all = make();
    const list moved = std::move(all);
    for (const element &one : make())
        (void)one;
    (void)moved.front();
#ifdef MISTAKE_1
    list copy = moved;  // error: deleted
#endif
#ifdef MISTAKE_2
    element kept = make().front();  // error: deleted
#endif
#ifdef MISTAKE_3
    auto first = make().begin();  // error: deleted
#endif
}
