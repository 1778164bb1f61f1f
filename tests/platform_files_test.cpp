// The workstation's properties, log and wake locks, as files of a throwaway root of the phone.
#include "cutils.h"
#include "hardware_legacy.h"
#include "log.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace
{

std::string content(const std::string &path)
{
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

void write_file(const std::string &path, const std::string &text) { std::ofstream(path) << text; }

// The value, or the default "-" where there is none. Checks that nothing is written behind the 92 bytes.
std::string get(const std::string &key)
{
    char value[PROPERTY_VALUE_MAX + 1];
    memset(value, 'x', sizeof value);
    int length = property_get(key.c_str(), value, "-");
    EXPECT_EQ(value[PROPERTY_VALUE_MAX], 'x');
    EXPECT_EQ(length, static_cast<int>(strlen(value)));
    return value;
}

TEST(Properties, NamesAndValuesThatThePhoneRefuses)
{
    const std::string longest(91, 'v'), too_long(92, 'v');
    for (const char *name :
         {"", ".a", "a.", "a..b", "a b", "a/b", "../x", "a=b", "a+b", "caf\xC3\xA9", "a\n"}) {
        EXPECT_LT(property_set(name, "1"), 0) << name;
        EXPECT_EQ(get(name), "-") << name;
    }
    EXPECT_LT(property_set(std::string(256, 'n').c_str(), "1"), 0);
    for (const char *name : {"a", "a.b_c-d@e:f", "vendor.X.0"}) {
        EXPECT_EQ(property_set(name, longest.c_str()), 0) << name;
        EXPECT_LT(property_set(name, too_long.c_str()), 0) << name;
        EXPECT_EQ(get(name), longest) << name;
    }
    EXPECT_EQ(property_set("a", ""), 0);
    EXPECT_EQ(get("a"), "-"); // an empty property counts as not set
    char value[PROPERTY_VALUE_MAX];
    EXPECT_EQ(property_get("a", value, nullptr), 0);
    EXPECT_STREQ(value, "");
    EXPECT_EQ(property_get("a", value, too_long.c_str()), 91);
}

TEST(Properties, ReadOnlyOnesAreSetOnceAndMayBeLong)
{
    const std::string fingerprint = std::string(91, 'f') + "rest";
    EXPECT_EQ(property_set("ro.test", fingerprint.c_str()), 0);
    EXPECT_LT(property_set("ro.test", "other"), 0);
    EXPECT_EQ(get("ro.test"), fingerprint.substr(0, 91));
    EXPECT_EQ(content("/dev/__properties__/ro.test"), fingerprint);
}

TEST(Properties, PersistentOnesAreKeptForTheNextBoot)
{
    EXPECT_EQ(property_set("persist.test", "kept"), 0);
    EXPECT_EQ(content("/data/property/persist.test"), "kept");
    EXPECT_EQ(property_set("test.other", "lost"), 0);
    EXPECT_NE(access("/data/property/test.other", F_OK), 0);
}

TEST(Properties, AReaderSeesTheOldValueOrTheNew)
{
    const std::string values[] = {std::string(91, 'a'), std::string(40, 'b')};
    ASSERT_EQ(property_set("test.race", values[0].c_str()), 0);
    std::atomic<bool> done{false};
    std::vector<std::thread> writers;
    for (const std::string &value : values)
        writers.emplace_back([&done, &value] {
            while (!done)
                EXPECT_EQ(property_set("test.race", value.c_str()), 0);
        });
    for (int i = 0; i < 3000; i++) {
        std::string value = get("test.race");
        EXPECT_TRUE(value == values[0] || value == values[1]) << value;
    }
    done = true;
    for (std::thread &writer : writers)
        writer.join();
}

TEST(Reboot, InitIsToldAndEachCommandHasItsWords)
{
    struct {
        unsigned command;
        const char *reason;
        const char *value;
    } cases[] = {
        {ANDROID_RB_RESTART, nullptr, "reboot"},
        {ANDROID_RB_RESTART2, "recovery", "reboot,recovery"},
        {ANDROID_RB_RESTART2, "bootloader", "reboot,bootloader"},
        {ANDROID_RB_POWEROFF, nullptr, "shutdown"},
    };
    EXPECT_EQ(android_reboot(ANDROID_RB_RESTART, 0, nullptr), 0); // nobody plays init: set all the same
    ASSERT_EQ(mkfifo("/dev/socket/init", 0600), 0);
    int init = open("/dev/socket/init", O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    for (const auto &row : cases) {
        EXPECT_EQ(android_reboot(row.command, 0, row.reason), 0);
        EXPECT_EQ(get("sys.powerctl"), row.value);
        char line[256] = {};
        EXPECT_GT(read(init, line, sizeof line - 1), 0);
        EXPECT_EQ(line, std::string("sys.powerctl=") + row.value + '\n');
    }
    EXPECT_LT(android_reboot(0, 0, nullptr), 0);
    EXPECT_LT(android_reboot(ANDROID_RB_RESTART2, 0, std::string(85, 'r').c_str()), 0);
    close(init);
}

TEST(WakeLocks, ShowInTheNodeWhileHeld)
{
    constexpr char NODE[] = "/sys/power/wake_lock";
    unlink(NODE);
    EXPECT_LT(acquire_wake_lock(PARTIAL_WAKE_LOCK, "A"), 0);
    write_file(NODE, "");
    EXPECT_EQ(acquire_wake_lock(PARTIAL_WAKE_LOCK, "A"), 0);
    EXPECT_EQ(acquire_wake_lock(PARTIAL_WAKE_LOCK, "AB"), 0);
    EXPECT_EQ(acquire_wake_lock(PARTIAL_WAKE_LOCK, "A"), 0);
    EXPECT_EQ(content(NODE), "A AB\n");
    EXPECT_EQ(release_wake_lock("A"), 0);
    EXPECT_EQ(content(NODE), "AB\n");
    EXPECT_LT(release_wake_lock("A"), 0);
    for (const char *bad : {"", "a b", "a\n"})
        EXPECT_LT(acquire_wake_lock(PARTIAL_WAKE_LOCK, bad), 0);
    EXPECT_LT(acquire_wake_lock(PARTIAL_WAKE_LOCK, std::string(5000, 'x').c_str()), 0);
    EXPECT_EQ(release_wake_lock("AB"), 0);
    EXPECT_EQ(content(NODE), "\n");

    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; i++)
        threads.emplace_back([name = "T" + std::to_string(i)] {
            for (int round = 0; round < 200; round++) {
                EXPECT_EQ(acquire_wake_lock(PARTIAL_WAKE_LOCK, name.c_str()), 0);
                EXPECT_EQ(release_wake_lock(name.c_str()), 0);
            }
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(content(NODE), "\n");
}

constexpr char LOG[] = "/dev/log/main";
constexpr char OLD_LOG[] = "/dev/log/main.1";

TEST(Log, ThreadtimeLayoutLineByLine)
{
    ASSERT_TRUE(truncate(LOG, 0) == 0 || errno == ENOENT);
    errno = EDOM;
    EXPECT_GE(__android_log_print(ANDROID_LOG_ERROR, "Diag_Lib", "[%s]:Enter\n", "f"), 0);
    EXPECT_EQ(errno, EDOM);
    __android_log_print(2, "tag", "first\n\nthird");
    __android_log_print(99, nullptr, "%s", "");
    char ids[32];
    snprintf(ids, sizeof ids, "%5d %5d", getpid(), gettid());
    const std::string lines[] = {"E Diag_Lib: [f]:Enter", "V tag     : first",
                                 "V tag     : ", "V tag     : third", "?         : "};
    std::istringstream log(content(LOG));
    std::string line;
    for (const std::string &text : lines) {
        ASSERT_TRUE(std::getline(log, line));
        const std::regex time(R"(\d\d-\d\d \d\d:\d\d:\d\d\.\d{3})");
        EXPECT_TRUE(std::regex_match(line.substr(0, 18), time)) << line;
        EXPECT_EQ(line.substr(18), ' ' + std::string(ids) + ' ' + text);
    }
    EXPECT_FALSE(std::getline(log, line));

    time_t now = time(nullptr);
    char date[16];
    strftime(date, sizeof date, "%m-%d %H:%M", gmtime(&now));
    __android_log_print(3, "clock", "now");
    EXPECT_NE(content(LOG).find(date), std::string::npos);

    EXPECT_EQ(truncate(LOG, 0), 0);
    __android_log_print(4, "long", "%s", std::string(5000, 'x').c_str());
    __android_log_print(4, "many", "%s", std::string(5000, '\n').c_str());
    const std::string text = content(LOG);
    EXPECT_EQ(std::count(text.begin(), text.end(), 'x'), 4068);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1 + 4068);
}

// Writers of two processes fill more than one log: no line is torn, and both logs stay within their bound.
TEST(Log, TurnsOverWhenFull)
{
    unlink(OLD_LOG);
    ASSERT_TRUE(truncate(LOG, 0) == 0 || errno == ENOENT);
    const std::string body(1000, 'b');
    auto fill = [&body](int lines) {
        for (int i = 0; i < lines; i++)
            __android_log_print(5, "fill", "%s", body.c_str());
    };
    fill(1);
    pid_t child = fork();
    if (child == 0) {
        fill(3000);
        _exit(0);
    }
    std::thread other(fill, 1500);
    fill(1500);
    other.join();
    int status = 1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    for (const char *path : {LOG, OLD_LOG}) {
        std::istringstream log(content(path));
        EXPECT_GT(log.str().size(), 0u) << path;
        EXPECT_LT(log.str().size(), size_t{6} << 20) << path; // 4 MiB, and what came while one turned it over
        for (std::string line; std::getline(log, line) && !HasFailure();)
            EXPECT_EQ(line.substr(line.find(": ") + 2), body) << path;
    }
    struct stat before, after;
    stat(LOG, &before);
    fill(150); // a log that the child has turned over is noticed within 64 KiB
    stat(LOG, &after);
    EXPECT_EQ(before.st_ino, after.st_ino);
    EXPECT_GT(after.st_size, before.st_size); // the descriptor has moved to the new log
}

} // namespace
