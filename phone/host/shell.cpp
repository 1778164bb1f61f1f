// The workstation's end of `script/phone shell`. The user's terminal stays here: no process of the phone gets
// it, and what the phone says comes through the cleaner.
#include "clean.h"
#include "commands.h"
#include "launcher.h"
#include "phone/shell_wire.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>

namespace host
{

static constexpr int HUNG_UP = 255;

namespace
{

// The user's terminal, passing on keys as they come, for as long as this lives.
class RawTerminal
{
  public:
    explicit RawTerminal(bool wanted) : active_(wanted && tcgetattr(STDIN_FILENO, &before_) == 0)
    {
        termios raw = before_;
        cfmakeraw(&raw);
        active_ = active_ && tcsetattr(STDIN_FILENO, TCSADRAIN, &raw) == 0;
    }
    RawTerminal(const RawTerminal &) = delete;
    RawTerminal &operator=(const RawTerminal &) = delete;
    // What was typed and not yet read is dropped, and with it what the terminal may have been made to answer.
    ~RawTerminal()
    {
        if (active_)
            tcsetattr(STDIN_FILENO, TCSAFLUSH, &before_);
    }

  private:
    termios before_{};
    bool active_;
};

} // namespace

static std::string size_of_terminal()
{
    winsize size{};
    ioctl(STDIN_FILENO, TIOCGWINSZ, &size);
    return shell_wire::number(size.ws_row) + shell_wire::number(size.ws_col);
}

// One stream of the phone, on its way to the user's.
namespace
{
struct Stream {
    int fd;
    bool raw;
    Cleaner cleaner;
    bool show(std::string_view bytes)
    {
        const std::string text = raw ? std::string(bytes) : cleaner.clean(bytes);
        return write_all(fd, text.data(), text.size());
    }
    void end()
    {
        const std::string text = raw ? "" : cleaner.end() + (fd == STDOUT_FILENO ? cleaner.reset() : "");
        write_all(fd, text.data(), text.size());
    }
};
} // namespace

// Sends what the socket takes now: who waited for it to take all would not read what the phone says
// meanwhile.
static void send_some(const Fd &phone, std::string &pending)
{
    const ssize_t sent = send(phone.get(), pending.data(), pending.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent > 0)
        pending.erase(0, static_cast<size_t>(sent));
    else if (errno != EAGAIN && errno != EINTR)
        pending.clear(); // it takes nothing any more, but may still say why
}

static int talk(const Fd &phone, bool terminal, std::string pending, Stream &out, Stream &errors,
                const Fd &signals)
{
    const RawTerminal keys(terminal);
    std::string received;
    for (bool input = true;;) {
        const auto to_phone = static_cast<short>(pending.empty() ? 0 : POLLOUT);
        pollfd events[] = {{phone.get(), static_cast<short>(POLLIN | to_phone), 0},
                           {signals.get(), POLLIN, 0},
                           {input && pending.empty() ? STDIN_FILENO : -1, POLLIN, 0}};
        poll(events, 3, -1);
        std::array<char, 16384> some{};
        signalfd_siginfo signal{};
        while (read(signals.get(), &signal, sizeof signal) == sizeof signal) {
            if (signal.ssi_signo != SIGWINCH)
                return 128 + static_cast<int>(signal.ssi_signo);
            if (terminal)
                pending += shell_wire::encode(shell_wire::SIZE, size_of_terminal());
        }
        if (events[2].revents != 0) {
            const ssize_t count = read(STDIN_FILENO, some.data(), some.size());
            input = count > 0;
            pending +=
                shell_wire::encode(shell_wire::INPUT, {some.data(), static_cast<size_t>(input ? count : 0)});
        }
        if (!pending.empty())
            send_some(phone, pending);
        if ((events[0].revents & ~POLLOUT) == 0)
            continue;
        const ssize_t count = read(phone.get(), some.data(), some.size());
        if (count <= 0)
            return HUNG_UP;
        received.append(some.data(), static_cast<size_t>(count));
        for (shell_wire::Frame frame; shell_wire::take(received, frame);) {
            if (frame.kind == shell_wire::EXIT && frame.bytes.size() == 1)
                return static_cast<unsigned char>(frame.bytes[0]);
            if ((frame.kind == shell_wire::OUTPUT && !out.show(frame.bytes)) ||
                (frame.kind == shell_wire::ERRORS && !errors.show(frame.bytes)))
                return EXIT_FAILURE;
        }
    }
}

int shell(const Fd &state, bool raw, const std::string &command)
{
    const Fd phone = connect_in(state, SHELL);
    if (!phone)
        die("the phone has no shell now: " +
            std::string(is_locked(state) ? "it is booting" : "it is not up"));
    const bool terminal = command.empty() && isatty(STDIN_FILENO) != 0 && isatty(STDOUT_FILENO) != 0;
    const char *type = getenv("TERM");
    const std::string open = (terminal ? "\1" : std::string(1, '\0')) + size_of_terminal() +
                             (type ? type : "dumb") + '\0' + command;
    if (open.size() > shell_wire::FRAME_MAX)
        die("the command line is too long");
    sigset_t awaited;
    sigemptyset(&awaited);
    for (const int signal : {SIGWINCH, SIGTERM, SIGHUP, SIGINT, SIGQUIT})
        sigaddset(&awaited, signal);
    sigprocmask(SIG_BLOCK, &awaited, nullptr);
    signal(SIGPIPE, SIG_IGN);
    const Fd signals(signalfd(-1, &awaited, SFD_CLOEXEC | SFD_NONBLOCK));
    Stream out{STDOUT_FILENO, raw, Cleaner(terminal)}, errors{STDERR_FILENO, raw, Cleaner(terminal)};
    const int status =
        talk(phone, terminal, shell_wire::encode(shell_wire::OPEN, open), out, errors, signals);
    out.end();
    errors.end();
    if (status == HUNG_UP)
        fprintf(stderr, "phone: the phone has hung up\n");
    return status;
}

} // namespace host
