// One connection of a page: what has come of it, what is on its way to it, and what it does.
#pragma once

#include "platform/owned/descriptor.h"
#include "station/page/feed.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace station::page
{

struct Connection {
    enum class Phase { reads, works, sends, feeds, lingers };

    uint64_t id = 0;
    owned::descriptor descriptor;
    Phase phase = Phase::reads;
    Phase next = Phase::lingers;            // when all is sent
    Clock::time_point since = Clock::now(); // it does what it does
    bool is_over = false;
    std::string received; // of a request that is not whole yet
    std::shared_ptr<const std::string> sending;
    std::string_view unsent;      // the rest of it
    std::optional<Reader> reader; // it is a feed, or about to become one

    bool is_idle() const { return phase == Phase::reads && received.empty(); }
    void enters(Phase other)
    {
        phase = other;
        since = Clock::now();
    }
};

} // namespace station::page
