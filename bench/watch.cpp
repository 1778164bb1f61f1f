#include "watch.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

static constexpr int SAMPLES = 10;
static constexpr long GROWTH_MAX_KIB = 64; // of private memory: what the allocator may still take for itself

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
    std::error_code gone;
    for (const auto &fd : fs::directory_iterator(process / "fd", gone)) {
        (void)fd;
        sample.descriptors++;
    }
    for (const auto &task : fs::directory_iterator(process / "task", gone)) {
        std::ifstream children(task.path() / "children");
        for (std::string child; children >> child;)
            sample.children++;
    }
    return sample;
}

static void print_sample(long requests, const Sample &sample)
{
    fprintf(stderr, "%10ld requests: %5ld KiB resident, %4ld KiB its own, %3ld descriptors, %ld children\n",
            requests, sample.resident, sample.own, sample.descriptors, sample.children);
}

bool watch(const std::string &pid, long count, long round, const std::function<bool(long)> &ask_once,
           const volatile std::sig_atomic_t &stop)
{
    using Clock = std::chrono::steady_clock;
    long asked = 0;
    const auto ask = [&](long upto) {
        while (asked < upto && !stop) {
            if (!ask_once(asked++))
                return false;
        }
        return !stop;
    };
    bool goes_on = ask(round);
    const Sample before = look_at(pid);
    print_sample(asked, before);
    const auto begin = Clock::now();
    const long first = asked, stride = std::max(1L, count / SAMPLES);
    Sample after = before;
    for (long next = first + stride; goes_on && asked < first + count; next += stride) {
        goes_on = ask(std::min(next, first + count));
        print_sample(asked, after = look_at(pid));
    }
    const double seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    printf("requests\t-\t%ld\t\n", asked);
    printf("requests a second\t-\t%.0f\t/s\n", static_cast<double>(asked - first) / seconds);
    printf("own memory\t%ld\t%ld\tKiB\n", before.own, after.own);
    printf("descriptors\t%ld\t%ld\t\n", before.descriptors, after.descriptors);
    printf("children\t%ld\t%ld\t\n", before.children, after.children);
    return after.resident > 0 && after.own - before.own <= GROWTH_MAX_KIB &&
           after.descriptors == before.descriptors && after.children == before.children;
}
