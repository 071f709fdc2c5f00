// All of the configurations.
#include "conf_scenarios.h"

namespace faults {

Module conffile_module() {
    const std::string looks = "looks at nodes in memory";
    const std::string frees = "frees nodes";
    return {"conffile",
            join({conf_node_scenarios(), conf_text_scenarios(), conf_section_scenarios(), conf_key_scenarios()}),
            {{"Free_Pair_Node", frees},
             {"Free_Sect_Node", frees},
             {"Get_Pair_String_Buffer", looks},
             {"Get_Pair_String_Value", looks},
             {"Get_Pair_Int64_Value", looks},
             {"Get_Pair_Int8_Value", looks},
             {"Get_Pair_Int16_Value", looks},
             {"Get_Pair_Int32_Value", looks},
             {"Get_Conf_String_Pointer", looks},
             {"Get_Conf_String_Value", looks},
             {"Get_Conf_Int64_Value", looks},
             {"Get_Conf_Int8_Value", looks},
             {"Get_Conf_Int16_Value", looks},
             {"Get_Conf_Int32_Value", looks}}};
}

}  // namespace faults
