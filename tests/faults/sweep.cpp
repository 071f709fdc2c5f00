#include "sweep.h"

#include <algorithm>
#include <filesystem>

#include "heap.h"

namespace faults {
namespace {

namespace fs = std::filesystem;

void empty_folder(const std::string &path) {
    for (const auto &entry : fs::directory_iterator(path))
        fs::remove_all(entry.path());
}

std::string difference(const Snapshot &wanted, const Snapshot &seen) {
    std::string text;
    for (const auto &[name, what] : wanted) {
        const auto found = seen.find(name);
        if (found == seen.end())
            text += "\n      missing: " + name + "  " + what;
        else if (found->second != what)
            text += "\n      changed: " + name + "  " + what + "  =>  " + found->second;
    }
    for (const auto &[name, what] : seen)
        if (!wanted.contains(name))
            text += "\n      left: " + name + "  " + what;
    return text;
}

std::string all_texts(const std::vector<Said> &said) {
    std::string text;
    for (const Said &message : said)
        text += "\n      " + message.text;
    return text.empty() ? " nothing" : text;
}

// One scenario's sweep.
class Sweep {
  public:
    explicit Sweep(const Scenario &scenario) : scenario_(scenario) {}

    Report run();

  private:
    std::vector<Injection> injections(const std::vector<Call> &calls) const;
    const Rule &rule_for(const Injection &injection) const;

    void run_unharmed();
    void harm(const Injection &injection);
    // False where there was nothing to shorten.
    bool harm_once(const Injection &injection, Level level);
    void look_for_lost_memory(const Injection &injection, size_t growth);
    // Runs the body and looks at what holds for every run.
    void run_body(Trial &trial, const std::string &when);

    void judge(const Trial &trial, const Injection &injection, Level level);
    void judge_messages(const Trial &trial, const Injection &injection, Level level);
    void judge_files(const Trial &trial, const Injection &injection);
    bool is_usual(const Said &said) const;
    void complain(const std::string &when, const std::string &what);

    const Scenario &scenario_;
    const Rule default_rule_;
    Snapshot unharmed_files_;
    std::vector<Call> calls_;
    Report report_;
};

void Sweep::complain(const std::string &when, const std::string &what) {
    report_.violations.push_back(report_.name + ": " + when + ": " + what);
}

const Rule &Sweep::rule_for(const Injection &injection) const {
    for (const Rule &rule : scenario_.rules)
        if (rule.applies_to(injection))
            return rule;
    return default_rule_;
}

std::vector<Injection> Sweep::injections(const std::vector<Call> &calls) const {
    std::vector<Injection> all;
    std::map<Call, int> seen;
    for (const Call call : calls) {
        const int nth = ++seen[call];
        if (!scenario_.only.empty() &&
            std::find(scenario_.only.begin(), scenario_.only.end(), call) == scenario_.only.end())
            continue;
        std::vector<int> errors = facts_of(call).errors;
        if (const auto more = scenario_.more_errors.find(call); more != scenario_.more_errors.end())
            errors.insert(errors.end(), more->second.begin(), more->second.end());
        for (const int error : errors)
            all.push_back({call, nth, error});
        if (facts_of(call).moves_bytes)
            all.push_back({call, nth, 0});
    }
    return all;
}

void Sweep::run_body(Trial &trial, const std::string &when) {
    const auto descriptors = support::open_descriptors();
    try {
        scenario_.body(trial);
    } catch (const std::exception &error) {
        complain(when, std::string("the scenario itself failed: ") + error.what());
    }
    for (const std::string &complaint : trial.complaints())
        complain(when, complaint);
    if (!trial.called())
        complain(when, "the scenario made no call");

    const auto left = support::open_descriptors();
    for (const auto &[number, name] : left)
        if (!descriptors.contains(number)) {
            complain(when, "left open: descriptor " + std::to_string(number) + " of " + name);
            close(number);
        }
    for (const auto &[number, name] : descriptors)
        if (!left.contains(number))
            complain(when, "closed: descriptor " + std::to_string(number) + " of " + name);
}

void Sweep::run_unharmed() {
    empty_folder("/var/lock");
    const support::TempFolder folder;
    {
        // What is done once only, such as reading the time zone, is done before.
        Trial first(folder, nullptr, Level::debug);
        run_body(first, "the first time");
    }

    empty_folder(folder.path());
    empty_folder("/var/lock");
    Trial trial(folder, nullptr, Level::debug);
    run_body(trial, "unharmed");
    if (trial.result() != scenario_.unharmed)
        complain("unharmed", "expected " + std::to_string(scenario_.unharmed) + ", seen " +
                                 std::to_string(trial.result()) + ", logged:" + all_texts(trial.said()));
    for (const Said &said : trial.said())
        if (!is_usual(said))
            complain("unharmed", "not expected: " + said.text);

    calls_ = trial.calls();
    unharmed_files_ = trial.after();
}

bool Sweep::is_usual(const Said &said) const {
    for (const Message &message : scenario_.usual)
        if (said.is(message))
            return true;
    return false;
}

void Sweep::judge_messages(const Trial &trial, const Injection &injection, Level level) {
    const Rule &rule = rule_for(injection);
    const int32_t code = rule.code(injection);
    std::vector<Message> wanted;
    for (const Message &message : rule.messages())
        if (message.level <= level)
            wanted.push_back(message);

    size_t met = 0;
    for (const Said &said : trial.said()) {
        const auto values = met < wanted.size() ? said.values_of(wanted[met]) : std::nullopt;
        if (values) {
            const int place = std::abs(wanted[met].code);
            const int64_t carried = values->at(static_cast<size_t>(place));  // the first is the source line
            const int64_t due = wanted[met].code > 0 ? code : -code;
            if (place != 0 && carried != due)
                complain(injection.text(), "the message carries " + std::to_string(carried) + ", not the code " +
                                               std::to_string(due) + ": " + said.text);
            met++;
        } else if (!is_usual(said)) {
            complain(injection.text(), "not expected: " + said.text);
        }
    }
    for (; met < wanted.size(); met++)
        complain(injection.text(), std::string("promised, but not logged: ") + wanted[met].full_format() +
                                       "    logged:" + all_texts(trial.said()));
}

void Sweep::judge_files(const Trial &trial, const Injection &injection) {
    const Files files = rule_for(injection).files(trial.result(), scenario_.unharmed);
    Snapshot before = trial.before();
    if (!scenario_.removes.empty())
        before.erase(scenario_.removes);
    const std::string from_before = difference(before, trial.after());
    const std::string from_unharmed = difference(unharmed_files_, trial.after());
    if (files == Files::as_before && !from_before.empty())
        complain(injection.text(), "files are not as before:" + from_before);
    if (files == Files::as_unharmed && !from_unharmed.empty())
        complain(injection.text(), "files are not as after a success:" + from_unharmed);
    if (files == Files::either && !from_before.empty() && !from_unharmed.empty())
        complain(injection.text(),
                 "files are neither as before:" + from_before + "\n    nor as after a success:" + from_unharmed);
}

void Sweep::judge(const Trial &trial, const Injection &injection, Level level) {
    const Rule &rule = rule_for(injection);
    if (!rule.allows(trial.result(), injection, scenario_.unharmed))
        complain(injection.text(), "expected " + rule.allowed_results(injection, scenario_.unharmed) + ", seen " +
                                       std::to_string(trial.result()) + ", logged:" + all_texts(trial.said()));
    judge_messages(trial, injection, level);
    judge_files(trial, injection);
}

bool Sweep::harm_once(const Injection &injection, Level level) {
    empty_folder("/var/lock");
    const support::TempFolder folder;
    {
        Trial trial(folder, &injection, level);
        run_body(trial, injection.text());
        if (!trial.struck())
            return false;
        judge(trial, injection, level);
    }

    if (level != Level::debug)
        return true;

    // What the failure left must not harm the next call.
    empty_folder(folder.path());
    empty_folder("/var/lock");
    Trial again(folder, nullptr, level);
    run_body(again, injection.text() + ", and a second call");
    if (again.result() != scenario_.unharmed)
        complain(injection.text(), "the next call gives " + std::to_string(again.result()));
    if (const std::string changed = difference(unharmed_files_, again.after()); !changed.empty())
        complain(injection.text(), "the next call leaves other files:" + changed);
    return true;
}

// What is taken once, and kept, is no loss: a loss comes with every round.
void Sweep::look_for_lost_memory(const Injection &injection, size_t growth) {
    constexpr size_t rounds = 8;
    constexpr size_t smallest_block = 24;
    harm_once(injection, Level::debug);

    const size_t before = support::heap_in_use();
    for (size_t i = 0; i < rounds; i++)
        harm_once(injection, Level::debug);
    if (support::heap_in_use() >= before + rounds * smallest_block)
        complain(injection.text(), "the heap grew by " + std::to_string(growth) + " bytes, and with every repetition");
}

void Sweep::harm(const Injection &injection) {
    const size_t known = report_.violations.size();
    const size_t before = support::heap_in_use();
    if (!harm_once(injection, Level::debug))
        return;

    report_.injections++;
    const size_t after = support::heap_in_use();
    if (report_.violations.size() == known && after > before)
        look_for_lost_memory(injection, after - before);

    // Below its level a message does not come, and without it everything else is the same.
    for (const Level level : {Level::error, Level::none})
        if (report_.violations.size() == known && !rule_for(injection).messages().empty() && !scenario_.debug_only)
            harm_once(injection, level);
}

Report Sweep::run() {
    report_.name = scenario_.function + (scenario_.variant.empty() ? "" : " (" + scenario_.variant + ")");
    run_unharmed();
    if (!report_.violations.empty())
        return report_;

    const auto all = injections(calls_);
    for (const Call call : calls_)
        report_.calls += facts_of(call).errors.empty() ? 0 : 1;
    for (const Injection &injection : all)
        harm(injection);
    return report_;
}

}  // namespace

std::vector<std::string> failing_calls_in(const std::function<void()> &call) {
    std::vector<std::string> names;
    const support::RecordCalls recording;
    call();
    const support::Undisturbed looking;
    for (const Call each : recording.calls())
        if (!facts_of(each).errors.empty())
            names.emplace_back(facts_of(each).name);
    return names;
}

Report sweep(const Scenario &scenario) {
    return Sweep(scenario).run();
}

}  // namespace faults
