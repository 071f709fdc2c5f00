#include "plants.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>

namespace neighbours {
namespace {

void check(int result, const std::string &what) {
    if (result != 0)
        throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

void plant_link(const std::string &target, const std::string &name) {
    check(symlink(target.c_str(), name.c_str()), "plant the link " + name);
}

void plant_pipe(const std::string &name) {
    check(mkfifo(name.c_str(), 0666), "plant the pipe " + name);
    check(chmod(name.c_str(), 0666), "open the pipe " + name + " to everybody");
}

void plant_socket(const std::string &name) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (name.copy(address.sun_path, sizeof address.sun_path - 1) != name.size())
        throw std::runtime_error("the name is too long for a socket: " + name);

    const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int result = bind(descriptor, reinterpret_cast<const sockaddr *>(&address), sizeof address);
    close(descriptor);
    check(result, "plant the socket " + name);
}

void plant_hard_link(const std::string &file, const std::string &name) {
    check(link(file.c_str(), name.c_str()), "plant the hard link " + name);
}

void exchange(const std::string &one, const std::string &other) {
    check(renameat2(AT_FDCWD, one.c_str(), AT_FDCWD, other.c_str(), RENAME_EXCHANGE),
          "exchange " + one + " and " + other);
}

void replace(const std::string &source, const std::string &name) {
    check(rename(source.c_str(), name.c_str()), "put " + source + " at " + name);
}

void unlink_name(const std::string &name) {
    check(unlink(name.c_str()), "remove " + name);
}

void make_folder(const std::string &name) {
    check(mkdir(name.c_str(), 0755), "make the folder " + name);
}

std::string plant_maze(const std::string &folder, const std::string &target) {
    constexpr int links = 39;  // the kernel follows 40 in one look-up
    constexpr int steps = 1'300;
    make_folder(folder);
    make_folder(folder + "/x");
    std::string detour;
    for (int i = 0; i < steps / 2; i++)
        detour += "x/../";

    plant_link(target, folder + "/0");
    for (int i = 1; i < links; i++)
        plant_link(detour + std::to_string(i - 1), folder + "/" + std::to_string(i));
    return folder + "/" + std::to_string(links - 1);
}

}  // namespace neighbours
