// A request and a reply, as plain data.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace station::page
{

struct Request {
    std::string method;                            // GET, POST; what asks for the head alone is a GET too
    std::string path;                              // decoded, without the query; any bytes
    std::multimap<std::string, std::string> query; // decoded; any bytes
    // Headers, each empty when it is not there. One that stands there twice makes a request that is refused.
    std::string host, origin, fetch_site, fetch_mode, authorization, cookie, content_type, if_none_match;
    std::string body;

    bool asks_api() const { return path.rfind("/api/", 0) == 0; } // which the token guards
};

struct Reply {
    int status = 200;
    std::string type = "application/json";
    std::string body;
    std::vector<std::pair<std::string, std::string>> headers;
    bool is_feed = false; // no body: the connection gets the feed from now on
};

// {"error": "text"}
Reply error_reply(int status, const std::string &text);

} // namespace station::page
