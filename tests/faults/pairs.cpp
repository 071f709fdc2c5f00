#include "pairs.h"

#include <algorithm>
#include <map>

namespace faults {
namespace {

using Calls = std::vector<Call>;

// What follows the nth call of that kind.
Calls behind(const Calls &calls, Call call, int nth) {
    int seen = 0;
    const auto is_it = [&](Call each) { return each == call && ++seen == nth; };
    const auto place = std::find_if(calls.begin(), calls.end(), is_it);
    return place == calls.end() ? Calls() : Calls(place + 1, calls.end());
}

// For each call whether it is left over when as many as possible of both lists are matched in their order.
std::vector<bool> left_over(const Calls &calls, const Calls &usual) {
    // How many of the first i of one can be matched with the first j of the other.
    std::vector<std::vector<int>> most(calls.size() + 1, std::vector<int>(usual.size() + 1, 0));
    for (size_t i = 1; i <= calls.size(); i++)
        for (size_t j = 1; j <= usual.size(); j++)
            most[i][j] =
                calls[i - 1] == usual[j - 1] ? most[i - 1][j - 1] + 1 : std::max(most[i - 1][j], most[i][j - 1]);

    std::vector<bool> left(calls.size(), true);
    size_t j = usual.size();
    for (size_t i = calls.size(); i > 0; i--) {
        while (j > 0 && most[i][j] == most[i][j - 1])
            j--;
        left[i - 1] = j == 0 || most[i][j] == most[i - 1][j];
        j -= left[i - 1] ? 0 : 1;
    }
    return left;
}

}  // namespace

std::vector<Injection> seconds(const Injection &first, bool overlooked, const Calls &calls, const Calls &unharmed) {
    const Calls following = behind(calls, first.call, first.nth);
    const std::vector<bool> unusual = left_over(following, behind(unharmed, first.call, first.nth));
    std::map<Call, int> seen;
    for (size_t i = 0; i < calls.size() - following.size(); i++)
        ++seen[calls[i]];

    std::vector<Injection> all;
    for (size_t i = 0; i < following.size(); i++) {
        const CallFacts &facts = facts_of(following[i]);
        const int nth = ++seen[facts.call];
        // The last error: the first one of a removal is that nothing is there.
        if (!facts.errors.empty() && (unusual[i] || (facts.gives_back() && !overlooked)))
            all.push_back({facts.call, nth, facts.errors.back()});
    }
    return all;
}

}  // namespace faults
