// Several processes append to the file; whoever wants it empty truncates it in place.
//
// The file stays one and the same: nobody renames it. When it holds more than its bound, whoever notices
// frees its oldest part (a hole in front; the offsets, and with them the file's size, go on growing). A hole
// can be made by several processes at once and by one that dies right behind it, and it touches no line that
// is being appended. Readers begin behind the hole, after the first line feed.
#include "file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

namespace log_file
{

static constexpr off_t LOG_SIZE_MAX = off_t{4} << 20;  // of data: beyond it the oldest is freed...
static constexpr off_t LOG_SIZE_KEPT = off_t{3} << 20; // ...but for this much at least
static constexpr off_t OFFSET_MAX = off_t{1} << 40;    // what nobody logs, but anybody can make a file's size
static constexpr off_t HOLE_UNIT = 64 << 10;           // a multiple of any page and block
static constexpr size_t LOOK_BYTES = 64 << 10; // that a process writes between two looks at the log's size

static std::atomic<size_t> unseen_bytes;
static std::atomic<time_t> seen_second;

owned::descriptor open(const char *path)
{
    owned::descriptor file(
        ::open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0644));
    struct stat opened {
    };
    if (file && (fstat(file.get(), &opened) != 0 || !S_ISREG(opened.st_mode))) {
        file.reset();
        errno = ENXIO;
    }
    return file;
}

// Frees the oldest part of a log that holds too much. No lock says whose task that is, since whoever holds
// it could keep the log growing: two that do it at once make the same hole. Once there is one, it is made
// longer, not begun anew at 0, where the lines of a log that was truncated meanwhile are.
static void bound(int fd)
{
    const off_t end = lseek(fd, 0, SEEK_END), begin = lseek(fd, 0, SEEK_DATA);
    const off_t hole_end = (end - LOG_SIZE_KEPT) / HOLE_UNIT * HOLE_UNIT;
    if (end <= OFFSET_MAX && (begin < 0 || end - begin <= LOG_SIZE_MAX))
        return;
    // A file system without holes loses all of its log at once, and what was appended since the look above.
    if (end > OFFSET_MAX ||
        (fallocate(fd, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, begin, hole_end - begin) != 0 &&
         errno == EOPNOTSUPP)) {
        const int failed = ftruncate(fd, 0);
        (void)failed; // then nobody else may empty it either
    }
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

bool append(int fd, const char *line, size_t length, time_t now)
{
    look_at_size(fd, now, length);
    return write(fd, line, length) == static_cast<ssize_t>(length);
}

} // namespace log_file
