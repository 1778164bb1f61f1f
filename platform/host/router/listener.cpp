#include "listener.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace router
{

static constexpr char PORT_VARIABLE[] = "DIAG_PORT";         // environment: the socket's path
static constexpr char INHERITED_VARIABLE[] = "DIAG_PORT_FD"; // or: a descriptor that listens already
static constexpr char DEFAULT_PORT[] = "/dev/socket/diag/port";

static owned::descriptor make_socket()
{
    return owned::descriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
}

bool listener::fail(const char *what) const
{
    fprintf(stderr, "libdiag: %s %s: %s\n", what, path_, strerror(errno));
    return false;
}

bool listener::choose_path()
{
    const char *path = getenv(PORT_VARIABLE);
    if (!path || *path == '\0')
        path = DEFAULT_PORT;
    if (strlen(path) >= sizeof path_) {
        fprintf(stderr, "libdiag: the path of the port is longer than %zu bytes: %s\n", sizeof path_ - 1,
                path);
        return false;
    }
    snprintf(path_, sizeof path_, "%s", path);
    return true;
}

// A socket that nobody listens at may be replaced; anything else may not.
bool listener::path_is_free() const
{
    struct stat there;
    if (lstat(path_, &there) != 0)
        return errno == ENOENT || fail("cannot look at");
    if (!S_ISSOCK(there.st_mode)) {
        errno = ENOTSOCK;
        return fail("will not replace");
    }
    const owned::descriptor probe = make_socket();
    if (!probe)
        return fail("cannot make a socket for");
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof address.sun_path, "%s", path_);
    const bool answered =
        connect(probe.get(), reinterpret_cast<sockaddr *>(&address), sizeof address) == 0 || errno == EAGAIN;
    errno = EADDRINUSE;
    return !answered || fail("cannot listen at");
}

// The socket gets its name when it listens, so that whoever sees it can connect.
bool listener::listen_at_path()
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const int length = snprintf(address.sun_path, sizeof address.sun_path, "%s.%d", path_, getpid());
    if (length >= static_cast<int>(sizeof address.sun_path)) {
        errno = ENAMETOOLONG;
        return fail("cannot listen at");
    }
    unlink(address.sun_path); // of a process of the same id, long gone
    owned::descriptor fresh = make_socket();
    if (!fresh || bind(fresh.get(), reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
        listen(fresh.get(), SOMAXCONN) != 0 || rename(address.sun_path, path_) != 0) {
        fail("cannot make a socket for");
        unlink(address.sun_path);
        return false;
    }
    socket_ = std::move(fresh);
    return true;
}

// The socket was made by somebody whom no shell line can reach, and has its name where none can replace it.
// Who waits at it when this process has ended is served by the next that gets it.
bool listener::take_inherited(const char *number)
{
    snprintf(path_, sizeof path_, "descriptor %s", number);
    const char *end = number + strlen(number);
    int fd = -1, listens;
    socklen_t size = sizeof listens;
    if (std::from_chars(number, end, fd).ptr != end ||
        getsockopt(fd, SOL_SOCKET, SO_ACCEPTCONN, &listens, &size) != 0 || listens == 0) {
        errno = ENOTSOCK;
        return fail("cannot listen at");
    }
    inherited_ = true;
    socket_ = owned::descriptor(fd);
    fcntl(socket(), F_SETFD, FD_CLOEXEC);
    fcntl(socket(), F_SETFL, O_RDWR | O_NONBLOCK);
    return true;
}

bool listener::open()
{
    const char *number = getenv(INHERITED_VARIABLE);
    return number ? take_inherited(number) : choose_path() && path_is_free() && listen_at_path();
}

owned::descriptor listener::accept() const
{
    return owned::descriptor(accept4(socket(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
}

void listener::give_up_name() const
{
    if (!inherited_)
        unlink(path_);
}

} // namespace router
