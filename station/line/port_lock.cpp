#include "station/line/port_lock.h"

#include "station/client/bytes.h"
#include "station/client/errors.h"
#include "station/client/files.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <set>
#include <sys/file.h>
#include <unistd.h>
#include <utility>

namespace station
{

static std::string real_path(const std::string &path)
{
    char real[PATH_MAX];
    return realpath(path.c_str(), real) ? real : "";
}

// A phone that is away has no port, but its folder.
static std::set<std::string> identities(const std::string &port)
{
    if (port.compare(0, 4, "tcp:") == 0)
        return {port};
    const std::filesystem::path path(port);
    const std::filesystem::path folder = real_path(path.parent_path() / ".");
    std::set<std::string> found = {(folder.empty() ? path.parent_path() : folder) / path.filename()};
    const std::string real = real_path(port);
    if (!real.empty())
        found.insert(real);
    return found;
}

// By errno.
static PortError refusal(const std::string &port, const std::string &lock)
{
    const int error = errno;
    return PortError(error == EWOULDBLOCK
                         ? port + " is taken by another line, or has two names in this one"
                         : port + ": its lock " + lock + " cannot be had: " + std::strerror(error));
}

PortLock::PortLock(const std::string &port)
{
    const char *const runtime = std::getenv("XDG_RUNTIME_DIR");
    const std::string folder = runtime && *runtime && access(runtime, W_OK) == 0 ? runtime : "/tmp";
    for (const std::string &identity : identities(port)) {
        const std::string name = folder + "/station-line-" +
                                 digest(Bytes(identity.begin(), identity.end())).substr(0, 24) + ".lock";
        owned::descriptor lock(
            open(name.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY, 0600));
        if (!lock || flock(lock.get(), LOCK_EX | LOCK_NB) != 0)
            throw refusal(port, name);
        locked_.push_back(std::move(lock));
    }
}

} // namespace station
