// What a hostile program of the phone does to its log: log_attack say TEXT | resize | scribble | hoard
// (containment_test).
#include "reader.h"
#include "share.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>

static void say(log_ring::ring &log, const std::string &text)
{
    log_ring::write(log, text.data(), text.size());
}

// Prints the size of what is left.
static void resize(int fd)
{
    for (const off_t size : {off_t{0}, off_t{1} << 40})
        if (ftruncate(fd, size) == 0 || fallocate(fd, 0, 0, size) == 0)
            puts("resized");
    fallocate(fd, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, 0, sizeof(log_ring::ring));
    fcntl(fd, F_ADD_SEALS, F_SEAL_WRITE);
    fcntl(fd, F_SETFL, O_APPEND | O_NONBLOCK);
    fchmod(fd, 0);
    lseek(fd, off_t{1} << 40, SEEK_SET);
    struct stat file {
    };
    fstat(fd, &file);
    printf("%ld\n", static_cast<long>(file.st_size));
}

// Random bytes, and the highest of counters.
static void scribble(log_ring::ring &log)
{
    std::mt19937_64 random(1); // NOLINT(cert-msc51-cpp): the same every time
    auto *words = reinterpret_cast<uint64_t *>(&log);
    for (size_t i = 0; i < sizeof log / sizeof *words; i++)
        words[i] = random() % 4 == 0 ? UINT64_MAX : random();
    log.next = UINT64_MAX - 5;
}

// Has itself handed out logs that it does not take, as many as it gets.
static void hoard()
{
    int count = 0;
    while (log_ring::call(log_ring::PATH).release() >= 0)
        count++;
    printf("%d\n", count);
    sleep(3);
}

int main(int argc, char **argv)
{
    const std::string what = argc > 1 ? argv[1] : "";
    const owned::descriptor fd = log_ring::receive(log_ring::PATH);
    log_ring::ring *log = fd ? log_ring::map(fd.get()) : nullptr;
    if (!log) {
        perror("log_attack: no log");
        return 1;
    }
    if (what == "say" && argc > 2)
        say(*log, argv[2]);
    else if (what == "resize")
        resize(fd.get());
    else if (what == "scribble")
        scribble(*log);
    else if (what == "hoard")
        hoard();
    else
        return 2;
    return 0;
}
