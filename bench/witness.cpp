// Tells what could not be started, and why: preloaded into every program of a phone under soak, it writes a
// line for each call that failed to start something, and for each child that a signal has ended. The
// service's own log has no place for it: its lines are contracts.
//
// A line: seconds.milliseconds of the clock, process, its words, what was called, and what came of it. Many
// processes append to one file; each line is one write.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#define EXPORT extern "C" __attribute__((visibility("default")))

static constexpr char TESTIMONY[] = "/data/witness";

// The words of this process, parted by blanks: of a script its name too. What does not fit is cut.
static int name_process(char *out, size_t size)
{
    const int fd = open("/.proc/self/cmdline", O_RDONLY | O_CLOEXEC);
    const ssize_t count = read(fd, out, size);
    close(fd);
    for (ssize_t i = 0; i < count; i++)
        if (out[i] == '\0' || out[i] == '\n')
            out[i] = ' ';
    return count > 0 ? static_cast<int>(count) : 0;
}

// Keeps the caller's errno.
__attribute__((format(printf, 1, 2))) static void testify(const char *format, ...)
{
    static constexpr size_t NAME_MAX_SIZE = 320;
    const int saved_errno = errno;
    char line[1024];
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    int length = snprintf(line, sizeof line, "%lld.%03ld %d ", static_cast<long long>(now.tv_sec),
                          now.tv_nsec / 1000000, getpid());
    length += name_process(line + length, NAME_MAX_SIZE);
    va_list arguments;
    va_start(arguments, format);
    line[length++] = ' ';
    length += vsnprintf(line + length, sizeof line - static_cast<size_t>(length), format, arguments);
    va_end(arguments);
    if (length >= static_cast<int>(sizeof line))
        length = sizeof line - 1;
    line[length] = '\n';
    const int fd = open(TESTIMONY, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    (void)!write(fd, line, static_cast<size_t>(length) + 1);
    close(fd);
    errno = saved_errno;
}

// What the program would have called without the witness.
template <typename Call> static Call real(const char *name, Call)
{
    return reinterpret_cast<Call>(dlsym(RTLD_NEXT, name));
}
#define REAL(name) (real(#name, &(name)))

EXPORT FILE *popen(const char *line, const char *mode)
{
    static const auto call = REAL(popen);
    FILE *stream = call(line, mode);
    if (!stream)
        testify("popen(%s): %s", line, strerror(errno));
    return stream;
}

EXPORT int pclose(FILE *stream)
{
    static const auto call = REAL(pclose);
    const int status = call(stream);
    if (status < 0)
        testify("pclose: %s", strerror(errno));
    else if (WIFSIGNALED(status) && WTERMSIG(status) != SIGPIPE)
        testify("pclose: ended by signal %d", WTERMSIG(status));
    return status;
}

EXPORT int system(const char *line)
{
    static const auto call = REAL(system);
    const int status = call(line);
    if (status < 0)
        testify("system(%s): %s", line, strerror(errno));
    return status;
}

EXPORT pid_t fork() noexcept
{
    static const auto call = REAL(fork);
    const pid_t child = call();
    if (child < 0)
        testify("fork: %s", strerror(errno));
    return child;
}

EXPORT int execve(const char *path, char *const arguments[], char *const environment[]) noexcept
{
    static const auto call = REAL(execve);
    const int result = call(path, arguments, environment);
    testify("execve(%s): %s", path, strerror(errno)); // it has come back
    return result;
}

EXPORT int pipe(int ends[2]) noexcept
{
    static const auto call = REAL(pipe);
    const int result = call(ends);
    if (result != 0)
        testify("pipe: %s", strerror(errno));
    return result;
}

// Shells wait for their children with it.
EXPORT pid_t waitpid(pid_t process, int *status, int options)
{
    static const auto call = REAL(waitpid);
    const pid_t ended = call(process, status, options);
    if (ended > 0 && status && WIFSIGNALED(*status) && WTERMSIG(*status) != SIGPIPE)
        testify("waitpid: process %d ended by signal %d", ended, WTERMSIG(*status));
    return ended;
}

EXPORT ssize_t read(int fd, void *data, size_t size)
{
    static const auto call = REAL(read);
    const ssize_t count = call(fd, data, size);
    if (count < 0 && errno != EAGAIN)
        testify("read(%d): %s", fd, strerror(errno));
    return count;
}

// What is not there (a terminal above all) is not there; all else is a reason.
EXPORT int open(const char *path, int flags, ...)
{
    static const auto call = reinterpret_cast<int (*)(const char *, int, unsigned)>(dlsym(RTLD_NEXT, "open"));
    va_list arguments;
    va_start(arguments, flags);
    const unsigned mode = (flags & O_CREAT) != 0 ? va_arg(arguments, unsigned) : 0;
    va_end(arguments);
    const int fd = call(path, flags, mode);
    if (fd < 0 && errno != ENOENT && errno != ENXIO)
        testify("open(%s): %s", path, strerror(errno));
    return fd;
}
