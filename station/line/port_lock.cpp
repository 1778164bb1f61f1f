#include "station/line/port_lock.h"

#include "station/client/bytes.h"
#include "station/client/errors.h"
#include "station/client/files.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace station
{

static std::string real_path(const std::string &path)
{
    char real[PATH_MAX];
    return realpath(path.c_str(), real) ? real : "";
}

// A phone that is away has no port, but its folder.
static std::vector<std::string> identities(const std::string &port)
{
    if (port.compare(0, 4, "tcp:") == 0)
        return {port};
    const size_t slash = port.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : port.substr(0, slash + 1);
    std::string named = real_path(folder);
    named = (named.empty() ? folder : named) + "/" + port.substr(slash == std::string::npos ? 0 : slash + 1);
    const std::string real = real_path(port);
    return real.empty() || real == named ? std::vector{named} : std::vector{named, real};
}

PortLock::PortLock(const std::string &port)
{
    const char *const runtime = std::getenv("XDG_RUNTIME_DIR");
    const std::string folder = runtime && *runtime && access(runtime, W_OK) == 0 ? runtime : "/tmp";
    for (const std::string &identity : identities(port)) {
        const std::string name = folder + "/station-line-" +
                                 digest(Bytes(identity.begin(), identity.end())).substr(0, 24) + ".lock";
        const int fd = open(name.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY, 0600);
        const bool taken = fd >= 0 && flock(fd, LOCK_EX | LOCK_NB) != 0;
        const int error = errno;
        if (fd >= 0)
            locked_.push_back(fd);
        if (fd >= 0 && !taken)
            continue;
        for (const int each : locked_)
            close(each);
        throw PortError(taken && error == EWOULDBLOCK
                            ? port + " is taken by another line, or has two names in this one"
                            : port + ": its lock " + name + " cannot be had: " + std::strerror(error));
    }
}

PortLock::~PortLock()
{
    for (const int fd : locked_)
        close(fd);
}

} // namespace station
