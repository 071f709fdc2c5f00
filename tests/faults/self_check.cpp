#include <cstdio>
namespace faults {
int check_the_sweep() {
    return 0;
}
}  // namespace faults
