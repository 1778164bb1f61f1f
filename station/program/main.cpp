// The station client's command line.
#include "station/catalogue/answer.h"
#include "station/catalogue/options.h"
#include "station/catalogue/suggest.h"
#include "station/client/errors.h"
#include "station/plan/script.h"
#include "station/program/files.h"
#include "station/program/line.h"
#include "station/program/output.h"
#include "station/program/page.h"
#include "station/program/records.h"
#include "station/program/reference.h"
#include "station/program/table.h"
#include "station/records/run.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <unistd.h>

namespace station
{

static constexpr char DEFAULT_PORT[] = "build/phone/phone0/port";

static constexpr char DESCRIPTION[] =
    "Talks to the diag service of a phone.\n"
    "\n"
    "  station get-prop ro.build.id              a command by its name; `station list` has all\n"
    "  station send 0xE602 --text ro.build.id    any request by its code\n"
    "  station get-prop --help                   what a command takes and answers\n";

static constexpr char EXIT_STATUSES[] =
    "Options may stand before a command or behind it; arguments that begin with '-' go behind `--`.\n"
    "--retries repeats a request, over a new connection, only where repeating it is safe. As long as nothing "
    "was sent,\n"
    "connecting is repeated for every request.\n"
    "\n"
    "Exit status: 0 success; 1 the answer is \"ERROR\" or another failure; 2 no answer, or a broken one, or "
    "no port;\n"
    "3 refused by the router; 64 the command line is wrong, nothing was sent; 73 a run could not be kept;\n"
    "74 the output could not be written; 130 interrupted.";

using CommandWords = std::vector<std::string>;

// Everything that may stand at the command's place.
static CommandWords first_words();

// For the shell's completion: a word on each line. Behind a name, what stands for bytes there.
static void print_words(const std::string &name)
{
    uint16_t code = 0;
    const Command *const command = find_command(name, code);
    CommandWords words = name.empty() ? first_words() : CommandWords();
    if (command)
        for (const Parameter &parameter : command->parameters)
            for (const Choice &choice : parameter.choices)
                words.emplace_back(choice.word);
    for (const std::string &word : words)
        std::printf("%s\n", word.c_str());
}

static int serve_list(const CommandWords &words, Settings &settings)
{
    CommandLine line("list", "Lists all commands: their codes, names and what they do.");
    std::string of;
    line.takes("--json", settings.json, "with arguments and answers, as JSON");
    line.takes("--words [NAME]", of,
               "the words that may be typed next, behind NAME or at the beginning; for completion");
    line.parse(words);
    if (line.given("--words").empty())
        print_list(settings.json);
    else
        print_words(of);
    return SUCCESS;
}

static int serve_reference(const CommandWords &words, Settings &)
{
    CommandLine("reference", "Prints the commands' reference, in Markdown.").parse(words);
    std::fputs(reference_markdown().c_str(), stdout);
    return SUCCESS;
}

// Why a port is not there is seldom in the error's own words.
static void hint_at_port(const Settings &settings)
{
    const std::string &port = settings.client.port;
    if (port.compare(0, 4, "tcp:") != 0 && access(port.c_str(), F_OK) != 0)
        std::fprintf(
            stderr,
            "station: is the phone up? `script/phone up` boots a virtual one; --port or $STATION_PORT "
            "names another port\n");
}

static int serve_run(const CommandWords &words, Settings &settings)
{
    CommandLine line("run", "Plays a plan over one connection and shows a table.");
    RunOptions options;
    options.station = station_name();
    line.needs("FILE", options.plan, "the plan, - for standard input");
    line.takes("--record PATH", options.record,
               "beside the table, write the run to this file as --json shows it");
    line.takes("--keep-going", options.keep_going,
               "play all lines, also when the port has died; otherwise that ends the run, with status 2");
    line.takes("--stop", options.stop, "end at the first failure; the steps of `phase always` are played");
    line.takes("--no-why", options.no_why, "do not fetch a failed request's lines from the phone's log");
    line.takes("--answers FILE", options.answers,
               "a file that answers the plan's questions: question = answer");
    line.takes("--records WHERE", options.records,
               "keep the run in this file, or behind it in postgresql://...");
    line.takes("--name STATION", options.station, "the station's name in the records; otherwise the host's");
    options.reports.add_options(line);
    add_request_options(line, settings);
    line.footer(script_help);
    line.parse(words);
    check(settings);
    if (settings.plain || settings.raw_hex)
        throw UsageError("run: a plan's table has no form for --plain or --raw-hex");
    options.keeps = !line.given("--records").empty();
    const int status = run_plan(options, settings);
    if (status == NO_ANSWER)
        hint_at_port(settings);
    return status;
}

static int ask(const CommandWords &words, Settings settings)
{
    const Request request = parse_request(words, settings);
    check(settings);
    Client client(settings.client);
    const Exchange exchange = client.ask(request);
    const Result result = judge(request, exchange);
    print_result(settings, request, exchange, result);
    if (exchange.port_died)
        hint_at_port(settings);
    return result.verdict;
}

namespace
{

struct Subcommand {
    const char *name;
    const char *usage;
    const char *does;
    int (*serve)(const CommandWords &words, Settings &settings);
};

} // namespace

static constexpr Subcommand SUBCOMMANDS[] = {
    {"list", "list [--json]", "all commands and what they do", serve_list},
    {"run", "run FILE", "plays a plan, as a table; `station run --help` tells the syntax", serve_run},
    {"line", "line PLAN", "plays a plan on every phone that appears, many at once", serve_line},
    {"devices", "devices", "lists the ports that answer", serve_devices},
    {"push", "push FILE PATH", "puts a file on the phone", serve_push},
    {"pull", "pull PATH FILE", "fetches a file from the phone", serve_pull},
    {"records", "records WHAT", "what was kept of runs; `station records --help` tells more", serve_records},
    {"page", "page", "serves what was kept to browsers; `station line --page` shows the line, too",
     serve_page},
    {"reference", "reference", "the commands' reference, in Markdown", serve_reference},
};

static CommandWords first_words()
{
    CommandWords words = command_names();
    words.emplace_back("send");
    for (const Subcommand &subcommand : SUBCOMMANDS)
        words.emplace_back(subcommand.name);
    return words;
}

static std::string footer()
{
    std::string text = "Besides the phone's commands:\n";
    for (const Subcommand &subcommand : SUBCOMMANDS) {
        std::string usage = subcommand.usage;
        usage.resize(std::max<size_t>(usage.size(), 16), ' ');
        text += "  " + usage + "  " + subcommand.does + "\n";
    }
    return text + "\n" + EXIT_STATUSES;
}

static int serve_command_line(int count, char **words)
{
    Settings settings;
    const char *port = std::getenv("STATION_PORT");
    settings.client.port = port && *port ? port : DEFAULT_PORT;

    CommandLine line("station", DESCRIPTION);
    line.version("station " STATION_VERSION);
    add_request_options(line, settings);
    line.describe("--port", "socket path, serial device or tcp:HOST:PORT; otherwise $STATION_PORT, or " +
                                std::string(DEFAULT_PORT));
    line.describe("--timeout", "seconds to wait for an answer, in each attempt; 30 otherwise");
    line.footer(footer());
    const CommandWords rest = line.parse_front({words + 1, words + count});
    if (rest.empty())
        throw UsageError("no command; `station --help` tells how to go on");
    for (const Subcommand &subcommand : SUBCOMMANDS)
        if (rest.front() == subcommand.name)
            return subcommand.serve({rest.begin() + 1, rest.end()}, settings);
    if (rest.front()[0] == '-')
        throw UsageError("'" + rest.front() + "' is no option" + line.meant_by(rest.front()));
    uint16_t code = 0;
    if (rest.front() != "send" && !find_command(rest.front(), code))
        throw UsageError("'" + rest.front() + "' is no command; `station list` shows them all" +
                         suggestion(rest.front(), first_words()));
    return ask(rest, settings);
}

// Every line of the message begins with the program's name. What a phone has said may be in it.
static int complain(const std::string &message, int status)
{
    std::istringstream lines(escaped(message, true));
    for (std::string line; std::getline(lines, line);)
        std::fprintf(stderr, "station: %s\n", line.c_str());
    return status;
}

static int serve(int count, char **words)
{
    try {
        return serve_command_line(count, words);
    } catch (const HelpAsked &help) {
        std::fputs(help.text.c_str(), stdout);
        return SUCCESS;
    } catch (const PhoneError &error) {
        return complain(error.what(), FAILURE);
    } catch (const PortError &error) {
        return complain(error.what(), NO_ANSWER);
    } catch (const Refused &error) {
        return complain(error.what(), REFUSED);
    } catch (const Interrupted &error) {
        return complain(error.what(), INTERRUPTED);
    } catch (const OutputError &error) {
        return complain(error.what(), NO_OUTPUT);
    } catch (const page::Error &error) {
        return complain(error.what(), FAILURE);
    } catch (const records::Error &error) {
        return complain(error.what(), NOT_KEPT);
    } catch (const std::exception &error) {
        return complain(error.what(), USAGE);
    }
}

} // namespace station

int main(int count, char **words)
{
    // An output that nobody reads any more is an error to tell of, not a silent end.
    std::signal(SIGPIPE, SIG_IGN);
    const int status = station::serve(count, words);
    if (status == station::NO_OUTPUT) // and it was told
        return status;
    try {
        station::flush_output();
    } catch (const station::OutputError &error) {
        return station::complain(error.what(), station::NO_OUTPUT);
    }
    return status;
}
