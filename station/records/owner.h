// Who plays a run that is not closed yet.
#pragma once

#include "platform/owned/descriptor.h"

#include <cstdint>
#include <string>

namespace station::records
{

// Tells which processes live: each holds a lock on a byte of its own in FILE-lock, and the kernel lets go of
// it when the process ends, however that comes.
class Owner
{
  public:
    // Opens the file of locks and takes none. Throws Error.
    explicit Owner(const std::string &file);

    int64_t take(); // a number of one's own, from now on until this is destroyed
    bool lives(int64_t owner) const;

  private:
    std::string path_;
    owned::descriptor descriptor_;
    int64_t own_ = 0;
};

} // namespace station::records
