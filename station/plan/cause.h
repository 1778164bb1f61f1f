// Why a request failed, in the words of the phone's log.
#pragma once

#include "station/catalogue/request.h"

#include <string>

namespace station
{

// The log's last lines of the request that was just asked, the handler's own and those of what it called,
// without their heads and cleaned for a terminal, joined by " / ". Fetched over the port by a shell line of a
// short timeout. Empty when there is none to be had, whatever the reason. Changes the client's timeout and
// retries.
std::string fetch_cause(Client &client, const Request &request);

// The same of what a phone has printed: the end of its log, of whose processes the last one's lines count.
std::string cause_in(const std::string &log);

} // namespace station
