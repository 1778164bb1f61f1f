#include "station/records/owner.h"

#include "station/records/run.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <random>

namespace station::records
{

static struct flock byte_lock(int64_t owner)
{
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    lock.l_start = owner;
    lock.l_len = 1;
    return lock;
}

Owner::Owner(const std::string &file)
    : path_(file + "-lock"), descriptor_(open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666))
{
    if (!descriptor_)
        throw Error(path_ + " cannot be opened or made (" + std::strerror(errno) +
                    "); its folder must be writable");
}

int64_t Owner::take()
{
    std::random_device random;
    own_ = std::uniform_int_distribution<int64_t>(1)(random);
    struct flock lock = byte_lock(own_);
    if (fcntl(descriptor_.get(), F_OFD_SETLK, &lock) != 0)
        throw Error(path_ + " cannot be locked (" + std::strerror(errno) +
                    "); it has to be on a disk of this machine");
    return own_;
}

bool Owner::lives(int64_t owner) const
{
    if (owner == own_)
        return true;
    struct flock lock = byte_lock(owner);
    if (fcntl(descriptor_.get(), F_OFD_GETLK, &lock) != 0)
        throw Error(path_ + " cannot be asked for its locks (" + std::strerror(errno) + ")");
    return lock.l_type != F_UNLCK;
}

} // namespace station::records
