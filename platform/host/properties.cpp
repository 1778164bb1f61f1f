// libcutils of a workstation: a property is a file of its name, shared with the phone's getprop and setprop.
//
// The file holds the value and nothing else (no line feed), and is replaced as a whole, so that a reader sees
// the old value or the new one. Names that begin with a dot are no properties.
#include "cutils.h"
#include "export.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace
{

constexpr char PROPERTIES[] = "/dev/__properties__";
constexpr char PERSISTENT[] = "/data/property"; // init sets these again at the next boot
constexpr char INIT_FIFO[] = "/dev/socket/init";
constexpr char POWER_PROPERTY[] = "sys.powerctl";
constexpr size_t NAME_LENGTH_MAX = 255; // of a file

// A read-only property has no limit but this one, and property_get gives the first 91 characters of a longer
// one.
constexpr size_t READ_ONLY_LENGTH_MAX = 4095;

bool starts_with(const char *text, const char *start) { return strncmp(text, start, strlen(start)) == 0; }

bool is_read_only(const char *name) { return starts_with(name, "ro."); }

bool valid_name(const char *name)
{
    constexpr char ALLOWED[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._@:-";
    if (name == nullptr)
        return false;
    size_t length = strlen(name);
    return length > 0 && length <= NAME_LENGTH_MAX && strspn(name, ALLOWED) == length && name[0] != '.' &&
           name[length - 1] != '.' && strstr(name, "..") == nullptr;
}

bool valid_value(const char *name, const char *value)
{
    return value != nullptr &&
           strlen(value) <= (is_read_only(name) ? READ_ONLY_LENGTH_MAX : PROPERTY_VALUE_MAX - 1);
}

// Replaces FOLDER/NAME by a file that holds `value`; with `once`, only where there is none yet.
bool store(const char *folder, const char *name, const char *value, bool once)
{
    char path[sizeof PROPERTIES + NAME_LENGTH_MAX + 1];
    char fresh[sizeof PROPERTIES + 32]; // no two threads share one
    snprintf(path, sizeof path, "%s/%s", folder, name);
    snprintf(fresh, sizeof fresh, "%s/.%d.%d", folder, getpid(), gettid());
    int fd = open(fresh, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0)
        return false;
    size_t length = strlen(value);
    ssize_t written;
    do
        written = write(fd, value, length);
    while (written < 0 && errno == EINTR);
    close(fd);
    bool good =
        written == static_cast<ssize_t>(length) && (once ? link(fresh, path) : rename(fresh, path)) == 0;
    if (once || !good)
        unlink(fresh);
    return good;
}

// Tells whoever plays init of a property that asks for an action. Nobody there: nobody acts.
void notify_init(const char *name, const char *value)
{
    if (strcmp(name, POWER_PROPERTY) != 0 && strcmp(name, "ctl.start") != 0 && strcmp(name, "ctl.stop") != 0)
        return;
    int fd = open(INIT_FIFO, O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return;
    char line[2 * PROPERTY_VALUE_MAX];
    // One line, whatever the value holds; shorter than PIPE_BUF, so it is written as a whole or not at all.
    int length =
        snprintf(line, sizeof line, "%s=%.*s\n", name, static_cast<int>(strcspn(value, "\n")), value);
    ssize_t written = write(fd, line, static_cast<size_t>(length));
    (void)written; // a full FIFO has a reader that does not act
    close(fd);
}

} // namespace

extern "C" EXPORT int property_get(const char *key, char *value, const char *default_value)
{
    ssize_t length = -1;
    if (valid_name(key)) {
        char path[sizeof PROPERTIES + NAME_LENGTH_MAX + 1];
        snprintf(path, sizeof path, "%s/%s", PROPERTIES, key);
        int fd = open(path, O_RDONLY | O_CLOEXEC);
        if (fd >= 0) {
            do
                length = read(fd, value, PROPERTY_VALUE_MAX - 1);
            while (length < 0 && errno == EINTR);
            close(fd);
        }
    }
    if (length <= 0) { // an empty property counts as not set
        const char *text = default_value != nullptr ? default_value : "";
        length = static_cast<ssize_t>(strnlen(text, PROPERTY_VALUE_MAX - 1));
        memcpy(value, text, static_cast<size_t>(length));
    }
    value[length] = '\0';
    return static_cast<int>(strlen(value));
}

extern "C" EXPORT int property_set(const char *key, const char *value)
{
    if (!valid_name(key) || !valid_value(key, value))
        return -1;
    if (!store(PROPERTIES, key, value, is_read_only(key)))
        return -1;
    if (starts_with(key, "persist."))
        store(PERSISTENT, key, value, false);
    notify_init(key, value);
    return 0;
}

extern "C" EXPORT int android_reboot(unsigned int command, int flags, const char *reason)
{
    (void)flags;
    char action[PROPERTY_VALUE_MAX + 1]; // one too long is refused, not cut
    switch (command) {
    case ANDROID_RB_RESTART:
        return property_set(POWER_PROPERTY, "reboot");
    case ANDROID_RB_RESTART2:
        if (reason == nullptr || *reason == '\0')
            return property_set(POWER_PROPERTY, "reboot");
        snprintf(action, sizeof action, "reboot,%s", reason);
        return property_set(POWER_PROPERTY, action);
    case ANDROID_RB_POWEROFF:
        return property_set(POWER_PROPERTY, "shutdown");
    default:
        return -1;
    }
}
