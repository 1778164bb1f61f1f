// libcutils of a workstation: a property is a file of its name, shared with the phone's getprop and setprop.
//
// The file holds the value and nothing else (no line feed), and is replaced as a whole, so that a reader sees
// the old value or the new one. Names that begin with a dot are no properties.
#include "cutils.h"
#include "descriptor.h"
#include "export.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

using std::string_view;

static constexpr char PROPERTIES[] = "/dev/__properties__";
static constexpr char PERSISTENT[] = "/data/property"; // init sets these again at the next boot
static constexpr char INIT_FIFO[] = "/dev/socket/init";
static constexpr char POWER_PROPERTY[] = "sys.powerctl";
static constexpr size_t VALUE_LENGTH_MAX = PROPERTY_VALUE_MAX - 1;

// A read-only property has no limit but this one, and property_get gives the first 91 characters of a longer
// one.
static constexpr size_t READ_ONLY_LENGTH_MAX = 4095;

static bool starts_with(string_view text, string_view start) { return text.substr(0, start.size()) == start; }

static bool is_read_only(string_view name) { return starts_with(name, "ro."); }

// Of one that is too long for a file there is none.
static bool valid_name(string_view name)
{
    static constexpr string_view ALLOWED =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._@:-";
    return !name.empty() && name.front() != '.' && name.back() != '.' &&
           name.find("..") == string_view::npos && name.find_first_not_of(ALLOWED) == string_view::npos;
}

static std::string path_of(string_view folder, string_view name)
{
    return std::string(folder).append("/").append(name);
}

// What FOLDER/NAME holds, at most a byte more than a value may have. A FIFO or folder of that name is none.
static std::optional<std::string> read_value(string_view folder, string_view name)
{
    const owned::descriptor file(open(path_of(folder, name).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    char value[VALUE_LENGTH_MAX + 1];
    const ssize_t length = read(file.get(), value, sizeof value);
    if (length < 0)
        return std::nullopt;
    return std::string(value, static_cast<size_t>(length));
}

namespace
{

// FOLDER/NAME as it shall be, beside what is there. What may fail for want of room has been done once it is
// made; without replace() it is gone again.
class new_file
{
  public:
    new_file(string_view folder, string_view name, string_view value)
        : path_(path_of(folder, name)),
          fresh_(path_of(folder, '.' + std::to_string(gettid()))) // no two threads share one
    {
        owned::descriptor file(
            open(fresh_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0644));
        const bool written =
            write(file.get(), value.data(), value.size()) == static_cast<ssize_t>(value.size());
        made_ = close(file.release()) == 0 && written;
    }
    ~new_file() { unlink(fresh_.c_str()); } // nothing is there when it has replaced the old one
    new_file(const new_file &) = delete;
    new_file &operator=(const new_file &) = delete;

    [[nodiscard]] bool made() const { return made_; }
    [[nodiscard]] bool replace() const { return rename(fresh_.c_str(), path_.c_str()) == 0; }
    [[nodiscard]] bool begin() const
    {
        return link(fresh_.c_str(), path_.c_str()) == 0;
    } // where there is none yet

  private:
    const std::string path_, fresh_;
    bool made_;
};

} // namespace

// A property whose value cannot be kept is not set. What is kept already, as at every boot, takes no room.
static bool store_persistent(string_view name, string_view value)
{
    const new_file running(PROPERTIES, name, value);
    if (!running.made())
        return false;
    if (read_value(PERSISTENT, name) != value) {
        mkdir(PERSISTENT, 0755); // /data may have been wiped
        const new_file persistent(PERSISTENT, name, value);
        if (!persistent.made() || !persistent.replace())
            return false;
    }
    return running.replace();
}

static bool store(string_view name, string_view value)
{
    if (starts_with(name, "persist."))
        return store_persistent(name, value);
    const new_file running(PROPERTIES, name, value);
    return running.made() && (is_read_only(name) ? running.begin() : running.replace());
}

// Tells whoever plays init of a property that asks for an action. Nobody there: nobody acts.
static void notify_init(string_view name, string_view value)
{
    if (name != POWER_PROPERTY && name != "ctl.start" && name != "ctl.stop")
        return;
    // One line, whatever the value holds; shorter than PIPE_BUF, so it is written as a whole or not at all.
    const std::string line =
        std::string(name).append("=").append(value.substr(0, value.find('\n'))).append("\n");
    const owned::descriptor init(open(INIT_FIFO, O_WRONLY | O_NONBLOCK | O_CLOEXEC));
    const ssize_t written = write(init.get(), line.data(), line.size());
    (void)written; // a full FIFO has a reader that does not act
}

extern "C" EXPORT int property_get(const char *key, char *value, const char *default_value)
{
    std::string text;
    if (key && valid_name(key))
        text = read_value(PROPERTIES, key).value_or("");
    if (text.empty() && default_value) // an empty property counts as not set
        text = default_value;
    value[text.copy(value, VALUE_LENGTH_MAX)] = '\0';
    return static_cast<int>(strlen(value));
}

extern "C" EXPORT int property_set(const char *key, const char *value)
{
    if (!key || !valid_name(key) || !value ||
        strlen(value) > (is_read_only(key) ? READ_ONLY_LENGTH_MAX : VALUE_LENGTH_MAX) || !store(key, value))
        return -1;
    notify_init(key, value);
    return 0;
}

extern "C" EXPORT int android_reboot(unsigned int command, int flags, const char *reason)
{
    (void)flags;
    switch (command) {
    case ANDROID_RB_RESTART:
        return property_set(POWER_PROPERTY, "reboot");
    case ANDROID_RB_RESTART2:
        return reason && *reason != '\0'
                   ? property_set(POWER_PROPERTY, std::string("reboot,").append(reason).c_str())
                   : property_set(POWER_PROPERTY, "reboot");
    case ANDROID_RB_POWEROFF:
        return property_set(POWER_PROPERTY, "shutdown");
    default:
        return -1;
    }
}
