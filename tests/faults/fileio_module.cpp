// All of the functions on files.
#include "file_scenarios.h"

namespace faults {

Module fileio_module() {
    return {"fileio",
            join({lock_scenarios(), path_scenarios(), temp_scenarios(), transfer_scenarios(), copy_scenarios(),
                  tree_copy_scenarios(), tree_scenarios()}),
            {{"Get_Filename", "looks at a text"}, {"Check_Temp_Filename", "looks at a text"}}};
}

}  // namespace faults
