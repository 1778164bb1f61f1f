#include "station/page/feed.h"

#include "station/page/screen.h"
#include "station/records/forms.h"
#include "station/records/text.h"
#include "station/text/json.h"

#include <algorithm>

namespace station::page
{

static constexpr size_t NAME_LONGEST = 256, TEXT_LONGEST = 4000;
static constexpr size_t ENDED_MAX = 64; // what a page has missed beyond that it asks for

std::string shown(const std::string &text, size_t longest)
{
    std::string cleaned = records::clean(std::string_view(text).substr(0, longest + 4));
    if (cleaned.size() <= longest)
        return cleaned;
    size_t end = longest;
    while ((cleaned[end] & 0xC0) == 0x80) // within a character
        end--;
    return cleaned.substr(0, end) + "…";
}

static Bytes bytes(std::string text) { return std::make_shared<const std::string>(std::move(text)); }

static std::string event(const char *name, const std::string &json)
{
    return std::string("event: ") + name + "\ndata: " + json + "\n\n";
}

static const char *word(SlotState::Phase phase)
{
    switch (phase) {
    case SlotState::Phase::waits:
        return "waits";
    case SlotState::Phase::tests:
        return "tests";
    case SlotState::Phase::shows:
        return "shows";
    default:
        return "refused";
    }
}

static const char *word(Prompt::Kind kind)
{
    return kind == Prompt::Kind::tell ? "tell" : kind == Prompt::Kind::ask ? "ask" : "input";
}

static Json question_of(const std::string &slot, const std::vector<Desk::Open> &questions)
{
    for (const Desk::Open &open : questions)
        if (open.slot == slot)
            return {{"id", std::to_string(open.id)},
                    {"kind", word(open.prompt.kind)},
                    {"text", shown(open.prompt.text, TEXT_LONGEST)},
                    {"pattern", shown(open.prompt.pattern, TEXT_LONGEST)}};
    return nullptr;
}

static Json to_json(const SlotState &slot, const std::vector<Desk::Open> &questions)
{
    const std::string name = std::to_string(slot.number);
    const bool has_ended = slot.phase == SlotState::Phase::shows;
    return {{"name", name},
            {"port", shown(slot.port, TEXT_LONGEST)},
            {"phase", word(slot.phase)},
            {"unit", shown(slot.unit, NAME_LONGEST)},
            {"unit_source", slot.unit == slot.port ? "port" : "unit"},
            {"run", slot.run.empty() ? Json() : Json(slot.run)},
            {"done", slot.done},
            {"steps", slot.steps},
            {"step", shown(slot.step, NAME_LONGEST)},
            {"started", slot.run.empty() ? Json() : Json(records::time_text(slot.started))},
            {"verdict", has_ended ? Json(records::word(verdict_of(slot.end))) : Json()},
            {"failing", shown(slot.failing, NAME_LONGEST)},
            {"cause", shown(slot.cause, TEXT_LONGEST)},
            {"passed", slot.passed},
            {"tested", slot.tested},
            {"answered", slot.answered},
            {"question", question_of(name, questions)},
            {"screen", has_screen(slot.port)}};
}

Feed::Feed(std::string station, std::string version)
    : station_(std::move(station)), version_(std::move(version))
{
}

void Feed::watch(const LineSide &side)
{
    const std::lock_guard<std::mutex> lock(looking_);
    side_ = side;
}

// All but the time, which changes without anything having changed.
std::string Feed::state() const
{
    Json json{{"station", station_}, {"version", version_}, {"line", side_.line != nullptr}};
    json["plan"] = nullptr;
    json["not_kept"] = "";
    json["ends"] = side_.interrupts && *side_.interrupts != 0;
    json["forwarding"] = {{"waiting", 0}, {"problem", ""}};
    json["slots"] = Json::array();
    if (side_.line) {
        json["plan"] = {{"name", shown(side_.plan->name, NAME_LONGEST)},
                        {"digest", side_.plan->digest},
                        {"steps", side_.plan->steps.size()}};
        json["not_kept"] = shown(side_.line->not_kept(), TEXT_LONGEST);
        const records::Forwarding forwarding = side_.store->forwarding();
        json["forwarding"] = {{"waiting", forwarding.waiting},
                              {"problem", shown(forwarding.problem, TEXT_LONGEST)}};
        // Before the slots: one that has gone on since then shows no question, rather than an old one.
        const std::vector<Desk::Open> questions = side_.desk->all_open();
        for (const SlotState &slot : side_.line->slots())
            json["slots"].push_back(to_json(slot, questions));
    }
    return json.dump();
}

Snapshot Feed::now(std::chrono::milliseconds age)
{
    const std::lock_guard<std::mutex> lock(looking_);
    if (snapshot_.json && Clock::now() - looked_ < age)
        return snapshot_;
    const std::string fresh = state();
    looked_ = Clock::now();
    std::string json = fresh;
    json.pop_back();
    json += ",\"time\":\"" + records::time_text(records::now()) + "\"}";
    snapshot_.json = bytes(json);
    if (fresh != state_) {
        state_ = fresh;
        snapshot_.version++;
        snapshot_.event = bytes(event("slots", json));
    }
    return snapshot_;
}

void Feed::run_ended(const records::Run &run)
{
    records::Run kept = run;
    for (std::string *text : {&kept.unit, &kept.plan, &kept.station, &kept.port, &kept.failing, &kept.cause})
        *text = records::clean(*text);
    const Bytes told = bytes(event("run", records::json(kept)));
    const std::lock_guard<std::mutex> lock(mutex_);
    ended_.push_back({++numbers_, told});
    if (ended_.size() > ENDED_MAX)
        ended_.pop_front();
}

RunEvent Feed::ended_after(uint64_t number) const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto first = std::find_if(ended_.begin(), ended_.end(),
                                    [&](const RunEvent &each) { return each.number > number; });
    return first == ended_.end() ? RunEvent() : *first;
}

uint64_t Feed::last_ended() const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return numbers_;
}

Bytes Reader::next(std::chrono::milliseconds age)
{
    const RunEvent ended = feed_.ended_after(ended_);
    if (ended.event) {
        ended_ = ended.number;
        return ended.event;
    }
    const Snapshot snapshot = feed_.now(age);
    if (snapshot.version == version_)
        return nullptr;
    version_ = snapshot.version;
    return snapshot.event;
}

} // namespace station::page
