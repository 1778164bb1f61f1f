#include "station/catalogue/page.h"

#include <algorithm>

namespace station
{

std::string one_line(const Command &command, const Name &name)
{
    const std::string text = name.summary ? name.summary : command.summary;
    const size_t end = std::min({text.find(". "), text.find(": "), text.find("; ")});
    return text.substr(0, end == std::string::npos ? text.find_last_not_of('.') + 1 : end);
}

std::string usage_line(const Command &command, const Name &name)
{
    std::string text = name.name;
    for (const Parameter &parameter : command.parameters) {
        std::string form = parameter.form;
        if (!parameter.is_option() && !parameter.choices.empty()) {
            form.clear();
            for (const Choice &choice : parameter.choices)
                form += (form.empty() ? "" : "|") + std::string(choice.word);
        }
        text += parameter.required ? " " + form : " [" + form + "]";
    }
    return text;
}

std::string command_page(const Command &command, uint16_t code)
{
    const Name &name = command.name_of(code);
    std::string page = code_text(code) + " " + name.name +
                       (name.summary ? std::string(": ") + name.summary : "") + "\n" + command.summary +
                       "\n\nAnswers:\n";
    for (const Answer &answer : command.answers) {
        std::string word = answer.fit == Answer::Fit::empty ? "(nothing)" : answer.text;
        word.resize(std::max<size_t>(word.size(), 12), ' ');
        page += "  " + word + "  " + (answer.success ? "success" : "failure") + "  " + answer.meaning + "\n";
    }
    page += "\nLeft behind: " + std::string(command.aftermath) + "\nTakes " + command.duration + ". " +
            (command.safe_to_repeat ? "Safe to repeat." : "Not safe to repeat.") + "\n";
    return page;
}

} // namespace station
