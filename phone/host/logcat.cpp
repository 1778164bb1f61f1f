// `script/phone logcat`: the log of the phone that is up, a ring that its programs write as they like, or
// what was kept of it when it went down. Whatever is in it is shown cleaned.
#include "clean.h"
#include "commands.h"
#include "launcher.h"
#include "log_view.h"
#include "reader.h"
#include "share.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace host
{

static constexpr size_t KEPT_MAX = size_t{8} << 20;
static constexpr int ANSWER_MS = 5000; // of a launcher that has much to do

static std::string cleaned(std::string_view line)
{
    Cleaner cleaner;
    std::string shown = cleaner.clean(line);
    return shown += cleaner.end();
}

// The ring of the phone that is up, from its launcher; none: it is down.
static Fd open_ring(const Fd &state, Fd &launcher)
{
    launcher = connect_in(state, CONTROL);
    const char request = REQUEST_LOG;
    pollfd answer = {launcher.get(), POLLIN, 0};
    if (launcher && write(launcher.get(), &request, 1) == 1 && poll(&answer, 1, ANSWER_MS) == 1)
        return log_ring::take(launcher.get());
    return Fd();
}

// Until the launcher ends.
static int follow(const log_view::View &view, log_ring::reader &reader, const Fd &launcher)
{
    std::string text;
    for (bool lives = true;;) {
        if (!reader.read(text, !lives) || !log_view::print_lines(view, text, SIZE_MAX, cleaned))
            return EXIT_FAILURE;
        if (!lives)
            return EXIT_SUCCESS;
        pollfd end = {launcher.get(), POLLIN, 0};
        lives = poll(&end, 1, log_view::FOLLOW_PERIOD_MS) == 0;
    }
}

static int clear_kept(const Fd &state)
{
    const Fd kept(openat(state.get(), LOG, O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!kept)
        die("there is no log yet");
    return ftruncate(kept.get(), 0) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

static int show(const log_view::View &view, std::string text)
{
    return log_view::print_lines(view, text, view.last, cleaned) ? EXIT_SUCCESS : EXIT_FAILURE;
}

[[noreturn]] static void usage(const std::string &what)
{
    die("logcat: " + what + "; logcat [NAME] [-d] [-c] [-t LINES] [-v threadtime] [-s TAG[:PRIORITY]...]");
}

int logcat(const Fd &state, const std::vector<std::string> &arguments)
{
    log_view::View view;
    if (const std::string wrong = log_view::parse(arguments, view); !wrong.empty())
        usage(wrong);
    if (view.layout != "threadtime")
        usage("there is no other layout than threadtime");
    Fd launcher;
    const Fd ring = open_ring(state, launcher);
    if (!ring) {
        if (view.clear)
            return clear_kept(state);
        if (faccessat(state.get(), LOG, F_OK, AT_SYMLINK_NOFOLLOW) != 0)
            die("there is no log yet");
        return show(view, read_file(state, LOG, KEPT_MAX));
    }
    if (view.clear)
        return log_ring::clear(ring.get()) ? EXIT_SUCCESS : EXIT_FAILURE;
    log_ring::reader reader(ring.get());
    if (view.follow)
        return follow(view, reader, launcher);
    std::string text;
    return reader.read(text, true) ? show(view, std::move(text)) : EXIT_FAILURE;
}

void show_ends(const Fd &state, int out)
{
    constexpr size_t LINES = 20, CONSOLE_SHOWN = 4096;
    Fd launcher;
    std::string text;
    if (const Fd ring = open_ring(state, launcher); !ring || !log_ring::reader(ring.get()).read(text, true))
        text = read_file(state, LOG, KEPT_MAX);
    text += read_file(state, CONSOLE, CONSOLE_SHOWN);
    size_t begin = text.size();
    for (size_t lines = 0; begin > 0 && lines <= LINES; ++lines)
        begin = text.rfind('\n', begin - 1) == std::string::npos ? 0 : text.rfind('\n', begin - 1);
    Cleaner cleaner;
    const std::string shown = cleaner.clean(std::string_view(text).substr(begin));
    write_all(out, shown.data(), shown.size());
}

} // namespace host
