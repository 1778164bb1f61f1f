#include "station/catalogue/options.h"

#include "station/catalogue/suggest.h"
#include "station/client/errors.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace station
{

void add_request_options(CLI::App &app, Settings &settings)
{
    auto *group = app.add_option_group("port and output");
    group->add_option("--port", settings.client.port, "socket path, serial device or tcp:HOST:PORT")
        ->type_name("PORT");
    group->add_option("--timeout", settings.client.timeout, "seconds to wait for an answer, in each attempt")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.001, 1e6))
        ->check([](const std::string &text) { // which is in no range, nor outside of one
            return std::isnan(std::strtod(text.c_str(), nullptr)) ? text + " is no number" : std::string();
        });
    group
        ->add_option("--retries", settings.client.retries,
                     "attempts after the first, where repeating is safe")
        ->type_name("NUMBER")
        ->check(CLI::Range(0, 1000));
    group->add_flag("--trace", settings.client.trace,
                    "show the bytes of both directions, with times, on standard error");
    group->add_flag("--json", settings.json, "print JSON");
    group->add_flag("--plain", settings.plain, "print the answer alone");
    group->add_flag("--raw-hex", settings.raw_hex, "print the whole response packet in hexadecimal");
}

std::vector<std::string> option_names(const CLI::App &app)
{
    std::vector<std::string> names;
    for (const CLI::Option *option : app.get_options())
        names.push_back(option->get_name());
    for (const CLI::App *group : app.get_subcommands([](const CLI::App *) { return true; }))
        for (const CLI::Option *option : group->get_options())
            names.push_back(option->get_name());
    return names;
}

void parse_words(CLI::App &app, std::vector<std::string> words)
{
    std::reverse(words.begin(), words.end()); // CLI11 takes them from the back
    try {
        app.parse(words);
    } catch (const CLI::CallForHelp &) {
        throw HelpAsked{app.help()};
    } catch (const CLI::ExtrasError &error) {
        const std::vector<std::string> strangers = app.remaining();
        const std::string stranger = strangers.empty() ? error.what() : strangers.front();
        throw UsageError(app.get_name() + ": '" + stranger + "' is not expected" +
                         (stranger[0] == '-' ? suggestion(stranger, option_names(app)) : ""));
    } catch (const CLI::ParseError &error) {
        throw UsageError(app.get_name() + ": " + error.what());
    }
}

void check(const Settings &settings)
{
    if (settings.plain && (settings.json || settings.raw_hex))
        throw UsageError(std::string("--plain and ") + (settings.json ? "--json" : "--raw-hex") +
                         " are two forms of the same answer: choose one");
}

} // namespace station
