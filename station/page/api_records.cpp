// The part of the API that asks the records.
#include "station/page/api.h"
#include "station/page/parameters.h"
#include "station/page/statistics.h"
#include "station/records/forms.h"
#include "station/records/text.h"
#include "station/text/json.h"

#include <cstdlib>

namespace station::page
{

static constexpr size_t RUNS_USUAL = 50, RUNS_MAX = 500;
static constexpr size_t VALUES_MAX = 10'000; // the newest of a measurement
static constexpr size_t BINS = 30, PIECES = 60;
static constexpr size_t DOWNLOAD_MAX = size_t{32} << 20;

namespace
{

struct TooLong : records::Error {
    using Error::Error;
};

} // namespace

static Reply json_reply(std::string json)
{
    Reply reply;
    reply.body = std::move(json);
    return reply;
}

void Api::interrupt()
{
    const std::lock_guard<std::mutex> lock(mutex_);
    is_interrupted_ = true;
    if (source_)
        source_->interrupt();
}

void Api::keep(std::shared_ptr<records::Source> source)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    source_ = std::move(source);
    is_interrupted_ = false;
}

template <typename Ask> auto Api::ask_once(records::Source &source, Ask &&question)
{
    try {
        return question(source);
    } catch (const records::Error &) {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (is_interrupted_)
            throw TooLong("this takes too long; ask for less");
        throw;
    }
}

// The records may have been made anew, and a database may have gone and come back, since they were asked
// last: what fails on an old connection is asked once more on a new one.
template <typename Ask> auto Api::ask(Ask &&question)
{
    if (const std::shared_ptr<records::Source> old = source_) {
        keep(old);
        try {
            return ask_once(*old, question);
        } catch (const TooLong &) {
            throw;
        } catch (const records::Error &) {
            keep(nullptr);
        }
    }
    keep(records::Source::open(shared_.where));
    return ask_once(*source_, question);
}

Reply Api::runs(const Request &request)
{
    const Parameters parameters(request,
                                {"unit", "plan", "verdict", "failing", "since", "until", "limit", "before"});
    records::Filter filter = parameters.filter();
    filter.limit = parameters.number("limit", RUNS_USUAL, 1, RUNS_MAX);
    const std::string before = parameters.text("before");
    const std::optional<std::vector<records::Run>> runs =
        ask([&](records::Source &source) { return source.newest(filter, before); });
    if (!runs)
        return error_reply(400, "before is the id of a run");
    std::string json = R"({"runs":[)";
    for (const records::Run &run : *runs)
        json += (&run == &runs->front() ? "" : ",") + records::json(run);
    json += R"(],"next":)";
    json += runs->size() < filter.limit ? "null" : "\"" + runs->back().id + "\"";
    return json_reply(json + "}");
}

// A file as `station records export` writes it.
static std::string exported(records::Form form, const records::Run &run,
                            const std::vector<records::Step> &steps)
{
    char *bytes = nullptr;
    size_t size = 0;
    FILE *const file = open_memstream(&bytes, &size);
    if (!file)
        throw records::Error("no more memory");
    records::Export all(form, file);
    all.add(run, steps);
    all.end();
    std::fclose(file);
    const std::unique_ptr<char, decltype(&std::free)> owner(bytes, std::free);
    return {bytes, size};
}

Reply Api::run(const Request &request, const std::string &id)
{
    const Parameters parameters(request, {"form"});
    const std::string form = parameters.word("form", {"junit", "csv", "json"});
    records::Run run;
    std::vector<records::Step> steps;
    const size_t found = ask([&](records::Source &source) {
        const std::vector<records::Run> runs = source.begins_with(id);
        if (runs.size() == 1) {
            run = runs[0];
            steps = source.steps(run.id);
        }
        return runs.size();
    });
    if (found != 1)
        return error_reply(404, found == 0 ? "there is no such run" : "more than one run begins so");
    Reply reply = json_reply(form == "junit" ? exported(records::Form::junit, run, steps)
                             : form == "csv" ? exported(records::Form::csv, run, steps)
                                             : records::json(run, steps));
    if (reply.body.size() > DOWNLOAD_MAX)
        return error_reply(500, "this run is too long for the page; `station records export` writes it");
    if (form.empty())
        return reply;
    if (form != "json")
        reply.type = form == "csv" ? "text/csv; charset=utf-8" : "application/xml";
    reply.headers.emplace_back("Content-Disposition", "attachment; filename=\"" + run.id +
                                                          (form == "junit" ? ".xml" : "." + form) + "\"");
    return reply;
}

Reply Api::plans(const Request &request)
{
    const Parameters parameters(request, {});
    const Json json{{"plans", ask([](records::Source &source) { return source.plans(); })}};
    return json_reply(json.dump());
}

static Json points(const records::OverTime &over_time)
{
    Json json{{"bucket", records::word(over_time.bucket)}, {"points", Json::array()}};
    for (const records::Point &point : over_time.points)
        json["points"].push_back({{"from", records::time_text(point.from)},
                                  {"runs", point.runs},
                                  {"units", point.units},
                                  {"first", point.first},
                                  {"first_pass", point.first_pass},
                                  {"passed", point.passed}});
    return json;
}

Reply Api::yield(const Request &request)
{
    const Parameters parameters(request, {"plan", "since", "until"});
    const records::Filter filter = parameters.filter();
    // By its words: "24h" is the same question a second later. None of them has a zero byte in it.
    std::string question;
    for (const auto &[name, value] : request.query)
        for (const std::string *word : {&name, &value})
            question.append(*word) += '\0';
    return json_reply(shared_.asked_often.answer(question, [&] {
        return ask([&](records::Source &source) {
            const records::Tally tally = source.tally(filter);
            std::string json = records::json(tally.plans(), tally.harms(), -1);
            json.pop_back();
            return json + ",\"over_time\":" + points(tally.over_time()).dump() + "}";
        });
    }));
}

static Json number_or_null(const std::optional<double> &number) { return number ? Json(*number) : Json(); }
static Json text_or_null(const std::string &text) { return text.empty() ? Json() : Json(text); }
static std::optional<double> to_number(const std::string &decimal)
{
    return decimal.empty() ? std::nullopt : std::optional(std::strtod(decimal.c_str(), nullptr));
}

static Json measured(const records::Measured &values)
{
    std::vector<Sample> samples;
    for (auto each = values.values.rbegin(); each != values.values.rend(); ++each)
        samples.push_back({each->first, each->second});
    const Summary all = summary(samples, to_number(values.low), to_number(values.high));
    const bool is_any = all.count > 0;
    Json json{{"name", values.name},
              {"unit", values.unit},
              {"low", text_or_null(values.low)},
              {"high", text_or_null(values.high)},
              {"count", all.count},
              {"values_are_newest", values.has_more},
              {"mean", is_any ? Json(all.mean) : Json()},
              {"sigma", number_or_null(all.sigma)},
              {"min", is_any ? Json(all.min) : Json()},
              {"max", is_any ? Json(all.max) : Json()},
              {"cpk", number_or_null(all.cpk)},
              {"histogram", Json::array()},
              {"drift", Json::array()}};
    for (const Bin &bin : histogram(samples, BINS))
        json["histogram"].push_back({{"from", bin.from}, {"to", bin.to}, {"count", bin.count}});
    for (const Moment &moment : drift(samples, PIECES))
        json["drift"].push_back({{"from", records::time_text(moment.from)},
                                 {"count", moment.summary.count},
                                 {"mean", moment.summary.mean},
                                 {"sigma", number_or_null(moment.summary.sigma)}});
    return json;
}

Reply Api::measurements(const Request &request)
{
    const Parameters parameters(request, {"plan", "name", "since", "until"});
    const records::Filter filter = parameters.filter();
    const std::string name = parameters.text("name");
    if (!name.empty())
        return json_reply(measured(ask([&](records::Source &source) {
                              return source.measured(filter, name, VALUES_MAX);
                          })).dump());
    Json json{{"names", Json::array()}};
    for (const auto &[each, unit] :
         ask([&](records::Source &source) { return source.measured_names(filter); }))
        json["names"].push_back({{"name", each}, {"unit", unit}});
    return json_reply(json.dump());
}

} // namespace station::page
