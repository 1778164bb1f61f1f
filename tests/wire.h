// Frames and sockets of the port, for the tests on either side of it.
#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "frame.h"

using bytes = std::vector<uint8_t>;

inline bytes operator+(bytes left, const bytes &right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

inline bytes frame_of(const bytes &packet)
{
    bytes frame(port::encoded_max(packet.size()));
    frame.resize(port::encode(packet.data(), packet.size(), frame.data()));
    return frame;
}

// A socket that has gone through `join` (bind or connect) with the path, or -1. A long path goes by its
// folder's descriptor.
template <typename Join> int unix_socket(const std::string &path, Join join)
{
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const size_t slash = path.rfind('/');
    const bool fits = path.size() < sizeof address.sun_path;
    const int folder = fits ? -1 : open(path.substr(0, slash).c_str(), O_PATH | O_CLOEXEC);
    const std::string by_folder = "/proc/self/fd/" + std::to_string(folder) + path.substr(slash);
    (fits ? path : by_folder).copy(address.sun_path, sizeof address.sun_path - 1);
    const bool joined = join(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0;
    if (!fits)
        close(folder);
    if (!joined)
        close(fd);
    return joined ? fd : -1;
}

inline int connect_unix(const std::string &path) { return unix_socket(path, connect); }

inline int listen_unix(const std::string &path)
{
    const int fd = unix_socket(path, bind);
    return listen(fd, 8) == 0 ? fd : -1;
}

// A folder of its own, removed with all it holds.
struct temporary_folder {
    temporary_folder()
    {
        char name[] = "/tmp/testXXXXXX";
        path = mkdtemp(name);
    }
    ~temporary_folder() { std::filesystem::remove_all(path); }

    std::string path;
};

inline int open_descriptors()
{
    int count = 0;
    DIR *folder = opendir("/proc/self/fd");
    while (readdir(folder))
        count++;
    closedir(folder);
    return count;
}
