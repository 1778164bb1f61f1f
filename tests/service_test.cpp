// The service as a process: its start, its ends, and what a signal may not disturb.
#include <gtest/gtest.h>

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <thread>

#include "tests/wire.h"

using seconds = std::chrono::duration<double>;

// A running service, its port and its standard output.
struct service {
    pid_t pid = -1;
    int out = -1;
    std::string path; // of its port
    std::string text;
    std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();

    explicit service(const std::string &port_path, const char *library_path = nullptr, int refused_signal = 0)
        : path(port_path)
    {
        int pipe_ends[2];
        EXPECT_EQ(pipe2(pipe_ends, O_CLOEXEC), 0);
        pid = fork();
        if (pid == 0) {
            dup2(pipe_ends[1], STDOUT_FILENO);
            setenv("DIAG_PORT", path.c_str(), 1);
            setenv("REFUSED_SIGNAL", std::to_string(refused_signal).c_str(), 1);
            if (library_path)
                setenv("LD_LIBRARY_PATH", library_path, 1);
            const char *const command[] = {DIAG_SERVICE, nullptr};
            execv(command[0], const_cast<char *const *>(command));
            _exit(127);
        }
        close(pipe_ends[1]);
        out = pipe_ends[0];
    }
    ~service()
    {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
        close(out);
    }
    double age() const { return seconds(std::chrono::steady_clock::now() - start).count(); }

    // Takes what comes on the output in 10 ms; false when it has ended.
    bool hears()
    {
        char some[4096];
        pollfd ready = {out, POLLIN, 0};
        if (poll(&ready, 1, 10) <= 0)
            return true;
        ssize_t taken = read(out, some, sizeof some);
        text.append(some, static_cast<size_t>(std::max<ssize_t>(taken, 0)));
        return taken > 0;
    }
    // Whether the output holds `line`, within a second.
    bool says(const std::string &line)
    {
        for (double until = age() + 1; count(line) == 0; hears())
            if (age() > until)
                return false;
        return true;
    }
    // Waits for the end, until an age of 20 s at most; the exit status, or -1.
    int ends()
    {
        while (age() < 20 && hears()) {
        }
        int status = 0;
        waitpid(pid, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    int count(const std::string &line) const
    {
        int found = 0;
        for (size_t at = text.find(line); at != std::string::npos; at = text.find(line, at + 1))
            found++;
        return found;
    }
    // Whether the port echoes.
    bool echoes() const
    {
        int fd = connect_unix(path);
        const bytes frame = frame_of({75, 250, 0x3C, 0x01, 7});
        bytes answer(frame.size());
        auto size = static_cast<ssize_t>(frame.size());
        bool same = write(fd, frame.data(), frame.size()) == size &&
                    read(fd, answer.data(), answer.size()) == size && frame == answer;
        close(fd);
        return same;
    }
};

static const std::string BEGIN_LINES =
    "[main]:Diag service Begin!\n[main]:Diag service Init success\n[diag_sigaction_handle]:Enter!\n";
static const std::string SIGNAL_LINE = "[diag_set_deinit_lsm_handler]:diag_running_flag = 0!\n";
static const std::string END_LINE = "[main]:Diag_LSM_DeInit\n";

TEST(Service, EndsAtOnceWithoutARouter)
{
    service s("/no/such/folder/port");
    EXPECT_EQ(s.ends(), 255);
    EXPECT_LT(s.age(), 1);
    EXPECT_EQ(s.text, "[main]:Diag service Begin!\n[main]:Diag service Init failed\n");
}

TEST(Service, StopsOnEachSignalButNeverEarly)
{
    const int signals[] = {SIGTERM, SIGHUP, SIGINT};
    std::vector<std::unique_ptr<service>> early;
    early.reserve(3);
    for (int i = 0; i < 3; i++)
        early.push_back(std::make_unique<service>("/tmp/early" + std::to_string(i)));
    service late("/tmp/late");
    std::vector<std::unique_ptr<service>> refused;
    refused.reserve(3);
#ifndef UNDER_THREAD_SANITIZER
    for (int i = 0; i < 3; i++)
        refused.push_back(
            std::make_unique<service>("/tmp/refused" + std::to_string(i), LOCKING_LOG_FOLDER, signals[i]));
#endif
    for (auto &s : early)
        ASSERT_TRUE(s->says("[diag_sigaction_handle]:Enter!\n"));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    for (int i = 0; i < 3; i++) {
        kill(early[i]->pid, signals[i]);
        EXPECT_TRUE(early[i]->says(SIGNAL_LINE)) << "told when it comes, not when it is acted upon";
        EXPECT_TRUE(early[i]->echoes());
    }
    early[0]->text.clear();
    kill(early[0]->pid, SIGTERM);
    EXPECT_TRUE(early[0]->says(SIGNAL_LINE)) << "each signal is told";
    for (auto &s : early) {
        EXPECT_EQ(s->ends(), 0);
        EXPECT_TRUE(s->age() > 6 && s->age() < 7.5) << s->age();
        EXPECT_EQ(s->count(SIGNAL_LINE), 1);
        EXPECT_EQ(s->count(END_LINE), 1);
        EXPECT_EQ(access(s->path.c_str(), F_OK), -1) << "the port is gone with it";
    }
    const char *const names[] = {"SIGTERM", "SIGHUP", "SIGINT"};
    for (size_t i = 0; i < refused.size(); i++) {
        EXPECT_EQ(refused[i]->ends(), 0);
        EXPECT_GT(refused[i]->age(), 6);
        EXPECT_EQ(refused[i]->text, BEGIN_LINES + "[diag_sigaction_handle]:sigaction handle " + names[i] +
                                        " failed!\n[main]:Diag handle sigaction failed\n" + END_LINE);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    double sent = late.age();
    kill(late.pid, SIGTERM);
    EXPECT_EQ(late.ends(), 0);
    EXPECT_LT(late.age() - sent, 1.5);
    EXPECT_EQ(late.text, BEGIN_LINES + SIGNAL_LINE + END_LINE);
}

TEST(Service, SignalInTheMidstOfALogLineDoesNotLockUp)
{
    service s("/tmp/locked", LOCKING_LOG_FOLDER);
    ASSERT_TRUE(s.says("[diag_sigaction_handle]:Enter!\n"));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_TRUE(s.echoes());
    EXPECT_TRUE(s.says(SIGNAL_LINE));
    EXPECT_TRUE(s.echoes());
    EXPECT_EQ(s.ends(), 0);
}
