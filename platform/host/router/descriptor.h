// A file descriptor that is closed by who owns it.
#pragma once

#include <unistd.h>

#include <utility>

namespace router
{

class descriptor
{
  public:
    descriptor() = default;
    explicit descriptor(int fd) : fd_(fd) {}
    descriptor(descriptor &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    descriptor &operator=(descriptor &&other) noexcept
    {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~descriptor()
    {
        if (fd_ >= 0)
            close(fd_);
    }

    [[nodiscard]] int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }

  private:
    int fd_ = -1; // negative: none
};

} // namespace router
