// The first look at the bytes of a request: where it ends, before anything is parsed.
#pragma once

#include <cstddef>
#include <string_view>

namespace station::page
{

static constexpr size_t HEAD_MAX = 16384, LINE_MAX_BYTES = 8000, LINES_MAX = 100, BODY_MAX = 4096;

struct Extent {
    enum class State { partial, whole, refused };
    State state = State::partial;
    size_t length = 0; // of the whole request, its body with it
    size_t head = 0;   // of that, up to the empty line and with it
    int status = 0;    // of the refusal
    const char *why = "";
};

// `bytes` are what has come so far. A body has its length told, once, and no other form.
Extent extent_of(std::string_view bytes);

} // namespace station::page
