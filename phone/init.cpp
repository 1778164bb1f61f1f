// The first process of the virtual phone: init [REASON].
//
// Boots: chooses the mode from the misc partition, makes the volatile tree, sets the properties, runs the
// boot hooks, starts the services and says when the port answers. Then keeps the services alive, lets the
// drivers see what is written to their nodes, and acts on ctl.start, ctl.stop and sys.powerctl until the
// phone goes down. REASON is how the last boot ended ("reboot,recovery"); how this one ends, and what it has
// come to, goes to the launcher as lines on a descriptor.
//
// Whatever a shell line of a station has left in /data and elsewhere, the phone boots: init opens nothing
// that could hold it up, and goes on without what it cannot have.
#include "cutils.h"
#include "frame.h"
#include "log.h"
#include "shell_service.h"
#include "staging.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdarg>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

namespace
{

constexpr char IMAGE[] = "/.phone/root"; // what the volatile tree and a new /data are made of
constexpr char TOOLS[] = "/.phone/tools";
constexpr char BOOT_PROPERTIES[] = "/.phone/properties";
constexpr char BOOT_HOOKS[] = "/.phone/boot.d";
constexpr char DRIVERS[] = "/.phone/drivers";
constexpr char MISC[] = "/mnt/partitions/misc";
constexpr off_t MISC_SIZE = off_t{1} << 20;
constexpr char PERSISTENT_PROPERTIES[] = "/data/property";
constexpr char CONTROL_FIFO[] = "/dev/socket/init";
constexpr char PORT[] = "/dev/socket/diag/port";
constexpr const char *KEPT[] = {"data", "mnt", "sdcard"}; // folders of the image that outlive a boot
constexpr const char *SERVICE_FILES[] = {"/system/etc/init", "/vendor/etc/init"};
constexpr char PROCESSES[] = "/.proc";
constexpr char PORT_SERVICE[] = "diag_service";

// From the launcher: the listening sockets of the port and the shell, and the way for what init has to tell.
constexpr int PORT_SOCKET = 3, SHELL_SOCKET = 4, LAUNCHER = 5;
constexpr char PORT_VARIABLE[] = "DIAG_PORT_FD=3"; // for the service that has the port

// So many processes and threads there may be, and a few of init's own beyond: it can always start a service
// or a shell.
constexpr rlim_t PROCESSES_MAX = 512, OWN_PROCESSES_MAX = 576;
constexpr auto COUNT_PERIOD = std::chrono::milliseconds(250);
constexpr size_t NODE_TEXT_MAX = 4096, PROPERTIES_MAX = 1024, REQUEST_MAX = 4096;
constexpr auto HOOK_TIME = std::chrono::seconds(5);
constexpr int LOG_INFO = 4;
constexpr size_t BOOT_COMMAND_SIZE = 32;
constexpr size_t RECOVERY_ARGUMENTS = 64; // their offset
constexpr size_t RECOVERY_ARGUMENTS_SIZE = 768;
constexpr auto RESTART_PERIOD =
    std::chrono::milliseconds(800); // a service that dies at once starts no sooner again
constexpr auto STOP_GRACE =
    std::chrono::milliseconds(200); // between SIGTERM and the end, when the phone goes down
constexpr auto PROBE_PERIOD = std::chrono::milliseconds(5);

struct Service {
    std::string name;
    std::vector<std::string> command;
    bool disabled = false; // not started at boot
    bool oneshot = false;  // not started again
    bool wanted = false;
    pid_t pid = 0;
    Clock::time_point started{};
};

std::vector<Service> services;
sigset_t blocked; // the signals that init waits for; its children do not inherit the block

__attribute__((format(printf, 1, 2))) void say(const char *format, ...)
{
    char text[512];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    __android_log_print(LOG_INFO, "init", "%s", text);
}

void tell_launcher(const std::string &line)
{
    (void)!write(LAUNCHER, (line + "\n").c_str(), line.size() + 1);
}

[[noreturn]] void leave(const std::string &how)
{
    tell_launcher(how);
    _exit(0); // the kernel ends every other process of the phone
}

// ---- boot mode and recovery ----

struct BootMessage {
    std::string command, arguments;
};

// Opens a regular file of a tree that anybody may have changed; anything else there, a FIFO above all, is
// none.
int open_regular(const std::string &path, int flags)
{
    const int fd = open(path.c_str(), flags | O_NONBLOCK | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC, 0644);
    struct stat there {
    };
    if (fd < 0 || (fstat(fd, &there) == 0 && S_ISREG(there.st_mode)))
        return fd;
    close(fd);
    return -1;
}

// The first `limit` bytes of such a file.
std::string read_regular(const std::string &path, size_t limit)
{
    std::string text(limit, '\0');
    const int fd = open_regular(path, O_RDONLY);
    const ssize_t count = fd < 0 ? 0 : read(fd, text.data(), limit);
    if (fd >= 0)
        close(fd);
    text.resize(static_cast<size_t>(std::max<ssize_t>(count, 0)));
    return text;
}

BootMessage read_boot_message()
{
    std::string bytes = read_regular(MISC, RECOVERY_ARGUMENTS + RECOVERY_ARGUMENTS_SIZE);
    bytes.resize(RECOVERY_ARGUMENTS + RECOVERY_ARGUMENTS_SIZE);
    return {std::string(bytes.data(), strnlen(bytes.data(), BOOT_COMMAND_SIZE)),
            bytes.c_str() + RECOVERY_ARGUMENTS};
}

void clear_boot_message()
{
    const int misc = open_regular(MISC, O_WRONLY);
    const std::string zeros(RECOVERY_ARGUMENTS + RECOVERY_ARGUMENTS_SIZE, '\0');
    (void)!write(misc, zeros.data(), zeros.size());
    close(misc);
}

// The partition that the boot itself needs; the boot hooks make the others.
void provide_misc()
{
    const int misc = open_regular(MISC, O_RDWR | O_CREAT);
    struct stat there {
    };
    if (misc >= 0 && fstat(misc, &there) == 0 && there.st_size == 0)
        (void)!ftruncate(misc, MISC_SIZE);
    close(misc);
}

std::string boot_mode(const BootMessage &message, const std::string &reason)
{
    if (message.command == "boot-recovery" || reason == "reboot,recovery")
        return "recovery";
    if (message.command.compare(0, 4, "ffbm") == 0 || message.command.compare(0, 4, "pfbm") == 0)
        return message.command;
    return "normal";
}

// Recovery has no screen here: it does what it was told, and otherwise stays up so that a station can see it.
void run_recovery(const BootMessage &message)
{
    clear_boot_message();
    if (message.arguments.find("\n--wipe_data\n") == std::string::npos)
        return;
    say("recovery: wiping /data");
    tell_launcher("wipe"); // which has /data anew for the next boot, whatever is in this one
    say("recovery: data wiped, rebooting");
    leave("reboot");
}

// ---- the tree and the properties ----

void make_tree()
{
    const auto options =
        fs::copy_options::recursive | fs::copy_options::copy_symlinks | fs::copy_options::overwrite_existing;
    for (const auto &entry : fs::directory_iterator(IMAGE)) {
        const std::string name = entry.path().filename();
        if (std::find(std::begin(KEPT), std::end(KEPT), name) == std::end(KEPT))
            fs::copy(entry, "/" + name, options);
    }
    fs::copy(TOOLS, "/", options);
}

void set_property(const std::string &name, const std::string &value)
{
    if (property_set(name.c_str(), value.c_str()) != 0)
        say("property %s refused", name.c_str());
}

using Properties = std::map<std::string, std::string>;

// The properties that were kept. Their folder is left with nothing else in it, so that it keeps those that
// are set.
Properties read_kept_properties()
{
    Properties kept;
    std::error_code ignored;
    if (!fs::is_directory(fs::symlink_status(PERSISTENT_PROPERTIES, ignored)))
        fs::remove_all(PERSISTENT_PROPERTIES, ignored);
    fs::create_directories(PERSISTENT_PROPERTIES, ignored);
    std::vector<fs::path> strange;
    for (auto entry = fs::directory_iterator(PERSISTENT_PROPERTIES, ignored);
         entry != fs::directory_iterator(); entry.increment(ignored)) {
        const std::string name = entry->path().filename();
        if (name[0] == '.' || !fs::is_regular_file(entry->symlink_status(ignored)) ||
            kept.size() >= PROPERTIES_MAX)
            strange.push_back(entry->path());
        else if (const std::string value = read_regular(entry->path(), NODE_TEXT_MAX); true)
            kept[name] = value.substr(0, value.find('\0'));
    }
    for (const auto &path : strange)
        fs::remove_all(path, ignored);
    return kept;
}

// `told` hold against the build's and the kept ones; the boot hooks cannot change those of them that are set
// once.
void set_properties(const std::string &mode, const std::string &reason, const Properties &told)
{
    Properties kept = read_kept_properties();
    for (const auto &[name, value] : told) {
        set_property(name, value);
        kept.erase(name);
    }
    std::ifstream file(BOOT_PROPERTIES);
    for (std::string line; std::getline(file, line);) {
        const size_t equals = line.find('=');
        const std::string name = line.substr(0, std::min(equals, line.size()));
        if (line[0] != '#' && equals != std::string::npos && kept.count(name) == 0 && told.count(name) == 0)
            set_property(name, line.substr(equals + 1));
    }
    set_property("ro.bootmode", mode);
    set_property("sys.boot.reason", reason.empty() ? "cold" : reason);

    for (const auto &[name, value] : kept)
        set_property(name, value);
}

// ---- services ----

// Reads the part of init's language that services need: "service NAME PATH [ARGUMENT]...", and below it
// "disabled" and "oneshot". Everything else is for a real phone.
void read_services(const fs::path &path)
{
    std::ifstream file(path);
    bool inside = false;
    for (std::string line; std::getline(file, line);) {
        std::vector<std::string> words;
        for (size_t at = 0; (at = line.find_first_not_of(" \t", at)) != std::string::npos;) {
            const size_t end = std::min(line.find_first_of(" \t", at), line.size());
            words.push_back(line.substr(at, end - at));
            at = end;
        }
        if (words.empty() || words[0][0] == '#')
            continue;
        if (line[0] != ' ' && line[0] != '\t') {
            inside = words[0] == "service" && words.size() >= 3;
            if (inside) {
                services.emplace_back();
                services.back().name = words[1];
                services.back().command.assign(words.begin() + 2, words.end());
            }
        } else if (inside) {
            services.back().disabled = services.back().disabled || words[0] == "disabled";
            services.back().oneshot = services.back().oneshot || words[0] == "oneshot";
        }
    }
}

void show_state(const Service &service, const char *state)
{
    set_property("init.svc." + service.name, state);
}

// What every process that is not init's own begins with.
void become_ordinary()
{
    sigprocmask(SIG_UNBLOCK, &blocked, nullptr);
    const rlimit processes = {PROCESSES_MAX, PROCESSES_MAX};
    setrlimit(RLIMIT_NPROC, &processes);
}

// Starts a program as the leader of a process group. Its output goes nowhere, as a phone's does; what it
// writes to standard error (a sanitizer's report) ends up with the launcher. Returns its id, or 0.
pid_t spawn(const std::vector<std::string> &command, bool has_port = false)
{
    const pid_t pid = fork();
    if (pid != 0)
        return std::max(pid, 0);
    become_ordinary();
    setsid();
    if (has_port) {
        putenv(const_cast<char *>(PORT_VARIABLE));
        fcntl(PORT_SOCKET, F_SETFD, 0);
    }
    const int null = open("/dev/null", O_RDWR);
    dup2(null, STDIN_FILENO);
    dup2(null, STDOUT_FILENO);
    close(null);
    // The kernel's /proc is elsewhere; the leak checker looks for its own process here.
    const std::string id = std::to_string(getpid());
    (void)!symlink(("/.proc/" + id).c_str(), ("/proc/" + id).c_str());
    std::vector<char *> arguments;
    arguments.reserve(command.size() + 1);
    for (const auto &word : command)
        arguments.push_back(const_cast<char *>(word.c_str()));
    arguments.push_back(nullptr);
    execvp(arguments[0], arguments.data());
    _exit(127);
}

void start(Service &service)
{
    service.wanted = true;
    if (service.pid > 0)
        return;
    service.started = Clock::now();
    service.pid = spawn(service.command, service.name == PORT_SERVICE);
    if (service.pid == 0)
        return say("no process for service '%s'", service.name.c_str());
    say("starting service '%s', pid %d", service.name.c_str(), service.pid);
    show_state(service, "running");
}

void stop(Service &service)
{
    service.wanted = false;
    if (service.pid > 0)
        kill(-service.pid, SIGKILL); // "stopped" once it is reaped
    else
        show_state(service, "stopped");
}

void reap()
{
    int status;
    for (pid_t pid; (pid = waitpid(-1, &status, WNOHANG)) > 0;) {
        auto service =
            std::find_if(services.begin(), services.end(), [pid](auto &one) { return one.pid == pid; });
        if (service == services.end())
            continue;
        kill(-pid, SIGKILL); // what it left behind goes with it
        unlink(("/proc/" + std::to_string(pid)).c_str());
        service->pid = 0;
        service->wanted = service->wanted && !service->oneshot;
        if (WIFSIGNALED(status))
            say("service '%s' (pid %d) received signal %d", service->name.c_str(), pid, WTERMSIG(status));
        else
            say("service '%s' (pid %d) exited with status %d", service->name.c_str(), pid,
                WEXITSTATUS(status));
        show_state(*service, service->wanted ? "restarting" : "stopped");
    }
}

// Starts what is due and returns how long to wait for the rest, in milliseconds as poll takes them.
int start_due()
{
    auto wait = std::chrono::milliseconds(-1);
    for (auto &service : services) {
        if (!service.wanted || service.pid > 0)
            continue;
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(service.started + RESTART_PERIOD - Clock::now());
        if (left.count() <= 0)
            start(service);
        else if (wait.count() < 0 || left < wait)
            wait = left;
    }
    return static_cast<int>(wait.count());
}

// ---- the port ----

// One round of the port check, the command that does nothing but answer.
bool port_answers()
{
    const uint8_t check[] = {0x4B, 0xFA, 0x3C, 0x01, 0x00};
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, PORT, sizeof PORT);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const timeval limit{1, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    bool good = connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0;
    if (good) {
        uint8_t frame[port::encoded_max(sizeof check)], answer[64];
        const size_t size = port::encode(check, sizeof check, frame);
        good = write(fd, frame, size) == static_cast<ssize_t>(size) &&
               read(fd, answer, sizeof answer) >= static_cast<ssize_t>(sizeof check) &&
               memcmp(answer, check, sizeof check) == 0;
    }
    close(fd);
    return good;
}

// Says that the phone is up once a station would get an answer, in a process of its own.
void watch_port()
{
    if (fork() != 0)
        return;
    while (!port_answers())
        usleep(std::chrono::microseconds(PROBE_PERIOD).count());
    set_property("sys.boot_completed", "1");
    tell_launcher("ready");
    _exit(0);
}

// ---- requests ----

[[noreturn]] void go_down(const std::string &how)
{
    say("sys.powerctl is '%s': stopping services", how.c_str());
    for (auto &service : services) {
        service.wanted = false;
        if (service.pid > 0)
            kill(-service.pid, SIGTERM);
    }
    const auto deadline = Clock::now() + STOP_GRACE;
    const auto alive = [](const Service &service) { return service.pid > 0; };
    while (Clock::now() < deadline && std::any_of(services.begin(), services.end(), alive)) {
        usleep(5000);
        reap();
    }
    say("%s", how == "shutdown" ? "power off" : "rebooting the phone");
    leave(how);
}

void obey(const std::string &line)
{
    const size_t equals = std::min(line.find('='), line.size());
    const std::string name = line.substr(0, equals);
    const std::string value = equals < line.size() ? line.substr(equals + 1) : "";
    if (name == "sys.powerctl") {
        if (value.compare(0, 6, "reboot") == 0)
            go_down(value);
        if (value.compare(0, 8, "shutdown") == 0)
            go_down("shutdown");
        return say("sys.powerctl: '%s' is no request", value.c_str());
    }
    for (auto &service : services) {
        if (service.name != value)
            continue;
        name == "ctl.start" ? start(service) : stop(service);
        return;
    }
    say("%s: no service '%s'", name.c_str(), value.c_str());
}

void run_hooks()
{
    std::vector<fs::path> hooks(fs::directory_iterator(BOOT_HOOKS), fs::directory_iterator{});
    std::sort(hooks.begin(), hooks.end());
    for (const auto &hook : hooks) {
        int status = -1;
        const pid_t pid = spawn({"/system/bin/sh", hook});
        const auto deadline = Clock::now() + HOOK_TIME;
        while (pid > 0 && waitpid(pid, &status, WNOHANG) == 0) {
            if (Clock::now() > deadline)
                kill(-pid, SIGKILL);
            const timespec period{0, 20000000};
            sigtimedwait(&blocked, nullptr, &period); // a child's end ends the wait
        }
        unlink(("/proc/" + std::to_string(pid)).c_str());
        if (status != 0)
            say("boot hook %s failed", hook.filename().c_str());
    }
}

// The kernel holds to PROCESSES_MAX everybody but the workstation's root. His phone is looked at, and where
// there are more, all of them are ended at once; init starts the services again.
void end_flood()
{
    static Clock::time_point next{};
    if (Clock::now() < next)
        return;
    next = Clock::now() + COUNT_PERIOD;
    std::error_code ignored;
    size_t count = 0;
    for (auto entry = fs::directory_iterator(PROCESSES, ignored); entry != fs::directory_iterator();
         entry.increment(ignored))
        count += isdigit(static_cast<unsigned char>(entry->path().filename().native()[0])) != 0 ? 1 : 0;
    if (count <= OWN_PROCESSES_MAX)
        return;
    kill(-1, SIGKILL);
    say("%zu processes: all ended", count);
}

// ---- drivers ----

// A node is a plain file. What a driver does when one is written stands in the file at the node's path in
// DRIVERS: lines of a value, a node beside it, and the text that this one gets when the value is written.
// Folders are watched, so that a node that is made anew is still seen.
std::map<int, fs::path> watch_nodes(int notifications)
{
    std::map<int, fs::path> folders; // by their watch
    for (const auto &driver : fs::recursive_directory_iterator(DRIVERS)) {
        if (!driver.is_directory())
            continue;
        const fs::path folder = "/" / fs::relative(driver, DRIVERS);
        const int watch = inotify_add_watch(notifications, folder.c_str(), IN_CLOSE_WRITE);
        if (watch >= 0)
            folders[watch] = folder;
    }
    return folders;
}

void drive(const fs::path &folder, const std::string &name)
{
    std::ifstream driver(DRIVERS + (folder / name).string());
    std::string written;
    std::istringstream(read_regular(folder / name, NODE_TEXT_MAX)) >> written;
    for (std::string line; std::getline(driver, line);) {
        std::istringstream words(line);
        std::string value, node, text;
        words >> value >> node >> std::ws;
        std::getline(words, text);
        if (value != written)
            continue;
        const fs::path target = folder / node, next = target.string() + ".next";
        const int fd = open_regular(next, O_WRONLY | O_CREAT | O_TRUNC);
        text += '\n';
        (void)!write(fd, text.data(), text.size());
        close(fd);
        std::error_code gone; // with the component that it belongs to
        fs::rename(next, target, gone);
    }
}

void run_drivers(int notifications, const std::map<int, fs::path> &folders)
{
    alignas(inotify_event) char events[4096];
    for (ssize_t count; (count = read(notifications, events, sizeof events)) > 0;) {
        for (ssize_t at = 0; at < count;) {
            inotify_event event;
            memcpy(&event, events + at, sizeof event);
            const auto folder = folders.find(event.wd);
            if (folder != folders.end() && event.len > 0)
                drive(folder->second, events + at + sizeof event);
            at += static_cast<ssize_t>(sizeof event + event.len);
        }
    }
}

} // namespace

int main(int argc, char **argv)
{
    const std::string reason = argc > 1 ? argv[1] : "";
    umask(022);
    // No other process of the phone gets at init's descriptors and memory, though it is root as init is.
    prctl(PR_SET_DUMPABLE, 0);
    syscall(SYS_close_range, static_cast<unsigned>(LAUNCHER) + 1, ~0U, 0);
    for (const int fd : {PORT_SOCKET, SHELL_SOCKET, LAUNCHER})
        fcntl(fd, F_SETFD, FD_CLOEXEC);
    const rlimit processes = {OWN_PROCESSES_MAX, OWN_PROCESSES_MAX};
    setrlimit(RLIMIT_NPROC, &processes);
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGCHLD);
    sigprocmask(SIG_BLOCK, &blocked, nullptr);
    const int signals = signalfd(-1, &blocked, SFD_CLOEXEC | SFD_NONBLOCK);
    mkfifo(CONTROL_FIFO, 0600);
    const int control = open(CONTROL_FIFO, O_RDWR | O_CLOEXEC | O_NONBLOCK); // writing too: it never ends

    provide_misc();
    const BootMessage message = read_boot_message();
    const std::string mode = boot_mode(message, reason);
    say("booting, mode '%s', reason '%s'", mode.c_str(), reason.c_str());
    if (mode == "recovery")
        run_recovery(message);
    make_tree();
    const Staging staging = read_staging();
    set_properties(mode, reason, staging.properties);
    run_hooks();
    for (const auto &[name, value] : staging.properties)
        if (name.compare(0, 3, "ro.") != 0)
            set_property(name, value); // a hook may have set it to what the parts tell
    stage_nodes(staging);
    stage_tools(staging);
    const int notifications = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    const auto watched = watch_nodes(notifications);
    for (const char *folder : SERVICE_FILES)
        if (fs::is_directory(folder))
            for (const auto &entry : fs::directory_iterator(folder))
                read_services(entry);
    for (auto &service : services)
        service.disabled ? stop(service) : start(service);
    watch_port();

    std::string requests;
    for (;;) {
        pollfd events[] = {{signals, POLLIN, 0},
                           {control, POLLIN, 0},
                           {notifications, POLLIN, 0},
                           {SHELL_SOCKET, POLLIN, 0}};
        const int due = start_due(), tick = static_cast<int>(COUNT_PERIOD.count());
        poll(events, 4, due < 0 ? tick : std::min(due, tick));
        if (events[3].revents != 0)
            serve_shell(SHELL_SOCKET, become_ordinary);
        end_flood();
        signalfd_siginfo signal;
        while (read(signals, &signal, sizeof signal) > 0)
            ;
        reap();
        run_drivers(notifications, watched);
        char bytes[512];
        for (ssize_t count; (count = read(control, bytes, sizeof bytes)) > 0;)
            requests.append(bytes, static_cast<size_t>(count));
        if (requests.size() > REQUEST_MAX && requests.find('\n') == std::string::npos)
            requests.clear();
        for (size_t end; (end = requests.find('\n')) != std::string::npos; requests.erase(0, end + 1))
            obey(requests.substr(0, end));
    }
}
