#include "sweep.h"

#include <algorithm>
#include <filesystem>

#include "heap.h"
#include "judgement.h"
#include "pairs.h"

namespace faults {
namespace {

namespace fs = std::filesystem;

void empty_folder(const std::string &path) {
    for (const auto &entry : fs::directory_iterator(path))
        fs::remove_all(entry.path());
}

// One scenario's sweep.
class Sweep {
  public:
    explicit Sweep(const Scenario &scenario) : scenario_(scenario) {}

    Report run();

  private:
    std::vector<Injection> injections(const std::vector<Call> &calls) const;

    void run_unharmed();
    void harm(const Injection &injection);
    void harm_twice(const Injection &injection);
    // Whether a run holds, and loses no memory. False also where there was nothing to shorten.
    bool holds(const Harm &harm);
    // False where there was nothing to shorten.
    bool harm_once(const Harm &harm, Level level);
    void look_for_lost_memory(const Harm &harm, size_t growth);
    // Runs the body and looks at what holds for every run.
    void run_body(Trial &trial, const std::string &when);

    void complain(const std::string &when, const std::string &what);

    const Scenario &scenario_;
    Snapshot unharmed_files_;
    std::vector<Call> calls_;
    std::vector<Call> harmed_calls_;  // of the last run with messages of all levels
    int64_t harmed_result_ = 0;
    Report report_;
};

void Sweep::complain(const std::string &when, const std::string &what) {
    report_.violations.push_back(report_.name + ": " + when + ": " + what);
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
        if (facts_of(call).moves_bytes())
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
        if (!scenario_.is_usual(said))
            complain("unharmed", "not expected: " + said.text);

    calls_ = trial.calls();
    unharmed_files_ = trial.after();
}

bool Sweep::harm_once(const Harm &harm, Level level) {
    empty_folder("/var/lock");
    const support::TempFolder folder;
    {
        Trial trial(folder, &harm, level);
        run_body(trial, harm.text());
        if (!trial.struck())
            return false;
        for (const std::string &complaint : judge(scenario_, unharmed_files_, trial, harm, level))
            complain(harm.text(), complaint);
        if (level == Level::debug) {
            harmed_calls_ = trial.calls();
            harmed_result_ = trial.result();
        }
    }

    if (level != Level::debug)
        return true;

    // What the failure left must not harm the next call.
    empty_folder(folder.path());
    empty_folder("/var/lock");
    Trial again(folder, nullptr, level);
    run_body(again, harm.text() + ", and a second call");
    if (again.result() != scenario_.unharmed)
        complain(harm.text(), "the next call gives " + std::to_string(again.result()));
    if (const std::string changed = difference(unharmed_files_, again.after()); !changed.empty())
        complain(harm.text(), "the next call leaves other files:" + changed);
    return true;
}

// What is taken once, and kept, is no loss: a loss comes with every round.
void Sweep::look_for_lost_memory(const Harm &harm, size_t growth) {
    constexpr size_t rounds = 8;
    constexpr size_t smallest_block = 24;
    harm_once(harm, Level::debug);

    const size_t before = support::heap_in_use();
    for (size_t i = 0; i < rounds; i++)
        harm_once(harm, Level::debug);
    if (support::heap_in_use() >= before + rounds * smallest_block)
        complain(harm.text(), "the heap grew by " + std::to_string(growth) + " bytes, and with every repetition");
}

bool Sweep::holds(const Harm &harm) {
    const size_t known = report_.violations.size();
    const size_t before = support::heap_in_use();
    if (!harm_once(harm, Level::debug))
        return false;

    const size_t after = support::heap_in_use();
    if (report_.violations.size() == known && after > before)
        look_for_lost_memory(harm, after - before);
    return report_.violations.size() == known;
}

void Sweep::harm(const Injection &injection) {
    const size_t known = report_.violations.size();
    const bool held = holds({injection});
    if (!held && report_.violations.size() == known)
        return;

    report_.injections++;
    if (!held)
        return;

    // Below its level a message does not come, and without it everything else is the same.
    for (const Level level : {Level::error, Level::none})
        if (report_.violations.size() == known && !scenario_.rule_for(injection).messages().empty() &&
            !scenario_.debug_only)
            harm_once({injection}, level);
    if (report_.violations.size() == known)
        harm_twice(injection);
}

void Sweep::harm_twice(const Injection &injection) {
    // A short count that is gone on with is no failure.
    if (injection.is_short() && harmed_result_ == scenario_.unharmed)
        return;

    const bool overlooked = scenario_.rule_for(injection).overlooked();
    for (const Injection &second : seconds(injection, overlooked, harmed_calls_, calls_)) {
        holds({injection, second});
        report_.pairs++;
    }
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
