// Asks a service the requests of a file, again and again, and tells of each answer that is not as expected.
//
//   soak COUNT PID PORT REQUESTS FOLDER EVIDENCE
//
// A line of REQUESTS is a request as the station takes it; one with "! " in front must fail. PID is the
// service's. Of each unexpected answer the request, what came of it, when and after how long go to standard
// error and to FOLDER/unexpected, and EVIDENCE is run before anything else is asked, with FOLDER/NUMBER, so
// that it saves what the phone still knows. SIGINT and SIGTERM end it early, with the figures so far. Prints
// figures as bench does. Exits with 1 when an answer was unexpected or something grew that should not.
#include "station/catalogue/answer.h"
#include "watch.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <map>
#include <string>
#include <thread>
#include <vector>

static constexpr long EVIDENCE_MAX = 50;                              // times that it is saved
static constexpr double STANDSTILL = 1;                               // seconds
static constexpr auto PULSE_SETTLES = std::chrono::milliseconds(300); // until a gap that has ended is known

static volatile std::sig_atomic_t stopped = 0;

namespace
{

// Whether this process itself has stood still: stopped, or on a machine that was. Its clock goes on then, and
// an answer that has come in time looks as if it had not.
class Pulse
{
  public:
    Pulse() : beats_(&Pulse::beat, this) {}
    Pulse(const Pulse &) = delete;
    Pulse &operator=(const Pulse &) = delete;
    ~Pulse()
    {
        ends_ = true;
        beats_.join();
    }
    // The longest time between two beats since this was last asked.
    double longest_gap() { return longest_.exchange(0); }

  private:
    void beat()
    {
        using Clock = std::chrono::steady_clock;
        for (auto last = Clock::now(); !ends_;) {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            const auto now = Clock::now();
            const double gap = std::chrono::duration<double>(now - last).count();
            if (gap > longest_)
                longest_ = gap;
            last = now;
        }
    }
    std::atomic<double> longest_{0};
    std::atomic<bool> ends_{false};
    std::thread beats_;
};

struct Asked {
    std::string line;
    station::Request request;
    station::Verdict verdict;
};

} // namespace

static std::vector<Asked> read_requests(const char *file, station::Settings &settings)
{
    std::vector<Asked> requests;
    std::ifstream lines(file);
    for (std::string line; std::getline(lines, line);) {
        if (line.empty() || line[0] == '#')
            continue;
        const bool fails = line[0] == '!';
        requests.push_back(
            {line, station::parse_request(station::split_words(line.substr(fails ? 1 : 0)), settings),
             fails ? station::FAILURE : station::SUCCESS});
    }
    return requests;
}

// "2026-11-22 00:41:07.123", in UTC as the phone's log.
static std::string time_text(std::chrono::system_clock::time_point time)
{
    using std::chrono::milliseconds;
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    char text[40];
    const size_t length = std::strftime(text, sizeof text, "%F %T", &parts);
    snprintf(
        text + length, sizeof text - length, ".%03d",
        static_cast<int>(std::chrono::duration_cast<milliseconds>(time.time_since_epoch()).count() % 1000));
    return text;
}

static std::string outcome_text(const station::Exchange &exchange, const station::Result &result)
{
    std::string text;
    switch (exchange.outcome) {
    case station::Outcome::answer:
        text = "answer \"" + station::answer_line(exchange, result) + "\"";
        break;
    case station::Outcome::refused:
        text = "refused: " + exchange.problem;
        break;
    case station::Outcome::silence:
        text = "no answer: " + exchange.problem;
        break;
    }
    if (exchange.skipped > 0)
        text += ", " + std::to_string(exchange.skipped) + " other frames before it";
    char took[64];
    snprintf(took, sizeof took, ", after %.1f ms%s", exchange.milliseconds,
             exchange.port_died ? ", the connection lost" : "");
    return text + took;
}

static void save_evidence(const char *program, const std::string &where)
{
    pid_t pid = -1;
    char *arguments[] = {const_cast<char *>(program), const_cast<char *>(where.c_str()), nullptr};
    if (posix_spawnp(&pid, program, nullptr, nullptr, arguments, environ) == 0)
        waitpid(pid, nullptr, 0);
}

int main(int argc, char **argv)
{
    if (argc != 7) {
        fprintf(stderr, "usage: soak COUNT PID PORT REQUESTS FOLDER EVIDENCE\n");
        return 2;
    }
    const long count = atol(argv[1]);
    const std::string folder = argv[5];
    station::Settings settings;
    settings.client.port = argv[3];
    const std::vector<Asked> requests = read_requests(argv[4], settings);
    if (requests.empty()) {
        fprintf(stderr, "soak: no requests in %s\n", argv[4]);
        return 2;
    }
    for (const int number : {SIGINT, SIGTERM})
        signal(number, [](int) { stopped = 1; });

    station::Client client(settings.client);
    Pulse pulse;
    std::map<std::string, long> surprises; // by line
    long surprised = 0;
    const auto ask = [&](long i) {
        const Asked &asked = requests[static_cast<size_t>(i) % requests.size()];
        const auto begin = std::chrono::system_clock::now();
        const station::Exchange exchange = client.ask(asked.request);
        const station::Result result = station::judge(asked.request, exchange);
        if (result.verdict == asked.verdict) {
            if (i % 100 == 0)
                pulse.longest_gap();
            return true;
        }
        surprises[asked.line]++;
        std::this_thread::sleep_for(PULSE_SETTLES);
        const double gap = pulse.longest_gap();
        const std::string told =
            time_text(begin) + " request " + std::to_string(i) + ", " + asked.line + ": " +
            outcome_text(exchange, result) +
            (gap > STANDSTILL ? "; the soak itself has stood still for " + std::to_string(gap) + " s" : "");
        fprintf(stderr, "%ld. %s\n", ++surprised, told.c_str());
        std::ofstream(folder + "/unexpected", std::ios::app) << surprised << ". " << told << "\n";
        if (surprised <= EVIDENCE_MAX)
            save_evidence(argv[6], folder + "/" + std::to_string(surprised));
        return !exchange.port_died || look_at(argv[2]).resident > 0; // another service is another's soak
    };
    const bool flat = watch(argv[2], count, static_cast<long>(requests.size()), ask, stopped);
    printf("unexpected answers\t-\t%ld\t\n", surprised);
    for (const auto &[line, times] : surprises)
        fprintf(stderr, "not as expected, %ld times: %s\n", times, line.c_str());
    if (surprised > 0)
        fprintf(stderr, "what the phone knew of each is in %s\n", folder.c_str());
    return flat && surprised == 0 ? 0 : 1;
}
