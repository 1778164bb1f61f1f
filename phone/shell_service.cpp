#include "shell_service.h"

#include "shell_wire.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>

static constexpr char SHELL[] = "/system/bin/sh";
static constexpr int CANNOT = 127;
static constexpr int OPEN_SECONDS = 5;                 // in which the user says what they want
static constexpr size_t PENDING_MAX = size_t{1} << 18; // to the user, who may read slowly

namespace
{

struct Request {
    bool terminal;
    winsize size;
    std::string type, command;
};

struct Session {
    int connection = -1;
    int input = -1, output = -1, errors = -1; // of the shell; a terminal is both input and output
    pid_t shell = -1;
    std::string received, to_shell, to_user;
    bool input_ends = false;
};

} // namespace

static winsize size_at(const std::string &bytes, size_t at)
{
    winsize size{};
    size.ws_row = static_cast<unsigned short>(shell_wire::number_at(bytes, at));
    size.ws_col = static_cast<unsigned short>(shell_wire::number_at(bytes, at + 2));
    return size;
}

static bool receive(Session &session)
{
    std::array<char, 16384> some{};
    const ssize_t count = read(session.connection, some.data(), some.size());
    if (count > 0)
        session.received.append(some.data(), static_cast<size_t>(count));
    return count > 0;
}

static bool receive_request(Session &session, Request &request)
{
    shell_wire::Frame frame;
    while (!shell_wire::take(session.received, frame))
        if (!receive(session))
            return false;
    const size_t type = 5, end = frame.bytes.find('\0', type);
    if (frame.kind != shell_wire::OPEN || end == std::string::npos)
        return false;
    request = {frame.bytes[0] == 1, size_at(frame.bytes, 1), frame.bytes.substr(type, end - type),
               frame.bytes.substr(end + 1)};
    return true;
}

[[noreturn]] static void become_shell(const Request &request, int in, int out, int errors,
                                      const std::function<void()> &prepare)
{
    setsid();
    dup2(in, STDIN_FILENO);
    dup2(out, STDOUT_FILENO);
    dup2(errors, STDERR_FILENO);
    if (request.terminal)
        ioctl(STDIN_FILENO, TIOCSCTTY, 0);
    syscall(SYS_close_range, 3U, ~0U, 0);
    signal(SIGPIPE, SIG_DFL);
    setenv("TERM", request.type.c_str(), 1);
    prepare();
    if (request.command.empty())
        execl(SHELL, "sh", static_cast<char *>(nullptr));
    else
        execl(SHELL, "sh", "-c", request.command.c_str(), static_cast<char *>(nullptr));
    perror(SHELL);
    _exit(CANNOT);
}

// A shell with a terminal of the phone's own.
static bool start_on_terminal(Session &session, const Request &request, const std::function<void()> &prepare)
{
    const int master = open("/dev/pts/ptmx", O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
    std::array<char, 64> name{};
    if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0 ||
        ptsname_r(master, name.data(), name.size()) != 0)
        return false;
    const int terminal = open(name.data(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (terminal < 0)
        return false;
    ioctl(terminal, TIOCSWINSZ, &request.size);
    session.shell = fork();
    if (session.shell == 0)
        become_shell(request, terminal, terminal, terminal, prepare);
    close(terminal);
    session.input = session.output = master;
    return session.shell > 0;
}

static bool start_on_pipes(Session &session, const Request &request, const std::function<void()> &prepare)
{
    int in[2], out[2], errors[2];
    if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0 || pipe2(errors, O_CLOEXEC) != 0)
        return false;
    session.shell = fork();
    if (session.shell == 0)
        become_shell(request, in[0], out[1], errors[1], prepare);
    close(in[0]);
    close(out[1]);
    close(errors[1]);
    session.input = in[1];
    session.output = out[0];
    session.errors = errors[0];
    for (const int fd : {session.input, session.output, session.errors})
        fcntl(fd, F_SETFL, O_NONBLOCK);
    return session.shell > 0;
}

// Takes what the shell says; false when there is nothing more now. A stream that has ended is closed.
static bool take_output(Session &session, int &fd, char kind)
{
    if (fd < 0 || session.to_user.size() > PENDING_MAX)
        return false;
    std::array<char, 16384> some{};
    const ssize_t count = read(fd, some.data(), some.size());
    if (count > 0) {
        session.to_user += shell_wire::encode(kind, {some.data(), static_cast<size_t>(count)});
        return true;
    }
    if (count == 0 || (errno != EAGAIN && errno != EINTR)) {
        if (fd != session.input)
            close(fd);
        fd = -1;
    }
    return false;
}

// Passes on what both sides take now. False: the user is gone.
static bool send_pending(Session &session)
{
    if (!session.to_user.empty()) {
        const ssize_t sent = send(session.connection, session.to_user.data(), session.to_user.size(),
                                  MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent < 0 && errno != EAGAIN && errno != EINTR)
            return false;
        session.to_user.erase(0, static_cast<size_t>(sent > 0 ? sent : 0));
    }
    if (session.input >= 0 && !session.to_shell.empty()) {
        const ssize_t written = write(session.input, session.to_shell.data(), session.to_shell.size());
        if (written > 0)
            session.to_shell.erase(0, static_cast<size_t>(written));
        else if (errno != EAGAIN && errno != EINTR)
            session.to_shell.clear();
    }
    if (session.input_ends && session.to_shell.empty() && session.input >= 0 &&
        session.input != session.output) {
        close(session.input);
        session.input = -1;
    }
    return true;
}

static void obey_user(Session &session)
{
    for (shell_wire::Frame frame; shell_wire::take(session.received, frame);) {
        if (frame.kind == shell_wire::SIZE) {
            const winsize size = size_at(frame.bytes, 0);
            ioctl(session.input, TIOCSWINSZ, &size);
        } else if (frame.kind == shell_wire::INPUT) {
            session.to_shell += frame.bytes;
            session.input_ends = session.input_ends || frame.bytes.empty();
        }
    }
}

// Until the shell has ended and said all; what it left in the background stays. The status, or -1 when the
// user is gone.
static int relay(Session &session, int signals)
{
    for (int status = -1;;) {
        const bool ended = status < 0 && waitpid(session.shell, &status, WNOHANG) == session.shell;
        if (!ended)
            status = -1;
        bool more = true;
        while (more) {
            more = take_output(session, session.output, shell_wire::OUTPUT);
            more = take_output(session, session.errors, shell_wire::ERRORS) || more;
        }
        if (!send_pending(session))
            return -1;
        if (ended) {
            while (!session.to_user.empty()) {
                pollfd room = {session.connection, POLLOUT, 0};
                poll(&room, 1, -1);
                if (!send_pending(session))
                    return -1;
                while (take_output(session, session.output, shell_wire::OUTPUT) ||
                       take_output(session, session.errors, shell_wire::ERRORS))
                    ;
            }
            return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        }
        const bool roomy = session.to_user.size() <= PENDING_MAX;
        pollfd events[] = {{session.connection,
                            static_cast<short>((session.to_shell.empty() ? POLLIN : 0) |
                                               (session.to_user.empty() ? 0 : POLLOUT)),
                            0},
                           {signals, POLLIN, 0},
                           {roomy ? session.output : -1, POLLIN, 0},
                           {roomy ? session.errors : -1, POLLIN, 0},
                           {session.to_shell.empty() ? -1 : session.input, POLLOUT, 0}};
        poll(events, 5, -1);
        signalfd_siginfo signal{};
        while (read(signals, &signal, sizeof signal) > 0)
            ;
        if ((events[0].revents & POLLIN) != 0) {
            if (!receive(session))
                return -1;
            obey_user(session);
        } else if ((events[0].revents & (POLLHUP | POLLERR)) != 0) {
            return -1;
        }
    }
}

static void serve(Session &session, const std::function<void()> &prepare)
{
    sigset_t child;
    sigemptyset(&child);
    sigaddset(&child, SIGCHLD);
    sigprocmask(SIG_BLOCK, &child, nullptr);
    signal(SIGPIPE, SIG_IGN);
    const int signals = signalfd(-1, &child, SFD_CLOEXEC | SFD_NONBLOCK);
    const timeval limit{OPEN_SECONDS, 0};
    setsockopt(session.connection, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    Request request{};
    if (!receive_request(session, request))
        return;
    const bool started = request.terminal ? start_on_terminal(session, request, prepare)
                                          : start_on_pipes(session, request, prepare);
    int status = CANNOT;
    if (started) {
        obey_user(session);
        status = relay(session, signals);
    } else {
        session.to_user =
            shell_wire::encode(shell_wire::ERRORS, "no process or terminal is left for a shell\n");
    }
    if (status < 0)
        kill(-session.shell, SIGHUP);
    else
        session.to_user += shell_wire::encode(shell_wire::EXIT, {reinterpret_cast<const char *>(&status), 1});
    for (ssize_t sent; !session.to_user.empty(); session.to_user.erase(0, static_cast<size_t>(sent)))
        if ((sent = send(session.connection, session.to_user.data(), session.to_user.size(), MSG_NOSIGNAL)) <=
            0)
            break;
}

void serve_shell(int listener, const std::function<void()> &prepare)
{
    const int connection = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (connection < 0)
        return;
    if (fork() == 0) {
        // Nothing of init's comes along; its descriptors are numbered from here.
        dup2(connection, STDIN_FILENO);
        syscall(SYS_close_range, 3U, ~0U, 0);
        Session session{};
        session.connection = STDIN_FILENO;
        serve(session, prepare);
        _exit(EXIT_SUCCESS);
    }
    close(connection); // without a process for it: they see it end
}
