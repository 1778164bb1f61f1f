// liblog of a workstation: entries in logcat's threadtime layout, a line each, to the phone's ring, or where
// there is none to a file.
//
// No lock is taken and nothing is allocated, so that a signal handler may log too. The clock is UTC, as the
// virtual phone's is.
#include "log.h"
#include "export.h"
#include "file.h"
#include "head.h"
#include "share.h"

#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>

static constexpr size_t MESSAGE_MAX = 4068; // a longer one is cut
static constexpr time_t REFUSED_SECONDS =
    4; // from one try for the ring to the next, the try's own among them
static_assert(log_head::ROOM + MESSAGE_MAX <= log_ring::LINE_MAX);

// Where lines go; each is opened once. Neither: they are dropped, and the next line looks again.
static std::atomic<log_ring::ring *> ring{nullptr};
static std::atomic<int> file{-1};
static std::atomic<time_t> refused; // when the ring could not be had, which takes time to find out

// Asking for them takes two system calls an entry. A forked child asks anew.
static thread_local log_head::writer writer;

__attribute__((constructor)) static void watch_forks()
{
    pthread_atfork(nullptr, nullptr, [] { writer = {}; });
}

static const log_head::writer &this_writer()
{
    if (writer.thread == 0)
        writer = {getpid(), gettid()};
    return writer;
}

static bool open_ring(time_t now)
{
    const time_t last = refused.load(std::memory_order_relaxed);
    if (last <= now && now - last < REFUSED_SECONDS)
        return false;
    const owned::descriptor given = log_ring::receive(log_ring::PATH);
    log_ring::ring *mapped = given ? log_ring::map(given.get()) : nullptr, *other = nullptr;
    if (!mapped)
        refused.store(now, std::memory_order_relaxed);
    else if (!ring.compare_exchange_strong(other, mapped))
        munmap(mapped, sizeof *mapped); // another thread was first
    return mapped;
}

static bool open_log(time_t now)
{
    if (ring.load(std::memory_order_acquire) || file.load(std::memory_order_acquire) >= 0)
        return true;
    owned::descriptor opened = log_file::open(log_ring::PATH);
    if (!opened) // ENXIO: a socket, or a FIFO
        return errno == ENXIO && open_ring(now);
    int none = -1;
    if (file.compare_exchange_strong(none, opened.get()))
        (void)opened.release(); // else another thread was first
    return true;
}

// The service's entries are finished texts: for these, what printf does is a copy.
__attribute__((format(printf, 3, 0))) static int format_message(char *message, size_t room,
                                                                const char *format, va_list arguments)
{
    if (strcmp(format, "%s") != 0)
        return vsnprintf(message, room, format, arguments);
    const char *text = va_arg(arguments, const char *);
    const size_t length = strnlen(text ? text : "", room - 1);
    memcpy(message, text ? text : "", length);
    message[length] = '\0';
    return static_cast<int>(length);
}

// Writes `length` bytes, behind which there is room for a line feed.
static bool put_line(char *line, size_t length, time_t now)
{
    if (log_ring::ring *mapped = ring.load(std::memory_order_acquire)) {
        log_ring::write(*mapped, line, length);
        return true;
    }
    line[length] = '\n';
    return log_file::append(file.load(std::memory_order_acquire), line, length + 1, now);
}

// NOLINTNEXTLINE(bugprone-reserved-identifier): the name is the phone's
extern "C" EXPORT int __android_log_print(int priority, const char *tag, const char *format, ...)
{
    const int saved_errno = errno; // of the caller, who logs in the middle of things
    char text[log_head::ROOM + MESSAGE_MAX + 1];
    char *line = text + log_head::ROOM;
    va_list arguments;
    va_start(arguments, format);
    const int formatted = format_message(line, MESSAGE_MAX + 1, format, arguments);
    va_end(arguments);
    if (formatted < 0)
        return -EINVAL;

    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    if (!open_log(now.tv_sec)) {
        const int reason = errno;
        errno = saved_errno;
        return -reason;
    }
    char head[log_head::ROOM];
    const size_t head_length = log_head::put(head, now, this_writer(), priority, tag);

    // An entry of several lines is several lines of the log, each with the head, which is put in front of it:
    // what stood there has been written.
    size_t used = 0;
    bool good = true;
    for (bool more = true; more;) {
        char *end = line + strcspn(line, "\n");
        more = end[0] == '\n' && end[1] != '\0';
        char *begin = line - head_length;
        memcpy(begin, head, head_length);
        good = put_line(begin, static_cast<size_t>(end - begin), now.tv_sec) && good;
        used += static_cast<size_t>(end - begin) + 1;
        line = end + 1;
    }
    errno = saved_errno;
    return good ? static_cast<int>(used) : -EIO;
}
