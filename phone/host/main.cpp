// What script/phone needs that a shell script cannot do safely: phone_host VERB FOLDER [ARGUMENT]...
//
//   up FOLDER IMAGE PROGRAMS OPTIONS STAGING [--fresh]
//                           boots the phone whose folder it is; bubblewrap's arguments come on the standard
//                           input
//   down FOLDER             takes it down
//   shell FOLDER [--raw] [LINE]
//                           a shell in it, or one command line
//   logcat FOLDER [OPTION]...
//                           its log
#include "commands.h"
#include "launcher.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>

using host::Fd;

static constexpr int UP_SECONDS = 15, DOWN_SECONDS = 30;
static constexpr rlim_t FILES_MIN = 64; // of the launcher; the service leaves its handlers half of so few
static constexpr int EXIT_USAGE = 2, EXIT_NOT_UP = 3, EXIT_UP_ALREADY = 4;

static std::string read_input()
{
    constexpr size_t INPUT_MAX = size_t{4} << 20;
    std::string text;
    std::array<char, 65536> some{};
    for (ssize_t count;
         (count = read(STDIN_FILENO, some.data(), some.size())) > 0 && text.size() < INPUT_MAX;)
        text.append(some.data(), static_cast<size_t>(count));
    return text;
}

// False when it has not gone down.
static bool take_down(const Fd &state)
{
    // While it comes up, there is a lock and nobody to talk to yet.
    for (int tries = 0; tries < DOWN_SECONDS * 100 && host::is_locked(state); ++tries) {
        const Fd launcher = host::connect_in(state, host::CONTROL);
        const char request = host::REQUEST_DOWN;
        if (launcher && write(launcher.get(), &request, 1) == 1)
            return host::await_unlocked(state, DOWN_SECONDS);
        poll(nullptr, 0, 10);
    }
    return !host::is_locked(state);
}

// What `up` is told, in order.
enum { IMAGE, PROGRAMS, OPTIONS, STAGING, FRESH };

static int up(const Fd &state, const std::string &path, const std::vector<std::string> &told)
{
    Fd lock(openat(state.get(), "lock", O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600));
    bool locked = false;
    for (int tries = 0; !locked && tries < 20; ++tries) { // who looks whether it is up holds it for a moment
        locked = flock(lock.get(), LOCK_EX | LOCK_NB) == 0;
        if (!locked)
            poll(nullptr, 0, 5);
    }
    if (!locked)
        return EXIT_UP_ALREADY;
    if (told.size() > FRESH)
        unlinkat(state.get(), host::KEPT, 0);
    for (const char *name : {host::PORT, host::SHELL, host::CONTROL, host::LOG_GIVER, host::STATE,
                             host::CONSOLE, host::LOG, "console.1"})
        unlinkat(state.get(), name, 0);
    host::write_file(state, "options", told[OPTIONS] + "\n"); // of `script/phone status`
    host::write_file(state, "programs", told[PROGRAMS] + "\n");
    host::write_file(state, host::STAGING, told[STAGING]);
    rlimit files{};
    getrlimit(RLIMIT_NOFILE, &files);
    files.rlim_cur = std::max(files.rlim_cur, FILES_MIN);
    if (setrlimit(RLIMIT_NOFILE, &files) != 0)
        host::die("a phone needs " + std::to_string(FILES_MIN) + " open files (ulimit -n)");
    const Fd ready = host::launch(state, path, std::move(lock), told[IMAGE], read_input());
    pollfd there = {ready.get(), POLLIN, 0};
    char byte;
    if (poll(&there, 1, UP_SECONDS * 1000) == 1 && read(ready.get(), &byte, 1) == 1)
        return EXIT_SUCCESS;
    host::show_ends(state, STDERR_FILENO);
    take_down(state);
    return EXIT_FAILURE;
}

static int down(const Fd &state)
{
    if (!host::is_locked(state))
        return EXIT_NOT_UP;
    return take_down(state) ? EXIT_SUCCESS : EXIT_FAILURE;
}

int main(int argc, char **argv)
{
    // Whatever the caller has open is none of the phone's business.
    syscall(SYS_close_range, 3U, ~0U, 0);
    for (int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) // a closed one would be some file of ours
        if (fcntl(fd, F_GETFD) < 0)
            open("/dev/null", O_RDWR);
    umask(077);
    const std::vector<std::string> words(argv, argv + argc);
    if (words.size() < 3)
        return EXIT_USAGE;
    const Fd state = host::open_state(words[2]);
    std::vector<std::string> rest(words.begin() + 3, words.end());
    if (words[1] == "up" && rest.size() > STAGING)
        return up(state, words[2], rest);
    if (words[1] == "down")
        return down(state);
    if (words[1] == "logcat")
        return host::logcat(state, rest);
    if (words[1] == "shell") {
        const bool raw = !rest.empty() && rest[0] == "--raw";
        if (raw)
            rest.erase(rest.begin());
        return host::shell(state, raw, rest.empty() ? "" : rest[0]);
    }
    return EXIT_USAGE;
}
