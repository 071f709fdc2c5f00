#include "judgement.h"

#include <optional>

namespace faults {
namespace {

using Complaints = std::vector<std::string>;

// The messages that one failure leads to, in their order.
class Promised {
  public:
    Promised(const Rule *rule, int32_t code, Level level) : code_(code) {
        for (const Message &message : rule == nullptr ? std::vector<Message>() : rule->messages())
            if (message.level <= level)
                wanted_.push_back(message);
    }

    const Message *next() const { return met_ < wanted_.size() ? &wanted_[met_] : nullptr; }

    // Whether it is the next one. `complaint` is filled where it carries another code than the failure's.
    bool meets(const Said &said, std::string &complaint) {
        const auto values = next() == nullptr ? std::nullopt : said.values_of(*next());
        if (!values)
            return false;

        const int place = next()->code_place;
        const int64_t carried = values->at(static_cast<size_t>(place));  // the first is the source line
        const int64_t due = next()->code == Message::Code::negated_errno ? code_ : -code_;
        if (place != 0 && carried != due)
            complaint = "the message carries " + std::to_string(carried) + ", not the code " + std::to_string(due) +
                        ": " + said.text;
        met_++;
        return true;
    }

  private:
    std::vector<Message> wanted_;
    size_t met_ = 0;
    int32_t code_;
};

// One way to look at a run.
class Judgement {
  public:
    // `second`: what the second failure changes; null: nothing.
    Judgement(const Scenario &scenario, const Snapshot &unharmed, const Trial &trial, const Harm &harm,
              const Rule *second)
        : scenario_(scenario),
          unharmed_(unharmed),
          trial_(trial),
          harm_(harm),
          first_(scenario.rule_for(harm.first)),
          second_(second),
          goes_on_(first_.allows(scenario.unharmed, harm.first, scenario.unharmed)) {}

    Complaints complaints(Level level) {
        judge_result();
        judge_messages(level);
        judge_files();
        return complaints_;
    }

  private:
    void judge_result();
    void judge_messages(Level level);
    void judge_files();
    void complain(const std::string &what) { complaints_.push_back(what); }

    const Scenario &scenario_;
    const Snapshot &unharmed_;
    const Trial &trial_;
    const Harm &harm_;
    const Rule &first_;
    const Rule *second_;
    const bool goes_on_;  // behind the first failure
    Complaints complaints_;
};

void Judgement::judge_result() {
    const bool changed = second_ != nullptr && (second_->has_results() || goes_on_);
    const Rule &rule = changed ? *second_ : first_;
    const Injection &injection = changed ? *harm_.second : harm_.first;
    if (!rule.allows(trial_.result(), injection, scenario_.unharmed))
        complain("expected " + rule.allowed_results(injection, scenario_.unharmed) + ", seen " +
                 std::to_string(trial_.result()) + ", logged:" + all_texts(trial_.said()));
}

void Judgement::judge_messages(Level level) {
    const bool replaced = second_ != nullptr && second_->counts_alone();
    Promised first(replaced ? nullptr : &first_, first_.code(harm_.first), level);
    Promised second(second_, second_ == nullptr ? 0 : second_->code(*harm_.second), level);

    for (const Said &said : trial_.said()) {
        std::string complaint;
        if (!first.meets(said, complaint) && !second.meets(said, complaint) && !scenario_.is_usual(said))
            complaint = "not expected: " + said.text;
        if (!complaint.empty())
            complain(complaint);
    }
    // What is said again and again may be said less often where two calls fail.
    for (const Promised *promised : {&first, &second})
        if (promised->next() != nullptr && !(harm_.second && scenario_.is_usual(*promised->next())))
            complain("promised, but not logged: " + promised->next()->full_format() +
                     "    logged:" + all_texts(trial_.said()));
}

void Judgement::judge_files() {
    const bool changed = second_ != nullptr && (second_->has_files() || goes_on_);
    const Rule &rule = changed ? *second_ : first_;
    const Files files = rule.files(trial_.result(), scenario_.unharmed);
    Snapshot before = trial_.before();
    if (!scenario_.removes.empty())
        before.erase(scenario_.removes);

    const Comparison files_seen{trial_.before(), unharmed_, rule.changes(), trial_.stayed()};
    const std::string from_before = files_seen.difference(before, trial_.after());
    const std::string from_unharmed = files_seen.difference(unharmed_, trial_.after());
    if (files == Files::as_before && !from_before.empty())
        complain("files are not as before:" + from_before);
    if (files == Files::as_unharmed && !from_unharmed.empty())
        complain("files are not as after a success:" + from_unharmed);
    if (files == Files::either && !from_before.empty() && !from_unharmed.empty())
        complain("files are neither as before:" + from_before + "\n    nor as after a success:" + from_unharmed);
}

}  // namespace

std::string all_texts(const std::vector<Said> &said) {
    std::string text;
    for (const Said &message : said)
        text += "\n      " + message.text;
    return text.empty() ? " nothing" : text;
}

const Rule &Scenario::rule_for(const Injection &injection) const {
    static const Rule default_rule;
    for (const Rule &rule : rules)
        if (rule.applies_to(injection))
            return rule;
    return default_rule;
}

bool Scenario::is_usual(const Said &said) const {
    for (const Message &message : usual)
        if (said.is(message))
            return true;
    return false;
}

bool Scenario::is_usual(const Message &said) const {
    for (const Message &message : usual)
        if (said.full_format() == message.full_format())
            return true;
    return false;
}

std::vector<std::string> judge(const Scenario &scenario, const Snapshot &unharmed, const Trial &trial, const Harm &harm,
                               Level level) {
    std::vector<const Rule *> ways;
    for (const Rule &rule : scenario.then)
        if (harm.second && rule.applies_to(*harm.second))
            ways.push_back(&rule);
    if (ways.empty()) {
        ways.push_back(nullptr);
        // If the call went on behind the first failure, the second one ends it, or is overlooked as well.
        if (harm.second && scenario.rule_for(harm.first).allows(scenario.unharmed, harm.first, scenario.unharmed))
            ways.push_back(&scenario.rule_for(*harm.second));
    }

    Complaints complaints;
    for (const Rule *second : ways) {
        const Complaints these = Judgement(scenario, unharmed, trial, harm, second).complaints(level);
        if (these.empty())
            return these;
        complaints = complaints.empty() ? these : complaints;
    }
    return complaints;
}

}  // namespace faults
