#include "station/client/transport.h"

#include "station/client/errors.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <limits>
#include <linux/major.h>
#include <memory>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <termios.h>
#include <thread>
#include <unistd.h>

namespace station
{

[[noreturn]] static void fail(const std::string &what, int error = errno)
{
    throw PortError(what + ": " + std::strerror(error));
}

static constexpr auto BACKLOG_PAUSE = std::chrono::milliseconds(10);

// 0 when the deadline has passed.
static int milliseconds_until(Deadline deadline)
{
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return static_cast<int>(std::clamp<long long>(left, 0, std::numeric_limits<int>::max()));
}

// True when the descriptor is ready, false at the deadline: it has then been looked at once more.
static bool wait_for(int fd, short events, Deadline deadline)
{
    for (;;) {
        const int left = milliseconds_until(deadline);
        pollfd waiting{fd, events, {}};
        if (poll(&waiting, 1, left) > 0)
            return true;
        if (left == 0)
            return false;
    }
}

// What came of a connection that is made in the background: 0 or the error number.
static int outcome_of_connecting(int fd, Deadline deadline)
{
    if (!wait_for(fd, POLLOUT, deadline))
        return ETIMEDOUT;
    int error = 0;
    socklen_t length = sizeof error;
    getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length);
    return error;
}

// Connects a non-blocking socket before the deadline; 0 or the error number.
static int connect_before(int fd, const sockaddr *address, socklen_t size, Deadline deadline)
{
    while (connect(fd, address, size) != 0) {
        if (errno == EINPROGRESS)
            return outcome_of_connecting(fd, deadline);
        // A Unix socket with a full backlog answers EAGAIN instead of connecting in the background.
        if (errno != EAGAIN || milliseconds_until(deadline) == 0)
            return errno;
        std::this_thread::sleep_for(BACKLOG_PAUSE);
    }
    return 0;
}

static owned::descriptor open_unix_socket(const std::string &path, Deadline deadline)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::string name = path;
    owned::descriptor inode;
    // The address holds 107 characters. A socket deeper in the tree is reached through a descriptor of its
    // own inode.
    if (path.size() >= sizeof address.sun_path) {
        inode.reset(open(path.c_str(), O_PATH | O_CLOEXEC));
        name = "/proc/self/fd/" + std::to_string(inode.get());
    }
    std::memcpy(address.sun_path, name.c_str(), name.size());
    owned::descriptor fd(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (const int error =
            connect_before(fd.get(), reinterpret_cast<sockaddr *>(&address), sizeof address, deadline))
        fail(path, error);
    return fd;
}

// "tcp:HOST:PORT", where HOST may be an IPv6 address in brackets
static owned::descriptor open_tcp(const std::string &where, Deadline deadline)
{
    const size_t colon = where.rfind(':');
    const std::string number = where.substr(colon + 1);
    unsigned short port = 0;
    const char *const end = std::from_chars(number.data(), number.data() + number.size(), port).ptr;
    if (colon < 5 || *end || port == 0)
        throw UsageError("'" + where + "' is not tcp:HOST:PORT with a PORT from 1 to 65535");
    std::string host = where.substr(4, colon - 4);
    if (host.front() == '[' && host.back() == ']')
        host = host.substr(1, host.size() - 2);
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo *first = nullptr;
    if (const int why = getaddrinfo(host.c_str(), number.c_str(), &hints, &first))
        throw PortError(where + ": " + gai_strerror(why));
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> found(first, freeaddrinfo);
    owned::descriptor fd;
    int error = ECONNREFUSED;
    for (const addrinfo *entry = first; entry && error != 0; entry = entry->ai_next) {
        fd.reset(
            socket(entry->ai_family, entry->ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC, entry->ai_protocol));
        error = fd ? connect_before(fd.get(), entry->ai_addr, entry->ai_addrlen, deadline) : errno;
    }
    if (error != 0)
        fail(where, error);
    const int on = 1;
    setsockopt(fd.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    return fd;
}

// The side of a pseudo-terminal that programs open. Its exclusive mode would outlive the station that set it,
// as long as the other side is open, and shut out every later one that is not root's.
static bool is_pseudo_terminal(int fd)
{
    struct stat status {
    };
    return fstat(fd, &status) == 0 &&
           major(status.st_rdev) / UNIX98_PTY_MAJOR_COUNT == UNIX98_PTY_SLAVE_MAJOR / UNIX98_PTY_MAJOR_COUNT;
}

static owned::descriptor open_serial_device(const std::string &path)
{
    owned::descriptor fd(open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    if (!fd && errno == EBUSY)
        throw PortError(path + " is taken by another program");
    if (!fd)
        fail(path);
    termios line{};
    if (tcgetattr(fd.get(), &line) != 0)
        throw PortError(path + " is neither a socket nor a serial device");
    // Two stations on one line would get each other's answers. The lock keeps other stations out, root's too,
    // and ends with this one however it ends; the exclusive mode keeps out programs that know no lock.
    const bool is_locked = flock(fd.get(), LOCK_EX | LOCK_NB) == 0;
    if (!is_locked && errno == EWOULDBLOCK)
        throw PortError(path + " is taken by another station");
    cfmakeraw(&line);
    line.c_cflag |= CLOCAL | CREAD;
    if (!is_locked || (!is_pseudo_terminal(fd.get()) && ioctl(fd.get(), TIOCEXCL) != 0) ||
        tcsetattr(fd.get(), TCSANOW, &line) != 0)
        fail(path);
    // What a station before left behind is not for this one.
    tcflush(fd.get(), TCIFLUSH);
    return fd;
}

Port::Port(const std::string &where, Deadline deadline)
{
    // A port that closes while it is written to is an error of the write, not the end of the program.
    std::signal(SIGPIPE, SIG_IGN);
    if (where.compare(0, 4, "tcp:") == 0) {
        fd_ = open_tcp(where, deadline);
        outlives_stations_ = true;
        return;
    }
    struct stat status {
    };
    if (stat(where.c_str(), &status) != 0)
        fail(where);
    if (S_ISSOCK(status.st_mode))
        fd_ = open_unix_socket(where, deadline);
    else if (S_ISCHR(status.st_mode)) {
        fd_ = open_serial_device(where);
        outlives_stations_ = true;
    } else
        throw PortError(where + " is neither a socket nor a serial device");
}

void Port::write(const Bytes &bytes, Deadline deadline)
{
    for (size_t done = 0; done < bytes.size();) {
        const ssize_t written = ::write(fd_.get(), bytes.data() + done, bytes.size() - done);
        if (written > 0)
            done += static_cast<size_t>(written);
        else if (errno != EAGAIN)
            fail("the port is gone");
        else if (!wait_for(fd_.get(), POLLOUT, deadline))
            throw PortError("the port takes no bytes");
    }
}

Bytes Port::read(Deadline deadline)
{
    Bytes bytes(4096);
    for (;;) {
        const ssize_t count = ::read(fd_.get(), bytes.data(), bytes.size());
        if (count > 0)
            return {bytes.begin(), bytes.begin() + count};
        if (count == 0)
            throw PortError("the port was closed by the other side");
        if (errno != EAGAIN)
            fail("the port is gone");
        if (!wait_for(fd_.get(), POLLIN, deadline))
            return {};
    }
}

} // namespace station
