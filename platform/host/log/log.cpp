// liblog of a workstation: entries in logcat's threadtime layout, a line each, to the phone's ring, or where
// there is none to a file.
//
// No lock is taken and nothing is allocated, so that a signal handler may log too. The clock is UTC, as the
// virtual phone's is.
#include "log.h"
#include "export.h"
#include "file.h"
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
static constexpr size_t TAG_MAX = 128;
static constexpr size_t TAG_COLUMN = 8;
static constexpr size_t HEAD_MAX = TAG_MAX + 64;
static constexpr char PRIORITIES[] = "??VDIWEF";
static constexpr time_t REFUSED_SECONDS =
    4; // from one try for the ring to the next, the try's own among them
static_assert(HEAD_MAX + MESSAGE_MAX <= log_ring::LINE_MAX);

// Where lines go; each is opened once. Neither: they are dropped, and the next line looks again.
static std::atomic<log_ring::ring *> ring{nullptr};
static std::atomic<int> file{-1};
static std::atomic<time_t> refused{0}; // when the ring could not be had, which takes time to find out

// Asking for them takes two system calls an entry. A forked child asks anew.
static thread_local struct {
    pid_t process, thread;
} thread_ids;

__attribute__((constructor)) static void watch_forks()
{
    pthread_atfork(nullptr, nullptr, [] { thread_ids = {}; });
}

static bool open_ring(time_t now)
{
    const time_t last = refused.load(std::memory_order_relaxed);
    if (last <= now && now - last < REFUSED_SECONDS)
        return false;
    const int fd = log_ring::receive(log_ring::PATH);
    log_ring::ring *mapped = fd < 0 ? nullptr : log_ring::map(fd), *other = nullptr;
    if (fd >= 0)
        close(fd);
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
    int none = -1;
    const int opened = log_file::open(log_ring::PATH);
    if (opened < 0) // ENXIO: a socket, or a FIFO
        return errno == ENXIO && open_ring(now);
    if (!file.compare_exchange_strong(none, opened))
        close(opened);
    return true;
}

// Right-aligned in at least `width` characters. snprintf would take longer than all else but the write.
static char *put_number(char *out, long number, int width, char fill)
{
    char digits[24];
    int count = 0;
    do
        digits[count++] = static_cast<char>('0' + number % 10);
    while ((number /= 10) > 0);
    for (; width > count; width--)
        *out++ = fill;
    while (count > 0)
        *out++ = digits[--count];
    return out;
}

static char *put_time(char *out, long number, int width, char behind)
{
    out = put_number(out, number, width, '0');
    *out++ = behind;
    return out;
}

// "MM-DD HH:MM:SS.mmm  PID  TID P TAG     : ". No call takes a lock (localtime does). Returns the length.
static size_t prefix(char (&head)[HEAD_MAX], const timespec &now, int priority, const char *tag)
{
    long seconds = static_cast<long>(now.tv_sec % 86400);
    // Days since 0000-03-01, and from them the date in years that begin in March.
    long days = static_cast<long>(now.tv_sec / 86400) + 719468;
    long day_of_era = days % 146097;
    long year_of_era = (day_of_era - day_of_era / 1460 + day_of_era / 36524 - day_of_era / 146096) / 365;
    long day_of_year = day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
    long month = (5 * day_of_year + 2) / 153; // 0 is March
    if (thread_ids.thread == 0)
        thread_ids = {getpid(), gettid()};

    char *out = put_time(head, month < 10 ? month + 3 : month - 9, 2, '-');
    out = put_time(out, day_of_year - (153 * month + 2) / 5 + 1, 2, ' ');
    out = put_time(out, seconds / 3600, 2, ':');
    out = put_time(out, seconds / 60 % 60, 2, ':');
    out = put_time(out, seconds % 60, 2, '.');
    out = put_time(out, now.tv_nsec / 1000000, 3, ' ');
    out = put_number(out, thread_ids.process, 5, ' ');
    *out++ = ' ';
    out = put_number(out, thread_ids.thread, 5, ' ');
    *out++ = ' ';
    *out++ = priority >= 0 && priority < static_cast<int>(sizeof PRIORITIES) - 1 ? PRIORITIES[priority] : '?';
    *out++ = ' ';
    size_t length = tag ? strnlen(tag, TAG_MAX) : 0;
    memcpy(out, tag ? tag : "", length);
    out += length;
    for (; length < TAG_COLUMN; length++)
        *out++ = ' ';
    *out++ = ':';
    *out++ = ' ';
    return static_cast<size_t>(out - head);
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
    char text[HEAD_MAX + MESSAGE_MAX + 1];
    char *line = text + HEAD_MAX;
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
    char head[HEAD_MAX];
    const size_t head_length = prefix(head, now, priority, tag);

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
