// The phone's logcat (tools/system/bin/logcat): shows the log, which it gets where every program of the phone
// gets it, as it is.
#include "log_view.h"
#include "reader.h"
#include "share.h"

#include <poll.h>

#include <cstdio>
#include <cstdlib>

int main(int argc, char **argv)
{
    log_view::View view;
    const std::string wrong = log_view::parse({argv + 1, argv + argc}, view);
    if (!wrong.empty()) {
        fprintf(stderr, "logcat: %s\n", wrong.c_str());
        return EXIT_FAILURE;
    }
    const owned::descriptor log = log_ring::receive(log_ring::PATH);
    if (!log) {
        perror("logcat: no log");
        return EXIT_FAILURE;
    }
    if (view.clear)
        return log_ring::clear(log.get()) ? EXIT_SUCCESS : EXIT_FAILURE;
    const auto as_it_is = [](std::string_view line) { return std::string(line); };
    log_ring::reader reader(log.get());
    std::string text;
    while (reader.read(text, !view.follow)) {
        const bool shown = log_view::print_lines(view, text, view.last, as_it_is);
        if (!shown || !view.follow)
            return shown ? EXIT_SUCCESS : EXIT_FAILURE;
        poll(nullptr, 0, log_view::FOLLOW_PERIOD_MS);
    }
    return EXIT_FAILURE;
}
