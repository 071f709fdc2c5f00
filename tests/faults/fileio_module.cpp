// All of the functions on files.
#include "file_scenarios.h"
#include "fileio.h"

namespace faults {

Module fileio_module() {
    return {"fileio",
            join({lock_scenarios(), path_scenarios(), temp_scenarios(), transfer_scenarios(), copy_scenarios(),
                  tree_copy_scenarios(), tree_scenarios()}),
            {{"Get_Filename", "looks at a text",
              [] {
                  const char *name = nullptr;
                  Get_Filename("/a/b", &name);
              }},
             {"Check_Temp_Filename", "looks at a text", [] { Check_Temp_Filename("/a/b"); }}}};
}

}  // namespace faults
