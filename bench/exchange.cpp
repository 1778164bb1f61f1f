#include "exchange.h"

#include "frame.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace
{

constexpr size_t ANSWER_MAX = port::encoded_max(1024);

}

void die(const char *what)
{
    perror(what);
    exit(1);
}

Bytes make_request(uint16_t code, const std::string &text)
{
    Bytes packet{0x4B, 250, static_cast<uint8_t>(code), static_cast<uint8_t>(code >> 8), 0};
    if (!text.empty()) {
        packet.push_back(static_cast<uint8_t>(text.size() + 1));
        packet.push_back(static_cast<uint8_t>((text.size() + 1) >> 8));
        packet.insert(packet.end(), text.c_str(), text.c_str() + text.size() + 1);
    }
    Bytes frame(port::encoded_max(packet.size()));
    frame.resize(port::encode(packet.data(), packet.size(), frame.data()));
    return frame;
}

int connect_to(const std::string &path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof address.sun_path, "%s", path.c_str());
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd >= 0 && connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0)
        return fd;
    close(fd);
    return -1;
}

void write_all(int fd, const Bytes &bytes)
{
    if (write(fd, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()))
        die("write");
}

// Waits with poll, as a station with a timeout does. A read that waits would also wake up when the other end
// takes the request, and a quick other end would find it awake.
void ask(int fd, const Bytes &request, Bytes &answer)
{
    write_all(fd, request);
    answer.resize(ANSWER_MAX);
    for (size_t got = 0;;) {
        pollfd readable = {fd, POLLIN, 0};
        poll(&readable, 1, -1);
        const ssize_t count = read(fd, answer.data() + got, answer.size() - got);
        if (count <= 0)
            die("no answer");
        got += static_cast<size_t>(count);
        if (answer[got - 1] == port::FLAG) {
            answer.resize(got);
            return;
        }
    }
}
