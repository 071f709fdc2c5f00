/// @file
/// Internal: the difference of two texts, line by line, as `diff -u` writes it.
#ifndef KORVEX_DETAIL_UNIFIED_DIFF_HPP
#define KORVEX_DETAIL_UNIFIED_DIFF_HPP

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace korvex::detail {

/// One step from the old text to the new.
struct diff_step {
    char kind;  ///< ' ' both have the line, '-' the old one alone, '+' the new one alone
    std::string_view line;
};

/// Lines with their line feeds; the last one may lack it.
inline std::vector<std::string_view> lines_of(std::string_view text) {
    std::vector<std::string_view> lines;
    while (!text.empty()) {
        const std::size_t size = std::min(text.find('\n'), text.size() - 1) + 1;
        lines.push_back(text.substr(0, size));
        text.remove_prefix(size);
    }
    return lines;
}

/// The shortest way from one list of lines to another, by Myers' greedy search: time and memory grow with the size of
/// the difference, not with that of the texts alone.
class shortest_edit {
  public:
    shortest_edit(const std::vector<std::string_view> &before, const std::vector<std::string_view> &after)
        : before_(before), after_(after) {}

    std::vector<diff_step> steps() {
        search();
        return walk_back();
    }

  private:
    using index = std::ptrdiff_t;

    // reached_[d][k + d]: how far in `before_` the diagonal k was reached with d single steps; k = old place - new
    // place.
    void search() {
        const index most = size_of(before_) + size_of(after_);
        for (index steps = 0; steps <= most; ++steps) {
            std::vector<index> &row = reached_.emplace_back(static_cast<std::size_t>(2 * steps + 1));
            for (index diagonal = -steps; diagonal <= steps; diagonal += 2) {
                index place = comes_from_above(steps, diagonal) ? reached(steps - 1, diagonal + 1)
                                                                : reached(steps - 1, diagonal - 1) + 1;
                while (place < size_of(before_) && place - diagonal < size_of(after_) &&
                       at(before_, place) == at(after_, place - diagonal))
                    ++place;
                row[static_cast<std::size_t>(diagonal + steps)] = place;
                if (place >= size_of(before_) && place - diagonal >= size_of(after_))
                    return;
            }
        }
    }

    // A step down takes a line of the new text, a step to the right drops one of the old.
    bool comes_from_above(index steps, index diagonal) const {
        return diagonal == -steps ||
               (diagonal != steps && reached(steps - 1, diagonal - 1) < reached(steps - 1, diagonal + 1));
    }

    index reached(index steps, index diagonal) const {
        if (steps < 0)
            return diagonal == 1 ? 0 : -1;  // the start: what the first row continues
        return reached_[static_cast<std::size_t>(steps)][static_cast<std::size_t>(diagonal + steps)];
    }

    std::vector<diff_step> walk_back() const {
        std::vector<diff_step> steps;
        index old_place = size_of(before_);
        index new_place = size_of(after_);
        for (index count = static_cast<index>(reached_.size()) - 1; count >= 0; --count) {
            const index diagonal = old_place - new_place;
            const bool is_new = comes_from_above(count, diagonal);
            const index start = is_new ? reached(count - 1, diagonal + 1) : reached(count - 1, diagonal - 1) + 1;
            while (old_place > std::max<index>(start, 0) && new_place > 0) {
                steps.push_back({' ', at(before_, --old_place)});
                --new_place;
            }
            if (count == 0)
                break;
            if (is_new)
                steps.push_back({'+', at(after_, --new_place)});
            else
                steps.push_back({'-', at(before_, --old_place)});
        }
        std::reverse(steps.begin(), steps.end());
        return steps;
    }

    static index size_of(const std::vector<std::string_view> &lines) noexcept {
        return static_cast<index>(lines.size());
    }
    static std::string_view at(const std::vector<std::string_view> &lines, index place) noexcept {
        return lines[static_cast<std::size_t>(place)];
    }

    const std::vector<std::string_view> &before_;
    const std::vector<std::string_view> &after_;
    std::vector<std::vector<index>> reached_;
};

/// Writes steps as hunks with three lines around each change.
class diff_writer {
  public:
    explicit diff_writer(const std::vector<diff_step> &steps) : steps_(steps) {}

    std::string hunks() {
        std::size_t place = 0;
        while ((place = next_change(place)) < steps_.size()) {
            const std::size_t begin = place - std::min(place, context);
            const std::size_t end = end_of_hunk(place);
            write_hunk(begin, end);
            place = end;
        }
        return std::move(text_);
    }

  private:
    static constexpr std::size_t context = 3;

    std::size_t next_change(std::size_t place) const {
        while (place < steps_.size() && steps_[place].kind == ' ')
            ++place;
        return place;
    }

    // Changes that have at most twice the context between them share a hunk.
    std::size_t end_of_hunk(std::size_t place) const {
        for (;;) {
            while (place < steps_.size() && steps_[place].kind != ' ')
                ++place;
            const std::size_t next = next_change(place);
            if (next == steps_.size() || next - place > 2 * context)
                return std::min(place + context, steps_.size());
            place = next;
        }
    }

    void write_hunk(std::size_t begin, std::size_t end) {
        std::size_t old_lines = 0;
        std::size_t new_lines = 0;
        for (; counted_ < begin; ++counted_)
            count(steps_[counted_].kind, old_before_, new_before_);
        for (std::size_t place = begin; place < end; ++place)
            count(steps_[place].kind, old_lines, new_lines);

        text_.append("@@ -").append(range(old_before_, old_lines));
        text_.append(" +").append(range(new_before_, new_lines)).append(" @@\n");
        for (std::size_t place = begin; place < end; ++place) {
            text_ += steps_[place].kind;
            text_ += steps_[place].line;
            if (!steps_[place].line.ends_with('\n'))
                text_ += "\n\\ No newline at end of file\n";
        }
    }

    static void count(char kind, std::size_t &old_lines, std::size_t &new_lines) {
        old_lines += kind != '+';
        new_lines += kind != '-';
    }

    // An empty range is named by the line before it; a single line goes without its count.
    static std::string range(std::size_t before, std::size_t lines) {
        std::string text = std::to_string(lines == 0 ? before : before + 1);
        return lines == 1 ? text : text + "," + std::to_string(lines);
    }

    const std::vector<diff_step> &steps_;
    std::string text_;
    std::size_t counted_ = 0;
    std::size_t old_before_ = 0;
    std::size_t new_before_ = 0;
};

/// The difference as `diff -u` writes it; empty for equal texts.
inline std::string unified_diff(std::string_view before, std::string_view after, std::string_view old_name,
                                std::string_view new_name) {
    if (before == after)
        return {};
    const std::vector<std::string_view> old_lines = lines_of(before);
    const std::vector<std::string_view> new_lines = lines_of(after);
    const std::vector<diff_step> steps = shortest_edit(old_lines, new_lines).steps();
    std::string text;
    text.append("--- ").append(old_name).append("\n+++ ").append(new_name).append("\n");
    return text + diff_writer(steps).hunks();
}

}  // namespace korvex::detail

#endif
