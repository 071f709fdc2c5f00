// Single keys of configuration files.
#include <cerrno>
#include <string>

#include "conf_rules.h"
#include "conf_scenarios.h"
#include "conffile.h"
#include "locks.h"
#include "messages_conffile.h"
#include "messages_fileio.h"

namespace faults {
namespace {

constexpr const char *kGet = "Get_Conf_File_String_Value";
constexpr const char *kSet = "Set_Conf_File_String_Value";
constexpr const char *kSetPairs = "Set_Conf_File_Pair_Values";

template <class Integer>
std::function<void(Trial &)> getting(int32_t (*get)(const char *, const char *, const char *, Integer *)) {
    return [get](Trial &trial) {
        const std::string path = put_conf(trial);
        Integer value = 77;
        trial.call([&] { return get(path.c_str(), "s", "b", &value); });
        trial.check(value == (trial.result() == 0 ? 2 : 77), "the value of the key, or none");
    };
}

Scenarios get_scenarios() {
    const Rules rules = cache_rules({msg::conf_not_cached(kGet)}, {msg::conf_not_cached(kGet)});
    return {
        {kGet, "",
         [](Trial &trial) {
             const std::string path = put_conf(trial);
             std::string text(16, 'x');
             int32_t size = 16;
             trial.call([&] { return Get_Conf_File_String_Value(path.c_str(), "s", "b", text.data(), &size); });
             if (trial.result() == 0)
                 trial.check(size == 1 && text.substr(0, 2) == std::string("2\0", 2), "the value of the key");
             else
                 trial.check(size == 16 && text == std::string(16, 'x'), "nothing is written after a failure");
         },
         0, rules},
        {"Get_Conf_File_Int64_Value", "", getting(Get_Conf_File_Int64_Value), 0, rules},
        {"Get_Conf_File_Int32_Value", "", getting(Get_Conf_File_Int32_Value), 0, rules},
        {"Get_Conf_File_Int16_Value", "", getting(Get_Conf_File_Int16_Value), 0, rules},
        {"Get_Conf_File_Int8_Value", "", getting(Get_Conf_File_Int8_Value), 0, rules},
    };
}

// The steps behind the lock: the read, the new text, its way into place.
Rules edit_rules(const NewFileCalls &calls, int nth = 1) {
    return join({
        {
            Rule(Call::lstat).is_overlooked(),  // the second look sees the same
            Rule(Call::openat, calls.nth_openat).says(msg::key_no_temporary),
            Rule(Call::fdopen).says(msg::key_no_temporary),
            Rule(Call::malloc, calls.nth_malloc).says(msg::key_no_temporary),
        },
        change_rules({msg::conf_not_cached(kSet)}, {msg::conf_not_cached(kSet)}, nth),
        {
            Rule(Call::malloc).is_overlooked(),  // the buffer of a stream that took none
            Rule({Call::setvbuf, Call::fclose}).is_overlooked(),
            // The negated result of `ferror`.
            Rule({Call::fwrite, Call::fprintf, Call::fflush}).gives(-1),
            Rule(Call::rename).says(msg::key_not_renamed),
            Rule(Call::unlinkat).is_overlooked().leaves(Files::as_unharmed, {new_file(".../x.conf.tmp", "", 0640)}),
            Rule(Call::fchmod, 1).is_overlooked(),
            Rule(Call::fchmod, 2).leaves(Files::as_unharmed).says(msg::key_no_mode),
            lock_not_released(),
        },
    });
}

// A file that seems to be missing is made anew, with the bits of the first look.
Rule missing_is_created(const std::string &text) {
    return Rule(Call::fstatat, 1).with(ENOENT).is_overlooked().leaves(Files::as_unharmed, {holding(kConfEntry, text)});
}

std::function<void(Trial &)> setting(const char *section, const char *key, const char *value, const char *wanted) {
    return [=](Trial &trial) {
        const std::string path = put_conf(trial);
        trial.call([&] { return Set_Conf_File_String_Value(path.c_str(), section, key, value); });
        if (trial.injection() == nullptr)
            trial.check(support::read_file(path) == wanted, "the text is edited");
    };
}

Scenarios set_scenarios() {
    const Rules removal_rules =
        join({conf_lock_rules(kSet), edit_rules({.nth_openat = 3, .nth_malloc = block::text + 1})});
    const auto rules = [&](const std::string &created) { return join({{missing_is_created(created)}, removal_rules}); };
    constexpr const char *changed = "a = 1\n[s]\nb = 3\n";
    return {
        {kSet, "an old key", setting("s", "b", "3", changed), 0, rules("[s]\nb = 3\n")},
        {kSet, "a new key", setting("", "c", "3", "a = 1\nc = 3\n\n[s]\nb = 2\n"), 0, rules("[]\nc = 3\n")},
        {kSet, "a new section", setting("t", "c", "3", "a = 1\n[s]\nb = 2\n\n[t]\nc = 3\n"), 0, rules("[t]\nc = 3\n")},
        {kSet, "removing a key", setting("s", "b", nullptr, "a = 1\n[s]\n"), 0, removal_rules},
        {kSet, "removing a key that is not there",
         [](Trial &trial) {
             const std::string path = put_conf(trial);
             trial.call([&] { return Set_Conf_File_String_Value(path.c_str(), "s", "z", nullptr); });
         },
         -ENODATA, removal_rules},
        {kSet, "a missing file",
         [](Trial &trial) {
             const std::string path = trial.path("x.conf");
             trial.call([&] { return Set_Conf_File_String_Value(path.c_str(), "s", "b", "3"); });
         },
         0,
         join({{Rule(Call::fstatat, 1).with(ENOENT).is_overlooked()},
               conf_lock_rules(kSet),
               edit_rules({.nth_openat = 2, .nth_malloc = 1})})},
        {kSet,
         "a stale lock",
         [=](Trial &trial) {
             put_stale_lock(trial, "/var/lock/_x.conf.lck");
             setting("s", "b", "3", changed)(trial);
         },
         0,
         join({{Rule(Call::lstat).is_overlooked().says(msg::lock_of_dead("Get_File_Lock"))},
               stale_lock_rules("Get_File_Lock", 2),
               conf_lock_rules(kSet),
               {missing_is_created("[s]\nb = 3\n")},
               edit_rules({.nth_openat = 3, .nth_malloc = block::text + 1}, 2)}),
         {msg::lock_of_dead("Get_File_Lock")},
         {},
         {},
         "/var/lock/_x.conf.lck"},
        {"Set_Conf_File_Integer_Value", "",
         [](Trial &trial) {
             const std::string path = put_conf(trial);
             trial.call([&] { return Set_Conf_File_Integer_Value(path.c_str(), "s", "b", 3); });
         },
         0, rules("[s]\nb = 3\n")},
    };
}

// Pairs of the caller: "b = longer".
class Pairs {
  public:
    Pairs() { Create_Pair_Node(&node_, "b", "longer"); }
    ~Pairs() { Free_Pair_Node(node_); }
    Pairs(const Pairs &) = delete;
    Pairs &operator=(const Pairs &) = delete;

    const Pair_Node *get() const { return node_; }

  private:
    Pair_Node *node_ = nullptr;
};

// Every failure is reported by messages alone.
Scenarios pairs_scenarios() {
    const Rules lock = {
        Rule(Call::open, 1).is_overlooked(),
        Rule(Call::write, 1).says({msg::lock_not_filled("Get_File_Lock"), msg::conf_no_lock(kSetPairs)}),
    };
    const auto parsed = [](const Message &message) { return Messages{message, msg::conf_not_parsed(kSetPairs)}; };
    const Rules parse = {
        Rule(Call::malloc, block::nameless_section).says(parsed(msg::parse_no_memory("Parse_Conf_Cache"))),
        Rule(Call::malloc, block::first_pair).says(parsed(msg::parse_no_pair("Parse_Conf_Cache"))),
        Rule(Call::malloc, block::second_section).is_overlooked().says(msg::parse_no_section("Parse_Conf_Cache")),
        Rule(Call::malloc, block::second_pair).says(parsed(msg::parse_no_pair("Parse_Conf_Cache"))),
        Rule(Call::malloc, block::after_parse).says({msg::node_no_pair("Set_Pair_String_Value"), msg::pairs_not_set}),
    };
    const Rules cache = change_rules({msg::read_not_cached, msg::conf_not_parsed(kSetPairs)}, {});
    const Rule missing = Rule(Call::fstatat, 1).with(ENOENT).is_overlooked();
    constexpr int new_section = 1;
    constexpr int new_pair = 2;
    const Rules created = {Rule(Call::malloc, new_section).says(msg::node_no_section(kSetPairs)),
                           Rule(Call::malloc, new_pair).says(msg::node_no_pair(kSetPairs))};
    return {
        {kSetPairs, "an old file",
         [](Trial &trial) {
             const std::string path = put_conf(trial);
             const Pairs pairs;
             trial.call([&] { return Set_Conf_File_Pair_Values(path.c_str(), "s", pairs.get()); });
         },
         0,
         reported_only(
             join({{Rule(missing).leaves(Files::as_unharmed, {holding(kConfEntry, "[s]\nb = longer\n\n")})},
                   lock,
                   parse,
                   cache,
                   {look_before_update()},
                   update_rules({.nth_openat = 3, .nth_malloc = block::after_parse + 1},
                                {"a = 1\n", "\n", "[s]\n", "b = longer\n", "\n"}, {msg::conf_not_updated(kSetPairs)}),
                   {lock_not_released()}}),
             0)},
        {kSetPairs, "a missing file",
         [](Trial &trial) {
             const std::string path = trial.path("x.conf");
             const Pairs pairs;
             trial.call([&] { return Set_Conf_File_Pair_Values(path.c_str(), "s", pairs.get()); });
         },
         0,
         reported_only(join({{missing},
                             lock,
                             created,
                             look_before_making(),
                             update_rules({.nth_openat = 2, .nth_malloc = new_pair + 1},
                                          {"[s]\n", "b = longer\n", "\n"}, {msg::conf_not_updated(kSetPairs)}),
                             cache,
                             {lock_not_released()}}),
                       0)},
    };
}

}  // namespace

Scenarios conf_key_scenarios() {
    return join({get_scenarios(), set_scenarios(), pairs_scenarios()});
}

}  // namespace faults
