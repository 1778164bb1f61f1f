#include "station/plan/inputs.h"

#include "station/client/errors.h"
#include "station/plan/pattern.h"

#include <algorithm>
#include <cctype>

namespace station
{

static constexpr char NAME_LETTERS[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_";

std::string name_at(const std::string &text, size_t at)
{
    const std::string behind = text.substr(at + 1);
    const std::string name = behind.substr(0, behind.find_first_not_of(NAME_LETTERS));
    return std::isdigit(static_cast<unsigned char>(name[0])) ? "" : name;
}

std::string replaced(const Word &word, const std::function<std::string(const std::string &)> &value)
{
    std::string text;
    size_t done = 0;
    for (const size_t at : word.dollars) {
        const std::string name = name_at(word.text, at);
        text += word.text.substr(done, at - done) + value(name);
        done = at + 1 + name.size();
    }
    return text + word.text.substr(done);
}

bool has_names(const Words &words)
{
    return std::any_of(words.begin(), words.end(), [](const Word &word) { return !word.dollars.empty(); });
}

std::string filled_text(const Words &words, bool is_pattern, const Inputs &inputs)
{
    std::string text;
    for (const Word &word : words)
        text += (&word == &words.front() ? "" : " ") + replaced(word, [&](const std::string &name) {
                    const auto found = inputs.find(name);
                    if (found == inputs.end())
                        throw UsageError("$" + name + " was not put in");
                    return is_pattern ? literal(found->second) : found->second;
                });
    return text;
}

// An input is a word's bytes: it is no option of the request, whatever it begins with.
static std::vector<std::string> filled_words(const Words &words, const Inputs &inputs)
{
    std::vector<std::string> texts;
    for (const Word &word : words) {
        texts.push_back(filled_text({word}, false, inputs));
        if (texts.back()[0] == '-' && word.text[0] != '-')
            throw UsageError("'" + texts.back() + "' begins with '-' and would be an option of the request");
    }
    return texts;
}

Step filled(const Step &step, const Inputs &inputs)
{
    Step full = step;
    if (!step.request_words.empty() && step.kind == Step::Kind::request) {
        Settings unused;
        full.request = parse_request(filled_words(step.request_words, inputs), unused, Place::script);
    } else if (!step.request_words.empty()) {
        full.text = full.request.words = filled_text(step.request_words, false, inputs);
    }
    if (!step.expected_words.empty())
        full.expected = filled_text(step.expected_words, step.is_pattern, inputs);
    return full;
}

} // namespace station
