#pragma once

#include <cstdint>
#include <ctime>

namespace router
{

// Milliseconds of a clock that nobody sets.
inline int64_t now_ms()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

} // namespace router
