// The workstation's properties, log and wake locks, as files of a throwaway root of the phone.
#include "cutils.h"
#include "hardware_legacy.h"
#include "head.h"
#include "log.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <map>
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
        EXPECT_EQ(property_set(name, "1"), -1) << name;
        EXPECT_EQ(get(name), "-") << name;
    }
    EXPECT_EQ(property_set(std::string(256, 'n').c_str(), "1"), -1);
    EXPECT_EQ(property_set(nullptr, "1"), -1);
    EXPECT_EQ(property_set("a", nullptr), -1);
    for (const char *name : {"a", "a.b_c-d@e:f", "vendor.X.0",
                             "abcdefghijklmnopqrstuvwxyz.ABCDEFGHIJKLMNOPQRSTUVWXYZ.0123456789"}) {
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
    EXPECT_EQ(property_set("ro.long", std::string(4096, 'f').c_str()), -1);
    EXPECT_EQ(property_set("ro.long", std::string(4095, 'f').c_str()), 0);
}

TEST(Properties, PersistentOnesAreKeptForTheNextBoot)
{
    EXPECT_EQ(property_set("persist.test", "kept"), 0);
    EXPECT_EQ(content("/data/property/persist.test"), "kept");
    EXPECT_EQ(property_set("test.other", "lost"), 0);
    EXPECT_NE(access("/data/property/test.other", F_OK), 0);

    // What cannot be kept is not set either; what is kept already needs nothing.
    ASSERT_EQ(rename("/data/property/persist.test", "/data/kept"), 0);
    ASSERT_EQ(rmdir("/data/property"), 0);
    write_file("/data/property", "");
    EXPECT_LT(property_set("persist.test", "new"), 0);
    EXPECT_EQ(get("persist.test"), "kept");
    ASSERT_EQ(unlink("/data/property"), 0);
    umask(022);
    EXPECT_EQ(property_set("persist.test", "cept"), 0); // after a wipe
    EXPECT_EQ(content("/data/property/persist.test"), "cept");
    for (const auto &[path, mode] :
         {std::pair("/data/property", 0755), {"/data/property/persist.test", 0644}})
        EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms(mode)) << path;
    ASSERT_EQ(mkdir("/data/property/persist.folder", 0700), 0);
    EXPECT_LT(property_set("persist.folder", "1"), 0);
    EXPECT_EQ(get("persist.folder"), "-");
    for (const char *folder : {"/data/property", "/dev/__properties__"})
        for (const auto &entry : std::filesystem::directory_iterator(folder))
            EXPECT_NE(entry.path().filename().string()[0], '.') << entry;
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
        {ANDROID_RB_RESTART2, nullptr, "reboot"},
        {ANDROID_RB_RESTART2, "", "reboot"},
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
    EXPECT_EQ(android_reboot(0, 0, nullptr), -1);
    EXPECT_EQ(android_reboot(ANDROID_RB_RESTART2, 0, std::string(85, 'r').c_str()), -1);
    close(init);
}

TEST(WakeLocks, ShowInTheNodeWhileHeld)
{
    constexpr char NODE[] = "/sys/power/wake_lock";
    unlink(NODE);
    EXPECT_EQ(acquire_wake_lock(PARTIAL_WAKE_LOCK, "A"), -ENOENT);
    write_file(NODE, "");
    EXPECT_EQ(release_wake_lock(nullptr), -EINVAL);
    EXPECT_EQ(acquire_wake_lock(PARTIAL_WAKE_LOCK, "A"), 0);
    EXPECT_EQ(acquire_wake_lock(PARTIAL_WAKE_LOCK, "AB"), 0);
    EXPECT_EQ(acquire_wake_lock(PARTIAL_WAKE_LOCK, "A"), 0);
    EXPECT_EQ(content(NODE), "A AB\n");
    EXPECT_EQ(release_wake_lock("A"), 0);
    EXPECT_EQ(content(NODE), "AB\n");
    EXPECT_EQ(release_wake_lock("A"), -EINVAL);
    for (const char *bad : {"", "a b", "a\n", "a\t"})
        EXPECT_EQ(acquire_wake_lock(PARTIAL_WAKE_LOCK, bad), -EINVAL);
    EXPECT_EQ(acquire_wake_lock(PARTIAL_WAKE_LOCK, std::string(4093, 'x').c_str()), -ENOSPC);
    EXPECT_EQ(acquire_wake_lock(PARTIAL_WAKE_LOCK, std::string(4092, 'x').c_str()), 0);
    EXPECT_EQ(content(NODE), "AB " + std::string(4092, 'x') + '\n');
    EXPECT_EQ(release_wake_lock("AB"), 0);
    EXPECT_EQ(release_wake_lock(std::string(4092, 'x').c_str()), 0);
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

// Before all else that logs: a process opens its log once.
TEST(Log, WhereThereIsNoneLinesAreDropped)
{
    const auto log = [] { return __android_log_print(4, "tag", "line"); };
    ASSERT_EQ(mkdir(LOG, 0755), 0);
    EXPECT_EQ(log(), -EISDIR);
    ASSERT_EQ(rmdir(LOG), 0);
    ASSERT_EQ(mkfifo(LOG, 0644), 0);
    EXPECT_LT(log(), 0);
    const int reader = open(LOG, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    EXPECT_EQ(log(), -ENXIO);
    close(reader);
    ASSERT_EQ(unlink(LOG), 0);
    EXPECT_GT(log(), 0);
}

std::string head_of(const timespec &time, const log_head::writer &by, int priority, const char *tag)
{
    char head[log_head::ROOM];
    return {head, log_head::put(head, time, by, priority, tag)};
}

TEST(Log, HeadsOfEveryDayPriorityAndTag)
{
    for (time_t day = 0; day < 200 * 365; day++) {
        const timespec time = {day * 86400 + day * 7919 % 86400, day * 1234567 % 1000000000};
        char text[64];
        const size_t length = strftime(text, sizeof text, "%m-%d %H:%M:%S", gmtime(&time.tv_sec));
        snprintf(text + length, sizeof text - length,
                 ".%03ld 12345   678 E tag     : ", time.tv_nsec / 1000000);
        ASSERT_EQ(head_of(time, {12345, 678}, 6, "tag"), text) << day;
    }
    const std::string letters = "???VDIWEF?", longest(128, 't'); // from -1 on
    for (size_t i = 0; i < letters.size(); i++)
        EXPECT_EQ(head_of({0, 0}, {1234567, 99999}, static_cast<int>(i) - 1, (longest + 't').c_str()),
                  "01-01 00:00:00.000 1234567 99999 " + letters.substr(i, 1) + ' ' + longest + ": ");
}

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
    const time_t now = time(nullptr);
    char date[16];
    strftime(date, sizeof date, "%m-%d %H:%M", gmtime(&now));
    EXPECT_NE(content(LOG).find(date), std::string::npos);

    EXPECT_EQ(truncate(LOG, 0), 0);
    __android_log_print(4, "long", "%s", std::string(5000, 'x').c_str());
    __android_log_print(4, "many", "%s", std::string(5000, '\n').c_str());
    const std::string text = content(LOG);
    EXPECT_EQ(std::count(text.begin(), text.end(), 'x'), 4068);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1 + 4068);
}

// What is kept, as a reader finds it: behind the hole in front, from the first whole line on.
std::istringstream kept_log()
{
    const int fd = open(LOG, O_RDONLY | O_CLOEXEC);
    const off_t begin = lseek(fd, 0, SEEK_DATA);
    close(fd);
    std::ifstream file(LOG);
    file.seekg(begin);
    std::string piece;
    if (begin > 0)
        std::getline(file, piece);
    std::ostringstream text;
    text << file.rdbuf();
    return std::istringstream(text.str());
}

// Whether each writer's lines are whole and follow one upon another up to its last, and how many there are.
int check_lines(const std::string &body, std::map<std::string, int> last)
{
    std::map<std::string, int> numbers;
    int count = 0;
    std::istringstream log = kept_log();
    for (std::string line; std::getline(log, line) && !::testing::Test::HasFailure(); count++) {
        std::istringstream words(line.substr(line.find(": ") + 2));
        std::string writer, rest;
        int number = -1;
        words >> writer >> number >> rest;
        EXPECT_TRUE(last.count(writer) && rest == body) << line.substr(0, 100);
        const auto [before, first] = numbers.emplace(writer, number);
        EXPECT_TRUE(first || number == ++before->second) << writer << ' ' << number;
    }
    for (const auto &[writer, number] : numbers)
        EXPECT_EQ(number, last[writer]) << writer;
    return count;
}

// Writers in three processes, one of which is killed, fill the log many times over.
TEST(Log, KeepsItsLastLinesWithinItsBound)
{
    ASSERT_TRUE(truncate(LOG, 0) == 0 || errno == ENOENT);
    constexpr int LINES = 12000;
    const std::string body(900, 'b');
    const auto fill = [&body](const char *writer, int lines) {
        for (int i = 0; i <= lines; i++)
            __android_log_print(5, "fill", "%s %d %s", writer, i, body.c_str());
    };
    const auto in_child = [&fill](const char *writer) {
        const pid_t child = fork();
        if (child == 0) {
            fill(writer, LINES);
            _exit(0);
        }
        return child;
    };
    const auto room = [] {
        struct stat log = {};
        stat(LOG, &log);
        return log.st_blocks * 512;
    };
    constexpr off_t MAX = (4 << 20) + 5 * (64 << 10); // what four writers add between two looks, and rounding

    const pid_t child = in_child("child"), victim = in_child("victim");
    std::thread killer([victim] {
        usleep(50000);
        kill(victim, SIGKILL);
        waitpid(victim, nullptr, 0);
    });
    std::thread other(fill, "other", LINES);
    off_t most = 0;
    for (int i = 0; i <= LINES; i++) {
        __android_log_print(5, "fill", "main %d %s", i, body.c_str());
        most = std::max<off_t>(most, i % 16 == 0 ? room() : 0);
    }
    other.join();
    killer.join();
    int status = 1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_LE(most, MAX);
    EXPECT_GT(room(), 3 << 20);
    EXPECT_GT(check_lines(body, {{"main", LINES}, {"other", LINES}, {"child", LINES}}), 3 << 10);

    // Emptied, it begins anew and keeps all lines from then on.
    EXPECT_EQ(truncate(LOG, 0), 0);
    fill("after", 1000);
    EXPECT_EQ(check_lines(body, {{"after", 1000}}), 1001);
    fill("again", 8000);
    EXPECT_GT(check_lines(body, {{"after", 1000}, {"again", 8000}}), 3 << 10);
    EXPECT_LE(room(), MAX);

    EXPECT_EQ(truncate(LOG, (off_t{1} << 40) + 1), 0); // somebody's prank
    sleep(1);
    fill("end", 10);
    EXPECT_EQ(check_lines(body, {{"end", 10}}), 11);
}

} // namespace
