#include "byte_queue.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace router
{

bool byte_queue::append(const uint8_t *bytes, size_t length)
{
    if (end_ + length > room_) {
        const size_t used = size();
        if (used + length > room_) {
            const size_t room = 2 * (used + length);
            std::unique_ptr<uint8_t[]> grown(new (std::nothrow) uint8_t[room]);
            if (!grown)
                return false;
            std::copy_n(data(), used, grown.get());
            bytes_ = std::move(grown);
            room_ = room;
        } else {
            memmove(bytes_.get(), data(), used);
        }
        begin_ = 0;
        end_ = used;
    }
    memcpy(bytes_.get() + end_, bytes, length);
    end_ += length;
    return true;
}

void byte_queue::drop(size_t length)
{
    begin_ += length;
    if (empty())
        *this = {};
}

} // namespace router
