// Questions about processes.
#include <signal.h>

#include <cerrno>

#include "miscfunc.h"

int32_t Is_Process_Existed(int32_t nPid) {
    if (nPid <= 0)
        return 0;

    if (kill(nPid, 0) == 0)
        return 1;
    return errno == ESRCH ? 0 : -errno;
}
