#include "share.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace log_ring
{

// F_SEAL_SEAL, so that no other is set: one bars writers to come.
static constexpr int SEALS = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL;
static constexpr int PATIENCE_MS = 2000; // of who waits for the ring: its giver may have much to do

static int close_with(int fd, int error)
{
    if (fd >= 0)
        close(fd);
    errno = error;
    return -1;
}

int make()
{
    const int fd = memfd_create("log", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (fd < 0 || ftruncate(fd, sizeof(ring)) != 0 || fcntl(fd, F_ADD_SEALS, SEALS) != 0)
        return close_with(fd, errno);
    return fd;
}

int reopen(int fd)
{
    char path[32];
    snprintf(path, sizeof path, "/proc/self/fd/%d", fd);
    return open(path, O_RDWR | O_CLOEXEC);
}

namespace
{

// A message of one byte and, in both directions, one descriptor.
struct handover {
    handover()
    {
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = sizeof control;
    }
    handover(const handover &) = delete;
    handover &operator=(const handover &) = delete;

    char byte = 'r';
    iovec part = {&byte, 1};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    msghdr message{};
};

} // namespace

bool hand_out(int connection, int fd)
{
    handover out;
    cmsghdr *head = CMSG_FIRSTHDR(&out.message);
    head->cmsg_level = SOL_SOCKET;
    head->cmsg_type = SCM_RIGHTS;
    head->cmsg_len = CMSG_LEN(sizeof fd);
    memcpy(CMSG_DATA(head), &fd, sizeof fd);
    return sendmsg(connection, &out.message, MSG_NOSIGNAL | MSG_DONTWAIT) == 1;
}

int take(int connection)
{
    handover in;
    int fd = -1;
    if (recvmsg(connection, &in.message, MSG_CMSG_CLOEXEC | MSG_DONTWAIT) != 1)
        return fd;
    const cmsghdr *head = CMSG_FIRSTHDR(&in.message);
    if (head && head->cmsg_type == SCM_RIGHTS && head->cmsg_len == CMSG_LEN(sizeof fd))
        memcpy(&fd, CMSG_DATA(head), sizeof fd);
    return fd;
}

int call(const char *path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof address.sun_path, "%s", path);
    const int connection = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (connection >= 0 && connect(connection, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0)
        return close_with(connection, errno);
    return connection;
}

int receive(const char *path)
{
    const int connection = call(path);
    if (connection < 0)
        return -1;
    pollfd answer = {connection, POLLIN, 0};
    const int fd = poll(&answer, 1, PATIENCE_MS) == 1 ? take(connection) : -1;
    close(connection);
    return fd >= 0 ? fd : close_with(fd, ETIMEDOUT);
}

ring *map(int fd)
{
    struct stat file;
    const int seals = fcntl(fd, F_GET_SEALS);
    if (seals < 0 || (seals & SEALS) != SEALS || fstat(fd, &file) != 0 ||
        file.st_size != static_cast<off_t>(sizeof(ring)))
        return nullptr;
    void *place = mmap(nullptr, sizeof(ring), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    return place == MAP_FAILED ? nullptr : static_cast<ring *>(place);
}

} // namespace log_ring
