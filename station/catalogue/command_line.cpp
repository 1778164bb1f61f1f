#include "station/catalogue/command_line.h"

#include "station/catalogue/suggest.h"
#include "station/client/errors.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace station
{

namespace
{

// "--words [NAME]": its name, what its value is called, how often either may stand there.
struct Form {
    explicit Form(const std::string &written) : name(written.substr(0, written.find(' ')))
    {
        if (name.size() < written.size())
            value = written.substr(name.size() + 1);
        std::string &last = value.empty() ? name : value;
        const size_t end = last.find("...");
        if (end != std::string::npos) {
            last.resize(end);
            repeats = true;
        }
        if (value[0] == '[') {
            value = value.substr(1, value.size() - 2);
            may_lack_value = true;
        }
    }

    std::string name, value;
    bool repeats = false;
    bool may_lack_value = false;
};

} // namespace

template <class Value>
static CLI::Option *add(CLI::App &group, const Form &form, Value &value, const std::string &help)
{
    CLI::Option *const option = group.add_option(form.name, value, help);
    if (!form.value.empty())
        option->type_name(form.value);
    if (form.may_lack_value)
        option->expected(0, 1);
    return option;
}

static void add_words(CLI::App &group, const Form &form, CommandLine::Words &values, const std::string &help,
                      bool needed)
{
    CLI::Option *const option = add(group, form, values, help)->required(needed);
    if (!form.repeats)
        option->expected(1)->allow_extra_args(false);
    else if (form.value.empty())
        option->expected(needed ? 1 : 0, -1);
    else
        option->expected(1)->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

CommandLine::CommandLine(const std::string &name, const std::string &does)
    : all_(std::make_unique<CLI::App>(does, name)), group_(all_.get())
{
}

CommandLine::~CommandLine() = default;

void CommandLine::takes(const std::string &form, bool &flag, const std::string &help)
{
    group_->add_flag(form, flag, help);
}

void CommandLine::takes(const std::string &form, std::string &value, const std::string &help)
{
    add(*group_, Form(form), value, help);
}

void CommandLine::takes(const std::string &form, std::string &value, const Words &one_of,
                        const std::string &help)
{
    add(*group_, Form(form), value, help)
        ->check(CLI::IsMember(one_of))
        ->type_name(CLI::detail::join(one_of, "|"));
}

void CommandLine::takes(const std::string &form, Words &values, const std::string &help)
{
    add_words(*group_, Form(form), values, help, false);
}

void CommandLine::takes(const std::string &form, int &value, Range range, const std::string &help)
{
    add(*group_, Form(form), value, help)->check(CLI::Range(range.low, range.high));
}

void CommandLine::takes(const std::string &form, double &seconds, const std::string &help)
{
    add(*group_, Form(form), seconds, help)
        ->check(CLI::Range(0.001, 1e6))
        ->check([](const std::string &text) { // which is in no range, nor outside of one
            return std::isnan(std::strtod(text.c_str(), nullptr)) ? text + " is no number" : std::string();
        });
}

void CommandLine::needs(const std::string &form, std::string &value, const std::string &help)
{
    add(*group_, Form(form), value, help)->required();
}

void CommandLine::needs(const std::string &form, Words &values, const std::string &help)
{
    add_words(*group_, Form(form), values, help, true);
}

void CommandLine::group(const std::string &title) { group_ = all_->add_option_group(title); }

void CommandLine::choice(const std::string &title, const std::string &help)
{
    group_ = all_->add_option_group(title, help);
    group_->require_option(0, 1);
}

void CommandLine::describe(const std::string &name, const std::string &help)
{
    all_->get_option(name)->description(help);
}

void CommandLine::footer(const std::string &text) { all_->footer(text); }

void CommandLine::version(const std::string &text) { all_->set_version_flag("--version", text); }

void CommandLine::read(Words words)
{
    std::reverse(words.begin(), words.end()); // the library takes them from the back
    try {
        all_->parse(std::move(words));
    } catch (const CLI::CallForHelp &) {
        throw HelpAsked{all_->help()};
    } catch (const CLI::CallForVersion &version) {
        throw HelpAsked{version.what() + std::string("\n")};
    }
}

void CommandLine::parse(Words words)
{
    try {
        read(std::move(words));
    } catch (const CLI::ExtrasError &error) {
        const Words strangers = all_->remaining();
        const std::string stranger = strangers.empty() ? error.what() : strangers.front();
        throw UsageError(name() + ": '" + stranger + "' is not expected" +
                         (stranger[0] == '-' ? meant_by(stranger) : ""));
    } catch (const CLI::ParseError &error) {
        throw UsageError(name() + ": " + error.what());
    }
}

CommandLine::Words CommandLine::parse_front(Words words)
{
    all_->prefix_command();
    try {
        read(std::move(words));
    } catch (const CLI::ParseError &error) {
        throw UsageError(error.what());
    }
    return all_->remaining();
}

const std::string &CommandLine::name() const { return all_->get_name(); }

const CommandLine::Words &CommandLine::given(const std::string &name) const
{
    return all_->get_option(name)->results();
}

std::string CommandLine::meant_by(const std::string &mistyped) const
{
    Words names;
    for (const CLI::Option *option : all_->get_options())
        names.push_back(option->get_name());
    for (const CLI::App *group : all_->get_subcommands([](const CLI::App *) { return true; }))
        for (const CLI::Option *option : group->get_options())
            names.push_back(option->get_name());
    return suggestion(mistyped, names);
}

} // namespace station
