// Why a request failed, in the words of the phone's log.
#pragma once

#include "station/catalogue/request.h"

#include <string>

namespace station
{

// The log's lines of the request that was just asked, the handler's own and those of what it called, without
// their heads and cleaned for a terminal, joined by " / ". Fetched over the port by a few shell lines of
// short timeouts. Empty when there is none to be had, whatever the reason. Changes the client's timeout and
// retries.
std::string fetch_cause(Client &client, const Request &request);

// The same of what a phone has printed: the log from the request's entry line on.
std::string cause_in(const std::string &log, const std::string &handler);

} // namespace station
