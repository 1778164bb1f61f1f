#include "station/client/trace.h"

#include <chrono>
#include <cstdio>
#include <ctime>

namespace station
{

static std::string time_of_day()
{
    using namespace std::chrono;
    const auto now = system_clock::now();
    const std::time_t seconds = system_clock::to_time_t(now);
    std::tm local{};
    localtime_r(&seconds, &local);
    char text[32];
    const size_t length = std::strftime(text, sizeof text, "%H:%M:%S", &local);
    const auto micro = duration_cast<microseconds>(now.time_since_epoch()).count() % 1000000;
    std::snprintf(text + length, sizeof text - length, ".%06d", static_cast<int>(micro));
    return text;
}

void trace_frame(char direction, const Bytes &wire, const char *made_of)
{
    std::fprintf(stderr, "%s %c %s  %s\n", time_of_day().c_str(), direction, to_hex(wire).c_str(), made_of);
}

void trace_event(const std::string &text)
{
    std::fprintf(stderr, "%s   %s\n", time_of_day().c_str(), text.c_str());
}

} // namespace station
