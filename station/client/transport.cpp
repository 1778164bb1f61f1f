#include "station/client/transport.h"

#include "station/client/errors.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstring>
#include <fcntl.h>
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
#include <unistd.h>
#include <utility>

namespace station
{
namespace
{

// A descriptor that is closed unless it is released.
class Descriptor
{
  public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor()
    {
        if (fd_ >= 0)
            close(fd_);
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    int get() const { return fd_; }
    int release() { return std::exchange(fd_, -1); }

  private:
    int fd_;
};

} // namespace

[[noreturn]] static void fail(const std::string &what, int error = errno)
{
    throw PortError(what + ": " + std::strerror(error));
}

// True when the descriptor is ready, false at the deadline.
static bool wait_for(int fd, short events, Deadline deadline)
{
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        pollfd waiting{fd, events, 0};
        const int ready = poll(&waiting, 1, static_cast<int>(std::clamp<long long>(left, 0, 1000000000)));
        if (ready > 0)
            return true;
        if (ready < 0 && errno != EINTR)
            fail("poll");
        if (ready == 0 && Clock::now() >= deadline)
            return false;
    }
}

// Connects a non-blocking socket before the deadline; 0 or the error number.
static int connect_before(int fd, const sockaddr *address, socklen_t size, Deadline deadline)
{
    // A Unix socket with a full backlog answers EAGAIN instead of connecting in the background.
    while (connect(fd, address, size) != 0) {
        if (errno == EAGAIN && Clock::now() < deadline) {
            usleep(10 * 1000);
            continue;
        }
        if (errno != EINPROGRESS && errno != EINTR)
            return errno;
        if (!wait_for(fd, POLLOUT, deadline))
            return ETIMEDOUT;
        int error = 0;
        socklen_t length = sizeof error;
        getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length);
        return error;
    }
    return 0;
}

static int open_unix_socket(const std::string &path, Deadline deadline)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    // The address holds 107 characters. A socket deeper in the tree is reached through a descriptor of its
    // own inode.
    const bool deep = path.size() >= sizeof address.sun_path;
    Descriptor inode(deep ? open(path.c_str(), O_PATH | O_CLOEXEC) : -1);
    if (deep && inode.get() < 0)
        fail(path);
    const std::string name = deep ? "/proc/self/fd/" + std::to_string(inode.get()) : path;
    std::memcpy(address.sun_path, name.c_str(), name.size());
    Descriptor fd(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (const int error =
            connect_before(fd.get(), reinterpret_cast<sockaddr *>(&address), sizeof address, deadline))
        fail(path, error);
    return fd.release();
}

// "tcp:HOST:PORT", where HOST may be an IPv6 address in brackets
static int open_tcp(const std::string &where, Deadline deadline)
{
    const size_t colon = where.rfind(':');
    const std::string number = where.substr(colon + 1);
    unsigned short port = 0;
    const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), port);
    if (colon < 5 || error != std::errc() || *end || port == 0)
        throw UsageError("'" + where + "' is not tcp:HOST:PORT with a PORT from 1 to 65535");
    std::string host = where.substr(4, colon - 4);
    if (host.size() > 2 && host.front() == '[' && host.back() == ']')
        host = host.substr(1, host.size() - 2);
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo *found = nullptr;
    if (const int why = getaddrinfo(host.c_str(), number.c_str(), &hints, &found))
        throw PortError(where + ": " + gai_strerror(why));
    int last_error = ECONNREFUSED;
    int connected = -1;
    for (const addrinfo *entry = found; entry && connected < 0; entry = entry->ai_next) {
        Descriptor fd(
            socket(entry->ai_family, entry->ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC, entry->ai_protocol));
        last_error =
            fd.get() < 0 ? errno : connect_before(fd.get(), entry->ai_addr, entry->ai_addrlen, deadline);
        if (last_error == 0)
            connected = fd.release();
    }
    freeaddrinfo(found);
    if (connected < 0)
        fail(where, last_error);
    const int on = 1;
    setsockopt(connected, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    return connected;
}

// The side of a pseudo-terminal that programs open. Its exclusive mode would outlive the station that set it,
// as long as the other side is open, and shut out every later one that is not root's.
static bool is_pseudo_terminal(int fd)
{
    constexpr unsigned FIRST_MAJOR = 136, LAST_MAJOR = 143;
    struct stat status {
    };
    return fstat(fd, &status) == 0 && major(status.st_rdev) >= FIRST_MAJOR &&
           major(status.st_rdev) <= LAST_MAJOR;
}

static int open_serial_device(const std::string &path)
{
    Descriptor fd(open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    if (fd.get() < 0 && errno == EBUSY)
        throw PortError(path + " is taken by another program");
    if (fd.get() < 0)
        fail(path);
    termios line{};
    if (tcgetattr(fd.get(), &line) != 0)
        throw PortError(path + " is neither a socket nor a serial device");
    // Two stations on one line would get each other's answers. The lock keeps other stations out, root's too,
    // and ends with this one however it ends; the exclusive mode keeps out programs that know no lock.
    if (flock(fd.get(), LOCK_EX | LOCK_NB) != 0)
        throw PortError(errno == EWOULDBLOCK ? path + " is taken by another station"
                                             : path + ": " + std::strerror(errno));
    if (!is_pseudo_terminal(fd.get()) && ioctl(fd.get(), TIOCEXCL) != 0)
        fail(path);
    cfmakeraw(&line);
    line.c_cflag |= CLOCAL | CREAD;
    line.c_cc[VMIN] = 1;
    line.c_cc[VTIME] = 0;
    if (tcsetattr(fd.get(), TCSANOW, &line) != 0)
        fail(path);
    // What a station before left behind is not for this one.
    tcflush(fd.get(), TCIFLUSH);
    return fd.release();
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

Port::~Port() { close(fd_); }

void Port::write(const Bytes &bytes, Deadline deadline)
{
    for (size_t done = 0; done < bytes.size();) {
        const ssize_t written = ::write(fd_, bytes.data() + done, bytes.size() - done);
        if (written >= 0)
            done += static_cast<size_t>(written);
        else if (errno == EAGAIN) {
            if (!wait_for(fd_, POLLOUT, deadline))
                throw PortError("the port takes no bytes");
        } else if (errno != EINTR)
            fail("the port is gone");
    }
}

Bytes Port::read(Deadline deadline)
{
    Bytes bytes(4096);
    for (;;) {
        const ssize_t count = ::read(fd_, bytes.data(), bytes.size());
        if (count > 0) {
            bytes.resize(static_cast<size_t>(count));
            return bytes;
        }
        if (count == 0)
            throw PortError("the port was closed by the other side");
        if (errno == EAGAIN) {
            if (!wait_for(fd_, POLLIN, deadline))
                return {};
        } else if (errno != EINTR)
            fail("the port is gone");
    }
}

} // namespace station
