/* A host in C, built against an installed library by its pkg-config file. */
#include <korvex_util.h>
#include <stdio.h>

int main(int argc, char **argv) {
    char value[32];
    int32_t size = sizeof value;
    if (argc != 2 || Set_Conf_File_Integer_Value(argv[1], "net", "mtu", 1500) != 0)
        return 1;
    if (Get_Conf_File_String_Value(argv[1], "net", "mtu", value, &size) != 0)
        return 1;
    printf("mtu %s\n", value);
    return 0;
}
