// The page's server: who may ask, what is a request, what the records answer, and who is let go.
#include "station/page/api.h"
#include "station/page/guard.h"
#include "station/page/head.h"
#include "station/page/http.h"
#include "station/page/server.h"
#include "station/page/statistics.h"
#include "station/records/file.h"
#include "station/records/store.h"
#include "station/records/tables.h"
#include "station/records/text.h"

#include <arpa/inet.h>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

#include "tests/wire.h"

namespace station::page
{
namespace
{

using nlohmann::json;
using std::chrono::milliseconds;

constexpr char TOKEN[] = "0123456789abcdef";

// ---- who may ask

struct Asking {
    const char *what;
    Request request;
    int status; // of the refusal; 0 for none
};

Request asking(const char *method, const char *path, const char *host, const char *origin = "",
               const char *site = "", const char *mode = "")
{
    Request request;
    request.method = method;
    request.path = path;
    request.host = host;
    request.origin = origin;
    request.fetch_site = site;
    request.fetch_mode = mode;
    request.content_type = "application/json";
    return request;
}

TEST(Guard, LetsOnlyTheOwnPageAsk)
{
    const Guard guard({"127.0.0.1", 8080}, "");
    const Asking table[] = {
        {"no browser", asking("GET", "/api/slots", "127.0.0.1:8080"), 0},
        {"by name", asking("GET", "/api/slots", "LocalHost:8080", "http://localhost:8080", "same-origin"), 0},
        {"by IPv6", asking("GET", "/", "[::1]:8080", "", "none", "navigate"), 0},
        {"a name that was made to lead here", asking("GET", "/api/slots", "evil.example:8080"), 403},
        {"another port", asking("GET", "/api/slots", "127.0.0.1:8081"), 403},
        {"no port", asking("GET", "/api/slots", "127.0.0.1"), 403},
        {"an address, but not ours", asking("GET", "/api/slots", "10.0.0.1:8080"), 403},
        {"no host", asking("GET", "/", ""), 403},
        {"a foreign page reads", asking("GET", "/api/runs", "127.0.0.1:8080", "http://evil.example"), 403},
        {"a page of another port", asking("GET", "/api/runs", "127.0.0.1:8080", "http://127.0.0.1:9"), 403},
        {"a file's page", asking("POST", "/api/slots/1/answer", "127.0.0.1:8080", "null"), 403},
        {"our name on another's page", asking("POST", "/x", "localhost:8080", "http://127.0.0.1:8080"), 403},
        {"no origin, but told by the browser", asking("GET", "/api/runs", "127.0.0.1:8080", "", "cross-site"),
         403},
        {"a picture of ours in a foreign page",
         asking("GET", "/icon.svg", "127.0.0.1:8080", "", "cross-site", "no-cors"), 403},
        {"a link in a foreign page", asking("GET", "/", "127.0.0.1:8080", "", "cross-site", "navigate"), 0},
        {"a link to the API", asking("GET", "/api/runs/x", "127.0.0.1:8080", "", "cross-site", "navigate"),
         403},
        {"a foreign form", asking("POST", "/", "127.0.0.1:8080", "", "cross-site", "navigate"), 403},
        {"another method", asking("PUT", "/api/slots/1/answer", "127.0.0.1:8080"), 405},
    };
    for (const Asking &row : table) {
        const std::optional<Reply> stopped = guard.stops(row.request);
        EXPECT_EQ(stopped ? stopped->status : 0, row.status) << row.what;
    }
    Request form = asking("POST", "/api/slots/1/answer", "127.0.0.1:8080", "http://127.0.0.1:8080");
    EXPECT_FALSE(guard.stops(form));
    form.content_type = "Application/JSON; charset=utf-8";
    EXPECT_FALSE(guard.stops(form));
    for (const char *wrong : {"", "text/plain; x=application/json;", "application/jsonp", "x"}) {
        form.content_type = wrong;
        EXPECT_EQ(guard.stops(form)->status, 415) << wrong;
    }
    EXPECT_FALSE(Guard({"0::1", 80}, "").stops(asking("GET", "/", "[0::1]", "http://[0::1]")));
    EXPECT_FALSE(Guard({"Bench-3", 80}, "").stops(asking("GET", "/", "bench-3:80")));
    EXPECT_TRUE(Guard({"Bench-3", 81}, "").stops(asking("GET", "/", "bench-3")));
}

TEST(Guard, WantsTheToken)
{
    const Guard guard({"0.0.0.0", 8080}, TOKEN);
    Request request = asking("GET", "/api/slots", "10.1.2.3:8080");
    EXPECT_EQ(guard.stops(request)->status, 401);
    request.authorization = std::string("Bearer ") + TOKEN;
    EXPECT_FALSE(guard.stops(request));
    for (const char *wrong :
         {"Bearer ", "Bearer 0123456789abcdee", "Bearer 1123456789abcdef", "Bearer 0123456789abcdef0",
          "Bearer 0123456789abcde", "0123456789abcdef", "bearer 0123456789abcdef"}) {
        request.authorization = wrong;
        EXPECT_EQ(guard.stops(request)->status, 401) << wrong;
    }
    request.authorization.clear();
    request.cookie = std::string("a=b; station_8080=") + TOKEN + "; c=d";
    EXPECT_FALSE(guard.stops(request));
    request.cookie = std::string("station_8081=") + TOKEN + "; xstation_8080=" + TOKEN + "; station_8080=";
    EXPECT_EQ(guard.stops(request)->status, 401);
    EXPECT_FALSE(guard.stops(asking("GET", "/", "10.1.2.3:8080"))) << "the files hold no secret";
    EXPECT_FALSE(guard.stops(asking("GET", "/", "[2001:db8::1]:8080")));
    for (const char *foreign : {"evil.example:8080", "10.1.2.3", "10.1.2.3:8081", ":8080", "[::1x:8080",
                                "x::1]:8080", "[10.1.2.3]:8080", "::1:8080"})
        EXPECT_EQ(guard.stops(asking("GET", "/", foreign))->status, 403) << foreign;

    Request enters = asking("GET", "/", "10.1.2.3:8080");
    enters.query = {{"token", TOKEN}};
    const std::optional<Reply> entered = guard.stops(enters);
    ASSERT_TRUE(entered);
    EXPECT_EQ(entered->status, 302);
    EXPECT_EQ(entered->headers.back().second,
              std::string("station_8080=") + TOKEN + "; Path=/; HttpOnly; SameSite=Strict");
    enters.query = {{"token", ""}};
    EXPECT_EQ(guard.stops(enters)->status, 401);
    enters.path = "/line.js";
    EXPECT_FALSE(guard.stops(enters));
}

TEST(Address, TellsWhatIsWrong)
{
    for (const char *right : {"[::1]:80", "bench-3:65535", "[]:80"})
        EXPECT_EQ(text_of(parse_address(right)), right);
    EXPECT_EQ(parse_address("[a]:0").host, "a");
    for (const char *wrong : {"", "8080", ":8080", "127.0.0.1:", "127.0.0.1:65536", "::1:80", "[::1:80",
                              "::1]:80", "a:-1", "a:0x50"})
        EXPECT_THROW(parse_address(wrong), page::Error) << wrong;
    EXPECT_THROW(Listener({"0.0.0.0", 0}, false), page::Error);
    EXPECT_THROW(Listener({"192.0.2.1", 0}, true), page::Error);
    const Listener first({"127.0.0.1", 0}, false);
    EXPECT_NE(first.address().port, 0);
    EXPECT_THROW(Listener(first.address(), false), page::Error);
    for (const char *weak : {"short", "has blanks in it", "semi;colons;everywhere", "@/no/such"})
        EXPECT_THROW(read_token(weak), page::Error) << weak;
    for (const size_t length : {11, 257})
        EXPECT_THROW(read_token(std::string(length, 'x')), page::Error) << length;
    for (const size_t length : {12, 256})
        EXPECT_EQ(read_token(std::string(length, 'x')).size(), length);
    const temporary_folder folder;
    std::ofstream(folder.path + "/token") << "aZ09-._~aZ09  \r\nmore\n";
    EXPECT_EQ(read_token("@" + folder.path + "/token"), "aZ09-._~aZ09");
}

// ---- what is a request

TEST(Head, IsMeasuredBeforeItIsParsed)
{
    const std::string start = "POST / HTTP/1.1\r\n";
    const auto state = [](const std::string &bytes) {
        const Extent extent = extent_of(bytes);
        return extent.state == Extent::State::partial ? -1
               : extent.state == Extent::State::whole ? static_cast<int>(extent.length)
                                                      : -extent.status;
    };
    EXPECT_EQ(state(""), -1);
    EXPECT_EQ(state("GET / HTTP/1.1\r\nHost: a\r\n"), -1);
    EXPECT_EQ(state("GET / HTTP/1.1\r\nHost: a\r\n\r\nGET /next"), 27);
    EXPECT_EQ(state(start + "Content-length:  3 \r\n\r\nabcdef"), static_cast<int>(start.size() + 23 + 3));
    EXPECT_EQ(state(start + "Content-Length: 3\r\n\r\nab"), -1);
    EXPECT_EQ(state(start + "Content-Length: 4096\r\n\r\n"), -1);
    EXPECT_EQ(state(start + "Content-Length: 4097\r\n\r\n"), -413);
    EXPECT_EQ(state(start + "Content-Length: 999999999\r\n\r\n"), -413);
    EXPECT_EQ(state(start + "Content-Length: x\r\n"), -1) << "what more comes may be none of it";
    EXPECT_EQ(state("Content-Length: 9\r\n\r\n"), 21) << "no header";
    EXPECT_EQ(state("GET /\n"), -1);
    EXPECT_EQ(state(start + "Content-Length: 3\r\nContent-Length: 3\r\n\r\nabc"), -400);
    for (const char *length : {"", "-1", "+3", "0x3", "3,3", "1000000000", "99999999999999999999"})
        EXPECT_EQ(state(start + "Content-Length: " + length + "\r\n\r\nabc"), -400) << length;
    EXPECT_EQ(state(start + "transfer-Encoding: chunked\r\n\r\n"), -411);
    EXPECT_EQ(state(start + std::string("a: \0b\r\n\r\n", 9)), -400);
    EXPECT_EQ(state(start + "a: b\nContent-Length: 3\r\n\r\n"), -400);
    for (const std::string &before : {std::string(), start}) {
        EXPECT_EQ(state(before + std::string(LINE_MAX_BYTES, 'a')), -1);
        EXPECT_EQ(state(before + std::string(LINE_MAX_BYTES + 1, 'a')), before.empty() ? -414 : -431);
    }
    std::string many = start;
    for (int i = 0; i < 99; i++)
        many += "a:b\r\n";
    EXPECT_EQ(state(many + "\r\n"), static_cast<int>(many.size() + 2));
    EXPECT_EQ(state(many + "a:b\r\n\r\n"), -431);
    for (many = start; many.size() < HEAD_MAX; many += std::string(200, 'a') + ":\r\n")
        continue;
    EXPECT_EQ(state(many.substr(0, HEAD_MAX - 1)), -1);
    EXPECT_EQ(state(many.substr(0, HEAD_MAX)), -431);
}

Served answered(const std::string &request, const Reply &reply = {})
{
    const Extent extent = extent_of(request);
    return serve(request, extent.head, [&](const Request &) { return reply; });
}

TEST(Http, AnswersEveryRequestOnceAndWithItsGuards)
{
    Reply reply;
    reply.body = std::string(5000, 'x');
    const Served whole = answered("GET / HTTP/1.1\r\nHost: a\r\nRange: bytes=0-1,0-1,0-1\r\nAccept-Encoding: "
                                  "gzip, br\r\nExpect: 100-continue\r\n\r\n",
                                  reply);
    EXPECT_EQ(whole.bytes.rfind("HTTP/1.1 200 OK\r\n", 0), 0U) << whole.bytes.substr(0, 500);
    EXPECT_NE(whole.bytes.find("\r\nContent-Length: 5000\r\n"), std::string::npos)
        << whole.bytes.substr(0, 500);
    EXPECT_TRUE(whole.keeps);
    for (const char *guard :
         {"Content-Security-Policy: default-src 'none'; script-src 'self'", "nosniff",
          "frame-ancestors 'none'", "Referrer-Policy: no-referrer", "Cache-Control: no-store"})
        EXPECT_NE(whole.bytes.find(guard), std::string::npos) << guard;
    const Served head = answered("HEAD / HTTP/1.1\r\nHost: a\r\n\r\n", reply);
    EXPECT_EQ(head.bytes.substr(head.bytes.size() - 4), "\r\n\r\n");
    Reply feed;
    feed.is_feed = true;
    EXPECT_FALSE(answered("HEAD / HTTP/1.1\r\nHost: a\r\n\r\n", feed).keeps);
    EXPECT_FALSE(answered("GET / HTTP/1.1\r\nHost: a\r\nConnection: close\r\n\r\n").keeps);
    for (const char *none : {"GET\r\n\r\n", "FROB / HTTP/1.1\r\n\r\n", "GET / HTTP/9\r\n\r\n", "\r\n\r\n"}) {
        const Served refused = answered(none);
        EXPECT_FALSE(refused.keeps) << none;
        EXPECT_TRUE(refused.bytes.empty() || refused.bytes.rfind("HTTP/1.1 400", 0) == 0) << refused.bytes;
    }
    const Served thrown = serve("GET / HTTP/1.1\r\n\r\n", 18,
                                [](const Request &) -> Reply { throw std::runtime_error("\xff<script>"); });
    EXPECT_EQ(thrown.bytes.rfind("HTTP/1.1 500", 0), 0U);
    EXPECT_TRUE(json::accept(thrown.bytes.substr(thrown.bytes.find("\r\n\r\n"))));
    EXPECT_EQ(answered("GET / HTTP/1.1\r\nHost: a\r\nhost: b\r\n\r\n").bytes.rfind("HTTP/1.1 400", 0), 0U);
}

// ---- what the records answer

class Records : public testing::Test
{
  protected:
    // A run of the plan "final" that has lasted no time.
    void keep(const std::string &unit, records::Time started, records::Verdict verdict,
              const std::string &measured = "", const std::string &plan = "final")
    {
        records::Database database = records::open_file(where_.file, records::Access::write);
        records::Transaction transaction(database);
        records::Tables tables(database);
        records::Run run;
        run.started = started;
        run.id = records::new_id(started);
        run.unit = unit.empty() ? "/a/port" : unit;
        run.unit_is_port = unit.empty();
        run.plan = plan;
        tables.insert(run, 1);
        records::Step step;
        step.number = 1;
        step.name = "cell <b>voltage</b>";
        step.measured = measured;
        step.low = "1";
        step.high = "9";
        step.unit = "V";
        step.verdict = verdict;
        tables.insert(run.id, step);
        tables.end(run.id, run.started, verdict, "");
        transaction.commit();
    }

    json get(const std::string &target, int status = 200)
    {
        const Guard guard({"127.0.0.1", 80}, "");
        const std::string request = "GET " + target + " HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n";
        const Served served = serve(request, request.size(), [&](const Request &asked) {
            const std::optional<Reply> stopped = guard.stops(asked);
            return stopped ? *stopped : api_.answer(asked);
        });
        EXPECT_EQ(std::atoi(served.bytes.c_str() + 9), status) << target << served.bytes.substr(0, 1000);
        return json::parse(served.bytes.substr(served.bytes.find("\r\n\r\n")), nullptr, false);
    }

    const temporary_folder folder_;
    const records::Where where_{folder_.path + "/records.db", "", false};
    Feed feed_{"bench-3", "1.0.0"};
    Screens screens_;
    AskedOften asked_often_;
    Shared shared_{where_, feed_, screens_, asked_often_};
    Api api_{shared_, {}};
};

TEST_F(Records, ARunStandsOnOnePageOfTheList)
{
    const records::Time start = records::now();
    for (int i = 0; i < 25; i++) // many at the same time, and not in the order of their ids
        keep(i % 3 == 0 ? "" : "U" + std::to_string(i % 4), start - milliseconds(1000 * (i % 5)),
             records::Verdict::pass);
    std::vector<std::string> seen, newest_first;
    std::string before;
    for (int i = 0; i < 20; i++) {
        const json page = get("/api/runs?limit=4&unit=&before=" + before);
        for (const json &run : page["runs"]) {
            seen.push_back(run["id"]);
            newest_first.push_back(run["started"]);
        }
        if (page["next"].is_null())
            break;
        before = page["next"];
    }
    EXPECT_EQ(seen.size(), 25U);
    EXPECT_TRUE(std::is_sorted(newest_first.rbegin(), newest_first.rend()));
    std::sort(seen.begin(), seen.end());
    EXPECT_EQ(std::unique(seen.begin(), seen.end()), seen.end());
    EXPECT_EQ(get("/api/runs?unit=U1")["runs"].size(), 4U);
    EXPECT_EQ(get("/api/runs/" + seen[3])["steps"][0]["name"], "cell <b>voltage</b>");
    EXPECT_EQ(get("/api/plans")["plans"], json::array({"final"}));
    EXPECT_EQ(get("/api/runs/0", 404)["error"], "more than one run begins so");
}

TEST_F(Records, YieldAndTimeAgree)
{
    using records::Verdict;
    const records::Time now = records::now();
    const auto ago = [&](int hours) { return now - std::chrono::hours(hours); };
    keep("old", ago(100), Verdict::pass);
    keep("old", ago(30), Verdict::pass);
    keep("new", ago(29), Verdict::fail);
    keep("new", ago(28), Verdict::pass);
    keep("", ago(28), Verdict::error);
    keep("", ago(3), Verdict::pass);
    keep("new", ago(2), Verdict::fail, "", "other");
    keep("gone", ago(2), Verdict::aborted);
    const json yield = get("/api/yield?since=2d");
    EXPECT_EQ(yield["plans"][0], (json{{"plan", "final"},
                                       {"units", 4},
                                       {"first", 3},
                                       {"first_pass", 1},
                                       {"first_pass_yield", 1.0 / 3},
                                       {"passed", 3},
                                       {"runs", 5}}));
    EXPECT_EQ(yield["steps"][0],
              (json{{"step", "cell <b>voltage</b>"}, {"units", 2}, {"lost", 2}, {"runs", 3}}));
    EXPECT_EQ(yield["over_time"]["bucket"], "hour");
    int64_t runs = 0, first = 0, first_pass = 0;
    for (const json &point : yield["over_time"]["points"]) {
        runs += point["runs"].get<int64_t>();
        first += point["first"].get<int64_t>();
        first_pass += point["first_pass"].get<int64_t>();
    }
    EXPECT_EQ(std::make_tuple(runs, first, first_pass), std::make_tuple(6, 4, 1));
    for (const char *other : {"plan=other", "plan=none", "plan=none&since=2d", "until=4d"})
        EXPECT_NE(get("/api/yield?" + std::string(other))["plans"], yield["plans"]) << other;
}

TEST_F(Records, AMeasurementIsToldByItsNewest)
{
    const records::Time now = records::now();
    for (int i = 0; i < 10; i++)
        keep("U", now - std::chrono::minutes(10 - i), records::Verdict::pass, std::to_string(i) + ".5");
    keep("U", now, records::Verdict::pass, "7", "other");
    EXPECT_EQ(get("/api/measurements")["names"],
              (json::array({{{"name", "cell <b>voltage</b>"}, {"unit", "V"}}})));
    const std::string name = "name=cell+%3Cb%3Evoltage%3C/b%3E";
    const json all = get("/api/measurements?" + name);
    EXPECT_EQ(all["count"], 11);
    EXPECT_EQ(all["low"], "1");
    const json one = get("/api/measurements?plan=final&since=30m&" + name);
    EXPECT_EQ(one["count"], 10);
    EXPECT_DOUBLE_EQ(one["mean"], 5);
    EXPECT_NEAR(one["sigma"], 3.02765, 1e-5);
    EXPECT_NEAR(one["cpk"], 4 / (3 * 3.02765), 1e-5);
    EXPECT_EQ(one["histogram"].size(), 30U);
    EXPECT_EQ(one["drift"].size(), 10U);
    EXPECT_EQ(get("/api/measurements?name=none")["mean"], nullptr);
}

TEST(Statistics, KeepsItsFooting)
{
    std::vector<Sample> samples;
    samples.reserve(1000);
    const records::Time start = records::now();
    for (int i = 0; i < 1000; i++) // a small spread far from zero, which a sum of squares would lose
        samples.push_back({start + milliseconds(i), 4'000'000'000.0 + (i % 2)});
    const Summary all = summary(samples, std::nullopt, 4'000'000'002.0);
    EXPECT_NEAR(*all.sigma, 0.50025, 1e-4);
    EXPECT_NEAR(*all.cpk, 1.5 / (3 * 0.50025), 1e-3);
    EXPECT_NEAR(*summary(samples, 3'999'999'999.5, 4'000'000'002.0).cpk, 1 / (3 * 0.50025), 1e-3);
    EXPECT_EQ(*summary({{start, 1}, {start, 2}}, std::nullopt, std::nullopt).sigma, std::sqrt(0.5));
    std::string bins, pieces;
    for (const Bin &bin : histogram({{start, -1}, {start, -0.5}, {start, 0.25}, {start, 1}}, 4))
        bins += json({bin.from, bin.to, bin.count}).dump();
    EXPECT_EQ(bins, "[-1.0,-0.5,1][-0.5,0.0,1][0.0,0.5,1][0.5,1.0,1]");
    EXPECT_EQ(histogram({{start, 0}, {start, 0.5}}, 4).size(), 4U);
    for (const Moment &moment : drift(samples, 3))
        pieces += json({(moment.from - start).count(), moment.summary.count}).dump();
    EXPECT_EQ(pieces, "[0,334][334,334][668,332]");
    const std::vector<Sample> same(3, {start, 5});
    EXPECT_EQ(histogram(same, 30).size(), 1U);
    EXPECT_EQ(drift(same, 60).size(), 1U);
    EXPECT_FALSE(summary(same, 1, 9).cpk);
    EXPECT_EQ(histogram({{start, -1e308}, {start, 1e308}}, 30).size(), 1U) << "a width that no number holds";
}

TEST(Screen, ShowsOnlyWhatFitsItsPattern)
{
    const json shown = json::parse(screen_json("ON|90|102|2047|FF0000 10|aw2015_led|01 A||1|"));
    EXPECT_EQ(shown["picture"], (json{{"color", "FF0000"}, {"margin", 10}}));
    EXPECT_EQ(shown["lamp"], (json{{"on", true}, {"color", "red"}, {"brightness", 10}, {"switch", true}}));
    EXPECT_EQ(shown["screen"],
              (json{{"on", true}, {"refresh_rate", 90}, {"brightness", 102}, {"max_brightness", 2047}}));
    for (const char *hostile :
         {"", "|", "\xff", "<script>|<script>|-1|99999999999|<b>|x|zz|zz|<|", "||||||||||||"}) {
        const json nothing = json::parse(screen_json(hostile));
        EXPECT_TRUE(nothing["picture"].is_null() &&
                    (nothing["screen"].is_null() || nothing["screen"]["brightness"].is_null()))
            << hostile;
    }
    const json last = json::parse(screen_json("OFF|99999|100000||FF0000 999|aw9120_led||0010FF05|0|"));
    EXPECT_EQ(
        last["screen"],
        (json{{"on", false}, {"refresh_rate", 99999}, {"brightness", nullptr}, {"max_brightness", nullptr}}));
    EXPECT_EQ(last["picture"]["margin"], 100);
    EXPECT_EQ(last["lamp"], (json{{"on", true}, {"color", "red"}, {"brightness", 255}, {"switch", false}}));
    for (const char *none :
         {"FF0000", "FF0000 ", "FF0000 1000", "ff0000 10", "FF0000x10", "F0000 10", "FF0000 -1"})
        EXPECT_TRUE(json::parse(screen_json("||||" + std::string(none) + "|||||"))["picture"].is_null())
            << none;
}

TEST(Screen, TellsTheColourOfALamp)
{
    std::istringstream all(
        "||;|0000|;|00 1|;|0101|;|0202|;|0301|;|0100|;|01G0|;|010|;|01010|;old||;old||00100105;old||00200105;"
        "old||00300105;old||00110105;old||003F0105;old||00100005;old||00400105;old||00440105;old||00450105;"
        "old||00490105;old||004a0105;old||00510105;old||001001;old||0010010g");
    std::string told;
    for (std::string text; std::getline(all, text, ';');) {
        const std::string chip = text[0] == 'o' ? "aw9120_led" + text.substr(3) : text;
        json lamp = json::parse(screen_json("|||||" + chip + "||"))["lamp"];
        told += lamp.is_null() ? " -" : lamp["on"] ? " " + lamp["color"].get<std::string>() : " off";
    }
    EXPECT_EQ(told, " off off green red blue off off - - - off red green blue off off off red red green "
                    "green blue red - -");
}

TEST(Feed, CutsAndCleansWhatAPhoneSays)
{
    EXPECT_EQ(shown("a\xff", 10), "a\\xff");
    EXPECT_EQ(shown("€€€", 4), "€…");
    EXPECT_EQ(shown(std::string(10'000, 'a'), 100).size(), 103U);
    EXPECT_EQ(shown("éé", 4), "éé");
    EXPECT_EQ(shown("éé", 3), "é…");
    EXPECT_EQ(shown("a\xff", 3), "a\\x…");
}

TEST(Feed, TellsEachChangeOnceAndTheLastRuns)
{
    Interrupts interrupts{0};
    Feed feed("bench-3", "1.0.0");
    LineSide side;
    side.interrupts = &interrupts;
    feed.watch(side);
    Reader page(feed);
    EXPECT_NE(page.next(milliseconds(0))->find("\"ends\":false"), std::string::npos);
    interrupts = 1;
    EXPECT_FALSE(page.next(std::chrono::hours(1))) << "it was looked at a moment ago";
    EXPECT_NE(page.next(milliseconds(0))->find("\"ends\":true"), std::string::npos);
    EXPECT_FALSE(page.next(milliseconds(0)));
    EXPECT_EQ(feed.now(milliseconds(0)).version, 2U);
    for (int i = 0; i < 100; i++)
        feed.run_ended({});
    int runs = 0;
    while (page.next(milliseconds(0)))
        runs++;
    EXPECT_EQ(runs, 64);
}

// ---- who waits for whom

TEST(AskedOften, AsksOnceForAllWhoWaitAndForAWhile)
{
    AskedOften often;
    std::atomic<int> asked{0};
    const auto slow = [&] {
        asked++;
        std::this_thread::sleep_for(milliseconds(50));
        return std::to_string(asked);
    };
    std::thread other([&] { EXPECT_EQ(often.answer("slow", slow), "1"); });
    EXPECT_EQ(often.answer("slow", slow), "1");
    other.join();
    EXPECT_EQ(often.answer("slow", slow), "1");
    EXPECT_THROW(often.answer("bad", []() -> std::string { throw std::runtime_error("no"); }),
                 std::runtime_error);
    EXPECT_EQ(often.answer("bad", [] { return "good"; }), "good");
    int quick = 0;
    for (const auto end = Clock::now() + std::chrono::seconds(2); quick < 2 && Clock::now() < end;)
        often.answer("quick", [&] { return std::to_string(++quick); });
    EXPECT_EQ(quick, 2) << "what is found at once is not good for long";
}

// ---- questions

TEST(Desk, EachQuestionIsAnsweredOnceByWhoeverIsFirst)
{
    Interrupts interrupts{0};
    Desk desk(interrupts);
    std::string why;
    std::optional<std::string> answers[2];
    std::thread slots[2];
    for (int i = 0; i < 2; i++) {
        slots[i] = std::thread([&, i] {
            answers[i] = desk.ask(std::to_string(i + 1), {Prompt::Kind::ask, "red?", ""},
                                  Clock::now() + std::chrono::seconds(10), why);
        });
        while (desk.all_open().size() <= static_cast<size_t>(i))
            std::this_thread::yield();
    }
    const std::vector<Desk::Open> open = desk.all_open();
    EXPECT_EQ(desk.open()->slot, "1") << "the terminal's, the oldest";
    EXPECT_EQ(desk.give(open[1].id, "perhaps"), Desk::Given::unfit);
    EXPECT_EQ(desk.give(open[1].id, "no"), Desk::Given::taken);
    EXPECT_EQ(desk.give(open[1].id, "yes"), Desk::Given::closed) << "the page was first";
    EXPECT_EQ(desk.open()->slot, "1") << "what the terminal shows has not changed by it";
    EXPECT_EQ(desk.give(open[0].id, "yes"), Desk::Given::taken);
    for (std::thread &slot : slots)
        slot.join();
    EXPECT_EQ(answers[0], "yes");
    EXPECT_EQ(answers[1], "no");
    EXPECT_EQ(desk.give(99, "yes"), Desk::Given::closed);
}

// ---- who is let go

class Connection
{
  public:
    explicit Connection(const Listener &listener, int receive_buffer = 0)
        : descriptor_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        if (receive_buffer > 0)
            setsockopt(descriptor_, SOL_SOCKET, SO_RCVBUF, &receive_buffer, sizeof receive_buffer);
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(listener.address().port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(connect(descriptor_, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
        host_ = "Host: 127.0.0.1:" + std::to_string(listener.address().port) + "\r\n";
    }
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;
    ~Connection() { close(descriptor_); }

    void say(const std::string &text) const { send(descriptor_, text.data(), text.size(), MSG_NOSIGNAL); }
    void get(const std::string &path) const { say("GET " + path + " HTTP/1.1\r\n" + host_ + "\r\n"); }
    // All until `wanted` stands in it, or the end, or so many milliseconds without anything.
    std::string hear(const std::string &wanted, int patience = 3000)
    {
        std::string heard;
        pollfd input = {descriptor_, POLLIN, 0};
        while (heard.find(wanted) == std::string::npos && poll(&input, 1, patience) == 1) {
            char some[4096];
            const ssize_t count = recv(descriptor_, some, sizeof some, 0);
            if (count <= 0) {
                has_ended = true;
                break;
            }
            heard.append(some, static_cast<size_t>(count));
        }
        return heard;
    }

    bool hears(const std::string &wanted) { return hear(wanted).find(wanted) != std::string::npos; }
    bool ends() { return hear("never").empty() && has_ended; }

    bool has_ended = false;

  private:
    int descriptor_;
    std::string host_;
};

class Serving : public Records
{
  protected:
    Serving()
    {
        keep("U", records::now(), records::Verdict::pass);
        limits_.request = milliseconds(300);
        limits_.event = milliseconds(300);
        limits_.look = milliseconds(20);
        limits_.feeds = 3;
        limits_.connections = 8;
        serve();
    }
    void serve()
    {
        LineSide side;
        side.interrupts = &interrupts_;
        server_.reset();
        server_ = std::make_unique<Server>(listener_, "", where_, feed_, side, limits_);
    }
    Listener listener_{{"127.0.0.1", 0}, false};
    Limits limits_;
    Interrupts interrupts_{0};
    std::unique_ptr<Server> server_;
};

TEST_F(Serving, KeepsItsLimits)
{
    limits_.to_send = 0;
    serve();
    Connection slow(listener_, 4096), other(listener_);
    slow.get("/chart.js");
    EXPECT_TRUE(slow.hears("200 OK"));
    other.get("/api/plans");
    EXPECT_TRUE(other.hears("Retry-After: 1\r\nContent-Length: 29\r\n\r\n{\"error\":\"too many requests\"}"));
    limits_.to_send = Limits().to_send;
    limits_.idle = milliseconds(500);
    limits_.silence = limits_.reply = milliseconds(100);
    serve();
    Connection idle(listener_), feed(listener_), deaf(listener_, 4096);
    deaf.get("/chart.js");
    feed.get("/api/events");
    EXPECT_TRUE(idle.ends());
    EXPECT_TRUE(feed.hears("\n\n: \n\n: \n\n"));
    EXPECT_LT(deaf.hear("never").size(), 190'000U);
    EXPECT_TRUE(deaf.has_ended);
}

TEST_F(Serving, EndsWhatTakesTooLongAndItselfAtOnce)
{
    records::open_file(where_.file, records::Access::write)
        .execute(
            "ALTER TABLE runs RENAME TO kept; CREATE VIEW runs AS WITH RECURSIVE endless (plan) AS "
            "(SELECT 'final' UNION ALL SELECT plan FROM endless) SELECT plan, NULL AS verdict FROM endless");
    limits_.records = milliseconds(50);
    serve();
    Connection browser(listener_);
    browser.get("/api/plans");
    std::this_thread::sleep_for(milliseconds(20));
    browser.get("/nothing");
    const std::string heard = browser.hear("there is nothing");
    EXPECT_NE(heard.find("{\"error\":\"this takes too long; ask for less\"}"), std::string::npos)
        << "what was asked first is answered first: " << heard;
    limits_.records = std::chrono::hours(1);
    limits_.look = std::chrono::seconds(10);
    serve();
    Connection feed(listener_), endless(listener_), another(listener_);
    feed.get("/api/events");
    EXPECT_TRUE(feed.hears("\"ends\":false"));
    interrupts_ = 1;
    endless.get("/api/plans");
    another.get("/nothing");
    EXPECT_TRUE(another.hears("there is nothing"));
    EXPECT_EQ(feed.hear("never", 100), "") << "the line is looked at now and then only";
    const auto begin = Clock::now();
    server_.reset();
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(2));
    EXPECT_TRUE(feed.ends());
}

TEST_F(Serving, LetsGoOfWhoIsTooSlowOrTooMany)
{
    Connection slow(listener_);
    slow.say("GET / HTTP/1.1\r\nHost:");
    const std::string late = slow.hear("}");
    EXPECT_EQ(late.rfind("HTTP/1.1 408 Refused\r\n", 0), 0U) << late;
    EXPECT_NE(late.find("{\"error\":\"the request did not come to its end in time\"}"), std::string::npos);
    Connection feeds[] = {Connection(listener_), Connection(listener_), Connection(listener_)};
    for (Connection &feed : feeds) {
        feed.get("/api/events");
        EXPECT_NE(feed.hear("\"time\"").find("retry: 1000\n\nevent: slots\ndata: {"), std::string::npos);
    }
    Connection fourth(listener_);
    fourth.get("/api/events");
    EXPECT_TRUE(
        fourth.hears("Retry-After: 1\r\nContent-Length: 31\r\n\r\n{\"error\":\"too many open pages\"}"));

    // One of them reads no more; the others get what comes.
    Connection deaf(listener_, 2048);
    records::Run run;
    run.id = "x";
    run.cause = std::string(50'000, 'x');
    feeds[2].say("a page says nothing");
    EXPECT_EQ(feeds[2].hear("never"), "");
    EXPECT_TRUE(feeds[2].has_ended);
    deaf.get("/api/events");
    deaf.hear("\"time\"");
    for (int i = 0; i < 40; i++) {
        feed_.run_ended(run);
        EXPECT_NE(feeds[0].hear("\n\n").find("event: run"), std::string::npos);
    }
    std::this_thread::sleep_for(milliseconds(600));
    Connection next(listener_);
    next.get("/api/events");
    EXPECT_NE(next.hear("event: slots").find("200 OK"), std::string::npos) << "its place is free";
}

} // namespace
} // namespace station::page
