// A host on the C++ layer, built against an installed library.
#include <conffile.h>

#include <cstdio>
#include <korvex/korvex.hpp>

int main(int argc, char **argv) {
    if (argc != 2)
        return 1;
    int32_t mtu = 0;
    const int32_t result = Get_Conf_File_Int32_Value(argv[1], "net", "mtu", &mtu);
    if (result < 0)
        throw korvex::error(-result, "can't read", argv[1]);
    std::printf("mtu %d\n", mtu);
}
