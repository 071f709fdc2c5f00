// Stream sockets of the local domain, named by a path.
#include <fcntl.h>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "base/handles.h"
#include "base/message.h"
#include "options.h"
#include "socket.h"

namespace korvex::socket {
namespace {

constexpr const char *kListen = "Domain_Socket_Listen";
constexpr const char *kConnect = "Domain_Socket_Connect";
constexpr int kBacklog = 128;
constexpr mode_t kEverybody = 0666;
// SIOCUNIXFILE of <linux/un.h>, which can't stand beside <sys/un.h>.
constexpr unsigned long kOpenSocketFile = SIOCPROTOPRIVATE;

class LocalAddress final {
  public:
    // False where the path and its NUL do not fit.
    [[nodiscard]] bool assign(const char *path) {
        const size_t length = std::strlen(path);
        if (length >= sizeof address_.sun_path)
            return false;

        address_.sun_family = AF_UNIX;
        std::memcpy(address_.sun_path, path, length);
        return true;
    }

    const sockaddr *get() const { return reinterpret_cast<const sockaddr *>(&address_); }
    // Always the whole record: the name ends at its NUL.
    static socklen_t size() { return sizeof(sockaddr_un); }

  private:
    sockaddr_un address_{};
};

// The socket's file, as a descriptor that names it and no more. Whoever may write to the folder may have put something
// else at the path by now, so the system is asked for the file that the socket is bound to. It answers the privileged
// alone (CAP_NET_ADMIN); for others what is at the path must be a socket of their own, and have no other name.
int32_t open_socket_file(int socket, const char *path, UniqueFd &file) {
    file = UniqueFd(ioctl(socket, kOpenSocketFile));
    if (file)
        return 0;

    file = UniqueFd(open(path, O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat found;
    if (!file || fstat(file.get(), &found) != 0)
        return -errno;
    if (S_ISLNK(found.st_mode))
        return -ELOOP;
    return S_ISSOCK(found.st_mode) && found.st_uid == geteuid() && found.st_nlink == 1 ? 0 : -ESTALE;
}

int32_t open_to_everybody(int socket, const char *path) {
    UniqueFd file;
    const int32_t result = open_socket_file(socket, path, file);
    if (result != 0)
        return result;

    // `fchmod` refuses a descriptor that only names its file.
    std::array<char, 32> name;
    std::snprintf(name.data(), name.size(), "/proc/self/fd/%d", file.get());
    return chmod(name.data(), kEverybody) == 0 ? 0 : -errno;
}

int32_t bind_and_listen(int socket, const char *path, const LocalAddress &address) {
    if (bind(socket, address.get(), LocalAddress::size()) != 0) {
        const int32_t result = -errno;
        LOG_ERROR_AS(kListen, "Bind domain socket error!(%d)\n", result);
        return result;
    }

    if (const int32_t result = open_to_everybody(socket, path); result != 0)
        LOG_ERROR_AS(kListen, "Can't chmod for %s!(%d)\n", path, result);

    if (listen(socket, kBacklog) != 0) {
        const int32_t result = -errno;
        LOG_ERROR_AS(kListen, "Listen domain error!(%d)\n", result);
        return result;
    }
    return 0;
}

}  // namespace
}  // namespace korvex::socket

using namespace korvex;
using namespace korvex::socket;

int32_t Domain_Sock_Set_Nonblocking(int32_t fd) {
    const int flags = fcntl(fd, F_GETFL);
    if (flags < 0) {
        const int32_t result = -errno;
        LOG_ERROR("Get fcntl error!(%d)\n", result);
        return result;
    }

    if (fcntl(fd, F_SETFL, flags | O_NONBLOCK) != 0) {
        const int32_t result = -errno;
        LOG_ERROR("Set fcntl error!(%d)\n", result);
        return result;
    }
    return 0;
}

int32_t Domain_Socket_Listen(const char *pszPath, int32_t *pfdSocket, int32_t bNonblocking) {
    if (pszPath == nullptr || pfdSocket == nullptr || bNonblocking < 0)
        return -EINVAL;

    *pfdSocket = -1;
    LocalAddress address;
    if (!address.assign(pszPath))
        return -ENAMETOOLONG;

    (void)unlink(pszPath);  // a file that an earlier run left would be in the way; where there is none, all is well
    UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM, 0));
    if (!socket) {
        const int32_t result = -errno;
        LOG_ERROR("Create socket error!(%d)\n", result);
        return result;
    }

    int32_t result = bind_and_listen(socket.get(), pszPath, address);
    if (result != 0)
        return result;

    if (bNonblocking != 0) {
        result = Domain_Sock_Set_Nonblocking(socket.get());
        if (result != 0)
            LOG_ERROR("Can't set domain socket non-blocking! (%d)\n", result);
    }
    *pfdSocket = socket.release();
    return 0;
}

int32_t Domain_Socket_Connect(const char *pszPath, int32_t *pfdSocket, int32_t nTimeout) {
    LocalAddress address;
    if (!address.assign(pszPath))
        return -ENAMETOOLONG;

    UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM, 0));
    if (!socket) {
        const int32_t result = -errno;
        LOG_ERROR("Create domain socket error!(%d)\n", result);
        return result;
    }

    const int32_t result = set_timeouts(socket.get(), nTimeout, [](const char *which, int32_t code) {
        LOG_ERROR_AS(kConnect, "Set domain socket %s timeout error!(%d)\n", which, code);
    });
    if (result != 0)
        return result;

    if (connect(socket.get(), address.get(), LocalAddress::size()) != 0) {
        const int32_t connect_result = -errno;
        LOG_ERROR("Connect domain socket error!(%d)\n", connect_result);
        return connect_result;
    }
    *pfdSocket = socket.release();
    return 0;
}
