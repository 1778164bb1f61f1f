// Puts services under load and watches what becomes of them.
//
//   load rate SECONDS PORT...   echoes on all ports at once, each over a connection of its own
//   load echo COUNT PID PORT    echoes over one connection
//
// PID is the service's; its memory, descriptors and children are sampled. Prints figures as bench does, and
// what it samples to standard error. Exits with 1 when something grew that should not.
#include "exchange.h"
#include "watch.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

namespace
{

using Clock = std::chrono::steady_clock;

constexpr uint16_t ECHO = 0x013C;

int echo(long count, const std::string &pid, const char *port)
{
    const int fd = connect_to(port);
    if (fd < 0)
        die(port);
    const Bytes request = make_request(ECHO);
    Bytes answer;
    const auto ask_once = [&](long) {
        ask(fd, request, answer);
        return true;
    };
    const std::sig_atomic_t to_the_end = 0;
    return watch(pid, count, 100, ask_once, to_the_end) ? 0 : 1;
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
    fprintf(stderr, "usage: load rate SECONDS PORT... | echo COUNT PID PORT\n");
    return 2;
}
