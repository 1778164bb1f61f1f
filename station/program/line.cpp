#include "station/program/line.h"

#include "station/catalogue/answer.h"
#include "station/catalogue/command_line.h"
#include "station/client/errors.h"
#include "station/line/line.h"
#include "station/program/interrupts.h"
#include "station/program/page.h"
#include "station/program/screen.h"
#include "station/program/terminal.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <optional>
#include <poll.h>
#include <sys/utsname.h>
#include <unistd.h>

namespace station
{

std::string station_name()
{
    utsname host = {};
    uname(&host);
    return host.nodename;
}

// "12:34:56  1  CV0250A7F3  pass after 3.2 s"
static void print_event(const std::string &event)
{
    char time[16];
    const std::time_t now = std::time(nullptr);
    std::tm parts = {};
    gmtime_r(&now, &parts);
    std::strftime(time, sizeof time, "%H:%M:%S", &parts);
    std::printf("%s  %s\n", time, escaped(event).c_str());
    std::fflush(stdout);
}

static std::string sums(const std::vector<SlotState> &slots)
{
    size_t passed = 0, tested = 0;
    for (const SlotState &slot : slots) {
        passed += slot.passed;
        tested += slot.tested;
    }
    const auto count = [](size_t number, const std::string &what) {
        return std::to_string(number) + what + (number == 1 ? "" : "s");
    };
    return count(slots.size(), " slot") + ", " + count(tested, " unit") + " tested, " +
           std::to_string(passed) + " passed";
}

// A line that was typed answers the question that was shown; `unfit` is its id when that is no answer to it.
// False when nobody types any more.
static bool read_answer(Desk &desk, const std::optional<Desk::Open> &shown, std::optional<uint64_t> &unfit)
{
    const std::optional<std::string> typed = typed_line();
    if (!typed)
        std::putchar('\n'); // as one who types a line does
    else if (shown && desk.give(shown->id, *typed) == Desk::Given::unfit)
        unfit = shown->id;
    return typed.has_value();
}

static int status_of(const Line &line, const LineOptions &options)
{
    const std::vector<SlotState> slots = line.slots();
    if (!line.not_kept().empty())
        throw records::Error("no more units were taken: " + line.not_kept());
    if (!options.once)
        return INTERRUPTED;
    const auto any = [&](auto &&is_so) { return std::any_of(slots.begin(), slots.end(), is_so); };
    if (catch_interrupts() != 0)
        return INTERRUPTED;
    if (any([](const SlotState &slot) { return slot.passed < slot.tested; }))
        return FAILURE;
    if (slots.empty() || any([](const SlotState &slot) { return !slot.answered; }))
        return NO_ANSWER;
    return SUCCESS;
}

int serve_line(const std::vector<std::string> &words, Settings &settings)
{
    CommandLine typed(
        "line",
        "Tests every phone that appears at a port by a plan, many at once, and keeps all runs.\n"
        "Ctrl-C: running steps end, the steps of `phase always` are played, and the line ends; a second "
        "one ends it at once.");
    LineOptions options;
    options.station = station_name();
    options.software = "station " STATION_VERSION;
    std::string path, answers, records;
    bool no_why = false;
    typed.needs("PLAN", path, "the plan");
    typed.takes("--port PORT...", options.ports, "a phone's port; may be given again");
    typed.takes("--ports GLOB", options.glob, "the ports that match, looked at again every second");
    typed.takes("--records WHERE", records,
                "keep the runs here: a file or postgresql://...; otherwise $STATION_RECORDS, or records.db");
    typed.takes("--once", options.once,
                "test each port once and end: 0 all passed, 1 one failed, 2 a port never answered");
    typed.takes("--answers FILE", answers, "a file that answers the plan's questions: question = answer");
    typed.takes("--stop", options.stop, "end a unit at its first failure");
    typed.takes("--no-why", no_why, "do not fetch a failed request's lines from the phone's log");
    typed.takes("--name STATION", options.station, "the station's name in the records; otherwise the host's");
    typed.takes("--timeout SECONDS", settings.client.timeout,
                "seconds to wait for an answer, and with --once for a phone to appear");
    PageOptions page;
    page.add(typed, "");
    typed.parse(words);
    options.why = !no_why;
    if (options.ports.empty() && options.glob.empty())
        throw UsageError("line: --port PORT or --ports GLOB tells where phones appear");
    const Plan plan = parse_plan(path, settings);
    if (page.is_wanted())
        page.listen();
    else if (!page.token().empty())
        throw UsageError("line: --token is what a browser has to know; --page ADDRESS:PORT serves one");

    const bool draws = moves_cursor(STDOUT_FILENO);
    const Interrupts &interrupts = catch_interrupts();
    Desk desk(interrupts);
    bool types = isatty(STDIN_FILENO) != 0;
    if (!types && !page.is_wanted())
        desk.leave();
    Nobody nobody;
    std::optional<AnswersFile> read;
    if (!answers.empty())
        read.emplace(answers, nobody);
    const records::Where where = records::where_of(records);
    records::Store store(where);
    store.check();
    page::Feed feed(options.station, STATION_VERSION);
    if (page.is_wanted())
        options.finished = [&](const records::Run &run) { feed.run_ended(run); };
    {
        Line line(plan, settings, options, store, read ? &*read : nullptr, desk, interrupts,
                  [&](const std::string &event) {
                      if (!draws)
                          print_event(event);
                  });
        std::optional<page::Server> server;
        if (page.is_wanted()) {
            server.emplace(page.listener(), page.token(), where, feed,
                           page::LineSide{&plan, &line, &desk, &store, &interrupts});
            std::fprintf(stderr, "station: the page is at %s\n", page.url().c_str());
        }
        Screen screen;
        std::optional<uint64_t> unfit; // the question that was answered with what is none
        while (line.look()) {
            const std::optional<Desk::Open> open = desk.open();
            if (draws) {
                std::string below = sums(line.slots());
                if (!line.not_kept().empty())
                    below = "no more units are taken: " + line.not_kept();
                else if (interrupts != 0)
                    below = "ends; Ctrl-C again ends at once";
                else if (open)
                    below = "slot " + open->slot +
                            " asks: " + (open->id == unfit ? unfit_line(open->prompt) : "") +
                            prompt_line(open->prompt);
                screen.draw(line.slots(), below);
            }
            pollfd input{types ? STDIN_FILENO : -1, POLLIN, 0};
            if (poll(&input, 1, LOOK_MILLISECONDS) > 0) {
                types = read_answer(desk, open, unfit);
                screen.forget();
                if (!types && !page.is_wanted())
                    desk.leave();
            }
        }
        if (draws) {
            screen.draw(line.slots(), sums(line.slots()));
            std::puts("");
        } else {
            print_event(sums(line.slots()));
        }
        return status_of(line, options);
    }
}

} // namespace station
