// liblog of a workstation: entries go to one file, in logcat's threadtime layout.
//
// No lock is taken and nothing is allocated, so that a signal handler may log too. The clock is UTC, as the
// virtual phone's is. Several processes append to the file; whoever wants it empty truncates it in place.
//
// The file stays one and the same: nobody renames it, for it may be bound into the phone by itself. When it
// holds more than its bound, whoever notices frees its oldest part (a hole in front; the offsets, and with
// them the file's size, go on growing). A hole can be made by several processes at once and by one that dies
// right behind it, and it touches no line that is being appended. Readers begin behind the hole, after the
// first line feed.
#include "log.h"
#include "export.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>

static constexpr char LOG_PATH[] = "/dev/log/main";
static constexpr off_t LOG_SIZE_MAX = off_t{4} << 20;  // of data: beyond it the oldest is freed...
static constexpr off_t LOG_SIZE_KEPT = off_t{3} << 20; // ...but for this much at least
static constexpr off_t OFFSET_MAX = off_t{1} << 40;    // what nobody logs, but anybody can make a file's size
static constexpr off_t HOLE_UNIT = 64 << 10;           // a multiple of any page and block
static constexpr size_t MESSAGE_MAX = 4068;            // a longer one is cut
static constexpr size_t TAG_MAX = 128;
static constexpr size_t TAG_COLUMN = 8;
static constexpr size_t HEAD_MAX = TAG_MAX + 64;
static constexpr size_t LOOK_BYTES = 64 << 10; // that a process writes between two looks at the log's size
static constexpr char PRIORITIES[] = "??VDIWEF";

static std::atomic<int> log_fd{-1}; // opened once
static std::atomic<size_t> unseen_bytes{0};
static std::atomic<time_t> seen_second{0};

// Asking for them takes two system calls an entry. A forked child asks anew.
static thread_local struct {
    pid_t process, thread;
} thread_ids;

__attribute__((constructor)) static void watch_forks()
{
    pthread_atfork(nullptr, nullptr, [] { thread_ids = {}; });
}

// What is no regular file (a folder, a FIFO that nobody reads) is no log: its lines are dropped, for a writer
// must not hang.
static int open_log()
{
    int fd = open(LOG_PATH, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0644);
    struct stat opened;
    if (fd < 0 || (fstat(fd, &opened) == 0 && S_ISREG(opened.st_mode)))
        return fd;
    close(fd);
    errno = ENXIO;
    return -1;
}

static int cached_log()
{
    int fd = log_fd.load(std::memory_order_acquire);
    if (fd >= 0)
        return fd;
    int opened = open_log();
    if (opened < 0 || log_fd.compare_exchange_strong(fd, opened))
        return opened;
    close(opened); // another thread was first
    return fd;
}

// Frees the oldest part of a log that holds too much. No lock says whose task that is, since whoever holds
// it could keep the log growing: two that do it at once make the same hole. Once there is one, it is made
// longer, not begun anew at 0, where the lines of a log that was truncated meanwhile are.
static void bound(int fd)
{
    const off_t end = lseek(fd, 0, SEEK_END);
    if (end <= LOG_SIZE_MAX)
        return;
    const off_t begin = lseek(fd, 0, SEEK_DATA);
    const off_t hole_end = (end - LOG_SIZE_KEPT) / HOLE_UNIT * HOLE_UNIT;
    if (end <= OFFSET_MAX && (begin < 0 || end - begin <= LOG_SIZE_MAX))
        return;
    // A file system without holes loses all of its log at once, and what was appended since the look above.
    if (end > OFFSET_MAX ||
        (fallocate(fd, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, begin, hole_end - begin) != 0 &&
         (errno == EOPNOTSUPP || errno == ENOSYS))) {
        const int failed = ftruncate(fd, 0);
        (void)failed; // then nobody else may empty it either
    }
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

// Of the log's size every so many bytes and every second are enough to know: the second is for the many
// processes that log little.
static void look_at_size(int fd, time_t second, size_t writing)
{
    if (unseen_bytes.fetch_add(writing, std::memory_order_relaxed) < LOOK_BYTES &&
        seen_second.load(std::memory_order_relaxed) == second)
        return;
    unseen_bytes.store(0, std::memory_order_relaxed);
    seen_second.store(second, std::memory_order_relaxed);
    bound(fd);
}

static bool write_all(int fd, const char *bytes, size_t length)
{
    ssize_t written;
    do
        written = write(fd, bytes, length);
    while (written < 0 && errno == EINTR);
    return written == static_cast<ssize_t>(length);
}

// NOLINTNEXTLINE(bugprone-reserved-identifier): the name is the phone's
extern "C" EXPORT int __android_log_print(int priority, const char *tag, const char *format, ...)
{
    const int saved_errno = errno; // of the caller, who logs in the middle of things
    char message[MESSAGE_MAX + 1];
    va_list arguments;
    va_start(arguments, format);
    int length = vsnprintf(message, sizeof message, format, arguments);
    va_end(arguments);
    if (length < 0)
        return -EINVAL;

    int fd = cached_log();
    if (fd < 0) {
        int reason = errno;
        errno = saved_errno;
        return -reason;
    }
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    char head[HEAD_MAX];
    const size_t head_length = prefix(head, now, priority, tag);
    look_at_size(fd, now.tv_sec, head_length + static_cast<size_t>(length));

    // An entry of several lines is several lines of the log, each with the head. The room is enough for one
    // write of any entry but those of very many lines.
    char text[4 * MESSAGE_MAX];
    size_t used = 0;
    const char *line = message;
    bool good = true;
    do {
        size_t line_length = strcspn(line, "\n");
        if (used + head_length + line_length + 1 > sizeof text) {
            good = write_all(fd, text, used) && good;
            used = 0;
        }
        memcpy(text + used, head, head_length);
        memcpy(text + used + head_length, line, line_length);
        used += head_length + line_length;
        text[used++] = '\n';
        line += line_length;
        if (*line == '\n')
            line++;
    } while (*line != '\0');
    good = write_all(fd, text, used) && good;
    errno = saved_errno;
    return good ? static_cast<int>(used) : -EIO;
}
