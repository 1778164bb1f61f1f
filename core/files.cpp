#include "core/files.h"

#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include "core/log.h"

// Decimal on purpose, as on every image so far: a created file gets mode 03146 before the umask.
static constexpr mode_t CREATION_MODE = 1638;

descriptor::~descriptor()
{
    if (fd >= 0)
        close(fd);
}

bool write_all(int fd, const void *data, size_t length)
{
    const auto *next = static_cast<const uint8_t *>(data);
    while (length > 0) {
        ssize_t written = write(fd, next, length);
        // A node that takes nothing now will not take it on the next call either: 0 is a failure, not a
        // reason to loop.
        if (written <= 0)
            return false;
        next += written;
        length -= static_cast<size_t>(written);
    }
    return true;
}

bool read_line(FILE *stream, char (&line)[LINE_SIZE])
{
    memset(line, 0, sizeof line);
    return fgets(line, sizeof line, stream) != nullptr;
}

size_t length_without_line_feed(const char *text) { return strcspn(text, "\n"); }

// What both readers share. Returns the trimmed count with the node still open in `node`, or -1.
static int read_node(const char *function, const char *path, int32_t max_length, char *buffer,
                     descriptor &node)
{
    if (!path || max_length < 0 || !buffer) {
        diag_log(function, "content is abnormal!\n");
        return -1;
    }
    node.fd = open(path, O_RDONLY | O_CLOEXEC);
    if (!node) {
        diag_log(function, "Open file failed!\n\n");
        return -1;
    }
    int count = static_cast<int16_t>(read(node.fd, buffer, static_cast<size_t>(max_length)));
    if (count < 0) {
        diag_log(function, "Read failed!\n");
        return -1;
    }
    if (count > 0 && buffer[count - 1] == '\n')
        count--;
    return count;
}

// A node may fill the buffer to its last byte and leave no terminator: its text is logged with a bound.
static int text_size(const char *buffer, int32_t max_length)
{
    return static_cast<int>(strnlen(buffer, static_cast<size_t>(max_length)));
}

int diag_cmd_read_file(const char *path, int32_t max_length, char *buffer)
{
    descriptor node;
    const int count = read_node(__func__, path, max_length, buffer, node);
    if (count >= 0)
        LOG("Read content:%.*s,len:%d\n", text_size(buffer, max_length), buffer, count);
    return count;
}

int diag_cmd_read_file_new(const char *path, const char *expected, int32_t max_length, char *buffer)
{
    descriptor node;
    const int count = read_node(__func__, path, max_length, buffer, node);
    if (count < 0)
        return count;
    size_t expected_length = strlen(expected);
    if (static_cast<int16_t>(strncmp(buffer, expected, expected_length)) != 0) {
        LOG("data is %.*s, cmp_data is %s, length is %d.\n", text_size(buffer, max_length), buffer, expected,
            static_cast<int>(expected_length));
        node.release();
        return -1;
    }
    LOG("Read content:%.*s,len:%d\n", text_size(buffer, max_length), buffer, count);
    return count;
}

bool diag_cmd_write_file(const char *path, int32_t write_length, int32_t max_length, const char *content)
{
    LOG("Enter! write_length:%d,max_length:%d,content:%s\n", write_length, max_length,
        content ? content : "(null)");
    if (!content || write_length > max_length || static_cast<int64_t>(strlen(content)) > max_length) {
        LOG("content is abnormal!\n");
        return false;
    }
    descriptor node(open(path, O_RDWR | O_CREAT | O_CLOEXEC, CREATION_MODE));
    if (!node) {
        LOG("Open node failed! fd=%d\n", node.fd);
        return false;
    }
    lseek(node.fd, 0, SEEK_SET);
    if (write_length > 0 && !write_all(node.fd, content, static_cast<size_t>(write_length))) {
        LOG("Failed to write to node\n");
        return false;
    }
    fsync(node.fd); // device and proc nodes refuse it: the value is written all the same
    LOG("Operation succ\n");
    return true;
}
