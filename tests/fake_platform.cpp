#include "tests/fake_platform.h"

#include <cutils.h>
#include <dirent.h>
#include <dlfcn.h>
#include <hardware_legacy.h>
#include <log.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>
#include <thread>

#include "core/table.h"

static fake_phone state;
static std::mutex state_mutex;
static std::map<void *, unsigned int> buffers;
static std::chrono::steady_clock::time_point start_of_test;
static constexpr char RUNS[] = "/tmp/runs";
static constexpr char SEARCH_PATH[] =
    "/sbin:/system/bin:/vendor/bin"; // for lines without the service's own prefix

fake_phone &the_phone() { return state; }

// The threads of the deferred power actions are neither joined nor detached: on a phone that goes down nobody
// waits.
extern "C" const char *__tsan_default_options() // NOLINT: the sanitizer names it
{
    return "report_thread_leaks=0";
}

// ---- the four libraries

void *diagpkt_subsys_alloc(unsigned int subsystem, unsigned int code, unsigned int length)
{
    EXPECT_EQ(subsystem, 250u);
    state.allocated_codes.push_back(code);
    if (state.allocation_fails)
        return nullptr;
    void *buffer = malloc(length);
    memset(buffer, 0xA5, length); // whoever does not zero it is found out
    buffers[buffer] = length;
    return buffer;
}

int property_get(const char *key, char *value, const char *default_value)
{
    if (state.unreadable_properties.count(key))
        return -1;
    auto found = state.properties.find(key);
    std::string text = found != state.properties.end() ? found->second : default_value ? default_value : "";
    memcpy(value, text.c_str(), text.size() + 1);
    return static_cast<int>(text.size());
}

int property_set(const char *key, const char *value)
{
    if (state.refused_properties.count(key))
        return -1;
    state.properties[key] = value;
    return 0;
}

int android_reboot(unsigned int command, int flags, const char *reason)
{
    std::lock_guard<std::mutex> lock(state_mutex);
    std::chrono::duration<double> since = std::chrono::steady_clock::now() - start_of_test;
    state.reboots.push_back({command, flags, reason ? reason : "(none)",
                             state.wake_locks.count("DIAG_WAKELOCK") > 0, since.count()});
    return state.reboot_result;
}

int acquire_wake_lock(int level, const char *name)
{
    std::lock_guard<std::mutex> lock(state_mutex);
    EXPECT_EQ(level, 1);
    state.wake_locks.insert(name);
    return 0;
}

int release_wake_lock(const char *name)
{
    std::lock_guard<std::mutex> lock(state_mutex);
    state.wake_locks.erase(state.wake_locks.find(name));
    return 0;
}

int __android_log_print(int priority, const char *tag, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    va_list again;
    va_copy(again, arguments);
    std::string text(static_cast<size_t>(vsnprintf(nullptr, 0, format, arguments)), '\0');
    vsnprintf(text.data(), text.size() + 1, format, again);
    va_end(again);
    va_end(arguments);
    std::lock_guard<std::mutex> lock(state_mutex);
    bool right = priority == 6 && strcmp(tag, "Diag_Lib") == 0;
    (right ? state.log : state.bad_log).push_back(text);
    return 1;
}

extern "C" FILE *popen(const char *line, const char *mode)
{
    static auto *real = reinterpret_cast<FILE *(*)(const char *, const char *)>(dlsym(RTLD_NEXT, "popen"));
    if (state.failing_popen > 0 && --state.failing_popen == 0)
        return nullptr;
    return real(line, mode);
}

void wait_for_reboots(size_t count)
{
    for (int i = 0; i < 1000; i++) {
        {
            std::lock_guard<std::mutex> lock(state_mutex);
            if (state.reboots.size() >= count && state.wake_locks.empty())
                return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

// ---- the fixture

int open_descriptors()
{
    int count = 0;
    DIR *folder = opendir("/proc/self/fd");
    while (readdir(folder))
        count++;
    closedir(folder);
    return count;
}

void Phone::SetUp()
{
    {
        std::lock_guard<std::mutex> lock(state_mutex);
        state = fake_phone();
    }
    setenv("PATH", SEARCH_PATH, 1);
    std::filesystem::remove_all("/sbin");
    std::filesystem::remove(RUNS);
    start_of_test = std::chrono::steady_clock::now();
    descriptors_before = open_descriptors();
}

void Phone::TearDown()
{
    // A stream that nobody waits for is closed a moment after the answer, on a thread of its own.
    for (int tries = 0; tries < 200 && waitpid(-1, nullptr, WNOHANG) == 0; tries++)
        usleep(5000);
    EXPECT_EQ(open_descriptors(), descriptors_before + descriptors_left_open) << "a descriptor was left open";
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child was left behind";
    EXPECT_TRUE(state.bad_log.empty());
}

const diagpkt_entry *Phone::entry_of(uint16_t code)
{
    const diagpkt_entry *end = diag_command_table.entries + diag_command_table.count;
    const diagpkt_entry *found =
        std::find_if(diag_command_table.entries, end,
                     [&](const diagpkt_entry &entry) { return entry.low <= code && code <= entry.high; });
    return found == end ? nullptr : found;
}

std::vector<uint8_t> Phone::packet_of(uint16_t code, uint8_t selector, const std::string &data, int length)
{
    std::vector<uint8_t> packet(65535 + 1024);
    const size_t told = length < 0 ? data.size() : static_cast<size_t>(length);
    const size_t head[] = {75, 250, code % 256U, code / 256U, selector, told % 256, told / 256};
    std::transform(std::begin(head), std::end(head), packet.begin(),
                   [](size_t byte) { return static_cast<uint8_t>(byte); });
    std::copy(data.begin(), data.end(), packet.begin() + 7);
    return packet;
}

response Phone::ask(uint16_t code, uint8_t selector, const std::string &data, int length)
{
    std::vector<uint8_t> request = packet_of(code, selector, data, length);
    const diagpkt_entry *entry = entry_of(code);
    if (!entry) {
        ADD_FAILURE() << "no handler for code " << code;
        return {};
    }
    std::vector<uint8_t> head(request.begin(), request.begin() + 5);

    response out;
    void *answer = entry->handler(request.data(), static_cast<uint16_t>(7 + data.size()));
    if (!answer) {
        out.null = true;
        return out;
    }
    auto *bytes = static_cast<uint8_t *>(answer);
    out.bytes.assign(bytes, bytes + buffers.at(answer));
    buffers.erase(answer);
    free(answer);
    EXPECT_TRUE(std::equal(head.begin(), head.end(), out.bytes.begin())) << "head and selector are echoed";
    if (out.bytes.size() > 7) {
        out.length = static_cast<uint16_t>(out.bytes[5] | out.bytes[6] << 8);
        out.data.assign(out.bytes.begin() + 7, out.bytes.end());
        EXPECT_LE(out.length, out.data.size());
        out.text = out.data.substr(0, out.length);
    }
    return out;
}

response Phone::ask_text(uint16_t code, const std::string &text, uint8_t selector)
{
    return ask(code, selector, text + '\0');
}

static std::string tool_path(const std::string &name) { return name[0] == '/' ? name : "/sbin/" + name; }

void Phone::tool(const std::string &name, const std::string &script)
{
    std::string path = tool_path(name);
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path) << "#!/system/bin/sh\necho \"" + name + "${*:+ $*}\" >>" + RUNS + "\n" + script +
                               "\n";
    ASSERT_EQ(chmod(path.c_str(), 0755), 0) << path;
}

void Phone::remove_tool(const std::string &name) { std::filesystem::remove(tool_path(name)); }

strings Phone::runs()
{
    strings lines;
    std::ifstream file(RUNS);
    for (std::string line; std::getline(file, line);)
        lines.push_back(line);
    return lines;
}

void Phone::node(const std::string &path, const std::string &content)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::trunc) << content;
}

std::string Phone::content(const std::string &path)
{
    std::ifstream file(path);
    if (!file)
        return "(missing)";
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

bool Phone::exists(const std::string &path) { return std::filesystem::exists(path); }

void Phone::link_node(const std::string &path, const std::string &target)
{
    node(path, "");
    std::filesystem::remove(path);
    std::filesystem::create_symlink(target, path);
}

void Phone::expect_by_tool(uint16_t code, const std::string &name, answers rows, uint8_t selector)
{
    for (const auto &[script, answer] : rows) {
        tool(name, script);
        EXPECT_EQ(ask(code, selector).text, answer) << script;
    }
}

void Phone::expect_by_node(uint16_t code, const std::string &path, answers rows, uint8_t selector)
{
    for (const auto &[content, answer] : rows) {
        node(path, content);
        EXPECT_EQ(ask(code, selector).text, answer) << content;
    }
}

void Phone::expect_by_property(uint16_t code, const std::string &key, answers rows, uint8_t selector)
{
    for (const auto &[value, answer] : rows) {
        state.properties[key] = value;
        EXPECT_EQ(ask(code, selector).text, answer) << value;
    }
    state.unreadable_properties.insert(key);
    EXPECT_EQ(ask(code, selector).text, "ERROR");
    state.unreadable_properties.erase(key);
}

int Phone::times_logged(const std::string &line)
{
    std::lock_guard<std::mutex> lock(state_mutex);
    return static_cast<int>(std::count(state.log.begin(), state.log.end(), line));
}

bool Phone::logged(const std::string &line) { return times_logged(line) > 0; }

void Phone::forget_log()
{
    std::lock_guard<std::mutex> lock(state_mutex);
    state.log.clear();
}
