#include "fuzz/canned_phone.h"

#include <cutils.h>
#include <diag.h>
#include <dirent.h>
#include <fcntl.h>
#include <hardware_legacy.h>
#include <log.h>
#include <pthread.h>
#include <sanitizer/asan_interface.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace
{

constexpr int FIRST_DESCRIPTOR = 1000;
constexpr pid_t OWN_ID = 4711;
constexpr uint8_t UNSET = 0xA5; // what a new response buffer holds

canned_phone phone;
size_t taken; // answers

struct node {
    std::string_view content;
    size_t position;
    bool open;
};
std::vector<node> nodes; // by descriptor

struct stream {
    FILE *file;
    node of;
};
std::vector<stream *> streams;

struct folder {
    node of; // its entries are the lines
    dirent entry;
};
std::vector<folder *> folders;

std::vector<canned_response> allocated;

enum class outcome { ANSWERS, FAILURE, NOTHING };

outcome ask(std::string_view *answer)
{
    *answer = {};
    if (taken >= phone.answers.size())
        return outcome::NOTHING;
    *answer = phone.answers[taken++];
    return *answer == FAILS ? outcome::FAILURE : outcome::ANSWERS;
}

void require_memory(const void *memory, size_t size, const char *promise)
{
    if (size > 0) // what is poisoned is reported by the access itself
        require(__asan_region_is_poisoned(const_cast<void *>(memory), size) == nullptr, promise);
}

void require_text(const char *text) { require(strlen(text) < SIZE_MAX, "a text ends"); }

ssize_t read_node(node &from, void *buffer, size_t size)
{
    require_memory(buffer, size, "a read has room for all that it asks for");
    if (phone.reads_fail) {
        errno = EIO;
        return -1;
    }
    size_t count = from.position < from.content.size() ? from.content.size() - from.position : 0;
    count = std::min(count, size);
    if (count > 0)
        memcpy(buffer, from.content.data() + from.position, count);
    from.position += count;
    return static_cast<ssize_t>(count);
}

ssize_t write_node(node &to, const void *data, size_t size)
{
    require_memory(data, size, "a write stays within its data");
    if (phone.write_limit == WRITES_FAIL) {
        errno = EIO;
        return -1;
    }
    if (phone.write_limit == WRITES_NOTHING)
        return 0;
    if (phone.write_limit != WRITES_ALL)
        size = std::min<size_t>(size, phone.write_limit);
    to.position += size;
    return static_cast<ssize_t>(size);
}

off_t seek_node(node &in, off_t offset, int whence)
{
    off_t base = whence == SEEK_CUR   ? static_cast<off_t>(in.position)
                 : whence == SEEK_END ? static_cast<off_t>(in.content.size())
                                      : 0;
    if (base + offset < 0) {
        errno = EINVAL;
        return -1;
    }
    in.position = static_cast<size_t>(base + offset);
    return base + offset;
}

int tell_of(std::string_view content, struct stat *told)
{
    *told = {};
    told->st_mode = S_IFREG;
    told->st_size = static_cast<off_t>(content.size());
    return 0;
}

node *node_of(int descriptor)
{
    size_t index = static_cast<size_t>(descriptor) - FIRST_DESCRIPTOR;
    return descriptor >= FIRST_DESCRIPTOR && index < nodes.size() && nodes[index].open ? &nodes[index]
                                                                                       : nullptr;
}

FILE *open_stream(std::string_view content, const char *mode)
{
    auto *opened = new stream{nullptr, {content, 0, true}};
    cookie_io_functions_t io = {};
    io.read = [](void *cookie, char *buffer, size_t size) {
        return read_node(static_cast<stream *>(cookie)->of, buffer, size);
    };
    io.write = [](void *cookie, const char *data, size_t size) {
        return std::max<ssize_t>(write_node(static_cast<stream *>(cookie)->of, data, size), 0);
    };
    io.seek = [](void *cookie, off64_t *offset, int whence) {
        *offset = seek_node(static_cast<stream *>(cookie)->of, *offset, whence);
        return *offset < 0 ? -1 : 0;
    };
    io.close = [](void *cookie) {
        auto *closed = static_cast<stream *>(cookie);
        streams.erase(std::find(streams.begin(), streams.end(), closed));
        delete closed;
        return 0;
    };
    opened->file = fopencookie(opened, mode, io);
    require(opened->file != nullptr, "there is memory for a stream");
    streams.push_back(opened);
    return opened->file;
}

bool is_write_mode(const char *mode) { return strchr(mode, 'w') || strchr(mode, 'a'); }

} // namespace

void require(bool condition, const char *promise)
{
    if (condition)
        return;
    fprintf(stderr, "broken promise: %s\n", promise);
    abort();
}

void boot(canned_phone booted)
{
    phone = std::move(booted);
    taken = 0;
}

const std::vector<canned_response> &responses() { return allocated; }

void free_responses()
{
    for (const canned_response &response : allocated)
        free(response.bytes);
    allocated.clear();
}

size_t close_left_open()
{
    size_t count = streams.size() + folders.size();
    for (const node &each : nodes)
        count += each.open;
    nodes.clear();
    while (!streams.empty())
        fclose(streams.back()->file);
    for (folder *each : folders)
        delete each;
    folders.clear();
    return count;
}

extern "C" {

// ---- the system, as `redirect` names it

int canned_open(const char *path, int flags, ...)
{
    require_text(path);
    std::string_view content;
    outcome found = ask(&content);
    if (found == outcome::FAILURE || (found == outcome::NOTHING && !(flags & O_CREAT))) {
        errno = ENOENT;
        return -1;
    }
    require((flags & O_CLOEXEC) != 0, "a descriptor is not inherited by tools");
    if (flags & O_TRUNC)
        content = {};
    nodes.push_back({content, 0, true});
    return FIRST_DESCRIPTOR + static_cast<int>(nodes.size() - 1);
}

int canned_close(int descriptor)
{
    node *closed = node_of(descriptor);
    require(closed != nullptr, "only an open descriptor is closed");
    closed->open = false;
    return 0;
}

ssize_t canned_read(int descriptor, void *buffer, size_t size)
{
    node *from = node_of(descriptor);
    require(from != nullptr, "only an open descriptor is read");
    return read_node(*from, buffer, size);
}

ssize_t canned_write(int descriptor, const void *data, size_t size)
{
    if (descriptor == STDOUT_FILENO) { // the log
        require_memory(data, size, "a log line stays within its buffer");
        return static_cast<ssize_t>(size);
    }
    node *to = node_of(descriptor);
    require(to != nullptr, "only an open descriptor is written");
    return write_node(*to, data, size);
}

ssize_t canned_pread(int descriptor, void *buffer, size_t size, off_t offset)
{
    node *from = node_of(descriptor);
    require(from != nullptr, "only an open descriptor is read");
    node elsewhere = *from;
    return seek_node(elsewhere, offset, SEEK_SET) < 0 ? -1 : read_node(elsewhere, buffer, size);
}

ssize_t canned_pwrite(int descriptor, const void *data, size_t size, off_t offset)
{
    node *to = node_of(descriptor);
    require(to != nullptr, "only an open descriptor is written");
    node elsewhere = *to;
    return seek_node(elsewhere, offset, SEEK_SET) < 0 ? -1 : write_node(elsewhere, data, size);
}

off_t canned_lseek(int descriptor, off_t offset, int whence)
{
    node *in = node_of(descriptor);
    require(in != nullptr, "only an open descriptor is positioned");
    return seek_node(*in, offset, whence);
}

int canned_fsync(int descriptor) { return node_of(descriptor) ? 0 : -1; }

int canned_fstat(int descriptor, struct stat *told) // standard output tells nothing
{
    const node *of = node_of(descriptor);
    return of ? tell_of(of->content, told) : -1;
}

int canned_ioctl(int descriptor, unsigned long request, ...)
{
    va_list arguments;
    va_start(arguments, request);
    void *state = va_arg(arguments, void *);
    va_end(arguments);
    node *device = node_of(descriptor);
    require(device != nullptr, "only an open device is asked");
    return read_node(*device, state, sizeof(int32_t)) < 0 ? -1 : 0;
}

FILE *canned_fopen(const char *path, const char *mode)
{
    require_text(path);
    std::string_view content;
    outcome found = ask(&content);
    if (found == outcome::FAILURE || (found == outcome::NOTHING && !is_write_mode(mode))) {
        errno = ENOENT;
        return nullptr;
    }
    require(strchr(mode, 'e') != nullptr, "a stream is not inherited by tools");
    return open_stream(is_write_mode(mode) ? std::string_view() : content, is_write_mode(mode) ? "w+" : "r");
}

int canned_access(const char *path, int)
{
    require_text(path);
    std::string_view answer;
    if (ask(&answer) == outcome::ANSWERS)
        return 0;
    errno = ENOENT;
    return -1;
}

int canned_stat(const char *path, struct stat *told)
{
    require_text(path);
    std::string_view content;
    if (ask(&content) == outcome::ANSWERS)
        return tell_of(content, told);
    errno = ENOENT;
    return -1;
}

DIR *canned_opendir(const char *path)
{
    require_text(path);
    std::string_view entries;
    if (ask(&entries) != outcome::ANSWERS)
        return nullptr;
    folders.push_back(new folder{{entries, 0, true}, {}});
    return reinterpret_cast<DIR *>(folders.back());
}

dirent *canned_readdir(DIR *opened)
{
    auto *from = reinterpret_cast<folder *>(opened);
    if (from->of.position >= from->of.content.size())
        return nullptr;
    std::string_view name = from->of.content.substr(from->of.position);
    name = name.substr(0, name.find('\n'));
    from->of.position += name.size() + 1;
    name = name.substr(0, sizeof from->entry.d_name - 1);
    memset(from->entry.d_name, 0, sizeof from->entry.d_name);
    std::copy(name.begin(), name.end(), from->entry.d_name);
    return &from->entry;
}

int canned_closedir(DIR *opened)
{
    auto *closed = reinterpret_cast<folder *>(opened);
    folders.erase(std::find(folders.begin(), folders.end(), closed));
    delete closed;
    return 0;
}

FILE *canned_popen(const char *line, const char *mode)
{
    require_text(line);
    require(strcmp(mode, "re") == 0, "a tool's output is read, and not inherited by the next tool");
    std::string_view output;
    if (ask(&output) == outcome::FAILURE)
        return nullptr;
    return open_stream(output, "r");
}

int canned_pclose(FILE *output) { return fclose(output); }

int canned_system(const char *line)
{
    require_text(line);
    std::string_view answer;
    if (ask(&answer) == outcome::FAILURE) {
        errno = EAGAIN;
        return -1;
    }
    uint16_t status = 0; // as wait() tells it: exit status, signal, or stopped
    memcpy(&status, answer.data(), std::min(answer.size(), sizeof status));
    return status;
}

int canned_kill(pid_t id, int)
{
    require(id > 0, "a signal goes to one process, and not to a group or to all");
    require(id != OWN_ID, "the service does not signal itself");
    return 0;
}

pid_t canned_getpid() { return OWN_ID; }

int canned_pthread_create(pthread_t *thread, const pthread_attr_t *, void *(*)(void *), void *)
{
    *thread = {};
    return phone.threads_fail ? EAGAIN : 0;
}

__attribute__((noreturn)) void canned_pthread_exit(void *) { abort(); } // no thread ever runs

unsigned canned_sleep(unsigned) { return 0; }

int canned_usleep(useconds_t) { return 0; }

// ---- the four libraries

void *diagpkt_subsys_alloc(unsigned subsystem, unsigned, unsigned length)
{
    require(subsystem == 250, "a response is asked for under the service's subsystem");
    if (phone.allocation_fails)
        return nullptr;
    auto *bytes = static_cast<uint8_t *>(malloc(length));
    memset(bytes, UNSET, length);
    allocated.push_back({length, bytes});
    return bytes;
}

int property_get(const char *key, char *value, const char *default_value)
{
    require_text(key);
    require_memory(value, PROPERTY_VALUE_MAX, "a property's value has room");
    std::string_view answer;
    outcome found = ask(&answer);
    if (found == outcome::FAILURE)
        return -1;
    if (found == outcome::NOTHING && default_value)
        answer = default_value;
    answer = answer.substr(0, std::min<size_t>(answer.find('\0'), PROPERTY_VALUE_MAX - 1));
    std::copy(answer.begin(), answer.end(), value);
    value[answer.size()] = '\0';
    return static_cast<int>(answer.size());
}

int property_set(const char *key, const char *value)
{
    require_text(key);
    require_text(value);
    std::string_view answer;
    return ask(&answer) == outcome::FAILURE ? -1 : 0;
}

int android_reboot(unsigned, int, const char *) { return 0; }

int __android_log_print(int, const char *, const char *format, ...)
{
    char line[1024];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(line, sizeof line, format, arguments); // reads all of the arguments
    va_end(arguments);
    return 1;
}

int acquire_wake_lock(int, const char *) { return 0; }

int release_wake_lock(const char *) { return 0; }
}
