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
#include <string>

namespace log_ring
{

// F_SEAL_SEAL, so that no other is set: one bars writers to come.
static constexpr int SEALS = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL;
static constexpr int PATIENCE_MS = 2000; // of who waits for the ring: its giver may have much to do

owned::descriptor make()
{
    owned::descriptor file(memfd_create("log", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    if (file && (ftruncate(file.get(), sizeof(ring)) != 0 || fcntl(file.get(), F_ADD_SEALS, SEALS) != 0))
        file.reset();
    return file;
}

owned::descriptor reopen(int fd)
{
    const std::string path = "/proc/self/fd/" + std::to_string(fd);
    return owned::descriptor(open(path.c_str(), O_RDWR | O_CLOEXEC));
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

void hand_out(int connection, int fd)
{
    handover out;
    cmsghdr *head = CMSG_FIRSTHDR(&out.message);
    head->cmsg_level = SOL_SOCKET;
    head->cmsg_type = SCM_RIGHTS;
    head->cmsg_len = CMSG_LEN(sizeof fd);
    memcpy(CMSG_DATA(head), &fd, sizeof fd);
    sendmsg(connection, &out.message, MSG_NOSIGNAL | MSG_DONTWAIT);
}

owned::descriptor take(int connection)
{
    handover in;
    if (recvmsg(connection, &in.message, MSG_CMSG_CLOEXEC | MSG_DONTWAIT) != 1)
        return {};
    const cmsghdr *head = CMSG_FIRSTHDR(&in.message);
    int fd;
    if (!head || head->cmsg_len != CMSG_LEN(sizeof fd)) // nothing else comes to who asks for nothing else
        return {};
    memcpy(&fd, CMSG_DATA(head), sizeof fd);
    return owned::descriptor(fd);
}

owned::descriptor call(const char *path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof address.sun_path, "%s", path);
    owned::descriptor connection(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (connection && connect(connection.get(), reinterpret_cast<sockaddr *>(&address), sizeof address) != 0)
        connection.reset();
    return connection;
}

owned::descriptor receive(const char *path)
{
    const owned::descriptor connection = call(path);
    if (!connection)
        return {};
    pollfd answer = {connection.get(), POLLIN, 0};
    poll(&answer, 1, PATIENCE_MS);
    owned::descriptor file = take(connection.get());
    if (!file)
        errno = ETIMEDOUT;
    return file;
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
