#include "station/page/api.h"

#include "station/page/files.h"
#include "station/page/parameters.h"
#include "station/text/json.h"

#include <algorithm>

namespace station::page
{

static constexpr size_t ANSWER_LONGEST = 1024;
static constexpr auto FRESH = std::chrono::milliseconds(200); // a look at the line is good for so long

// "/api/slots/1/answer": slots, 1, answer.
static std::vector<std::string> words_of(const std::string &path)
{
    std::vector<std::string> words;
    for (size_t at = sizeof "/api/" - 1; at <= path.size();) {
        const size_t end = std::min(path.find('/', at), path.size());
        words.push_back(path.substr(at, end - at));
        at = end + 1;
    }
    return words;
}

static Reply json_reply(std::string json)
{
    Reply reply;
    reply.body = std::move(json);
    return reply;
}

static Reply not_there() { return error_reply(404, "there is nothing of that name"); }

static bool takes_nothing(const Request &request) { return request.query.empty(); }

Reply Api::answer(const Request &request)
{
    if (!request.asks_api())
        return file_reply(request);
    const Words words = words_of(request.path);
    const bool is_of_slot = words.size() == 3 && words[0] == "slots";
    if (is_of_slot && words[2] == "answer")
        return request.method == "POST" ? take_answer(request, words[1])
                                        : error_reply(405, "an answer is posted");
    if (request.method == "POST")
        return error_reply(405, "only POST /api/slots/NAME/answer is taken");
    if (is_of_slot && words[2] == "screen")
        return screen(request, words[1]);
    try {
        return get(request, words);
    } catch (const Unfit &error) {
        return error_reply(400, error.what());
    } catch (const records::Error &error) {
        return error_reply(500, error.what());
    }
}

Reply Api::get(const Request &request, const Words &words)
{
    static constexpr std::pair<const char *, Reply (Api::*)(const Request &)> ASKED[] = {
        {"slots", &Api::slots}, {"events", &Api::events}, {"runs", &Api::runs},
        {"plans", &Api::plans}, {"yield", &Api::yield},   {"measurements", &Api::measurements}};
    if (words.size() == 2 && words[0] == "runs")
        return run(request, words[1]);
    for (const auto &[name, give] : ASKED)
        if (words == Words{name})
            return (this->*give)(request);
    return not_there();
}

Reply Api::slots(const Request &request)
{
    if (!takes_nothing(request))
        return error_reply(400, "slots takes no parameters");
    return json_reply(*shared_.feed.now(FRESH).json);
}

Reply Api::events(const Request &request)
{
    if (!takes_nothing(request))
        return error_reply(400, "events takes no parameters");
    Reply reply;
    reply.type = "text/event-stream";
    reply.is_feed = true;
    return reply;
}

std::string Api::port_of(const std::string &slot) const
{
    if (side_.line)
        for (const SlotState &state : side_.line->slots())
            if (std::to_string(state.number) == slot)
                return state.port;
    return {};
}

Reply Api::screen(const Request &request, const std::string &slot)
{
    const std::string port = port_of(slot);
    if (port.empty())
        return not_there();
    if (!takes_nothing(request))
        return error_reply(400, "a screen takes no parameters");
    if (!has_screen(port))
        return error_reply(404, "the phone in this slot has no screen that can be seen");
    return json_reply(shared_.screens.of(port));
}

Reply Api::take_answer(const Request &request, const std::string &slot)
{
    if (!takes_nothing(request))
        return error_reply(400, "an answer takes no parameters");
    if (port_of(slot).empty())
        return not_there();
    const auto texts = texts_of_json(request.body);
    if (!texts || texts->size() != 2 || !texts->count("question") || !texts->count("answer"))
        return error_reply(400, R"(an answer is {"question": "7", "answer": "yes"})");
    const std::string &question = texts->at("question"), &answer = texts->at("answer");
    // What is typed at a terminal has no more either.
    if (answer.size() > ANSWER_LONGEST || std::any_of(answer.begin(), answer.end(), [](unsigned char byte) {
            return byte < ' ' || byte == 0x7F;
        }))
        return error_reply(422, "an answer is a line of 1024 bytes at most");
    for (const Desk::Open &open : side_.desk->all_open()) {
        if (open.slot != slot || std::to_string(open.id) != question)
            continue;
        switch (side_.desk->give(open.id, answer)) {
        case Desk::Given::taken:
            return json_reply(R"({"answered":true})");
        case Desk::Given::unfit:
            return error_reply(422, open.prompt.kind == Prompt::Kind::ask
                                        ? "yes or no is the answer"
                                        : "the answer has to be like " + shown(open.prompt.pattern, 256));
        case Desk::Given::closed:
            break;
        }
    }
    return error_reply(409, "this question is not open any more");
}

} // namespace station::page
