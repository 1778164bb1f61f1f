#include "files.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace host
{

static constexpr int LISTEN_BACKLOG = 4096; // the kernel cuts it to net.core.somaxconn

void die(const std::string &what)
{
    fprintf(stderr, "phone: %s\n", what.c_str());
    exit(EXIT_FAILURE);
}

void die_errno(const std::string &what) { die(what + ": " + strerror(errno)); }

Fd open_state(const std::string &path)
{
    Fd state(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat there {
    };
    if (!state || fstat(state.get(), &there) != 0)
        die_errno(path);
    if (there.st_uid != geteuid())
        die(path + " belongs to somebody else");
    if (fchmod(state.get(), 0700) != 0)
        die_errno(path);
    return state;
}

static Fd open_lock(const Fd &state)
{
    return Fd(openat(state.get(), "lock", O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
}

bool is_locked(const Fd &state)
{
    const Fd lock = open_lock(state);
    return lock && flock(lock.get(), LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

bool await_unlocked(const Fd &state, int seconds)
{
    constexpr int PERIOD_MS = 5;
    for (int tries = 0; tries < seconds * 1000 / PERIOD_MS; ++tries) {
        if (!is_locked(state))
            return true;
        poll(nullptr, 0, PERIOD_MS);
    }
    return false;
}

static sockaddr_un address_of(const Fd &state, const char *name)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof address.sun_path, "/proc/self/fd/%d/%s", state.get(), name);
    return address;
}

Fd listen_in(const Fd &state, const char *name)
{
    unlinkat(state.get(), name, 0);
    const sockaddr_un address = address_of(state, name);
    Fd listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!listener ||
        bind(listener.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 ||
        listen(listener.get(), LISTEN_BACKLOG) != 0)
        die_errno(std::string("cannot listen at ") + name);
    return listener;
}

Fd connect_in(const Fd &state, const char *name)
{
    const sockaddr_un address = address_of(state, name);
    Fd connection(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (connect(connection.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        return Fd();
    return connection;
}

std::string read_file(const Fd &state, const char *name, size_t limit)
{
    std::string text;
    const Fd file(openat(state.get(), name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat there {
    };
    if (!file || fstat(file.get(), &there) != 0 || !S_ISREG(there.st_mode))
        return text;
    std::array<char, 4096> some{};
    for (ssize_t count; text.size() < limit && (count = read(file.get(), some.data(), some.size())) > 0;)
        text.append(some.data(), static_cast<size_t>(count));
    return text.substr(0, limit);
}

void write_file(const Fd &state, const char *name, const std::string &text)
{
    const std::string fresh = std::string(name) + ".new";
    unlinkat(state.get(), fresh.c_str(), 0);
    const Fd file(openat(state.get(), fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (file && write_all(file.get(), text.data(), text.size()))
        renameat(state.get(), fresh.c_str(), state.get(), name);
}

bool write_all(int fd, const void *bytes, size_t length)
{
    const auto *next = static_cast<const uint8_t *>(bytes);
    while (length > 0) {
        const ssize_t written = write(fd, next, length);
        if (written < 0 && errno == EAGAIN) {
            pollfd room = {fd, POLLOUT, 0};
            poll(&room, 1, -1);
        } else if (written <= 0 && errno != EINTR) {
            return false;
        } else if (written > 0) {
            next += written;
            length -= static_cast<size_t>(written);
        }
    }
    return true;
}

int run(const std::vector<std::string> &command, int in, int out)
{
    const pid_t child = fork();
    if (child == 0) {
        sigset_t none;
        sigemptyset(&none);
        sigprocmask(SIG_SETMASK, &none, nullptr);
        if ((in >= 0 && dup2(in, STDIN_FILENO) < 0) || (out >= 0 && dup2(out, STDOUT_FILENO) < 0))
            _exit(127);
        std::vector<char *> words;
        words.reserve(command.size() + 1);
        for (const auto &word : command)
            words.push_back(const_cast<char *>(word.c_str()));
        words.push_back(nullptr);
        execvp(words[0], words.data());
        _exit(127);
    }
    int status = -1;
    while (child > 0 && waitpid(child, &status, 0) < 0 && errno == EINTR)
        ;
    return child > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace host
