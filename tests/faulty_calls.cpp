#include "tests/faulty_calls.h"

#include <dirent.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <set>

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names

const char *const FAULTY_CALL_NAMES[FAULTY_CALLS] = {
    "open",         "read",         "read of none", "write",  "write of none", "write of the log",
    "fsync",        "lseek",        "ioctl",        "access", "opendir",       "readdir",
    "kill",         "popen",        "system",       "fopen",  "fgets",         "fwrite",
    "fprintf",      "fputc",        "fflush",       "fseek",  "malloc",        "pthread_create",
    "property_get", "property_set", "response",
};

static thread_local bool counting = false; // the deferred power actions run on threads of their own
static faulty_call fault = NO_FAULT;
static int number = 0;
static int stride = 0;
static call_record record;
static std::set<int> descriptors;
static std::set<FILE *> commands;
static std::set<FILE *> streams;
static std::set<DIR *> folders;
static std::set<void *> blocks;
static std::map<const void *, unsigned int> responses;

// Counts a call; whether it is the one to fail.
static bool fails(faulty_call call, int error)
{
    if (!counting)
        return false;
    int count = ++record.counts[call];
    if (call != fault || count < number || (count - number) % stride != 0)
        return false;
    record.failed++;
    errno = error;
    return true;
}

template <typename Handle> static Handle opened(std::set<Handle> &open, Handle handle, bool valid)
{
    if (counting && valid)
        open.insert(handle);
    return handle;
}

template <typename Handle> static Handle closed(std::set<Handle> &open, Handle handle)
{
    if (counting) {
        record.closed++;
        open.erase(handle);
    }
    return handle;
}

extern "C" {

int __real_open(const char *path, int flags, ...);
int __wrap_open(const char *path, int flags, ...)
{
    mode_t mode = 0;
    if (flags & O_CREAT) {
        va_list arguments;
        va_start(arguments, flags);
        mode = va_arg(arguments, mode_t);
        va_end(arguments);
    }
    if (fails(FAIL_OPEN, EMFILE))
        return -1;
    int fd = __real_open(path, flags, mode);
    return opened(descriptors, fd, fd >= 0);
}

int __real_close(int fd);
int __wrap_close(int fd) { return __real_close(closed(descriptors, fd)); }

ssize_t __real_read(int fd, void *buffer, size_t size);
ssize_t __wrap_read(int fd, void *buffer, size_t size)
{
    if (fails(FAIL_READ, EIO))
        return -1;
    return fails(FAIL_READ_NONE, 0) ? 0 : __real_read(fd, buffer, size);
}

ssize_t __real_write(int fd, const void *data, size_t size);
ssize_t __wrap_write(int fd, const void *data, size_t size)
{
    if (fd == STDOUT_FILENO)
        return fails(FAIL_LOG_WRITE, EIO) ? -1 : __real_write(fd, data, size);
    if (fails(FAIL_WRITE, ENOSPC))
        return -1;
    return fails(FAIL_WRITE_NONE, 0) ? 0 : __real_write(fd, data, size);
}

ssize_t __real_pread(int fd, void *buffer, size_t size, off_t offset);
ssize_t __wrap_pread(int fd, void *buffer, size_t size, off_t offset)
{
    if (fails(FAIL_READ, EIO))
        return -1;
    return fails(FAIL_READ_NONE, 0) ? 0 : __real_pread(fd, buffer, size, offset);
}

ssize_t __real_pwrite(int fd, const void *data, size_t size, off_t offset);
ssize_t __wrap_pwrite(int fd, const void *data, size_t size, off_t offset)
{
    if (fails(FAIL_WRITE, ENOSPC))
        return -1;
    return fails(FAIL_WRITE_NONE, 0) ? 0 : __real_pwrite(fd, data, size, offset);
}

int __real_fsync(int fd);
int __wrap_fsync(int fd) { return fails(FAIL_FSYNC, EIO) ? -1 : __real_fsync(fd); }

off_t __real_lseek(int fd, off_t offset, int whence);
off_t __wrap_lseek(int fd, off_t offset, int whence)
{
    return fails(FAIL_LSEEK, ESPIPE) ? -1 : __real_lseek(fd, offset, whence);
}

int __real_ioctl(int fd, unsigned long request, void *argument);
int __wrap_ioctl(int fd, unsigned long request, void *argument)
{
    return fails(FAIL_IOCTL, EIO) ? -1 : __real_ioctl(fd, request, argument);
}

int __real_access(const char *path, int mode);
int __wrap_access(const char *path, int mode)
{
    return fails(FAIL_ACCESS, EACCES) ? -1 : __real_access(path, mode);
}

DIR *__real_opendir(const char *path);
DIR *__wrap_opendir(const char *path)
{
    if (fails(FAIL_OPENDIR, EMFILE))
        return nullptr;
    DIR *folder = __real_opendir(path);
    return opened(folders, folder, folder != nullptr);
}

dirent *__real_readdir(DIR *folder);
dirent *__wrap_readdir(DIR *folder) { return fails(FAIL_READDIR, EIO) ? nullptr : __real_readdir(folder); }

int __real_closedir(DIR *folder);
int __wrap_closedir(DIR *folder) { return __real_closedir(closed(folders, folder)); }

int __real_kill(pid_t process, int signal);
int __wrap_kill(pid_t process, int signal)
{
    return fails(FAIL_KILL, EPERM) ? -1 : __real_kill(process, signal);
}

FILE *__real_popen(const char *line, const char *mode);
FILE *__wrap_popen(const char *line, const char *mode)
{
    if (fails(FAIL_POPEN, EMFILE))
        return nullptr;
    FILE *stream = __real_popen(line, mode);
    return opened(commands, stream, stream != nullptr);
}

int __real_pclose(FILE *stream);
int __wrap_pclose(FILE *stream) { return __real_pclose(closed(commands, stream)); }

int __real_system(const char *line);
int __wrap_system(const char *line) { return fails(FAIL_SYSTEM, EAGAIN) ? -1 : __real_system(line); }

FILE *__real_fopen(const char *path, const char *mode);
FILE *__wrap_fopen(const char *path, const char *mode)
{
    if (fails(FAIL_FOPEN, EMFILE))
        return nullptr;
    FILE *stream = __real_fopen(path, mode);
    return opened(streams, stream, stream != nullptr);
}

int __real_fclose(FILE *stream);
int __wrap_fclose(FILE *stream) { return __real_fclose(closed(streams, stream)); }

char *__real_fgets(char *line, int size, FILE *stream);
char *__wrap_fgets(char *line, int size, FILE *stream)
{
    return fails(FAIL_FGETS, EIO) ? nullptr : __real_fgets(line, size, stream);
}

size_t __real_fwrite(const void *data, size_t size, size_t count, FILE *stream);
size_t __wrap_fwrite(const void *data, size_t size, size_t count, FILE *stream)
{
    return fails(FAIL_FWRITE, ENOSPC) ? 0 : __real_fwrite(data, size, count, stream);
}

int __wrap_fprintf(FILE *stream, const char *format, ...)
{
    if (fails(FAIL_FPRINTF, ENOSPC))
        return -1;
    va_list arguments;
    va_start(arguments, format);
    int written = vfprintf(stream, format, arguments);
    va_end(arguments);
    return written;
}

int __real_fputc(int character, FILE *stream);
int __wrap_fputc(int character, FILE *stream)
{
    return fails(FAIL_FPUTC, ENOSPC) ? EOF : __real_fputc(character, stream);
}

int __real_fflush(FILE *stream);
int __wrap_fflush(FILE *stream) { return fails(FAIL_FFLUSH, ENOSPC) ? EOF : __real_fflush(stream); }

int __real_fseek(FILE *stream, long offset, int whence);
int __wrap_fseek(FILE *stream, long offset, int whence)
{
    return fails(FAIL_FSEEK, EIO) ? -1 : __real_fseek(stream, offset, whence);
}

void *__real_malloc(size_t size);
void *__wrap_malloc(size_t size)
{
    if (fails(FAIL_MALLOC, ENOMEM))
        return nullptr;
    void *block = __real_malloc(size);
    return opened(blocks, block, block != nullptr);
}

void __real_free(void *block);
void __wrap_free(void *block)
{
    if (counting)
        blocks.erase(block);
    __real_free(block);
}

int __real_pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*start)(void *),
                          void *argument);
int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*start)(void *),
                          void *argument)
{
    return fails(FAIL_PTHREAD_CREATE, 0) ? EAGAIN
                                         : __real_pthread_create(thread, attributes, start, argument);
}

// Nobody waits: the canned tools are done when they say so.
int __real_usleep(useconds_t time);
int __wrap_usleep(useconds_t time) { return counting ? 0 : __real_usleep(time); }

int __real_property_get(const char *key, char *value, const char *default_value);
int __wrap_property_get(const char *key, char *value, const char *default_value)
{
    return fails(FAIL_PROPERTY_GET, EIO) ? -1 : __real_property_get(key, value, default_value);
}

int __real_property_set(const char *key, const char *value);
int __wrap_property_set(const char *key, const char *value)
{
    return fails(FAIL_PROPERTY_SET, EIO) ? -1 : __real_property_set(key, value);
}

void *__wrap_diagpkt_subsys_alloc(unsigned int, unsigned int, unsigned int length)
{
    if (fails(FAIL_RESPONSE, ENOMEM))
        return nullptr;
    void *response = __real_malloc(length); // exactly: a byte too many is a sanitizer's report
    memset(response, 0xA5, length);         // and a byte that was not zeroed shows
    responses[response] = length;
    record.responses++;
    return response;
}

} // extern "C"
// NOLINTEND(bugprone-reserved-identifier)

void begin_calls(faulty_call call, int first, int every)
{
    record = {};
    fault = call;
    number = first;
    stride = every;
    counting = true;
}

const call_record &end_calls()
{
    counting = false;
    record.descriptors_left = static_cast<int>(descriptors.size());
    record.commands_left = static_cast<int>(commands.size());
    record.streams_left = static_cast<int>(streams.size() + folders.size());
    record.blocks_left = static_cast<int>(blocks.size());
    for (int fd : descriptors)
        close(fd);
    for (FILE *stream : commands)
        pclose(stream);
    for (FILE *stream : streams)
        fclose(stream);
    for (DIR *folder : folders)
        closedir(folder);
    descriptors.clear();
    commands.clear();
    streams.clear();
    folders.clear();
    blocks.clear();
    return record;
}

unsigned int response_size(const void *response)
{
    auto found = responses.find(response);
    return found == responses.end() ? 0 : found->second;
}

void free_responses()
{
    for (const auto &[response, size] : responses)
        free(const_cast<void *>(response));
    responses.clear();
}
