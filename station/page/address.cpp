#include "station/page/address.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <memory>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace station::page
{

static constexpr size_t TOKEN_MIN = 12, TOKEN_MAX = 256;

Address parse_address(const std::string &text)
{
    const auto refuse = [&](const char *why) {
        throw Error("--page takes ADDRESS:PORT, such as 127.0.0.1:8080 or [::1]:8080, not '" + text + "'" +
                    why);
    };
    const size_t colon = text.rfind(':');
    if (colon == std::string::npos)
        refuse("");
    Address address;
    address.host = text.substr(0, colon);
    const std::string port = text.substr(colon + 1);
    if (address.host.size() > 2 && address.host.front() == '[' && address.host.back() == ']')
        address.host = address.host.substr(1, address.host.size() - 2);
    else if (address.host.find(':') != std::string::npos)
        refuse(": an address with colons stands in brackets");
    if (address.host.empty())
        refuse(": the address is missing; 127.0.0.1 is this machine's own");
    const char *const end = port.data() + port.size();
    const auto [behind, error] = std::from_chars(port.data(), end, address.port);
    if (error != std::errc() || behind != end)
        refuse(": the port is a number up to 65535");
    return address;
}

std::string text_of(const Address &address)
{
    const bool has_colons = address.host.find(':') != std::string::npos;
    return (has_colons ? "[" + address.host + "]" : address.host) + ":" + std::to_string(address.port);
}

std::string read_token(const std::string &text)
{
    std::string token = text;
    if (text.rfind('@', 0) == 0) {
        const std::string file = text.substr(1);
        std::ifstream lines(file);
        if (!std::getline(lines, token) && !lines.eof()) // an empty file is none that cannot be read
            throw Error("--token: " + file + " cannot be read: " + std::strerror(errno));
        token.erase(token.find_last_not_of("\r ") + 1);
    }
    const bool is_plain = std::all_of(token.begin(), token.end(), [](unsigned char character) {
        return std::isalnum(character) != 0 || std::strchr("-._~", character);
    });
    if (token.size() < TOKEN_MIN || token.size() > TOKEN_MAX || !is_plain)
        throw Error(
            "--token: a token has 12 to 256 letters, digits and -._~; `openssl rand -hex 16` makes one");
    return token;
}

static bool is_loopback(const sockaddr *address)
{
    if (address->sa_family == AF_INET)
        return ntohl(reinterpret_cast<const sockaddr_in *>(address)->sin_addr.s_addr) >> 24 == 127;
    return IN6_IS_ADDR_LOOPBACK(&reinterpret_cast<const sockaddr_in6 *>(address)->sin6_addr);
}

static std::string why_not(const Address &address, int error)
{
    switch (error) {
    case EADDRINUSE:
        return text_of(address) +
               " is in use: another station serves its page there, or another program; let "
               "--page name another port";
    case EADDRNOTAVAIL:
        return address.host +
               " is no address of this machine; --page 127.0.0.1:" + std::to_string(address.port) +
               " is always one";
    case EACCES:
        return "port " + std::to_string(address.port) + " is root's; let --page name one from 1024 on";
    default:
        return text_of(address) + ": " + std::strerror(error);
    }
}

Listener::Listener(const Address &address, bool has_token) : address_(address)
{
    addrinfo hints = {};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_PASSIVE;
    addrinfo *found = nullptr;
    const int error = getaddrinfo(address.host.c_str(), std::to_string(address.port).c_str(), &hints, &found);
    if (error != 0)
        throw Error("--page: " + address.host + " is no address: " + gai_strerror(error));
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(found, freeaddrinfo);
    // A name may have several: the older kind first, which is what browsers and people try.
    const addrinfo *chosen = found;
    for (const addrinfo *each = found; each; each = each->ai_next)
        if (each->ai_family == AF_INET) {
            chosen = each;
            break;
        }
    is_loopback_ = page::is_loopback(chosen->ai_addr);
    if (!is_loopback_ && !has_token)
        throw NeedsToken("--page " + text_of(address) +
                         " is reached from other machines: that needs --token TOKEN or --token @FILE");
    descriptor_.reset(socket(chosen->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const int on = 1;
    setsockopt(descriptor_.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (bind(descriptor_.get(), chosen->ai_addr, chosen->ai_addrlen) != 0 ||
        listen(descriptor_.get(), SOMAXCONN) != 0)
        throw Error(why_not(address, errno));
    sockaddr_storage bound = {};
    socklen_t length = sizeof bound;
    if (getsockname(descriptor_.get(), reinterpret_cast<sockaddr *>(&bound), &length) == 0)
        address_.port = ntohs(bound.ss_family == AF_INET ? reinterpret_cast<sockaddr_in &>(bound).sin_port
                                                         : reinterpret_cast<sockaddr_in6 &>(bound).sin6_port);
}

} // namespace station::page
