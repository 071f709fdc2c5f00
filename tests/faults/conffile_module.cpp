// All of the configurations.
#include <array>
#include <memory>

#include "conf_scenarios.h"
#include "conffile.h"

namespace faults {
namespace {

// Gets a number from a list of pairs and from a configuration.
template <class Integer>
Unfailing getting(const char *function, const std::shared_ptr<Sect_Node> &conf,
                  int32_t (*get)(const Pair_Node *, const char *, Integer *)) {
    return {function, "looks at nodes in memory", [=] {
                Integer value = 0;
                get(conf->pPairs, "a", &value);
            }};
}

template <class Integer>
Unfailing getting(const char *function, const std::shared_ptr<Sect_Node> &conf,
                  int32_t (*get)(const Sect_Node *, const char *, const char *, Integer *)) {
    return {function, "looks at nodes in memory", [=] {
                Integer value = 0;
                get(conf.get(), "s", "a", &value);
            }};
}

Sect_Node *a_section() {
    const support::Undisturbed preparing;
    Sect_Node *section = nullptr;
    Create_Sect_Node(&section, "s");
    Create_Pair_Node(&section->pPairs, "a", "1");
    return section;
}

std::vector<Unfailing> unfailing() {
    const std::shared_ptr<Sect_Node> conf(a_section(), Free_Sect_Node);
    const std::string looks = "looks at nodes in memory";
    return {
        {"Free_Pair_Node", "frees nodes",
         [] {
             Pair_Node *pairs = nullptr;
             {
                 const support::Undisturbed preparing;
                 Create_Pair_Node(&pairs, "a", "1");
             }
             Free_Pair_Node(pairs);
         }},
        {"Free_Sect_Node", "frees nodes", [] { Free_Sect_Node(a_section()); }},
        {"Get_Pair_String_Buffer", looks,
         [=] {
             char *text = nullptr;
             Get_Pair_String_Buffer(conf->pPairs, "a", &text);
         }},
        {"Get_Pair_String_Value", looks,
         [=] {
             std::array<char, 8> text{};
             int32_t size = 8;
             Get_Pair_String_Value(conf->pPairs, "a", text.data(), &size);
         }},
        getting("Get_Pair_Int64_Value", conf, Get_Pair_Int64_Value),
        getting("Get_Pair_Int32_Value", conf, Get_Pair_Int32_Value),
        getting("Get_Pair_Int16_Value", conf, Get_Pair_Int16_Value),
        getting("Get_Pair_Int8_Value", conf, Get_Pair_Int8_Value),
        {"Get_Conf_String_Pointer", looks,
         [=] {
             char *text = nullptr;
             Get_Conf_String_Pointer(conf.get(), "s", "a", &text);
         }},
        {"Get_Conf_String_Value", looks,
         [=] {
             std::array<char, 8> text{};
             int32_t size = 8;
             Get_Conf_String_Value(conf.get(), "s", "a", text.data(), &size);
         }},
        getting("Get_Conf_Int64_Value", conf, Get_Conf_Int64_Value),
        getting("Get_Conf_Int32_Value", conf, Get_Conf_Int32_Value),
        getting("Get_Conf_Int16_Value", conf, Get_Conf_Int16_Value),
        getting("Get_Conf_Int8_Value", conf, Get_Conf_Int8_Value),
    };
}

}  // namespace

Module conffile_module() {
    return {"conffile",
            join({conf_node_scenarios(), conf_text_scenarios(), conf_section_scenarios(), conf_key_scenarios()}),
            unfailing()};
}

}  // namespace faults
