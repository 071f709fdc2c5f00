// Configurations in memory, which can run short only of memory.
#include <cerrno>
#include <string>

#include "conf_scenarios.h"
#include "conffile.h"
#include "messages_conffile.h"

namespace faults {
namespace {

std::string text_of(const Sect_Node *conf) {
    std::string text;
    for (const Sect_Node *section = conf; section != nullptr; section = section->pNext) {
        text += std::string("[") + section->szName + "]";
        for (const Pair_Node *pair = section->pPairs; pair != nullptr; pair = pair->pNext)
            text += std::string(pair->szKey) + "=" + pair->pszValue + ";";
    }
    return text;
}

// A configuration "[]a=1;[s]b=2;", freed at its end.
class Conf {
  public:
    Conf() {
        Create_Sect_Node(&head_, "");
        Create_Pair_Node(&head_->pPairs, "a", "1");
        Create_Sect_Node(&head_->pNext, "s");
        Create_Pair_Node(&head_->pNext->pPairs, "b", "2");
    }
    ~Conf() { Free_Sect_Node(head_); }
    Conf(const Conf &) = delete;
    Conf &operator=(const Conf &) = delete;

    Sect_Node *get() const { return head_; }
    Pair_Node **pairs() const { return &head_->pPairs; }
    void check(Trial &trial, const std::string &wanted) const {
        const std::string seen = text_of(head_);
        trial.check(seen == (trial.result() == 0 ? wanted : "[]a=1;[s]b=2;"), "the list " + seen);
    }

  private:
    Sect_Node *head_ = nullptr;
};

// Creates one node, which is null where that fails.
template <class Node, class Create, class Free>
std::function<void(Trial &)> creating(Create create, Free free_node) {
    return [=](Trial &trial) {
        auto *node = reinterpret_cast<Node *>(&trial);
        trial.call([&] { return create(&node); });
        trial.check((node != nullptr) == (trial.result() == 0), "a node comes with success alone");
        free_node(node);
    };
}

// Changes a configuration, which stays as it is where that fails.
template <class Change>
std::function<void(Trial &)> changing(Change change, const std::string &wanted) {
    return [=](Trial &trial) {
        const Conf conf;
        trial.call([&] { return change(conf); });
        conf.check(trial, wanted);
    };
}

}  // namespace

Scenarios conf_node_scenarios() {
    const Rules pair = {Rule(Call::malloc).says(msg::node_no_pair("Set_Pair_String_Value"))};
    constexpr int new_pair = 1;
    constexpr int new_section = 2;
    const Rules section = {Rule(Call::malloc, new_pair).says(msg::node_no_pair("Set_Conf_String_Value")),
                           Rule(Call::malloc, new_section).says(msg::node_no_section("Set_Conf_String_Value"))};
    return {
        {"Create_Pair_Node", "",
         creating<Pair_Node>([](Pair_Node **node) { return Create_Pair_Node(node, "k", "v"); }, Free_Pair_Node)},
        {"Create_Integer_Pair_Node", "",
         creating<Pair_Node>([](Pair_Node **node) { return Create_Integer_Pair_Node(node, "k", -7); }, Free_Pair_Node)},
        {"Create_Sect_Node", "",
         creating<Sect_Node>([](Sect_Node **node) { return Create_Sect_Node(node, "s"); }, Free_Sect_Node)},
        {"Set_Pair_String_Value", "a longer value",
         changing([](const Conf &conf) { return Set_Pair_String_Value(conf.pairs(), "a", "long"); },
                  "[]a=long;[s]b=2;"),
         0, pair},
        {"Set_Pair_String_Value", "a new key",
         changing([](const Conf &conf) { return Set_Pair_String_Value(conf.pairs(), "c", "3"); }, "[]a=1;c=3;[s]b=2;"),
         0, pair},
        {"Set_Pair_Integer_Value", "a longer value",
         changing([](const Conf &conf) { return Set_Pair_Integer_Value(conf.pairs(), "a", 100); }, "[]a=100;[s]b=2;"),
         0, pair},
        {"Set_Conf_String_Value", "a longer value",
         changing([](const Conf &conf) { return Set_Conf_String_Value(conf.get(), "s", "b", "long"); },
                  "[]a=1;[s]b=long;"),
         0, pair},
        {"Set_Conf_String_Value", "a new section",
         changing([](const Conf &conf) { return Set_Conf_String_Value(conf.get(), "t", "c", "3"); },
                  "[]a=1;[s]b=2;[t]c=3;"),
         0, section},
        {"Set_Conf_Integer_Value", "a new section",
         changing([](const Conf &conf) { return Set_Conf_Integer_Value(conf.get(), "t", "c", 3); },
                  "[]a=1;[s]b=2;[t]c=3;"),
         0, section},
    };
}

}  // namespace faults
