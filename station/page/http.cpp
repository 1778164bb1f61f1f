#include "station/page/http.h"

#include "station/text/json.h"

#include <algorithm>
#include <cstring>
#include <httplib.h>

namespace station::page
{

static constexpr int KEEP_SECONDS = 20, KEEP_REQUESTS = 1000; // what is told; the door counts for itself

static constexpr std::pair<const char *, const char *> ALWAYS[] = {
    {"Content-Security-Policy",
     "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' data:; connect-src 'self'; "
     "font-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
    {"X-Content-Type-Options", "nosniff"},
    {"X-Frame-Options", "DENY"},
    {"Referrer-Policy", "no-referrer"},
    {"Cross-Origin-Opener-Policy", "same-origin"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
};

Reply error_reply(int status, const std::string &text)
{
    Reply reply;
    reply.status = status;
    reply.body = Json{{"error", text}}.dump();
    return reply;
}

namespace
{

// The library's stream: what has come, and what is to go.
class Memory : public httplib::Stream
{
  public:
    explicit Memory(std::string_view given) : given_(given) {}

    bool is_readable() const override { return !given_.empty(); }
    bool is_writable() const override { return true; }
    ssize_t read(char *bytes, size_t size) override
    {
        const size_t count = std::min(size, given_.size());
        std::memcpy(bytes, given_.data(), count);
        given_.remove_prefix(count);
        return static_cast<ssize_t>(count);
    }
    ssize_t write(const char *bytes, size_t size) override
    {
        written.append(bytes, size);
        return static_cast<ssize_t>(size);
    }
    void get_remote_ip_and_port(std::string &, int &) const override {}
    void get_local_ip_and_port(std::string &, int &) const override {}
    socket_t socket() const override { return 0; }

    std::string written;

  private:
    std::string_view given_;
};

// The library's server without its sockets and threads: one request, all in memory.
class Exchange : private httplib::Server
{
  public:
    Exchange(std::string_view body, const std::function<Reply(const Request &)> &answer)
        : body_(body), answer_(answer)
    {
        httplib::Headers headers;
        for (const auto &[name, value] : ALWAYS)
            headers.emplace(name, value);
        set_default_headers(headers);
        set_keep_alive_timeout(KEEP_SECONDS);
        set_keep_alive_max_count(KEEP_REQUESTS);
        // Before the library looks at the body or at its own routes.
        set_pre_routing_handler([this](const httplib::Request &in, httplib::Response &out) {
            take(in, out);
            return HandlerResponse::Handled;
        });
        set_error_handler([](const httplib::Request &, httplib::Response &out) {
            if (out.body.empty())
                fill(error_reply(out.status, "that is no request"), out);
        });
    }

    Served serve(std::string_view request)
    {
        Memory stream(request);
        bool closes = false;
        const bool is_written = process_request(stream, false, closes, prepare);
        return {std::move(stream.written), is_written && is_parsed_ && !closes && !ends_, is_feed_};
    }

  private:
    // What the library would do by itself and is not wanted: parts of a file (each asked for costs a copy),
    // and compression, whose best takes a second for what goes to this machine.
    static void prepare(httplib::Request &in)
    {
        in.ranges.clear();
        in.headers.erase("Accept-Encoding");
        in.headers.erase("Expect");
        if (in.path == "/api/events") {
            in.headers.erase("Connection");
            in.headers.emplace("Connection", "close");
        }
    }

    static void fill(const Reply &reply, httplib::Response &out)
    {
        out.status = reply.status;
        for (const auto &[name, value] : reply.headers)
            out.set_header(name, value);
        if (!out.has_header("Cache-Control"))
            out.set_header("Cache-Control", "no-store");
        if (reply.is_feed)
            out.set_content_provider(reply.type, [](size_t, httplib::DataSink &sink) {
                sink.done();
                return true;
            });
        else
            out.set_content(reply.body, reply.type);
    }

    void take(const httplib::Request &in, httplib::Response &out)
    {
        is_parsed_ = true;
        Reply reply;
        try {
            reply = answer_(parsed(in));
        } catch (const std::invalid_argument &error) {
            reply = error_reply(400, error.what());
        } catch (const std::exception &error) {
            reply = error_reply(500, error.what());
        }
        is_feed_ = reply.is_feed && in.method == "GET";
        ends_ = reply.is_feed; // with the connection: its length is not told
        fill(reply, out);
    }

    Request parsed(const httplib::Request &in) const
    {
        Request request;
        const std::pair<const char *, std::string Request::*> wanted[] = {
            {"Host", &Request::host},
            {"Origin", &Request::origin},
            {"Sec-Fetch-Site", &Request::fetch_site},
            {"Sec-Fetch-Mode", &Request::fetch_mode},
            {"Authorization", &Request::authorization},
            {"Cookie", &Request::cookie},
            {"Content-Type", &Request::content_type},
            {"If-None-Match", &Request::if_none_match},
        };
        for (const auto &[name, value] : wanted) {
            if (in.get_header_value_count(name) > 1)
                throw std::invalid_argument(std::string("two headers ") + name);
            request.*value = in.get_header_value(name);
        }
        request.method = in.method == "HEAD" ? "GET" : in.method;
        request.path = in.path;
        request.query = in.params;
        request.body = body_;
        return request;
    }

    std::string_view body_;
    const std::function<Reply(const Request &)> &answer_;
    bool is_parsed_ = false, is_feed_ = false, ends_ = false;
};

} // namespace

Served serve(std::string_view request, size_t head, const std::function<Reply(const Request &)> &answer)
{
    return Exchange(request.substr(head), answer).serve(request);
}

std::string plain_refusal(int status, const std::string &text)
{
    std::string head = "HTTP/1.1 " + std::to_string(status) +
                       " Refused\r\nConnection: close\r\n"
                       "Content-Type: application/json\r\nCache-Control: no-store\r\n";
    for (const auto &[name, value] : ALWAYS)
        head += std::string(name) + ": " + value + "\r\n";
    if (status == 503)
        head += "Retry-After: 1\r\n";
    const std::string body = error_reply(status, text).body;
    return head + "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

} // namespace station::page
