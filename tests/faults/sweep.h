// The fault sweep: a scenario is run once unharmed, which tells the calls of the system that can fail in it, and then
// again for each of these calls and each way in which it can fail. Each failure tells the calls that follow it, which
// give back and clean up; once more for each of them, both fail. After every run everything is looked at that a failure
// must leave in order.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "faults.h"
#include "message_log.h"
#include "rules.h"
#include "sandbox.h"
#include "snapshot.h"

namespace faults {

// One run of a scenario, which is handed to its body.
class Trial {
  public:
    Trial(const support::TempFolder &folder, const Harm *harm, Level level);
    Trial(const Trial &) = delete;
    Trial &operator=(const Trial &) = delete;

    // A folder of its own, empty at first, and files in it.
    const support::TempFolder &folder() const { return folder_; }
    std::string path(const std::string &name) const { return folder_.path(name); }
    std::string file(const std::string &name, const std::string &content) const { return folder_.file(name, content); }
    // The clock that the library sees. It stands still; only the library's own pauses move it on, and they take no real time.
    support::FakeClock &clock() { return clock_; }

    // Makes the call under test, once. Calls of the system are counted, and made to fail, only in here. So prepare before what
    // the call needs: nothing in `function` may allocate but the call itself.
    template <typename Function>
    int64_t call(Function function) {
        begin();
        const auto result = static_cast<int64_t>(function());
        end(result);
        return result;
    }

    int64_t result() const { return result_; }
    // The first of the calls that fail. Null in a run without a fault.
    const Injection *injection() const { return harm_ == nullptr ? nullptr : &harm_->first; }
    // The second one; null where there is none.
    const Injection *second() const { return harm_ != nullptr && harm_->second ? &*harm_->second : nullptr; }
    // Notes a violation where `holds` is false.
    void check(bool holds, const std::string &what);

    // For the sweep.
    bool called() const { return called_; }
    bool struck() const { return struck_; }  // false where there was nothing to shorten
    const std::vector<Call> &calls() const { return calls_; }
    const std::vector<Said> &said() const { return said_; }
    const std::vector<std::string> &complaints() const { return complaints_; }
    const Snapshot &before() const { return before_; }
    const Snapshot &after() const { return after_; }
    const Snapshot &stayed() const { return stayed_; }  // what the second failure kept from being removed

  private:
    void begin();
    void arm_second(const Injection &second);
    void end(int64_t result);

    const support::TempFolder &folder_;
    const Harm *harm_;
    const Level level_;
    support::FakeClock clock_{1'700'000'000'000};  // the same in each run, so that what is stamped is, too
    int64_t result_ = 0;
    bool struck_ = true;
    Snapshot before_;
    Snapshot after_;
    Snapshot stayed_;
    std::vector<Call> calls_;
    std::vector<Said> said_;
    std::vector<std::string> complaints_;

    // Armed during the call.
    std::optional<MessageLog> log_;
    std::optional<support::RecordCalls> recording_;
    std::optional<support::FailCall> failing_;
    std::optional<support::FailCall> failing_again_;
    std::optional<support::ShortCall> shortening_;
    std::optional<support::BeforeCall> closing_;
    std::optional<support::BeforeCall> removing_;

    bool called_ = false;
    int closed_in_vain_ = 0;  // descriptors that were not open: another thread's may have that number by then
};

// One way to call one function. The body prepares the call, makes it through `Trial::call`, looks at what it handed out
// and gives that back.
struct Scenario {
    std::string function;
    std::string variant;  // empty for the only one, or the plain one
    std::function<void(Trial &)> body;
    int64_t unharmed = 0;                               // the result without a fault
    Rules rules = {};                                   // the first that applies counts; none: Rule()
    std::vector<Message> usual = {};                    // messages that any run may log, any number of times
    std::map<Call, std::vector<int>> more_errors = {};  // that matter to this function, beside those of calls.cpp
    std::vector<Call> only =
        {};                    // the calls that fail; empty: all. For long runs, whose other calls another one sweeps
    std::string removes = {};  // a stale lock: gone also where the files are to be as before
    bool debug_only = false;   // makes other calls where less is logged; another scenario sweeps those
    // The rules for a second failure. Such a rule changes what the first failure leads to: the result if it gives one, the
    // files if it leaves some; its messages come in addition. Where several rules apply, one of them has to fit. Where none
    // does, either the second call gave something back, and its failure is not reported, or the function went on after the
    // first failure, and the second one counts as if it were alone.
    Rules then = {};

    // For the sweep.
    const Rule &rule_for(const Injection &injection) const;
    bool is_usual(const Said &said) const;
    bool is_usual(const Message &said) const;
};

struct Report {
    std::string name;
    size_t calls = 0;
    size_t injections = 0;
    size_t pairs = 0;
    std::vector<std::string> violations;  // each in full
};

Report sweep(const Scenario &scenario);

// The calls that can fail in `call`, by name.
std::vector<std::string> failing_calls_in(const std::function<void()> &call);

}  // namespace faults
