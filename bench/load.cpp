// Puts services under load and watches what becomes of them.
//
//   load rate SECONDS PORT...           echoes on all ports at once
//   load echo COUNT PID PORT            echoes over one connection
//   load soak COUNT PID PORT REQUESTS   the requests of a file, again and again
//
// PID is the service's; its memory, descriptors and children are sampled. Prints figures as bench does, and
// what it samples to standard error. Exits with 1 when something grew that should not.
#include "exchange.h"
#include "station/catalogue/answer.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <thread>
#include <vector>

namespace fs = std::filesystem;

namespace
{

using Clock = std::chrono::steady_clock;

constexpr uint16_t ECHO = 0x013C;
constexpr int SAMPLES = 10;
constexpr long GROWTH_MAX_KIB = 64; // of private memory: what the allocator may still take for itself

double since(Clock::time_point begin) { return std::chrono::duration<double>(Clock::now() - begin).count(); }

struct Sample {
    long resident = 0, own = 0; // KiB
    long descriptors = 0, children = 0;
};

Sample look_at(const std::string &pid)
{
    const fs::path process = fs::path("/proc") / pid;
    Sample sample;
    std::ifstream status(process / "status");
    for (std::string word; status >> word;) {
        if (word == "VmRSS:")
            status >> sample.resident;
        else if (word == "RssAnon:")
            status >> sample.own;
    }
    for (const auto &fd : fs::directory_iterator(process / "fd")) {
        (void)fd;
        sample.descriptors++;
    }
    for (const auto &task : fs::directory_iterator(process / "task")) {
        std::ifstream children(task.path() / "children");
        for (std::string child; children >> child;)
            sample.children++;
    }
    return sample;
}

void print_sample(long requests, const Sample &sample)
{
    fprintf(stderr, "%10ld requests: %5ld KiB resident, %4ld KiB its own, %3ld descriptors, %ld children\n",
            requests, sample.resident, sample.own, sample.descriptors, sample.children);
}

// Asks `count` times after a first round, and samples. False: something has grown.
template <typename Ask> bool watch(const std::string &pid, long count, long round, Ask ask_once)
{
    for (long i = 0; i < round; i++)
        ask_once(i);
    const Sample before = look_at(pid);
    print_sample(round, before);
    const auto begin = Clock::now();
    const long stride = std::max(1L, count / SAMPLES);
    Sample after;
    for (long i = 1; i <= count; i++) {
        ask_once(round + i - 1);
        if (i % stride == 0 || i == count)
            print_sample(round + i, after = look_at(pid));
    }
    printf("requests a second\t-\t%.0f\t/s\n", static_cast<double>(count) / since(begin));
    printf("own memory\t%ld\t%ld\tKiB\n", before.own, after.own);
    printf("descriptors\t%ld\t%ld\t\n", before.descriptors, after.descriptors);
    printf("children\t%ld\t%ld\t\n", before.children, after.children);
    return after.own - before.own <= GROWTH_MAX_KIB && after.descriptors == before.descriptors &&
           after.children == before.children;
}

int echo(long count, const std::string &pid, const char *port)
{
    const int fd = connect_to(port);
    if (fd < 0)
        die(port);
    const Bytes request = make_request(ECHO);
    Bytes answer;
    return watch(pid, count, 100, [&](long) { ask(fd, request, answer); }) ? 0 : 1;
}

struct Asked {
    std::string line;
    station::Request request;
    station::Verdict verdict;
};

// A line is a request as the station takes it; one with "! " in front must fail.
std::vector<Asked> read_requests(const char *file, station::Settings &settings)
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

int soak(long count, const std::string &pid, const char *port, const char *file)
{
    station::Settings settings;
    settings.client.port = port;
    const std::vector<Asked> requests = read_requests(file, settings);
    station::Client client(settings.client);
    std::map<std::string, long> surprises; // by line
    const bool flat = watch(pid, count, static_cast<long>(requests.size()), [&](long i) {
        const Asked &asked = requests[static_cast<size_t>(i) % requests.size()];
        if (station::judge(asked.request, client.ask(asked.request)).verdict != asked.verdict)
            surprises[asked.line]++;
    });
    for (const auto &[line, times] : surprises)
        fprintf(stderr, "not as expected, %ld times: %s\n", times, line.c_str());
    return flat && surprises.empty() ? 0 : 1;
}

// Prints two numbers: answers a second of all ports together, and of the slowest.
int rate(double seconds, const std::vector<std::string> &ports)
{
    std::vector<long> answered(ports.size());
    std::vector<std::thread> stations;
    const auto end =
        Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
    for (size_t i = 0; i < ports.size(); i++)
        stations.emplace_back([&, i] {
            const int fd = connect_to(ports[i]);
            if (fd < 0)
                die(ports[i].c_str());
            const Bytes request = make_request(ECHO);
            Bytes answer;
            for (; Clock::now() < end; answered[i]++)
                ask(fd, request, answer);
            close(fd);
        });
    for (auto &station : stations)
        station.join();
    long all = 0, least = answered[0];
    for (long one : answered) {
        all += one;
        least = std::min(least, one);
    }
    printf("%.0f %.0f\n", static_cast<double>(all) / seconds, static_cast<double>(least) / seconds);
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    const std::string what = argc > 1 ? argv[1] : "";
    if (what == "rate" && argc > 3)
        return rate(strtod(argv[2], nullptr), {argv + 3, argv + argc});
    if (what == "echo" && argc == 5)
        return echo(atol(argv[2]), argv[3], argv[4]);
    if (what == "soak" && argc == 6)
        return soak(atol(argv[2]), argv[3], argv[4], argv[5]);
    fprintf(stderr,
            "usage: load rate SECONDS PORT... | echo COUNT PID PORT | soak COUNT PID PORT REQUESTS\n");
    return 2;
}
