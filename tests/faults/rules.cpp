#include "rules.h"

#include <algorithm>
#include <cstring>

namespace faults {

std::string Injection::text() const {
    const std::string which = std::string(facts_of(call).name) + " #" + std::to_string(nth);
    if (is_short())
        return which + " moves one byte";
    return which + " fails with " + (error == kNoErrno ? "no errno" : strerrorname_np(error));
}

std::string Harm::text() const {
    return first.text() + (second ? ", then " + second->text() : "");
}

bool Rule::applies_to(const Injection &injection) const {
    if (!calls_.empty() && std::find(calls_.begin(), calls_.end(), injection.call) == calls_.end())
        return false;
    return (nth_ == 0 || nth_ == injection.nth) && (error_ == 0 || error_ == injection.error) &&
           (kind_ == Kind::any || (kind_ == Kind::shortened) == injection.is_short());
}

std::vector<int64_t> Rule::results(const Injection &injection, int64_t unharmed) const {
    if (overlooked_)
        return {unharmed};
    return results_.empty() ? std::vector<int64_t>{code(injection)} : results_;
}

bool Rule::allows(int64_t result, const Injection &injection, int64_t unharmed) const {
    const auto allowed = results(injection, unharmed);
    return std::find(allowed.begin(), allowed.end(), result) != allowed.end();
}

std::string Rule::allowed_results(const Injection &injection, int64_t unharmed) const {
    std::string text;
    for (const int64_t result : results(injection, unharmed))
        text += (text.empty() ? "" : " or ") + std::to_string(result);
    return text;
}

Files Rule::files(int64_t result, int64_t unharmed) const {
    if (has_files_)
        return files_;
    return result == unharmed ? Files::as_unharmed : Files::as_before;
}

Rules reported_only(Rules rules, int64_t result) {
    for (Rule &rule : rules)
        if (!rule.overlooked())
            rule.gives(result).leaves(rule.files(result + 1, result), rule.changes());
    return rules;
}

Rules join(const std::vector<Rules> &groups) {
    Rules all;
    for (const Rules &group : groups)
        all.insert(all.end(), group.begin(), group.end());
    return all;
}

}  // namespace faults
