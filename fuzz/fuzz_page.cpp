// The page's server behind its sockets: where a request ends, who may ask, and the whole API on a few records
// and one slot with an open question. Whatever comes, the reply is one, its JSON is JSON, and nobody else is
// answered.
#include "station/page/api.h"
#include "station/page/guard.h"
#include "station/page/head.h"
#include "station/page/http.h"
#include "station/records/file.h"
#include "station/records/tables.h"
#include "station/records/text.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <thread>
#include <unistd.h>

namespace station::page
{
namespace
{

constexpr char OWN_HOST[] = "127.0.0.1:8080";

[[noreturn]] void broken(const char *promise, const std::string &reply)
{
    std::fprintf(stderr, "broken promise: %s\n%s\n", promise, reply.substr(0, 2000).c_str());
    std::abort();
}

void keep_some(const std::string &file)
{
    records::Database database = records::open_file(file, records::Access::write);
    records::Tables tables(database);
    for (int i = 0; i < 20; i++) {
        records::Run run;
        run.started = records::now() - std::chrono::hours(i * i);
        run.id = records::new_id(run.started);
        run.unit = i % 3 == 0 ? "</script><script>" : "CV" + std::to_string(i);
        run.plan = i % 4 == 0 ? "a \"plan\"" : "final";
        tables.insert(run, 1);
        records::Step step;
        step.number = 1;
        step.name = "volt";
        step.measured = std::to_string(i);
        step.answer = "\xff<img onerror=alert(1)>";
        step.verdict = i % 5 == 0 ? records::Verdict::fail : records::Verdict::pass;
        tables.insert(run.id, step);
        tables.end(run.id, run.started, step.verdict, "because \"of\" it\n");
    }
}

// Everything that a request may reach, made once.
class World
{
  public:
    World()
    {
        char folder[] = "/tmp/fuzz_page.XXXXXX";
        where_.file = std::string(mkdtemp(folder)) + "/records.db";
        keep_some(where_.file);
        store_ = std::make_unique<records::Store>(where_);
        options_.ports = {std::string(folder) + "/port"};
        line_ = std::make_unique<Line>(plan_, settings_, options_, *store_, nullptr, desk_, interrupts_,
                                       [](const std::string &) {});
        asks_ = std::thread([this] {
            std::string why; // its pattern is found in no answer, so it stays open
            desk_.ask("1", {Prompt::Kind::input, "unit?", "^$never"}, Clock::time_point::max(), why);
        });
        asks_.detach();
        side_ = {&plan_, line_.get(), &desk_, store_.get(), &interrupts_};
        feed_.watch(side_);
        api_ = std::make_unique<Api>(shared_, side_);
    }

    Reply answer(const Request &request, bool has_token)
    {
        const std::optional<Reply> stopped = (has_token ? closed_ : open_).stops(request);
        std::string host = request.host;
        std::transform(host.begin(), host.end(), host.begin(),
                       [](unsigned char byte) { return std::tolower(byte); });
        if (!stopped && host != OWN_HOST && host != "localhost:8080" && host != "[::1]:8080" && !has_token)
            broken("only who names this machine is answered", request.host);
        if (!stopped && request.method == "POST" && request.content_type.find("json") == std::string::npos)
            broken("only JSON is taken", request.content_type);
        return stopped ? *stopped : api_->answer(request);
    }

  private:
    records::Where where_;
    Plan plan_;
    Settings settings_;
    LineOptions options_;
    Interrupts interrupts_{1}; // so that nobody looks for a phone
    Desk desk_{interrupts_};
    std::unique_ptr<records::Store> store_;
    std::unique_ptr<Line> line_;
    std::thread asks_;
    LineSide side_;
    Feed feed_{"fuzz", "1"};
    Screens screens_;
    AskedOften asked_often_;
    Shared shared_{where_, feed_, screens_, asked_often_};
    std::unique_ptr<Api> api_;
    Guard open_{{"127.0.0.1", 8080}, ""}, closed_{{"0.0.0.0", 8080}, "0123456789abcdef"};
};

// A request for the API, of a target and a body.
std::string well_formed(const std::string &rest, bool posts, bool has_token)
{
    const size_t end = std::min(rest.find('\n'), rest.size());
    const std::string body = end < rest.size() ? rest.substr(end + 1) : "";
    return std::string(posts ? "POST" : "GET") + " /api/" + rest.substr(0, end) +
           " HTTP/1.1\r\nHost: " + OWN_HOST + "\r\nContent-Type: application/json\r\n" +
           (has_token ? "Cookie: station_8080=0123456789abcdef\r\n" : "") +
           "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

void check(const std::string &reply)
{
    if (reply.rfind("HTTP/1.1 ", 0) != 0 || reply.size() < 13 || std::atoi(reply.c_str() + 9) < 200 ||
        std::atoi(reply.c_str() + 9) > 503)
        broken("a reply begins with a status", reply);
    const size_t end = reply.find("\r\n\r\n");
    if (end == std::string::npos)
        broken("a reply has a head", reply);
    const std::string head = reply.substr(0, end), body = reply.substr(end + 4);
    for (const char *guard :
         {"Content-Security-Policy: default-src 'none'", "X-Content-Type-Options: nosniff"})
        if (head.find(guard) == std::string::npos)
            broken("every reply has its guards", reply);
    if (head.find("Content-Type: application/json") != std::string::npos && !body.empty() &&
        !nlohmann::json::accept(body))
        broken("JSON is JSON", reply);
}

void try_one(const uint8_t *data, size_t size)
{
    static World *const WORLD = new World; // its threads live as long as the process
    if (size == 0)
        return;
    const bool raw = (data[0] & 1) != 0, posts = (data[0] & 2) != 0, has_token = (data[0] & 4) != 0;
    const std::string rest(reinterpret_cast<const char *>(data + 1), size - 1);
    const std::string bytes = raw ? rest : well_formed(rest, posts, has_token);
    const Extent extent = extent_of(bytes);
    if (extent.state == Extent::State::refused)
        check(plain_refusal(extent.status, extent.why));
    // What is refused, or not all there, is not parsed any more; one more byte does not make a whole request
    // less.
    if (extent.state != Extent::State::whole)
        return;
    if (extent.length > bytes.size() || extent.head > extent.length ||
        extent_of(bytes.substr(0, extent.length)).state != Extent::State::whole ||
        extent_of(bytes.substr(0, extent.length - 1)).state == Extent::State::whole)
        broken("a request ends where it ends", bytes);
    int asked = 0;
    const Served served = serve(bytes.substr(0, extent.length), extent.head, [&](const Request &request) {
        asked++;
        return WORLD->answer(request, has_token);
    });
    if (asked > 1)
        broken("a request is asked once", bytes);
    if (!served.bytes.empty())
        check(served.bytes);
    else if (served.keeps)
        broken("who gets no reply is let go", bytes);
}

} // namespace
} // namespace station::page

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    station::page::try_one(data, size);
    return 0;
}
