// Two processes: the launcher boots the phone, and its keeper, its parent, outlives it to keep what the phone
// keeps, also where the launcher is killed. Where the keeper is, the launcher does its work.
//
// Both live in namespaces of their own. In them, at "inside", lie the phone's file systems, each a tmpfs of
// bounded room and number of files, so that nothing that the phone writes is on the workstation's disk or in
// its reach while it runs; what lasts is an archive. What the phone sends (its state, its console) comes
// through pipes.
#include "launcher.h"

#include "filter.h"
#include "reader.h"
#include "share.h"

#include <fcntl.h>
#include <linux/keyctl.h>
#include <poll.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace host
{

// The bounds, as phone/README.md has them.
static constexpr char VOLATILE_ROOM[] = "mode=755,size=256m,nr_inodes=32k";
static constexpr char DATA_ROOM[] = "mode=755,size=512m,nr_inodes=16k";
static constexpr char KEPT_ROOM[] = "mode=755,size=256m,nr_inodes=8k"; // persist, sdcard, partitions
static constexpr off_t CONSOLE_MAX = off_t{1} << 20;

static constexpr const char *SHARES[][2] = {{"/proc/sys/user/max_inotify_instances", "16"},
                                            {"/proc/sys/user/max_inotify_watches", "1024"}};
static constexpr rlim_t SIGNALS_MAX = 1024; // that wait for the phone's processes

static constexpr size_t STATE_LINE_MAX = 128;
static constexpr size_t CLIENTS_MAX = 64;
static constexpr int LOOK_MS = 1000;        // between two looks at what nobody tells
static constexpr char OOM_SCORE[] = "1000"; // where memory runs out, the phone goes before all else

// The descriptors that bubblewrap hands on to init; init.cpp knows them too, and the last two are
// bubblewrap's own.
enum { INIT_PORT = 3, INIT_SHELL, INIT_STATE, BWRAP_ARGUMENTS, BWRAP_FILTER };

static pid_t launcher_pid; // of the keeper's handler

namespace
{

struct Phone {
    Phone(const Fd &folder, std::string name, std::string image_folder)
        : state(folder), path(std::move(name)), image(std::move(image_folder))
    {
    }

    const Fd &state; // its folder
    std::string path;
    std::string image; // the folders of a new phone
    Fd arguments;      // a file in memory
    Fd filter;         // another
    Fd ready;          // of who waits for the phone
    Fd console_read, console_write;
    Fd console;
    Fd log, phones_log; // the same ring, of which the phone gets the second
    Fd port, shell, control, log_giver;
    std::vector<Fd> clients;
    std::string line; // of the state, not yet complete
    std::string how;  // the last that init said
    rlimit files{};   // that a process of the phone may have open
    int boots = 0;
    bool down = false;
    pid_t bwrap = -1;
};

} // namespace

[[noreturn]] static void fail(const std::string &what)
{
    fprintf(stderr, "phone: %s: %s\n", what.c_str(), strerror(errno));
    _exit(EXIT_FAILURE);
}

// ---- namespaces and file systems

static void write_own(const char *path, const std::string &text)
{
    const Fd file(open(path, O_WRONLY | O_CLOEXEC));
    if (!file || write(file.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size()))
        fail(path);
}

static void leave_the_workstation()
{
    // The user's keys stay behind. A kernel without keys has none to leave.
    if (syscall(SYS_keyctl, KEYCTL_JOIN_SESSION_KEYRING, nullptr) < 0 && errno != ENOSYS)
        fail("no keyring of its own");
    const std::string user = std::to_string(geteuid()), group = std::to_string(getegid());
    // The sockets belong to an empty network, so that a descriptor of them tells nothing of the
    // workstation's.
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS | CLONE_NEWNET) != 0)
        fail("no namespaces");
    write_own("/proc/self/setgroups", "deny");
    write_own("/proc/self/uid_map", "0 " + user + " 1");
    write_own("/proc/self/gid_map", "0 " + group + " 1");
    // What the kernel counts by user, in all namespaces together: a phone takes this much of it. A container
    // may have the switches read-only.
    for (const auto &[name, most] : SHARES)
        if (const Fd limit(open(name, O_WRONLY | O_CLOEXEC)); limit)
            (void)!write(limit.get(), most, strlen(most));
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        fail("no mounts of its own");
}

// Descriptors on their way through sockets count for the user as a whole, and everybody's may be as many as
// he himself may open: the launcher, which hands out logs, is to have more than a phone that hoards them.
static void have_more_files(rlimit &phones)
{
    getrlimit(RLIMIT_NOFILE, &phones);
    const rlimit own = {phones.rlim_max, phones.rlim_max};
    setrlimit(RLIMIT_NOFILE, &own);
    phones.rlim_max = phones.rlim_cur;
}

static void mount_room(const char *path, const char *room)
{
    mkdir(path, 0700);
    if (mount("phone", path, "tmpfs", MS_NOSUID | MS_NODEV, room) != 0)
        fail(std::string("no file system at ") + path);
}

// The workstation's nodes, which its root's phone would own: read-only bars nobody from writing to a device,
// but even its owner from changing its mode or times.
static void bind_devices()
{
    mkdir("devices", 0755);
    mount_attr read_only{};
    read_only.attr_set = MOUNT_ATTR_RDONLY;
    for (const char *name : {"null", "zero", "full", "random", "urandom", "tty"}) {
        const std::string from = std::string("/dev/") + name, to = std::string("devices/") + name;
        const Fd point(open(to.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
        if (mount(from.c_str(), to.c_str(), nullptr, MS_BIND, nullptr) != 0 ||
            mount_setattr(AT_FDCWD, to.c_str(), 0, &read_only, sizeof read_only) != 0)
            fail("no " + from);
    }
}

// The rooms that last as long as the launcher. The first, which holds the others, becomes the working
// directory: where the phone's folder is removed meanwhile, what is then written by a name is not written to
// the workstation's disk.
static void mount_rooms()
{
    mount_room(INSIDE, "mode=700,size=1m,nr_inodes=64");
    if (chdir(INSIDE) != 0)
        fail(INSIDE);
    mount_room("data", DATA_ROOM);
    mount_room("kept", KEPT_ROOM);
    mkdir("root", 0755);
    mkdir("pts", 0755);
    if (mount("phone", "pts", "devpts", MS_NOSUID | MS_NOEXEC, "newinstance,ptmxmode=0666,mode=600") != 0)
        fail("no terminals");
    bind_devices();
}

static void copy_image(const Phone &phone, const std::string &from, const char *to)
{
    if (access((phone.image + "/" + from).c_str(), F_OK) == 0)
        run({"cp", "-a", "--no-preserve=ownership", phone.image + "/" + from + "/.", to});
}

// Fills the rooms with what the phone keeps, or with what it leaves the factory with.
static void load(const Phone &phone)
{
    const Fd kept(openat(phone.state.get(), KEPT, O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    if (kept)
        run({"tar", "--extract", "--file=-", "--preserve-permissions", "--no-same-owner",
             "--delay-directory-restore"},
            kept.get());
    for (const char *folder : {"kept/persist", "kept/sdcard", "kept/partitions"})
        mkdir(folder, 0755);
    if (kept)
        return;
    copy_image(phone, "data", "data");
    copy_image(phone, "mnt/vendor/persist", "kept/persist");
    copy_image(phone, "sdcard", "kept/sdcard");
}

// Keeps what the phone keeps: the archive is replaced as a whole, or stays as it was.
static void save(const Phone &phone)
{
    const std::string fresh = std::string(KEPT) + ".new";
    unlinkat(phone.state.get(), fresh.c_str(), 0);
    const Fd archive(openat(phone.state.get(), fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!archive)
        return perror("phone: what it keeps is not kept");
    // No deeper than this: what lies deeper takes long to name, and the next boot would be long in coming. A
    // status of 1 or 2 is a name that is too long all the same, or a socket: all else is there.
    const int status = run({"sh", "-c",
                            "find data kept/persist kept/sdcard kept/partitions "
                            "-maxdepth 64 -print0 |"
                            " tar --create --sparse --numeric-owner --no-recursion --null --files-from=-"},
                           -1, archive.get());
    if (status < 0 || status > 2 || fdatasync(archive.get()) != 0 ||
        renameat(phone.state.get(), fresh.c_str(), phone.state.get(), KEPT) != 0)
        perror("phone: what it keeps is not kept");
}

static void save_log(const Phone &phone)
{
    std::string text;
    if (log_ring::reader(phone.log.get()).read(text, true))
        write_file(phone.state, LOG, text);
}

static void finish(const Phone &phone)
{
    save(phone);
    save_log(phone);
    for (const char *name : {PORT, SHELL, CONTROL, LOG_GIVER, STATE})
        unlinkat(phone.state.get(), name, 0);
}

// ---- a boot

static void write_state(const Phone &phone, const char *state)
{
    write_file(phone.state, STATE, std::string(state) + " " + std::to_string(phone.boots) + "\n");
}

[[noreturn]] static void become_bwrap(Phone &phone, int state_write)
{
    if (prctl(PR_SET_PDEATHSIG, SIGKILL) != 0)
        _exit(127);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    signal(SIGPIPE, SIG_DFL);
    // 1 has no core file and starts no program of the workstation that takes cores; 0 would start it.
    const rlimit no_core = {1, 1};
    setrlimit(RLIMIT_CORE, &no_core);
    const rlimit signals = {SIGNALS_MAX, SIGNALS_MAX};
    setrlimit(RLIMIT_SIGPENDING, &signals);
    setrlimit(RLIMIT_NOFILE, &phone.files);
    if (const Fd score(open("/proc/self/oom_score_adj", O_WRONLY | O_CLOEXEC)); score)
        (void)!write(score.get(), OOM_SCORE, sizeof OOM_SCORE - 1);
    // Out of the way of the numbers they get.
    const std::array<int, 5> from = {
        fcntl(phone.port.get(), F_DUPFD_CLOEXEC, 20), fcntl(phone.shell.get(), F_DUPFD_CLOEXEC, 20),
        fcntl(state_write, F_DUPFD_CLOEXEC, 20), fcntl(phone.arguments.get(), F_DUPFD_CLOEXEC, 20),
        fcntl(phone.filter.get(), F_DUPFD_CLOEXEC, 20)};
    lseek(phone.arguments.get(), 0, SEEK_SET);
    lseek(phone.filter.get(), 0, SEEK_SET);
    for (size_t i = 0; i < from.size(); ++i)
        dup2(from[i], INIT_PORT + static_cast<int>(i));
    const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    dup2(null, STDIN_FILENO);
    dup2(phone.console_write.get(), STDOUT_FILENO);
    dup2(phone.console_write.get(), STDERR_FILENO);
    syscall(SYS_close_range, BWRAP_FILTER + 1, ~0U, 0);
    if (chdir("/") != 0)
        _exit(127);
    const std::string arguments = std::to_string(BWRAP_ARGUMENTS), filter = std::to_string(BWRAP_FILTER);
    execlp("bwrap", "bwrap", "--args", arguments.c_str(), "--seccomp", filter.c_str(), "--",
           "/system/bin/init", phone.how.c_str(), static_cast<char *>(nullptr));
    perror("phone: bwrap");
    _exit(127);
}

// A reboot's reason goes to the next init.
static bool is_reboot(std::string_view how)
{
    constexpr std::string_view PLAIN = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789,._- ";
    return how.substr(0, 6) == "reboot" && how.find_first_not_of(PLAIN) == std::string_view::npos;
}

static void take_state(Phone &phone, int fd)
{
    std::array<char, 512> some{};
    for (ssize_t count; (count = read(fd, some.data(), some.size())) > 0;) {
        for (const char byte : std::string_view(some.data(), static_cast<size_t>(count))) {
            if (byte != '\n') {
                if (phone.line.size() < STATE_LINE_MAX)
                    phone.line += byte;
                continue;
            }
            phone.how = std::move(phone.line);
            phone.line.clear();
            if (phone.how == "ready") {
                write_state(phone, "ready");
                if (phone.ready)
                    (void)!write(phone.ready.get(), "r", 1);
                phone.ready.reset(-1);
            } else if (phone.how == "wipe") { // of recovery, which reboots at once: nobody has it open then
                umount2("data", MNT_DETACH);
                mount_room("data", DATA_ROOM);
                copy_image(phone, "data", "data");
            }
        }
    }
}

// The console's file has a bound: beyond it the file becomes the older half, and a new one begins.
static void take_console(Phone &phone)
{
    std::array<char, 4096> some{};
    for (ssize_t count, rounds = 64; rounds > 0; --rounds) {
        count = read(phone.console_read.get(), some.data(), some.size());
        if (count <= 0)
            return;
        struct stat there {
        };
        if (phone.console && fstat(phone.console.get(), &there) == 0 && there.st_size + count > CONSOLE_MAX) {
            renameat(phone.state.get(), CONSOLE, phone.state.get(), "console.1");
            phone.console.reset(
                openat(phone.state.get(), CONSOLE, O_WRONLY | O_CREAT | O_EXCL | O_APPEND | O_CLOEXEC, 0600));
        }
        if (phone.console)
            (void)!write(phone.console.get(), some.data(), static_cast<size_t>(count));
    }
}

static void take_client(Phone &phone, Fd client)
{
    char request = 0;
    pollfd there = {client.get(), POLLIN, 0};
    if (poll(&there, 1, 1000) != 1 || read(client.get(), &request, 1) != 1)
        return;
    if (request == REQUEST_DOWN)
        phone.down = true;
    else if (request == REQUEST_LOG)
        log_ring::hand_out(client.get(), phone.log.get());
    phone.clients.push_back(std::move(client));
}

// Ends the children that are left, init above all, whose bubblewrap was killed, and waits until all of them
// are gone. Not yet waited for, their ids are still their own.
static void end_children()
{
    do {
        const Fd list(open("/proc/thread-self/children", O_RDONLY | O_CLOEXEC));
        std::array<char, 4096> text{};
        if (list && read(list.get(), text.data(), text.size() - 1) > 0)
            for (char *at = text.data(), *end; (void)(end = at), *at != '\0'; at = end) {
                const long child = strtol(at, &end, 10);
                if (end == at)
                    break;
                if (child > 1)
                    kill(static_cast<pid_t>(child), SIGKILL);
            }
    } while (waitpid(-1, nullptr, 0) > 0 || errno == EINTR);
}

// Whether the phone's folder was removed: nobody finds the phone any more to take it down.
static bool is_gone(const Fd &folder)
{
    struct stat there {
    };
    return fstat(folder.get(), &there) == 0 && there.st_nlink == 0;
}

// Until bubblewrap is gone, and with it, being the parent of everything in the phone, init and the rest.
static void live(Phone &phone, int state_read, int signals)
{
    constexpr size_t CLIENTS_AT = 5; // among the events
    for (bool killed = false;;) {
        std::vector<pollfd> events = {
            {signals, POLLIN, 0},
            {state_read, POLLIN, 0},
            {phone.console_read.get(), POLLIN, 0},
            {phone.log_giver.get(), POLLIN, 0},
            {phone.clients.size() < CLIENTS_MAX ? phone.control.get() : -1, POLLIN, 0}};
        for (const Fd &client : phone.clients)
            events.push_back({client.get(), POLLIN, 0});
        poll(events.data(), events.size(), LOOK_MS);
        phone.down = phone.down || is_gone(phone.state);
        signalfd_siginfo signal{};
        while (read(signals, &signal, sizeof signal) == sizeof signal)
            phone.down = phone.down || signal.ssi_signo != SIGCHLD;
        take_state(phone, state_read);
        take_console(phone);
        for (size_t i = phone.clients.size(); i-- > 0;) // a client says no more: whatever comes is its end
            if (events[CLIENTS_AT + i].revents != 0)
                phone.clients.erase(phone.clients.begin() + static_cast<ptrdiff_t>(i));
        if (events[3].revents != 0) // a program of the phone that begins to log
            if (const Fd guest(accept4(phone.log_giver.get(), nullptr, nullptr, SOCK_CLOEXEC)); guest)
                log_ring::hand_out(guest.get(), phone.phones_log.get());
        if (events[CLIENTS_AT - 1].revents != 0)
            take_client(phone, Fd(accept4(phone.control.get(), nullptr, nullptr, SOCK_CLOEXEC)));
        if (phone.down && !killed)
            killed = kill(phone.bwrap, SIGKILL) == 0; // not yet waited for: the id is still its own
        int status = 0;
        for (pid_t pid; (pid = waitpid(-1, &status, WNOHANG)) > 0;)
            if (pid == phone.bwrap)
                phone.bwrap = -1;
        if (phone.bwrap < 0)
            break;
    }
    end_children();
    take_state(phone, state_read);
    take_console(phone);
}

static void boot(Phone &phone, int signals)
{
    mount_room("root", VOLATILE_ROOM);
    ++phone.boots;
    write_state(phone, "booting");
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0)
        fail("no pipe");
    const Fd state_read(ends[0]);
    Fd state_write(ends[1]);
    phone.bwrap = fork();
    if (phone.bwrap == 0)
        become_bwrap(phone, state_write.get());
    if (phone.bwrap < 0)
        fail("no process");
    state_write.reset(-1);
    phone.how.clear();
    phone.line.clear();
    live(phone, state_read.get(), signals);
    umount2("root", MNT_DETACH);
}

// ---- launcher and keeper

[[noreturn]] static void run_launcher(Phone &phone, pid_t keeper)
{
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    setsid();
    sigset_t awaited;
    sigemptyset(&awaited);
    for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGCHLD})
        sigaddset(&awaited, signal);
    sigprocmask(SIG_BLOCK, &awaited, nullptr);
    const Fd signals(signalfd(-1, &awaited, SFD_CLOEXEC | SFD_NONBLOCK));
    phone.down = getppid() != keeper;
    while (!phone.down) {
        boot(phone, signals.get());
        if (!is_reboot(phone.how))
            break;
        if (!phone.down)
            save(phone);
    }
    if (getppid() != keeper)
        finish(phone);
    _exit(EXIT_SUCCESS);
}

static void pass_on(int signal) { kill(launcher_pid, signal); }

[[noreturn]] static void run_keeper(Phone &phone)
{
    prctl(PR_SET_CHILD_SUBREAPER, 1); // who loses the launcher comes here
    umask(022);                       // the phone sees the modes; the workstation is kept out by the folder's
    leave_the_workstation();
    have_more_files(phone.files);
    // By its path: the descriptor is of the mounts that were left behind.
    if (chdir(phone.path.c_str()) != 0)
        fail(phone.path);
    mount_rooms();
    load(phone);
    phone.log = log_ring::make();
    phone.phones_log = log_ring::reopen(phone.log.get());
    if (!phone.phones_log)
        fail("no log");
    phone.port = listen_in(phone.state, PORT);
    phone.shell = listen_in(phone.state, SHELL);
    phone.control = listen_in(phone.state, CONTROL);
    phone.log_giver = listen_in(phone.state, LOG_GIVER);
    const pid_t keeper = getpid();
    launcher_pid = fork();
    if (launcher_pid == 0)
        run_launcher(phone, keeper);
    if (launcher_pid < 0)
        fail("no process");
    phone.ready.reset(-1);
    for (Fd *socket : {&phone.port, &phone.shell, &phone.control, &phone.log_giver})
        socket->reset(-1);
    struct sigaction action {
    };
    action.sa_handler = pass_on;
    for (const int signal : {SIGTERM, SIGINT, SIGHUP})
        sigaction(signal, &action, nullptr);
    for (pid_t pid; (pid = waitpid(-1, nullptr, 0)) != launcher_pid && (pid > 0 || errno == EINTR);)
        ;
    for (const int signal : {SIGTERM, SIGINT, SIGHUP})
        ::signal(signal, SIG_IGN);
    end_children();
    finish(phone);
    _exit(EXIT_SUCCESS);
}

Fd launch(const Fd &state, const std::string &path, Fd lock, const std::string &image,
          const std::string &arguments)
{
    Phone phone(state, path, image);
    phone.arguments.reset(memfd_create("arguments", MFD_CLOEXEC));
    if (!phone.arguments || !write_all(phone.arguments.get(), arguments.data(), arguments.size()))
        die_errno("no memory for the arguments");
    phone.filter.reset(memfd_create("filter", MFD_CLOEXEC));
    const std::string filter = system_call_filter();
    if (!phone.filter || !write_all(phone.filter.get(), filter.data(), filter.size()))
        die_errno("no memory for the filter");
    int ready[2], console[2];
    if (pipe2(ready, O_CLOEXEC) != 0 || pipe2(console, O_CLOEXEC) != 0)
        die_errno("no pipe");
    phone.console_read.reset(console[0]);
    phone.console_write.reset(console[1]);
    fcntl(console[0], F_SETFL, O_NONBLOCK);
    phone.console.reset(
        openat(state.get(), CONSOLE, O_WRONLY | O_CREAT | O_EXCL | O_APPEND | O_CLOEXEC, 0600));
    phone.ready.reset(ready[1]);
    const pid_t keeper = fork();
    if (keeper < 0)
        die_errno("no process");
    if (keeper == 0) {
        close(ready[0]);
        setsid();
        signal(SIGPIPE, SIG_IGN);
        const Fd null(open("/dev/null", O_RDWR | O_CLOEXEC));
        dup2(null.get(), STDIN_FILENO);
        dup2(phone.console.get(), STDOUT_FILENO);
        dup2(phone.console.get(), STDERR_FILENO);
        run_keeper(phone);
    }
    (void)lock; // which the two hold from now on
    return Fd(ready[0]);
}

} // namespace host
