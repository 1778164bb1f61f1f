#include "station/records/columns.h"

#include "station/records/text.h"

#include <cstdlib>

namespace station::records
{

namespace
{

// A text that is NULL where it is empty; others are there though they are empty.
template <typename Text> struct Nullable {
    Text &text;
};
template <typename Text> Nullable(Text &) -> Nullable<Text>;

// Whose name a unit has.
template <typename Flag> struct UnitSource {
    Flag &is_port;
};
template <typename Flag> UnitSource(Flag &) -> UnitSource<Flag>;

} // namespace

// Runs and steps are const when they are written, and not when they are read.
template <typename AnyRun, typename Visit> static void visit_run(AnyRun &run, Visit &&visit)
{
    visit("id", run.id);
    visit("unit", run.unit);
    visit("unit_source", UnitSource{run.unit_is_port});
    visit("plan", run.plan);
    visit("plan_digest", run.plan_digest);
    visit("station", run.station);
    visit("port", run.port);
    visit("software", run.software);
    visit("started", run.started);
    visit("ended", run.ended);
    visit("verdict", run.verdict);
    visit("failing", Nullable{run.failing});
    visit("cause", Nullable{run.cause});
}

template <typename AnyStep, typename Visit> static void visit_step(AnyStep &step, Visit &&visit)
{
    visit("number", step.number);
    visit("began", step.began);
    visit("phase", Nullable{step.phase});
    visit("name", step.name);
    visit("code", Nullable{step.code});
    visit("request", step.request);
    visit("request_bytes", step.request_bytes);
    visit("answer", step.answer);
    visit("answer_bytes", step.answer_bytes);
    visit("measured", Nullable{step.measured});
    visit("unit", Nullable{step.unit});
    visit("low", Nullable{step.low});
    visit("high", Nullable{step.high});
    visit("expected", Nullable{step.expected});
    visit("verdict", step.verdict);
    visit("milliseconds", step.milliseconds);
    visit("cause", Nullable{step.cause});
}

namespace
{

class Writer
{
  public:
    void operator()(const char *name, const std::string &text) { add(name, Kind::text, text); }
    void operator()(const char *name, int number) { add(name, Kind::number, int64_t{number}); }
    void operator()(const char *name, double number) { add(name, Kind::number, number); }
    void operator()(const char *name, Verdict verdict) { add(name, Kind::text, std::string(word(verdict))); }
    void operator()(const char *name, Time time) { add(name, Kind::time, time_text(time)); }
    void operator()(const char *name, UnitSource<const bool> source)
    {
        add(name, Kind::text, std::string(source.is_port ? "port" : "unit"));
    }
    void operator()(const char *name, Nullable<const std::string> nullable)
    {
        add(name, Kind::text, nullable.text.empty() ? Value() : nullable.text);
    }
    void operator()(const char *name, const std::optional<std::string> &bytes)
    {
        add(name, Kind::bytes, bytes ? Value(*bytes) : Value());
    }
    void operator()(const char *name, const std::optional<Time> &time)
    {
        add(name, Kind::time, time ? Value(time_text(*time)) : Value());
    }
    void operator()(const char *name, const std::optional<Verdict> &verdict)
    {
        add(name, Kind::text, verdict ? Value(word(*verdict)) : Value());
    }

    std::vector<Column> columns;

  private:
    void add(const char *name, Kind kind, Value value) { columns.push_back({name, kind, std::move(value)}); }
};

class Reader
{
  public:
    explicit Reader(const Texts &texts) : texts_(texts) {}

    void operator()(const char *, std::string &text) { text = next(); }
    void operator()(const char *, int &number) { number = std::atoi(next().c_str()); }
    void operator()(const char *, double &number) { number = std::strtod(next().c_str(), nullptr); }
    void operator()(const char *, Verdict &verdict) { verdict = verdict_of(next()).value_or(Verdict::error); }
    void operator()(const char *, Time &time) { time = time_of(next()); }
    void operator()(const char *, UnitSource<bool> source) { source.is_port = next() == "port"; }
    void operator()(const char *, Nullable<std::string> nullable) { nullable.text = next(); }
    void operator()(const char *, std::optional<std::string> &bytes)
    {
        if (const std::optional<std::string> &digits = texts_[at_++])
            bytes = from_hex(*digits);
    }
    void operator()(const char *, std::optional<Time> &time)
    {
        if (const std::optional<std::string> &text = texts_[at_++])
            time = time_of(*text);
    }
    void operator()(const char *, std::optional<Verdict> &verdict) { verdict = verdict_of(next()); }

  private:
    std::string next() { return texts_[at_++].value_or(""); }

    const Texts &texts_;
    size_t at_ = 0;
};

} // namespace

std::vector<Column> columns(const Run &run)
{
    Writer writer;
    visit_run(run, writer);
    return std::move(writer.columns);
}

std::vector<Column> columns(const Step &step)
{
    Writer writer;
    visit_step(step, writer);
    return std::move(writer.columns);
}

Run run_of(const Texts &texts)
{
    Run run;
    visit_run(run, Reader(texts));
    return run;
}

Step step_of(const Texts &texts)
{
    Step step;
    visit_step(step, Reader(texts));
    return step;
}

} // namespace station::records
