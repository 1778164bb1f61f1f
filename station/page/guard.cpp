#include "station/page/guard.h"

#include "station/text/text.h"

#include <algorithm>
#include <arpa/inet.h>
#include <sstream>
#include <sys/utsname.h>

namespace station::page
{

bool same_in_constant_time(const std::string &given, const std::string &expected)
{
    volatile unsigned char difference = given.size() == expected.size() && !expected.empty() ? 0 : 1;
    for (size_t i = 0; i < given.size() && !expected.empty(); i++)
        difference = difference | static_cast<unsigned char>(given[i] ^ expected[i % expected.size()]);
    return difference == 0;
}

Guard::Guard(const Address &address, std::string token)
    : port_(":" + std::to_string(address.port)), token_(std::move(token)),
      cookie_("station_" + std::to_string(address.port))
{
    std::vector<std::string> names = {"127.0.0.1", "localhost", "::1", lower_case(address.host)};
    utsname own;
    if (!token_.empty() && uname(&own) == 0)
        names.push_back(lower_case(own.nodename));
    for (const std::string &name : names) {
        hosts_.push_back(text_of({name, address.port}));
        if (address.port == 80)
            hosts_.push_back(hosts_.back().substr(0, hosts_.back().rfind(':')));
    }
}

// Whether the host is written as an address: a foreign name that was made to lead here is none.
static bool is_number(const std::string &host)
{
    in6_addr bytes = {};
    if (host.rfind('[', 0) == 0 && host.back() == ']')
        return inet_pton(AF_INET6, host.substr(1, host.size() - 2).c_str(), &bytes) == 1;
    return inet_pton(AF_INET, host.c_str(), &bytes) == 1;
}

bool Guard::is_own(const std::string &host) const
{
    if (std::find(hosts_.begin(), hosts_.end(), host) != hosts_.end())
        return true;
    // With a token the page may be reached by any of the machine's addresses.
    const size_t colon = host.rfind(':');
    return !token_.empty() && colon != std::string::npos && host.substr(colon) == port_ &&
           is_number(host.substr(0, colon));
}

static std::string cookie_of(const std::string &cookies, const std::string &name)
{
    std::istringstream all(cookies);
    for (std::string cookie; std::getline(all, cookie, ';');) {
        cookie.erase(0, cookie.find_first_not_of(' '));
        if (cookie.rfind(name + "=", 0) == 0)
            return cookie.substr(name.size() + 1);
    }
    return {};
}

bool Guard::knows_token(const Request &request) const
{
    const std::string &given = request.authorization;
    if (!given.empty())
        return same_in_constant_time(given, "Bearer " + token_);
    return same_in_constant_time(cookie_of(request.cookie, cookie_), token_);
}

std::optional<Reply> Guard::takes_token(const Request &request) const
{
    const auto given = request.query.find("token");
    if (request.path != "/" || request.method != "GET" || given == request.query.end())
        return std::nullopt;
    Reply reply;
    reply.status = 302;
    reply.type = "text/plain";
    reply.headers.emplace_back("Location", "/");
    if (token_.empty())
        return reply;
    if (!same_in_constant_time(given->second, token_))
        return error_reply(401, "that is not this station's token");
    reply.headers.emplace_back("Set-Cookie", cookie_ + "=" + token_ + "; Path=/; HttpOnly; SameSite=Strict");
    return reply;
}

std::optional<Reply> Guard::stops(const Request &request) const
{
    const std::string host = lower_case(request.host);
    if (!is_own(host))
        return error_reply(403, "this station's page is not reached by that name");
    if (!request.origin.empty() && lower_case(request.origin) != "http://" + host)
        return error_reply(403, "another page may not ask this station");
    // A link that leads here may stand anywhere; a request that another page makes may not.
    const bool follows_link =
        request.method == "GET" && request.fetch_mode == "navigate" && !request.asks_api();
    if (!request.fetch_site.empty() && request.fetch_site != "same-origin" && request.fetch_site != "none" &&
        !follows_link)
        return error_reply(403, "another page may not ask this station");
    if (request.method != "GET" && request.method != "POST")
        return error_reply(405, "GET and POST are all that is understood");
    if (request.method == "POST") {
        const std::string type = lower_case(request.content_type);
        if (type != "application/json" && type.rfind("application/json;", 0) != 0)
            return error_reply(415, "what is posted has to be application/json");
    }
    if (std::optional<Reply> taken = takes_token(request))
        return taken;
    if (request.asks_api() && !token_.empty() && !knows_token(request)) {
        Reply reply = error_reply(401, "this station's token is needed");
        reply.headers.emplace_back("WWW-Authenticate", "Bearer");
        return reply;
    }
    return std::nullopt;
}

} // namespace station::page
