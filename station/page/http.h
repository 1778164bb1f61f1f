// HTTP's own part, by cpp-httplib: from a request's bytes to a request, from a reply to its bytes.
#pragma once

#include "station/page/message.h"

#include <functional>
#include <string>
#include <string_view>

namespace station::page
{

struct Served {
    std::string bytes;  // to be sent
    bool keeps = false; // the connection, for another request
    bool is_feed = false;
};

// `request` is whole, its first `head` bytes are its head. `answer` is asked once, or not at all when the
// bytes are no request; what it throws is answered with 500. May be called from several threads at once.
Served serve(std::string_view request, size_t head, const std::function<Reply(const Request &)> &answer);

// What is sent where nothing was parsed: a reply behind which the connection ends.
std::string plain_refusal(int status, const std::string &text);

} // namespace station::page
