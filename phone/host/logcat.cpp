// `script/phone logcat`. The log is a file that the phone writes as it likes: of whatever is in it, the last
// 4 MiB are looked at, and shown cleaned.
#include "clean.h"
#include "commands.h"
#include "launcher.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>

namespace host
{

static constexpr off_t SHOWN_MAX = off_t{4} << 20;
static constexpr int FOLLOW_PERIOD_MS = 50;
static constexpr int ANSWER_MS = 5000; // of a launcher that has much to do
static constexpr char PRIORITIES[] = "VDIWEF";
// "MM-DD HH:MM:SS.mmm  PID  TID P TAG     : text"
static constexpr size_t PRIORITY_COLUMN = 31, TAG_COLUMN = 33;

namespace
{

struct Wanted {
    std::string tag;
    char priority;
};

struct View {
    bool follow = true, silent = false; // silent: what is not wanted by name
    size_t last = SIZE_MAX;
    std::vector<Wanted> wanted;
};

} // namespace

static size_t rank(char priority) { return std::string_view(PRIORITIES).find(priority); }

static bool is_wanted(const View &view, std::string_view line)
{
    if (!view.silent)
        return true;
    if (line.size() <= TAG_COLUMN)
        return false;
    const std::string_view behind = line.substr(TAG_COLUMN);
    const std::string_view padded = behind.substr(0, behind.find(": "));
    const std::string_view tag = padded.substr(0, padded.find_last_not_of(' ') + 1);
    return std::any_of(view.wanted.begin(), view.wanted.end(), [&](const Wanted &one) {
        return (one.tag == tag || one.tag == "*") && rank(line[PRIORITY_COLUMN]) >= rank(one.priority);
    });
}

// From `begin` to the end, without what was freed.
static std::string read_from(const Fd &log, off_t begin, off_t end)
{
    std::string text(static_cast<size_t>(end - begin), '\0');
    const ssize_t count = pread(log.get(), text.data(), text.size(), begin);
    text.resize(static_cast<size_t>(std::max<ssize_t>(count, 0)));
    text.erase(std::remove(text.begin(), text.end(), '\0'), text.end());
    return text;
}

static off_t size_of(const Fd &log)
{
    struct stat there {
    };
    return fstat(log.get(), &there) == 0 && S_ISREG(there.st_mode) ? there.st_size : 0;
}

// Prints the complete lines, the last `last` of those wanted, and leaves the rest. False: nobody reads.
static bool print_lines(const View &view, std::string &text, size_t last)
{
    std::vector<std::string_view> lines;
    const std::string_view all = text;
    size_t at = 0;
    for (size_t end; (end = all.find('\n', at)) != std::string_view::npos; at = end + 1)
        if (const auto line = all.substr(at, end - at); is_wanted(view, line))
            lines.push_back(line);
    for (size_t i = lines.size() - std::min(last, lines.size()); i < lines.size(); ++i) {
        Cleaner cleaner;
        std::string shown = cleaner.clean(lines[i]);
        shown += cleaner.end() + "\n";
        fwrite(shown.data(), 1, shown.size(), stdout);
    }
    text.erase(0, at);
    return fflush(stdout) == 0;
}

static std::string last_part(const Fd &log, off_t end)
{
    const off_t begin = std::max<off_t>(0, end - SHOWN_MAX);
    std::string text = read_from(log, begin, end);
    if (begin > 0) // in the middle of a line
        text.erase(0, std::min(text.find('\n'), text.size() - 1) + 1);
    return text;
}

static int follow(const View &view, const Fd &log, const Fd &launcher)
{
    off_t at = size_of(log);
    std::string text = last_part(log, at);
    for (bool lives = true; print_lines(view, text, SIZE_MAX);) {
        const off_t size = size_of(log);
        if (size < at)
            at = 0; // it was emptied
        if (size > at) {
            text += size - at > SHOWN_MAX ? last_part(log, size) : read_from(log, at, size);
            at = size;
            continue;
        }
        if (!lives)
            return EXIT_SUCCESS;
        pollfd end = {launcher.get(), POLLIN, 0};
        lives = poll(&end, 1, FOLLOW_PERIOD_MS) == 0;
        if (text.size() > static_cast<size_t>(SHOWN_MAX))
            text.clear(); // a line that never ends
    }
    return EXIT_FAILURE;
}

// The log of the phone that is up, from its launcher, or of the one that is down.
static Fd open_log(const Fd &state, Fd &launcher)
{
    launcher = connect_in(state, CONTROL);
    if (launcher) {
        const char request = REQUEST_LOG;
        pollfd answer = {launcher.get(), POLLIN, 0};
        if (write(launcher.get(), &request, 1) == 1 && poll(&answer, 1, ANSWER_MS) == 1)
            return receive_fd(launcher.get());
    }
    return Fd(openat(state.get(), LOG, O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
}

[[noreturn]] static void usage(const std::string &what)
{
    die("logcat: " + what + "; logcat [NAME] [-d] [-c] [-t LINES] [-v threadtime] [-s TAG[:PRIORITY]...]");
}

static Wanted parse_wanted(const std::string &text)
{
    const size_t colon = text.rfind(':');
    if (colon == std::string::npos || colon + 2 != text.size() || rank(text[colon + 1]) == std::string::npos)
        return {text, PRIORITIES[0]};
    return {text.substr(0, colon), text[colon + 1]};
}

int logcat(const Fd &state, const std::vector<std::string> &arguments)
{
    View view;
    bool clear = false;
    for (size_t i = 0; i < arguments.size(); ++i) {
        const std::string &word = arguments[i];
        const auto value = [&]() -> const std::string & {
            return i + 1 < arguments.size() ? arguments[++i] : (usage(word + " needs a value"), word);
        };
        if (word == "-d") {
            view.follow = false;
        } else if (word == "-c") {
            clear = true;
        } else if (word == "-t") {
            const std::string &lines = value();
            const auto parsed = std::from_chars(lines.data(), lines.data() + lines.size(), view.last);
            if (parsed.ec != std::errc() || parsed.ptr != lines.data() + lines.size())
                usage("not a number of lines: " + lines);
            view.follow = false;
        } else if (word == "-v") {
            if (value() != "threadtime")
                usage("there is no other layout than threadtime");
        } else if (word == "-s") {
            view.silent = true;
        } else if (view.silent && word[0] != '-') {
            view.wanted.push_back(parse_wanted(word));
        } else {
            usage("unknown: " + word);
        }
    }
    if (view.silent && view.wanted.empty())
        usage("-s needs a tag");
    Fd launcher;
    const Fd log = open_log(state, launcher);
    if (!log)
        die("there is no log yet");
    if (clear)
        return ftruncate(log.get(), 0) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
    if (view.follow && launcher)
        return follow(view, log, launcher);
    std::string text = last_part(log, size_of(log));
    return print_lines(view, text, view.last) ? EXIT_SUCCESS : EXIT_FAILURE;
}

void show_ends(const Fd &state, int out)
{
    constexpr size_t LINES = 20, CONSOLE_SHOWN = 4096;
    Fd launcher;
    std::string text;
    if (const Fd log = open_log(state, launcher); log)
        text = last_part(log, size_of(log));
    text += read_file(state, CONSOLE, CONSOLE_SHOWN);
    size_t begin = text.size();
    for (size_t lines = 0; begin > 0 && lines <= LINES; ++lines)
        begin = text.rfind('\n', begin - 1) == std::string::npos ? 0 : text.rfind('\n', begin - 1);
    Cleaner cleaner;
    const std::string shown = cleaner.clean(std::string_view(text).substr(begin));
    write_all(out, shown.data(), shown.size());
}

} // namespace host
