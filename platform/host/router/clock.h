#pragma once

#include <cstdint>
#include <ctime>

namespace router
{

// Milliseconds of a clock that nobody sets. It goes by the kernel's tick, a few milliseconds, and is as cheap
// as a clock can be: it is asked for every request.
inline int64_t now_ms()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

} // namespace router
