// libcutils of a workstation: a property is a file of its name, shared with the phone's getprop and setprop.
//
// The file holds the value and nothing else (no line feed), and is replaced as a whole, so that a reader sees
// the old value or the new one. Names that begin with a dot are no properties.
#include "cutils.h"
#include "export.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

static constexpr char PROPERTIES[] = "/dev/__properties__";
static constexpr char PERSISTENT[] = "/data/property"; // init sets these again at the next boot
static constexpr char INIT_FIFO[] = "/dev/socket/init";
static constexpr char POWER_PROPERTY[] = "sys.powerctl";
static constexpr size_t NAME_LENGTH_MAX = 255; // of a file
static constexpr size_t PATH_ROOM = sizeof PROPERTIES + NAME_LENGTH_MAX + 1;

// A read-only property has no limit but this one, and property_get gives the first 91 characters of a longer
// one.
static constexpr size_t READ_ONLY_LENGTH_MAX = 4095;

static bool starts_with(const char *text, const char *start)
{
    return strncmp(text, start, strlen(start)) == 0;
}

static bool is_read_only(const char *name) { return starts_with(name, "ro."); }

static bool valid_name(const char *name)
{
    static constexpr char ALLOWED[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._@:-";
    if (!name)
        return false;
    size_t length = strlen(name);
    return length > 0 && length <= NAME_LENGTH_MAX && strspn(name, ALLOWED) == length && name[0] != '.' &&
           name[length - 1] != '.' && !strstr(name, "..");
}

static bool valid_value(const char *name, const char *value)
{
    return value && strlen(value) <= (is_read_only(name) ? READ_ONLY_LENGTH_MAX : PROPERTY_VALUE_MAX - 1);
}

// Reads at most `room` bytes of FOLDER/NAME: their number, or negative. A FIFO or folder of that name is
// none.
static ssize_t read_value(const char *folder, const char *name, char *value, size_t room)
{
    char path[PATH_ROOM];
    snprintf(path, sizeof path, "%s/%s", folder, name);
    int fd = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0)
        return -1;
    ssize_t length;
    do
        length = read(fd, value, room);
    while (length < 0 && errno == EINTR);
    close(fd);
    return length;
}

namespace
{

// FOLDER/NAME as it shall be, beside what is there. What may fail for want of room has been done once it is
// made; without replace() it is gone again.
class new_file
{
  public:
    new_file(const char *folder, const char *name, const char *value)
    {
        snprintf(path_, sizeof path_, "%s/%s", folder, name);
        snprintf(fresh_, sizeof fresh_, "%s/.%d.%d", folder, getpid(), gettid()); // no two threads share one
        int fd = open(fresh_, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0644);
        if (fd < 0)
            return;
        size_t length = strlen(value);
        ssize_t written;
        do
            written = write(fd, value, length);
        while (written < 0 && errno == EINTR);
        made_ = close(fd) == 0 && written == static_cast<ssize_t>(length);
    }
    ~new_file() { unlink(fresh_); } // nothing is there when it has replaced the old one
    new_file(const new_file &) = delete;
    new_file &operator=(const new_file &) = delete;

    [[nodiscard]] bool made() const { return made_; }
    [[nodiscard]] bool replace() const { return rename(fresh_, path_) == 0; }
    [[nodiscard]] bool begin() const { return link(fresh_, path_) == 0; } // where there is none yet

  private:
    char path_[PATH_ROOM];
    char fresh_[sizeof PROPERTIES + 32];
    bool made_ = false;
};

} // namespace

// A property whose value cannot be kept is not set. What is kept already, as at every boot, takes no room.
static bool store_persistent(const char *name, const char *value)
{
    const new_file running(PROPERTIES, name, value);
    if (!running.made())
        return false;
    char kept[PROPERTY_VALUE_MAX];
    const ssize_t length = read_value(PERSISTENT, name, kept, sizeof kept);
    if (length != static_cast<ssize_t>(strlen(value)) || memcmp(kept, value, strlen(value)) != 0) {
        mkdir(PERSISTENT, 0755); // /data may have been wiped
        const new_file persistent(PERSISTENT, name, value);
        if (!persistent.made() || !persistent.replace())
            return false;
    }
    return running.replace();
}

static bool store(const char *name, const char *value)
{
    if (starts_with(name, "persist."))
        return store_persistent(name, value);
    const new_file running(PROPERTIES, name, value);
    return running.made() && (is_read_only(name) ? running.begin() : running.replace());
}

// Tells whoever plays init of a property that asks for an action. Nobody there: nobody acts.
static void notify_init(const char *name, const char *value)
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

extern "C" EXPORT int property_get(const char *key, char *value, const char *default_value)
{
    ssize_t length = valid_name(key) ? read_value(PROPERTIES, key, value, PROPERTY_VALUE_MAX - 1) : -1;
    if (length <= 0) { // an empty property counts as not set
        const char *text = default_value ? default_value : "";
        length = static_cast<ssize_t>(strnlen(text, PROPERTY_VALUE_MAX - 1));
        memcpy(value, text, static_cast<size_t>(length));
    }
    value[length] = '\0';
    return static_cast<int>(strlen(value));
}

extern "C" EXPORT int property_set(const char *key, const char *value)
{
    if (!valid_name(key) || !valid_value(key, value) || !store(key, value))
        return -1;
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
        if (!reason || *reason == '\0')
            return property_set(POWER_PROPERTY, "reboot");
        snprintf(action, sizeof action, "reboot,%s", reason);
        return property_set(POWER_PROPERTY, action);
    case ANDROID_RB_POWEROFF:
        return property_set(POWER_PROPERTY, "shutdown");
    default:
        return -1;
    }
}
