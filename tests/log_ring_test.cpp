// The ring that a phone's log is: its writers, the library's among them, and its reader, in a throwaway root
// of the phone.
#include "log.h"
#include "reader.h"
#include "share.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <map>
#include <random>
#include <regex>
#include <set>
#include <sstream>
#include <thread>
#include <vector>

#include "tests/wire.h"

namespace
{

using Clock = std::chrono::steady_clock;
using log_ring::ring;

// Hands a ring out at /dev/log/main, as a phone's launcher does.
class Giver
{
  public:
    Giver()
    {
        unlink(log_ring::PATH);
        listener_ = listen_unix(log_ring::PATH);
        thread_ = std::thread([this] {
            for (int guest; (guest = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0; close(guest))
                log_ring::hand_out(guest, fd());
        });
    }
    ~Giver()
    {
        shutdown(listener_, SHUT_RDWR);
        thread_.join();
        close(listener_);
        unlink(log_ring::PATH);
    }
    Giver(const Giver &) = delete;
    Giver &operator=(const Giver &) = delete;

    int fd() const { return ring_.get(); }

  private:
    const owned::descriptor ring_ = log_ring::make();
    int listener_;
    std::thread thread_;
};

std::vector<std::string> split(const std::string &text)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

std::vector<std::string> all_lines(int fd)
{
    std::string text;
    EXPECT_TRUE(log_ring::reader(fd).read(text, true));
    return split(text);
}

void write_line(ring &log, const std::string &line) { log_ring::write(log, line.data(), line.size()); }

// In a process of its own, which has its log still to open.
template <typename Work> pid_t in_child(Work work)
{
    const pid_t child = fork();
    if (child == 0) {
        work();
        _exit(::testing::Test::HasFailure() ? 1 : 0);
    }
    return child;
}

int status_of(pid_t child)
{
    int status = -1;
    waitpid(child, &status, 0);
    return status;
}

TEST(Ring, TheLibraryWritesItsLinesToIt)
{
    const Giver giver;
    EXPECT_EQ(status_of(in_child([] {
                  errno = EDOM;
                  EXPECT_GE(__android_log_print(ANDROID_LOG_ERROR, "Diag_Lib", "%s", "[f]:Enter\n"), 0);
                  EXPECT_EQ(errno, EDOM);
                  __android_log_print(2, "tag", "first\n\nthird %d", 3);
                  __android_log_print(4, "long", "%s", std::string(5000, 'x').c_str());
                  __android_log_print(99, nullptr, "%s", "");
                  EXPECT_LT(open(log_ring::PATH, O_WRONLY | O_APPEND | O_CLOEXEC), 0);
                  raise(SIGKILL); // what has been logged is there
              })),
              SIGKILL);
    const std::string texts[] = {"E Diag_Lib: [f]:Enter",
                                 "V tag     : first",
                                 "V tag     : ",
                                 "V tag     : third 3",
                                 "I long    : " + std::string(4068, 'x'),
                                 "?         : "};
    const auto lines = all_lines(giver.fd());
    ASSERT_EQ(lines.size(), std::size(texts));
    const std::regex head(R"(\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} +\d+ +\d+ )");
    for (size_t i = 0; i < lines.size(); i++) {
        EXPECT_EQ(lines[i].substr(std::min<size_t>(31, lines[i].size())), texts[i]);
        EXPECT_TRUE(std::regex_match(lines[i].substr(0, 31), head)) << lines[i];
    }
}

TEST(Ring, ALibraryThatIsGivenNoneDropsItsLinesAndWaitsOnlyOnce)
{
    const auto begin = Clock::now();
    const int listener = listen_unix(log_ring::PATH); // and nobody ever accepts
    EXPECT_EQ(status_of(in_child([] {
                  EXPECT_EQ(__android_log_print(4, "tag", "dropped"), -ETIMEDOUT);
                  for (int i = 0; i < 100; i++)
                      EXPECT_EQ(__android_log_print(4, "tag", "dropped"), -ENXIO);
              })),
              0);
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(3));
    close(listener);
    unlink(log_ring::PATH);
}

TEST(Ring, NobodyMakesItLargerOrSmallerOrHandsAnotherOut)
{
    const owned::descriptor made = log_ring::make();
    const int fd = made.get();
    EXPECT_NE(ftruncate(fd, 0), 0);
    EXPECT_NE(ftruncate(fd, sizeof(ring) + 1), 0);
    EXPECT_NE(fcntl(fd, F_ADD_SEALS, F_SEAL_FUTURE_WRITE), 0); // which would bar writers to come
    EXPECT_LT(pwrite(fd, "x", 1, sizeof(ring)), 0);
    ring *log = log_ring::map(fd);
    ASSERT_TRUE(log);
    write_line(*log, "before");
    EXPECT_EQ(fallocate(fd, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, 0, sizeof(ring)), 0);
    EXPECT_EQ(all_lines(fd).size(), 0u);
    write_line(*log, "after");
    EXPECT_EQ(all_lines(fd), std::vector<std::string>{"after"});

    // What is not the owner's own to set.
    const owned::descriptor phones = log_ring::reopen(fd);
    EXPECT_EQ(fcntl(phones.get(), F_SETFL, O_APPEND | O_NONBLOCK), 0);
    EXPECT_TRUE(log_ring::clear(fd));
    EXPECT_EQ(all_lines(fd).size(), 0u);

    const owned::descriptor unsealed(memfd_create("unsealed", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    EXPECT_EQ(ftruncate(unsealed.get(), sizeof(ring)), 0);
    EXPECT_EQ(log_ring::map(unsealed.get()), nullptr);
    EXPECT_EQ(fcntl(unsealed.get(), F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL), 0);
    EXPECT_TRUE(log_ring::clear(unsealed.get()));
    EXPECT_EQ(log_ring::map(STDIN_FILENO), nullptr);
    EXPECT_FALSE(log_ring::clear(STDIN_FILENO));
    munmap(log, sizeof *log);
}

TEST(Ring, LinesOfEveryLengthGoRoundAndTheOldestGo)
{
    const owned::descriptor made = log_ring::make();
    const int fd = made.get();
    ring *log = log_ring::map(fd);
    log_ring::reader follower(fd);
    std::string followed;
    std::vector<std::string> written;
    size_t cells = 0;
    for (size_t i = 0; cells < 3 * log_ring::CELLS; i++) {
        std::string line = std::to_string(i) + ' ' + std::string(i * 7 % log_ring::LINE_MAX, 'a' + i % 26);
        line.resize(std::min(line.size(), log_ring::LINE_MAX));
        write_line(*log, line);
        cells += log_ring::cells_for(line.size());
        written.push_back(line);
        if (i % 100 == 0) {
            EXPECT_TRUE(follower.read(followed, false));
        }
    }
    EXPECT_TRUE(follower.read(followed, false));
    EXPECT_TRUE(split(followed) == written); // not EXPECT_EQ: nobody reads them
    const auto kept = all_lines(fd);
    ASSERT_GT(kept.size(), 0u);
    EXPECT_TRUE(std::equal(kept.rbegin(), kept.rend(), written.rbegin()));
    size_t kept_cells = 0;
    for (const auto &line : kept)
        kept_cells += log_ring::cells_for(line.size());
    EXPECT_GT(kept_cells + log_ring::cells_for(log_ring::LINE_MAX), log_ring::CELLS);

    EXPECT_TRUE(log_ring::clear(fd));
    EXPECT_EQ(all_lines(fd).size(), 0u);
    write_line(*log, std::string(log_ring::LINE_MAX + 1, 'z'));
    EXPECT_EQ(all_lines(fd), std::vector<std::string>{std::string(log_ring::LINE_MAX, 'z')});
    munmap(log, sizeof *log);
}

TEST(Ring, AnUnfinishedLineIsWaitedForOnceAndCostsItselfAlone)
{
    const owned::descriptor made = log_ring::make();
    const int fd = made.get();
    ring *log = log_ring::map(fd);
    write_line(*log, "before");
    const uint64_t number = log->next.fetch_add(2);
    log->cells[number % log_ring::CELLS].mark = log_ring::mark_of(number, log_ring::WRITING);
    write_line(*log, "behind");
    EXPECT_EQ(all_lines(fd), (std::vector<std::string>{"before", "behind"}));
    log_ring::reader follower(fd);
    std::string followed;
    EXPECT_TRUE(follower.read(followed, false));
    EXPECT_EQ(followed, "before\n");
    EXPECT_TRUE(follower.read(followed, false));
    EXPECT_EQ(followed, "before\nbehind\n");

    // Rounds later the cell is left alone, in case that its writer lives, and then it is like any other.
    for (int round = 0; round < 70; round++)
        for (size_t i = 0; i < log_ring::CELLS; i++)
            log_ring::write(*log, "x", 1);
    EXPECT_GE(all_lines(fd).size(), log_ring::CELLS - 1);
    munmap(log, sizeof *log);
}

TEST(Ring, AWriterLeavesAloneWhatAnotherHasNotFinished)
{
    const owned::descriptor made = log_ring::make();
    ring *log = log_ring::map(made.get());
    log->next = 8;
    const uint64_t others = log_ring::mark_of(10, log_ring::WRITING);
    log->cells[10].mark = others;
    write_line(*log, std::string(log_ring::FIRST_BYTES + log_ring::MORE_BYTES + 1, 'x')); // three cells
    EXPECT_EQ(log->cells[8].mark, log_ring::mark_of(8, log_ring::EMPTY));
    EXPECT_EQ(log->cells[9].mark, log_ring::mark_of(9, log_ring::EMPTY));
    EXPECT_EQ(log->cells[10].mark, others);
    EXPECT_EQ(log->cells[11].mark, log_ring::mark_of(11, log_ring::LINE));
    EXPECT_EQ(log->next, 14u);

    log->next = log->first = UINT64_MAX; // somebody may set them so that they go round
    log->cells[log_ring::CELLS - 1].mark = log_ring::mark_of(UINT64_MAX - log_ring::CELLS, log_ring::LINE);
    write_line(*log, "a");
    write_line(*log, "b");
    EXPECT_EQ(all_lines(made.get()), (std::vector<std::string>{"a", "b"}));
    munmap(log, sizeof *log);
}

// ---- Writers that are killed

// A line tells whose it is, its place among the others, and what all of it must be.
std::string numbered(int writer, int number)
{
    const size_t length = number % 50 == 0 ? 900 : static_cast<size_t>(number * 7 % 150);
    return std::to_string(writer) + ' ' + std::to_string(number) + ' ' +
           std::string(length, static_cast<char>('a' + (writer + number) % 26));
}

// Notes the numbers of each writer's lines, and tells how many lines are broken.
size_t take_numbers(const std::vector<std::string> &lines, std::map<int, std::vector<int>> &numbers)
{
    size_t broken = 0;
    for (const auto &line : lines) {
        int writer = -1, number = -1;
        const size_t message = line.find(": ");
        if (message == std::string::npos ||
            sscanf(line.c_str() + message + 2, "%d %d ", &writer, &number) != 2 ||
            line.substr(message + 2) != numbered(writer, number)) {
            ADD_FAILURE() << "broken: " << line.substr(0, 200);
            broken++;
        } else {
            numbers[writer].push_back(number);
        }
    }
    return broken;
}

TEST(Ring, ThreadsOfOneProcessLoseNothing)
{
    const owned::descriptor made = log_ring::make();
    const int fd = made.get();
    ring *log = log_ring::map(fd);
    constexpr int LINES = 4000;
    std::vector<std::thread> writers;
    for (int writer = 0; writer < 4; writer++)
        writers.emplace_back([log, writer] {
            for (int number = 0; number < LINES; number++)
                write_line(*log, ": " + numbered(writer, number));
        });
    for (auto &writer : writers)
        writer.join();
    std::map<int, std::vector<int>> numbers;
    EXPECT_EQ(take_numbers(all_lines(fd), numbers), 0u);
    for (const auto &[writer, those] : numbers)
        EXPECT_EQ(those.size(), static_cast<size_t>(LINES)) << writer;
    munmap(log, sizeof *log);
}

// BENCH_RING_SECONDS in the environment makes it last.
TEST(Ring, WritersThatAreKilledLeaveNoBrokenLine)
{
    const char *seconds = getenv("BENCH_RING_SECONDS");
    const auto end = Clock::now() + std::chrono::seconds(seconds ? atoi(seconds) : 3);
    const Giver giver;
    int started = 0;
    const auto start = [&started] {
        const int writer = started++;
        return in_child([writer] {
            for (int number = 0;; number++)
                __android_log_print(4, "full", "%s", numbered(writer, number).c_str());
        });
    };
    std::vector<pid_t> writers(4);
    std::generate(writers.begin(), writers.end(), start);

    log_ring::reader reader(giver.fd());
    std::mt19937 random(1); // NOLINT(cert-msc51-cpp): the same every time
    size_t read = 0, broken = 0, reads = 0;
    while (Clock::now() < end && broken == 0) {
        usleep(random() % 5000);
        std::map<int, std::vector<int>> numbers;
        std::string text;
        ASSERT_TRUE(reader.read(text, false));
        const auto lines = split(text);
        broken += take_numbers(lines, numbers);
        for (const auto &[writer, those] : numbers)
            EXPECT_TRUE(std::adjacent_find(those.begin(), those.end(), std::greater_equal<>()) == those.end())
                << "out of order or twice, of writer " << writer;
        read += lines.size();
        reads++;
        pid_t &victim = writers[random() % writers.size()];
        kill(victim, SIGKILL);
        status_of(victim);
        victim = start();
    }
    for (const pid_t writer : writers) {
        kill(writer, SIGKILL);
        status_of(writer);
    }
    struct stat file = {};
    EXPECT_EQ(fstat(giver.fd(), &file), 0);
    EXPECT_EQ(file.st_size, static_cast<off_t>(sizeof(ring)));
    EXPECT_LE(file.st_blocks * 512, static_cast<off_t>(sizeof(ring)) + 4096);

    // In what is left no line lacks but those that the killed were in the midst of, their last.
    std::map<int, std::vector<int>> numbers;
    const auto lines = all_lines(giver.fd());
    broken += take_numbers(lines, numbers);
    EXPECT_GT(lines.size(), log_ring::CELLS / 4);
    int lost = 0;
    for (const auto &[writer, those] : numbers)
        lost += those.back() - those.front() + 1 - static_cast<int>(those.size());
    EXPECT_EQ(lost, 0);
    uint64_t drawn = 0;
    EXPECT_EQ(pread(giver.fd(), &drawn, sizeof drawn, 0), static_cast<ssize_t>(sizeof drawn));
    printf(
        "%d writers, %d of them killed on the way; %lu cells drawn, %zu lines read in %zu looks, %zu broken, "
        "%d lost\n",
        started, started - 4, static_cast<unsigned long>(drawn), read, reads, broken, lost);
}

// ---- Whoever has the ring may write anything to it

TEST(Ring, WhateverIsInItItsReaderAndWritersComeToAnEnd)
{
    const owned::descriptor made = log_ring::make();
    const int fd = made.get();
    ring *log = log_ring::map(fd);
    std::mt19937_64 random(2); // NOLINT(cert-msc51-cpp): the same every time
    auto *words = reinterpret_cast<std::atomic<uint64_t> *>(log);
    constexpr size_t WORDS = sizeof(ring) / sizeof(uint64_t);
    log_ring::reader follower(fd);
    const auto begin = Clock::now();
    for (int round = 0; round < 60; round++) {
        const uint64_t next = random() >> random() % 64;
        log->next = next;
        log->first = next - random() % (2 * log_ring::CELLS);
        for (size_t i = 32; i < WORDS; i++)
            words[i].store(round % 3 == 0 ? UINT64_MAX : random(), std::memory_order_relaxed);
        if (round % 2 == 0) // marks that look right, before lengths and sums that do not
            for (uint64_t back = 1; back < log_ring::CELLS; back++)
                log->cells[(next - back) % log_ring::CELLS].mark =
                    log_ring::mark_of(next - back, round % 4 == 0 ? random() % 4 : log_ring::LINE);
        std::string text;
        EXPECT_TRUE(follower.read(text, false));
        EXPECT_LE(text.size(), sizeof(ring));
        write_line(*log, "a line of its own");
        EXPECT_TRUE(log_ring::clear(fd));
        write_line(*log, "another");
        const auto lines = all_lines(fd);
        EXPECT_TRUE(std::find(lines.begin(), lines.end(), "another") != lines.end());
    }
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(60));

    // While it is scribbled over, too.
    std::atomic<bool> done{false};
    std::thread scribbler([&] {
        for (std::mt19937_64 own(3); !done;) // NOLINT(cert-msc51-cpp)
            words[own() % WORDS].store(own(), std::memory_order_relaxed);
    });
    for (int i = 0; i < 200; i++) {
        write_line(*log, std::string(static_cast<size_t>(i * 20), 'x'));
        std::string text;
        EXPECT_TRUE(follower.read(text, i % 2 == 0));
    }
    done = true;
    scribbler.join();
    munmap(log, sizeof *log);
}

} // namespace
