// Files and device nodes: small values read and written with plain descriptors, streams read line by line.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include <memory>

constexpr size_t PROPERTY_SIZE = 768; // room for a property's value and its zero: as much as any answer takes
constexpr int NODE_LIMIT = 256; // bytes of a node's value, which may fill them all and then has no terminator

// Reads up to max_length bytes of `path` with one read into the caller's zeroed buffer of at least that size.
// Returns their number, less one when the last is a line feed (which stays in the buffer), or -1.
[[nodiscard]] int diag_cmd_read_file(const char *path, int32_t max_length, char *buffer);

// As above, and the content must begin with `expected`. A mismatch is -1 too, and on purpose leaves the node
// open.
[[nodiscard]] int diag_cmd_read_file_new(const char *path, const char *expected, int32_t max_length,
                                         char *buffer);

// Writes write_length bytes of `content`, a zero-terminated text of at most max_length characters, at the
// start of `path`, which is created if need be and not truncated. False when that failed.
[[nodiscard]] bool diag_cmd_write_file(const char *path, int32_t write_length, int32_t max_length,
                                       const char *content);

// The partition that tells the bootloader and recovery what to do, at the places where phones have it.
constexpr const char *MISC_PARTITIONS[] = {
    "/dev/block/bootdevice/by-name/misc",
    "/dev/block/platform/soc/1d84000.ufshc/by-name/misc",
};

// Writes all of it, however many calls that takes. False as soon as one fails or takes nothing.
[[nodiscard]] bool write_all(int fd, const void *data, size_t length);

// A descriptor that closes itself; release() lets it live on.
struct descriptor {
    int fd = -1;
    descriptor() = default;
    explicit descriptor(int opened) : fd(opened) {}
    ~descriptor();
    descriptor(const descriptor &) = delete;
    descriptor &operator=(const descriptor &) = delete;
    explicit operator bool() const { return fd >= 0; }
    void release() { fd = -1; }
};

struct file_closer {
    void operator()(FILE *stream) const { fclose(stream); }
};
// A stream of fopen that closes itself.
using file_stream = std::unique_ptr<FILE, file_closer>;

constexpr size_t LINE_SIZE = 256; // a line of text with its terminator, as all streams are read

// Reads the next line, or the next 255 characters of a longer one, into the zeroed buffer, line feed
// included. False at the end of the stream.
bool read_line(FILE *stream, char (&line)[LINE_SIZE]);

// Length of a line without its closing line feed, if it has one.
[[nodiscard]] size_t length_without_line_feed(const char *text);
