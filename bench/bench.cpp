// Times requests beside their limits: bench SERVICE EMPTY [--port PORT] [BENCHMARK OPTION]...
//
// Runs inside a phone, where the service's nodes, properties and shell are. The limit of a request is the
// same work without the service: a process that reads as many bytes from a socket, makes the system calls or
// runs the shell lines that the request asks for, and writes as many bytes back; a second one also appends
// what the service logs to a file. Requests and limits take turns in a random order, and a median is taken of
// each. Without a port the requests go to a service of the program's own. Prints figures, one a line: name,
// limit, figure and unit, parted by tabs; "-" where there is no limit.
#include "exchange.h"

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <string>
#include <vector>

namespace
{

using Clock = std::chrono::steady_clock;

constexpr char OWN_PORT[] = "/dev/socket/bench_port";
constexpr char PATH[] = "/system/bin:/vendor/bin"; // the service's, so that lines find the same tools
constexpr char LIMIT_LOG[] = "/dev/log/bench";     // a file in memory
constexpr char LOGGED_LINE[] = "[my_popen]:new popen command is: ";
constexpr char NODE[] = "/sys/class/power_supply/battery/capacity";
constexpr char PROPERTY[] = "ro.build.id";
constexpr char PROPERTY_FILE[] = "/dev/__properties__/ro.build.id";
constexpr char OUTPUT_LINE[] = "cat /proc/tp_name";
constexpr char MEMORY_LINE[] = "cat proc/meminfo | grep MemTotal:|sed -e 's/.*:[^0-9]//'";
constexpr useconds_t DETECTION_SETTLES = 20000; // microseconds that a detection waits, whatever it finds

// ---- The work of a request, without the service

struct Work {
    const char *file = nullptr; // opened, read, closed
    std::vector<std::string> lines;
    useconds_t pause = 0;
    std::vector<std::string> log; // each written to a file beside the phone's log
};

int open_unnamed_log()
{
    const int fd = open(LIMIT_LOG, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    unlink(LIMIT_LOG);
    return fd;
}

void run(const Work &work)
{
    static const int log = open_unnamed_log();
    char buffer[4096];
    for (const auto &line : work.log)
        (void)!write(log, line.data(), line.size());
    if (work.file != nullptr) {
        const int fd = open(work.file, O_RDONLY | O_CLOEXEC);
        (void)!read(fd, buffer, 256);
        close(fd);
    }
    if (work.pause > 0)
        usleep(work.pause);
    for (const auto &line : work.lines) {
        FILE *output = popen(line.c_str(), "re");
        if (output == nullptr)
            die("popen");
        while (fgets(buffer, 256, output) != nullptr)
            ;
        pclose(output);
    }
}

// Starts the process that does `work` for each request and gives `answer`. It ends with its socket.
int start_limit(size_t request_size, const Work &work, const Bytes &answer)
{
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
        die("socketpair");
    const pid_t child = fork();
    if (child < 0)
        die("fork");
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        close(ends[0]);
        const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
        dup2(null, STDIN_FILENO);
        dup2(null, STDERR_FILENO);
        Bytes request(request_size);
        while (read(ends[1], request.data(), request_size) == static_cast<ssize_t>(request_size)) {
            run(work);
            write_all(ends[1], answer);
        }
        _exit(0);
    }
    close(ends[1]);
    return ends[0];
}

// ---- Processes of the program's own

struct Process {
    pid_t pid = -1;
    int fd = -1; // of a service, a connection to its port; otherwise the process's standard output

    long resident_kib() const
    {
        std::ifstream status("/proc/" + std::to_string(pid) + "/status");
        if (!status)
            status.open("/.proc/" + std::to_string(pid) + "/status"); // the kernel's, on a phone
        for (std::string word; status >> word;)
            if (long kib = 0; word == "VmRSS:" && status >> kib)
                return kib;
        die("VmRSS");
    }

    ~Process()
    {
        if (pid <= 0)
            return;
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
        close(fd);
    }
};

pid_t spawn(const char *program, int output)
{
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    for (int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        posix_spawn_file_actions_addopen(&actions, fd, "/dev/null", O_RDWR, 0);
    if (output >= 0)
        posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    pid_t pid = -1;
    char *arguments[] = {const_cast<char *>(program), nullptr};
    errno = posix_spawn(&pid, program, &actions, nullptr, arguments, environ);
    if (errno != 0)
        die(program);
    posix_spawn_file_actions_destroy(&actions);
    return pid;
}

// Returns when the service has answered for the first time.
void start_service(const char *service, Process &process)
{
    static const Bytes echo = make_request(0x013C, "");
    Bytes answer;
    unlink(OWN_PORT);
    process.pid = spawn(service, -1);
    for (int tries = 0; (process.fd = connect_to(OWN_PORT)) < 0; tries++) {
        if (tries == 100000 || waitpid(process.pid, nullptr, WNOHANG) != 0)
            die("the service does not start");
        usleep(50);
    }
    ask(process.fd, echo, answer);
}

// Returns when the process has come to its main().
void start_empty(const char *empty, Process &process)
{
    int pipe_ends[2];
    if (pipe2(pipe_ends, O_CLOEXEC) != 0)
        die("pipe");
    process.fd = pipe_ends[0];
    process.pid = spawn(empty, pipe_ends[1]);
    close(pipe_ends[1]);
    char started;
    if (read(process.fd, &started, 1) != 1)
        die("the empty process does not start");
}

// ---- What is measured

struct Row {
    const char *name;
    uint16_t code;
    std::string text;
    Work limit;
    bool lines_logged = false; // the limit's lines are those that the service logs
    bool fresh = false;        // a service does this work once
};

Work opened(const char *file)
{
    Work work;
    work.file = file;
    return work;
}

Work shell(const char *line)
{
    Work work;
    work.lines = {line};
    return work;
}

Work paused(useconds_t pause)
{
    Work work;
    work.pause = pause;
    return work;
}

const Row ROWS[] = {
    {"echo (0x013C)", 0x013C, "", {}},
    {"read node (0xE600)", 0xE600, NODE, opened(NODE)},
    {"get property (0xE602)", 0xE602, PROPERTY, opened(PROPERTY_FILE)},
    {"shell output (0xE606)", 0xE606, OUTPUT_LINE, shell(OUTPUT_LINE)},
    {"prefixed tool (0x0F00)", 0x0F00, "", {}, true},
    {"memory size (0x0A00)", 0x0A00, "", shell(MEMORY_LINE)},
    {"phone detection (0x013E)", 0x013E, "", paused(DETECTION_SETTLES), true, true},
};

// What has been logged since the last call, line by line.
std::vector<std::string> logged()
{
    std::vector<std::string> lines;
    FILE *log = popen("logcat -d; logcat -c", "re");
    char line[4608];
    while (log != nullptr && fgets(line, sizeof line, log) != nullptr)
        lines.emplace_back(line);
    if (log != nullptr)
        pclose(log);
    return lines;
}

// The shell lines among them.
std::vector<std::string> shell_lines(const std::vector<std::string> &log)
{
    std::vector<std::string> lines;
    for (const auto &line : log)
        if (const size_t at = line.find(LOGGED_LINE); at != std::string::npos)
            lines.push_back(line.substr(at + sizeof LOGGED_LINE - 1));
    return lines;
}

void add_exchange(const std::string &name, int fd, const Bytes &request, bool slow)
{
    auto *exchange = benchmark::RegisterBenchmark(name.c_str(), [fd, request](benchmark::State &state) {
                         Bytes answer;
                         for (auto _ : state)
                             ask(fd, request, answer);
                     })->UseRealTime();
    if (slow)
        exchange->Iterations(2); // as many for the path as for the limit: a power key's press is a switch
}

// Each iteration is one call, timed by itself, on a process that `prepare` and the end of it cost nothing.
template <typename Prepare, typename Timed>
void add_single(const std::string &name, Prepare prepare, Timed timed)
{
    benchmark::RegisterBenchmark(name.c_str(),
                                 [prepare, timed](benchmark::State &state) {
                                     for (auto _ : state) {
                                         Process process;
                                         prepare(process);
                                         const auto begin = Clock::now();
                                         timed(process);
                                         state.SetIterationTime(
                                             std::chrono::duration<double>(Clock::now() - begin).count());
                                     }
                                 })
        ->UseManualTime()
        ->Iterations(1);
}

void add_row(const Row &row, int port, const char *service)
{
    const Bytes request = make_request(row.code, row.text);
    const std::string name = row.name;
    Bytes answer;
    Work limit = row.limit;
    logged();
    if (row.fresh) {
        Process process;
        start_service(service, process);
        ask(process.fd, request, answer);
    } else {
        ask(port, request, answer);
    }
    const std::vector<std::string> log = logged();
    if (row.lines_logged)
        limit.lines = shell_lines(log);

    const bool slow = !limit.lines.empty();
    add_exchange(name + "/limit", start_limit(request.size(), limit, answer), request, slow);
    if (!row.fresh) {
        add_exchange(name + "/path", port, request, slow);
        limit.log = log;
        if (!slow) // beside a shell the log does not count
            add_exchange(name + "/logging", start_limit(request.size(), limit, answer), request, slow);
        return;
    }
    add_single(
        name + "/path", [=](Process &process) { start_service(service, process); },
        [=](Process &process) {
            Bytes fresh_answer;
            ask(process.fd, request, fresh_answer);
        });
    Work loop;
    std::string script;
    for (const auto &line : limit.lines)
        script += line + "\n";
    loop.lines = {script};
    add_exchange(name + "/loop", start_limit(request.size(), loop, answer), request, slow);
}

// Keeps the quickest repetition of every benchmark: whatever else runs on the machine only adds.
class Quickest : public benchmark::BenchmarkReporter
{
  public:
    bool ReportContext(const Context &) override { return true; }
    void ReportRuns(const std::vector<Run> &runs) override
    {
        for (const Run &run : runs) {
            if (run.run_type != Run::RT_Iteration)
                continue;
            const double time = run.GetAdjustedRealTime();
            const auto known = of.emplace(run.run_name.function_name, time).first;
            known->second = std::min(known->second, time);
        }
    }
    std::map<std::string, double> of; // nanoseconds
};

void print(const std::string &name, double limit, double figure, const char *unit)
{
    if (limit > 0)
        printf("%s\t%.0f\t%.0f\t%s\n", name.c_str(), limit, figure, unit);
    else
        printf("%s\t-\t%.0f\t%s\n", name.c_str(), figure, unit);
}

// The resident sets, once both processes have nothing more to do.
void print_resident(const char *service, const char *empty)
{
    Process serving;
    Process idle;
    start_service(service, serving);
    start_empty(empty, idle);
    Bytes answer;
    for (const Row &row : ROWS)
        if (!row.fresh)
            ask(serving.fd, make_request(row.code, row.text), answer);
    print("resident set after a request of each", static_cast<double>(idle.resident_kib()),
          static_cast<double>(serving.resident_kib()), "KiB");
}

} // namespace

int main(int argc, char **argv)
{
    if (argc < 3) {
        fprintf(stderr, "usage: bench SERVICE EMPTY [--port PORT] [BENCHMARK OPTION]...\n");
        return 2;
    }
    const char *service = argv[1];
    const char *empty = argv[2];
    int skipped = 2;
    const char *given_port = nullptr;
    if (argc > 4 && strcmp(argv[3], "--port") == 0) {
        given_port = argv[4];
        skipped = 4;
    }
    argv[skipped] = argv[0];
    argc -= skipped;
    argv += skipped;
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 2;

    signal(SIGPIPE, SIG_IGN);
    setenv("PATH", PATH, 1);
    setenv("DIAG_PORT", OWN_PORT, 1);
    Process own;
    if (given_port == nullptr)
        start_service(service, own);
    const int port = given_port == nullptr ? own.fd : connect_to(given_port);
    if (port < 0)
        die(given_port);

    for (const Row &row : ROWS)
        add_row(row, port, service);
    const auto nothing = [](Process &) {};
    add_single("start/path", nothing, [=](Process &process) { start_service(service, process); });
    add_single("start/limit", nothing, [=](Process &process) { start_empty(empty, process); });
    Quickest quickest;
    benchmark::RunSpecifiedBenchmarks(&quickest);

    for (const Row &row : ROWS) {
        const std::string name = row.name;
        const auto path = quickest.of.find(name + "/path");
        if (path == quickest.of.end())
            continue; // not asked for
        print(name, quickest.of[name + "/limit"], path->second, "ns");
        if (quickest.of.count(name + "/logging") > 0)
            print(name + ", and its log written", quickest.of[name + "/logging"], path->second, "ns");
        if (row.fresh)
            print(name + ", its lines in one shell", quickest.of[name + "/loop"], path->second, "ns");
    }
    if (const auto start = quickest.of.find("start/path"); start != quickest.of.end())
        print("start to first answer", quickest.of["start/limit"], start->second, "ns");
    print_resident(service, empty);
    return 0;
}
