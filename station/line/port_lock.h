// A port is one line's: a second one would test the same phone at the same time.
#pragma once

#include "platform/owned/descriptor.h"

#include <string>
#include <vector>

namespace station
{

// Files in $XDG_RUNTIME_DIR, or /tmp, that are locked while it lives, named by a digest of where the port
// really is: by its folder's real path, and by its own, so that a link to it is the same port.
class PortLock
{
  public:
    // Throws PortError when another line has the port.
    explicit PortLock(const std::string &port);

  private:
    std::vector<owned::descriptor> locked_;
};

} // namespace station
