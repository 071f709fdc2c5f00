// A host in C++, built against an installed library by its CMake package.
#include <korvex_util.h>

#include <cstdio>
#include <memory>

int main(int argc, char **argv) {
    Sect_Node *conf = nullptr;
    if (argc != 2 || Read_Conf_File(argv[1], &conf) != 1)
        return 1;

    const std::unique_ptr<Sect_Node, decltype(&Free_Sect_Node)> owner(conf, Free_Sect_Node);
    int32_t mtu = 0;
    if (Get_Conf_Int32_Value(conf, "net", "mtu", &mtu) != 0)
        return 1;
    std::printf("mtu %d\n", mtu);
}
