// A file descriptor that is closed by who owns it.
#pragma once

#include <unistd.h>

#include <cerrno>

#include <utility>

namespace owned
{

class descriptor
{
  public:
    descriptor() = default;
    explicit descriptor(int fd) : fd_(fd) {} // negative: none
    descriptor(descriptor &&other) noexcept : fd_(other.release()) {}
    descriptor &operator=(descriptor &&other) noexcept
    {
        reset(other.release());
        return *this;
    }
    ~descriptor() { reset(); }

    [[nodiscard]] int get() const { return fd_; }
    [[nodiscard]] explicit operator bool() const { return fd_ >= 0; }
    // Gives it away: the caller closes it.
    [[nodiscard]] int release() { return std::exchange(fd_, -1); }
    // Closes what it has, errno kept, and takes another.
    void reset(int fd = -1)
    {
        if (fd_ >= 0) {
            const int error = errno;
            close(fd_);
            errno = error;
        }
        fd_ = fd;
    }

  private:
    int fd_ = -1;
};

} // namespace owned
