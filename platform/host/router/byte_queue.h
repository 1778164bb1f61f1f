// Bytes that wait to be sent. How many they are is decided by a station, so a lack of memory for them is told
// and not fatal.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace router
{

class byte_queue
{
  public:
    [[nodiscard]] const uint8_t *data() const { return bytes_.get() + begin_; }
    [[nodiscard]] size_t size() const { return end_ - begin_; }
    [[nodiscard]] bool empty() const { return begin_ == end_; }

    // False: there is no memory, and the queue is as it was.
    [[nodiscard]] bool append(const uint8_t *bytes, size_t length);

    // Takes `length` bytes off the front. An empty queue has no memory.
    void drop(size_t length);

  private:
    std::unique_ptr<uint8_t[]> bytes_;
    size_t room_ = 0;
    size_t begin_ = 0;
    size_t end_ = 0;
};

} // namespace router
