// The station client's command line.
#include "station/catalogue/options.h"
#include "station/client/errors.h"
#include "station/plan/script.h"
#include "station/program/output.h"
#include "station/program/reference.h"
#include "station/program/table.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>

namespace
{

using namespace station;

const char default_port[] = "build/phone/phone0/port";

const char description[] =
    "Talks to the diag service of a phone.\n"
    "\n"
    "  station get-prop ro.build.id              a command by its name; `station list` has all\n"
    "  station send 0xE602 --text ro.build.id    any request by its code\n"
    "  station get-prop --help                   what a command takes and answers\n";

const char exit_statuses[] =
    "Options may stand before a command or behind it; arguments that begin with '-' go behind `--`.\n"
    "--retries repeats a request, over a new connection, only where repeating it is safe. As long as nothing "
    "was sent,\n"
    "connecting is repeated for every request.\n"
    "\n"
    "Exit status: 0 success; 1 the answer is \"ERROR\" or another failure; 2 no "
    "answer; 3 refused by the router;\n"
    "64 the command line is wrong.";

int ask(const std::vector<std::string> &words, Settings settings)
{
    const Request request = parse_request(words, settings);
    Client client(settings.client);
    const Exchange exchange = client.ask(request.packet, request.repeatable);
    const Result result = judge(request, exchange);
    print_result(settings, request, exchange, result);
    return result.verdict;
}

int serve_command_line(int count, char **words)
{
    Settings settings;
    const char *port = std::getenv("STATION_PORT");
    settings.client.port = port && *port ? port : default_port;

    CLI::App app(description, "station");
    app.footer(exit_statuses);
    app.prefix_command();
    add_request_options(app, settings);
    app.get_option("--port")->description(
        "socket path, serial device or tcp:HOST:PORT; otherwise $STATION_PORT, or " +
        std::string(default_port));
    app.get_option("--timeout")->description("seconds to wait for an answer, in each attempt; 30 otherwise");

    std::string script, record;
    CLI::App *list =
        app.add_subcommand("list", "all commands, in the order of the service's table")->fallthrough();
    CLI::App *run =
        app.add_subcommand("run",
                           "the requests of a script, as a table; `station run --help` tells the syntax")
            ->fallthrough();
    run->footer(script_help);
    run->add_option("FILE", script, "the script, - for standard input")->required();
    run->add_option("--record", record, "beside the table, write the run to this file as --json shows it")
        ->type_name("PATH");
    CLI::App *reference = app.add_subcommand("reference", "the commands' reference, in Markdown");
    try {
        app.parse(count, words);
    } catch (const CLI::CallForHelp &help) {
        return app.exit(help);
    } catch (const CLI::ParseError &error) {
        throw UsageError(error.what());
    }
    if (*list)
        print_list(settings.json);
    else if (*reference)
        std::fputs(reference_markdown().c_str(), stdout);
    else if (*run)
        return run_script(script, settings, record);
    else if (app.remaining().empty())
        throw UsageError("no command; `station --help` tells how to go on");
    else
        return ask(app.remaining(), settings);
    return SUCCESS;
}

} // namespace

int main(int count, char **words)
{
    try {
        return serve_command_line(count, words);
    } catch (const HelpAsked &help) {
        std::fputs(help.text.c_str(), stdout);
        return SUCCESS;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "station: %s\n", error.what());
        return USAGE;
    }
}
