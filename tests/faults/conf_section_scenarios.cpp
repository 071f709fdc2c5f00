// Sections of configuration files.
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

// A section of the caller, "[s]" with "b = longer".
class Section {
  public:
    explicit Section(const char *name) {
        Create_Sect_Node(&node_, name);
        Create_Pair_Node(&node_->pPairs, "b", "longer");
    }
    ~Section() { Free_Sect_Node(node_); }
    Section(const Section &) = delete;
    Section &operator=(const Section &) = delete;

    Sect_Node *get() const { return node_; }
    void check(Trial &trial) const { trial.check(node_->pNext == nullptr, "the caller's node stands alone"); }

  private:
    Sect_Node *node_ = nullptr;
};

// The steps of a change: the lock, the read and parse of kConf, the write of what `prints` says.
Rules section_rules(const char *function, int64_t result_without_section, int nth_stream_malloc, const Prints &prints) {
    return join(
        {conf_lock_rules(function),
         change_rules({msg::read_not_cached, msg::conf_not_parsed(function)}, {}),
         parse_rules("Parse_Conf_Cache", result_without_section),
         {look_before_update()},
         update_rules({.nth_openat = 3, .nth_malloc = nth_stream_malloc}, prints, {msg::conf_not_updated(function)}),
         {lock_not_released()}});
}

// A failure of the parse is the callers' failure, too.
Rules with_parse_failure(const char *function, Rules rules) {
    const Rules parse = {
        Rule(Call::malloc, block::nameless_section)
            .says({msg::parse_no_memory("Parse_Conf_Cache"), msg::conf_not_parsed(function)}),
        Rule(Call::malloc, block::first_pair)
            .says({msg::parse_no_pair("Parse_Conf_Cache"), msg::conf_not_parsed(function)}),
        Rule(Call::malloc, block::second_pair)
            .says({msg::parse_no_pair("Parse_Conf_Cache"), msg::conf_not_parsed(function)}),
    };
    return join({parse, rules});
}

std::function<void(Trial &)> setting(const char *section, bool with_node, const char *wanted) {
    return [=](Trial &trial) {
        const std::string path = put_conf(trial);
        const Section node(section);
        trial.call([&] { return Set_Conf_File_Section(path.c_str(), section, with_node ? node.get() : nullptr); });
        node.check(trial);
        if (trial.injection() == nullptr)
            trial.check(support::read_file(path) == wanted, "the section is set");
    };
}

// A file that seems to be missing counts as an empty one.
Rule missing_is_created(const char *text) {
    return Rule(Call::fstatat, 1).with(ENOENT).gives(0).leaves(Files::as_unharmed, {holding(kConfEntry, text)});
}

// Without memory for a section node the list ends there, and what it holds is written with the change.
Rule list_is_cut(const char *text) {
    return Rule(Call::malloc, block::second_section)
        .gives(0)
        .says(msg::parse_no_section("Parse_Conf_Cache"))
        .leaves(Files::as_unharmed, {holding(kConfEntry, text)});
}

}  // namespace

Scenarios conf_section_scenarios() {
    constexpr const char *set = "Set_Conf_File_Section";
    constexpr const char *merge = "Update_Conf_File_Section";
    // A file that is missing can't have the section.
    const Rule missing = Rule(Call::fstatat, 1).with(ENOENT);
    return {
        {"Get_Conf_File_Section", "",
         [](Trial &trial) {
             const std::string path = put_conf(trial);
             auto *section = reinterpret_cast<Sect_Node *>(&trial);
             trial.call([&] { return Get_Conf_File_Section(path.c_str(), "s", &section); });
             trial.check((section != nullptr) == (trial.result() == 0), "a section comes with success alone");
             Free_Sect_Node(section);
         },
         0, join({cache_rules({msg::read_not_cached}, {}), parse_rules("Parse_Conf_Cache", -ENOANO)})},
        {set, "replacing", setting("s", true, "a = 1\n\n[s]\nb = longer\n\n"), 0,
         join({{missing_is_created("[s]\nb = longer\n\n")},
               with_parse_failure(
                   set, section_rules(set, 0, block::after_parse, {"a = 1\n", "\n", "[s]\n", "b = longer\n", "\n"}))})},
        {set, "appending", setting("t", true, "a = 1\n\n[s]\nb = 2\n\n[t]\nb = longer\n\n"), 0,
         join({{missing_is_created("[t]\nb = longer\n\n"), list_is_cut("a = 1\n\n[t]\nb = longer\n\n")},
               with_parse_failure(
                   set, section_rules(set, 0, block::after_parse,
                                      {"a = 1\n", "\n", "[s]\n", "b = 2\n", "\n", "[t]\n", "b = longer\n", "\n"}))})},
        {set, "removing", setting("s", false, "a = 1\n\n"), 0,
         with_parse_failure(set, section_rules(set, -ENOANO, block::after_parse, {"a = 1\n", "\n"}))},
        {set, "a missing file",
         [](Trial &trial) {
             const std::string path = trial.path("x.conf");
             const Section node("s");
             trial.call([&] { return Set_Conf_File_Section(path.c_str(), "s", node.get()); });
             node.check(trial);
         },
         0,
         join({{Rule(Call::fstatat, 1).with(ENOENT).is_overlooked()},
               look_before_making(),
               conf_lock_rules(set),
               update_rules({.nth_openat = 2, .nth_malloc = 1}, {"[s]\n", "b = longer\n", "\n"},
                            {msg::conf_not_updated(set)}),
               change_rules({msg::read_not_cached, msg::conf_not_parsed(set)}, {}),
               {lock_not_released()}})},
        {merge, "",
         [](Trial &trial) {
             const std::string path = put_conf(trial);
             const Section node("s");
             trial.call([&] { return Update_Conf_File_Section(path.c_str(), "s", node.get()); });
             if (trial.injection() == nullptr)
                 trial.check(support::read_file(path) == "a = 1\n\n[s]\nb = longer\n\n", "the pairs are merged");
         },
         0,
         join({{Rule(missing).says(msg::conf_not_parsed(merge)),
                Rule(Call::malloc, block::after_parse)
                    .says({msg::node_no_pair("Set_Pair_String_Value"), msg::merge_no_pair})},
               with_parse_failure(merge, section_rules(merge, -ENOANO, block::after_parse + 1,
                                                       {"a = 1\n", "\n", "[s]\n", "b = longer\n", "\n"}))})},
    };
}

}  // namespace faults
