// libhardware_legacy of a workstation: the node of the held wake locks, kept as the kernel keeps it. On the
// virtual phone it is a regular file: the names of the held locks, separated by blanks, and a line feed.
#include "export.h"
#include "hardware_legacy.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

static constexpr char NODE[] = "/sys/power/wake_lock";
static constexpr size_t NODE_SIZE_MAX = 4096;

// Rewrites the node without `name`, then with it at the end if it is to be held. A name is in it once at the
// most.
static int update(const char *name, bool hold)
{
    size_t name_length = name ? strcspn(name, " \t\n") : 0;
    if (name_length == 0 || name[name_length] != '\0')
        return -EINVAL;
    int fd = open(NODE, O_RDWR | O_CLOEXEC);
    if (fd < 0)
        return -errno;
    char held[NODE_SIZE_MAX + 1];
    char kept[NODE_SIZE_MAX + 2];
    int locked;
    do
        locked = flock(fd, LOCK_EX);
    while (locked != 0 && errno == EINTR);
    ssize_t length = locked == 0 ? read(fd, held, NODE_SIZE_MAX) : -1;
    int status = length < 0 ? -errno : 0;
    held[length < 0 ? 0 : length] = '\0';

    size_t used = 0;
    bool was_held = false;
    for (const char *next = held + strspn(held, " \n"); *next != '\0'; next += strspn(next, " \n")) {
        size_t next_length = strcspn(next, " \n");
        if (next_length == name_length && memcmp(next, name, name_length) == 0) {
            was_held = true;
        } else {
            memcpy(kept + used, next, next_length);
            used += next_length;
            kept[used++] = ' ';
        }
        next += next_length;
    }
    if (status == 0 && !hold && !was_held)
        status = -EINVAL;
    if (status == 0 && hold) {
        if (used + name_length + 1 > NODE_SIZE_MAX) {
            status = -ENOSPC;
        } else {
            memcpy(kept + used, name, name_length);
            used += name_length + 1;
        }
    }
    if (used == 0)
        used = 1;
    kept[used - 1] = '\n'; // for the last blank
    if (status == 0 && was_held != hold &&
        (pwrite(fd, kept, used, 0) != static_cast<ssize_t>(used) ||
         ftruncate(fd, static_cast<off_t>(used)) != 0))
        status = -errno;
    close(fd);
    return status;
}

extern "C" EXPORT int acquire_wake_lock(int level, const char *name)
{
    (void)level;
    return update(name, true);
}

extern "C" EXPORT int release_wake_lock(const char *name) { return update(name, false); }
