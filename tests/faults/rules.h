// Rules: what a scenario expects of a run in which one call fails.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "calls.h"
#include "message_log.h"
#include "snapshot.h"

namespace faults {

// One call made to fail, or to move a single byte where more were asked for.
struct Injection {
    Call call;
    int nth;    // of the calls of that function, from 1
    int error;  // 0 for a short one, or kNoErrno
    bool is_short() const { return error == 0; }
    std::string text() const;  // "read #2 fails with EIO"
};

// What is done to one run.
struct Harm {
    Injection first;
    std::optional<Injection> second = {};
    std::string text() const;
};

// What the scenario's folder and the folder of the locks hold after the call.
enum class Files {
    as_before,    // the call
    as_unharmed,  // what the run without a fault leaves
    either,       // one of these
    any,          // which the scenario judges itself
};

// What a run may do after certain failures. By default the result is the negated errno, nothing is logged, and the files
// are as before. Where the result is that of the unharmed run, the files are as that run leaves them.
class Rule {
  public:
    // The failures that the rule is for: those of any call, of one function's calls, or of its nth call alone; all errors and
    // short counts, or some of them.
    Rule() = default;
    explicit Rule(Call call, int nth = 0) : calls_{call}, nth_(nth) {}
    explicit Rule(std::vector<Call> calls) : calls_(std::move(calls)) {}
    Rule &when_short() { return kind_ = Kind::shortened, *this; }
    Rule &when_failing() { return kind_ = Kind::failing, *this; }
    Rule &with(int error) { return error_ = error, *this; }

    // The same rule for every call of the function, not the nth alone.
    Rule any_time() const {
        Rule rule = *this;
        return rule.nth_ = 0, rule;
    }

    // The results that are allowed. A later call replaces an earlier one.
    Rule &gives(std::vector<int64_t> results) { return results_ = std::move(results), *this; }
    Rule &gives(int64_t result) { return gives(std::vector<int64_t>{result}); }
    Rule &is_overlooked() { return overlooked_ = true, *this; }
    // The code in the messages, if it is not the negated errno. It is the result, too, where no other was given.
    Rule &with_code(int32_t code) { return has_code_ = true, code_ = code, *this; }

    // Exactly these messages, in this order. The scenario's usual ones may stand between them.
    Rule &says(std::vector<Message> messages) { return messages_ = std::move(messages), *this; }
    Rule &says(const Message &message) { return says(std::vector<Message>{message}); }
    // How the files are left. The entries that the changes concern may be as the changes say.
    Rule &leaves(Files files, Changes changes = {}) {
        return has_files_ = true, files_ = files, changes_ = std::move(changes), *this;
    }

    // For a rule about a second failure: the messages of the first one do not come then.
    Rule &alone() { return alone_ = true, *this; }

    // For the sweep.
    bool counts_alone() const { return alone_; }
    bool applies_to(const Injection &injection) const;
    int32_t code(const Injection &injection) const { return has_code_ ? code_ : -injection.error; }
    bool allows(int64_t result, const Injection &injection, int64_t unharmed) const;
    std::string allowed_results(const Injection &injection, int64_t unharmed) const;
    Files files(int64_t result, int64_t unharmed) const;
    bool overlooked() const { return overlooked_; }
    bool has_results() const { return overlooked_ || !results_.empty(); }
    bool has_files() const { return has_files_; }
    const Changes &changes() const { return changes_; }
    const std::vector<Message> &messages() const { return messages_; }

  private:
    enum class Kind { any, failing, shortened };

    std::vector<int64_t> results(const Injection &injection, int64_t unharmed) const;

    std::vector<Call> calls_;
    int nth_ = 0;
    Kind kind_ = Kind::any;
    int error_ = 0;
    std::vector<int64_t> results_;
    bool overlooked_ = false;
    bool alone_ = false;
    bool has_code_ = false;
    int32_t code_ = 0;
    bool has_files_ = false;
    Files files_ = Files::as_before;
    Changes changes_;
    std::vector<Message> messages_;
};

using Rules = std::vector<Rule>;

// The same rules for a function that always gives `result`, and reports failures by its messages alone.
Rules reported_only(Rules rules, int64_t result);

// The rules of several groups, one after the other: the first that applies counts.
Rules join(const std::vector<Rules> &groups);

// Closing what was only read from: a failure is not reported.
inline Rule giving_back() {
    return Rule({Call::close, Call::closedir, Call::fclose, Call::pclose}).is_overlooked();
}

}  // namespace faults
