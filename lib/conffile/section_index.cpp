#include "section_index.h"

#include <algorithm>
#include <cstdlib>

#include "base/line_scanner.h"
#include "text_scan.h"

namespace korvex::conffile {
namespace {

// The name in a header line; false for another line.
bool take_name(std::string_view line, std::string_view &name) {
    if (line.empty() || line.front() != '[')
        return false;

    const size_t end = line.find(']');
    if (end == kNowhere)
        return false;

    name = {line.data() + 1, end - 1};
    return true;
}

}  // namespace

int SectionIndex::compare(const void *one, const void *other) {
    const auto &left = *static_cast<const Header *>(one);
    const auto &right = *static_cast<const Header *>(other);
    const int by_name = left.name.compare(right.name);
    if (by_name != 0)
        return by_name;
    return left.body < right.body ? -1 : 1;
}

void SectionIndex::build(std::string_view text) {
    text_ = text;
    count_ = 0;
    size_t headers = 0;
    std::string_view name;
    for (LineScanner lines(text); lines.next();)
        headers += take_name(lines.line(), name) ? 1 : 0;

    headers_.reset(static_cast<Header *>(std::malloc((headers + 1) * sizeof(Header))));
    if (!headers_)
        return;

    for (LineScanner lines(text); lines.next();)
        if (take_name(lines.line(), name))
            headers_.get()[count_++] = {name, lines.end()};
    std::qsort(headers_.get(), count_, sizeof(Header), compare);
}

size_t SectionIndex::find_body(std::string_view section) const {
    // A name with a "]" may be that of a header which the index knows under a shorter one.
    if (!headers_ || section.empty() || section.find(']') != kNowhere)
        return conffile::find_body(text_, section);

    const Header *end = headers_.get() + count_;
    const Header *found =
        std::lower_bound(headers_.get(), const_cast<Header *>(end), section,
                         [](const Header &header, std::string_view wanted) { return header.name < wanted; });
    return found != end && found->name == section ? found->body : kNowhere;
}

}  // namespace korvex::conffile
