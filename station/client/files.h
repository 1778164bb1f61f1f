// Files over the port, moved by shell lines: the service has no command for them.
#pragma once

#include "station/client/client.h"

#include <functional>
#include <string>

namespace station
{

// Called with the bytes moved and the bytes there are. What it throws ends the moving.
using Progress = std::function<void(size_t, size_t)>;

// Lower case hexadecimal SHA-256.
std::string digest(const Bytes &content);

// Puts `content` on the phone under the absolute path `path`. It grows under a name beside it, `path` and a
// suffix, and is moved once its digest is right; a file that was there is replaced and gives it its mode.
// Throws UsageError when the path cannot pass, PhoneError when the phone refuses or the content is not what
// was sent, PortError and Refused as the port does. Behind Interrupted, thrown by `progress`, nothing is
// left. `begins` hears the part's name before there is one.
void push_file(Client &client, const Bytes &content, const std::string &path, const Progress &progress,
               const std::function<void(const std::string &part)> &begins);

struct Moved {
    size_t bytes = 0;
    std::string digest;
};
using Sink = std::function<void(const Bytes &)>;

// Gives the content of a regular file of the phone to the sink, piece by piece, 1 GiB at most. It is right
// when this returns, its digest checked. Throws the same.
Moved pull_file(Client &client, const std::string &path, const Sink &sink, const Progress &progress);

} // namespace station
