#include "tests/canned/phone.h"

#include <cutils.h>
#include <diag.h>
#include <dirent.h>
#include <fcntl.h>
#include <hardware_legacy.h>
#include <log.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <sstream>
#include <utility>

#include "core/packet.h"
#include "core/table.h"
#include "hwdec/detect.h"

#ifdef POISON_IS_TOLD // the service is built with the address sanitizer
#include <sanitizer/asan_interface.h>
#else
static const void *__asan_region_is_poisoned(void *, size_t)
{
    return nullptr;
} // NOLINT: the sanitizer's name
#endif

namespace fs = std::filesystem;

const char *const CANNED_CALL_NAMES[CANNED_CALLS] = {
    "open",   "fopen",      "opendir",        "access",       "read",         "read none",      "read part",
    "write",  "write none", "write part",     "lseek",        "fsync",        "ioctl",          "kill",
    "popen",  "system",     "pthread_create", "property_get", "property_set", "android_reboot", "response",
    "malloc", "log",        "log none",       "log part",
};
std::string what_is_tried;

static constexpr int FIRST_DESCRIPTOR = 1000;
static constexpr pid_t OWN_ID = 4711;
static constexpr uint8_t UNSET = 0xA5; // what a new response buffer holds
static constexpr size_t PACKET_MAX = 65535;
static constexpr size_t REQUEST_ROOM = PACKET_MAX + 1024;

namespace
{

// A node or the output of a tool, opened.
struct handle {
    std::string path;
    std::optional<std::string> output;
    size_t position = 0;
    bool open = true;

    const std::string &content() const
    {
        static const std::string NOTHING;
        const canned_node *node = node_at(path);
        return output ? *output : node ? node->content : NOTHING;
    }
};

struct stream {
    handle of;
    int status = 0; // of a tool
    FILE *file = nullptr;
};

struct folder {
    std::string path;
    std::vector<std::string> names;
    size_t next = 0;
    dirent entry;
};

struct thread {
    void *(*routine)(void *);
    void *argument;
};

enum class outcome { ANSWERS, FAILURE, NOTHING };

} // namespace

static std::map<std::string, canned_node, std::less<>> healthy_nodes;
static std::map<std::string, std::string, std::less<>> healthy_properties;
static canned_phone phone;
static canned_record record;
static size_t taken;                // answers of a fuzzed phone
static std::vector<handle> handles; // by descriptor
static std::vector<stream *> streams;
static std::vector<folder *> folders;
static std::vector<thread> threads;
static std::map<void *, std::pair<unsigned, unsigned>> responses; // code and size
static std::vector<int> wake_locks;

void require(bool condition, const char *promise)
{
    if (condition)
        return;
    fprintf(stderr, "broken promise: %s\n%s\n", promise, what_is_tried.c_str());
    abort();
}

static void require_memory(const void *memory, size_t size, const char *promise)
{
    if (size > 0) // what is poisoned is reported by the access itself
        require(!__asan_region_is_poisoned(const_cast<void *>(memory), size), promise);
}

static void require_text(const char *text) { require(strlen(text) < SIZE_MAX, "a text ends"); }

static bool fails(canned_call call, int error = EIO)
{
    const int number = ++record.counts[call];
    for (const canned_fault &fault : phone.faults) {
        if (fault.call == call && (fault.number == 0 || fault.number == number)) {
            errno = error;
            return true;
        }
    }
    return false;
}

static outcome ask_input(std::string_view *answer)
{
    *answer = {};
    if (taken >= phone.answers.size())
        return outcome::NOTHING;
    *answer = phone.answers[taken++];
    return *answer == FAILS ? outcome::FAILURE : outcome::ANSWERS;
}

// ---- nodes

const canned_node *healthy_node(const std::string &path)
{
    auto found = healthy_nodes.find(path);
    return found == healthy_nodes.end() || phone.fuzzed ? nullptr : &found->second;
}

const canned_node *node_at(const std::string &path)
{
    auto found = phone.nodes.find(path);
    if (found == phone.nodes.end())
        return healthy_node(path);
    return found->second.kind == canned_node::GONE ? nullptr : &found->second;
}

static canned_node &change(const std::string &path)
{
    auto found = phone.nodes.find(path);
    if (found != phone.nodes.end())
        return found->second;
    const canned_node *healthy = healthy_node(path);
    return phone.nodes[path] = healthy ? *healthy : canned_node();
}

// The service runs in /. On a fuzzed phone each opening finds what the input says, under a name of its own.
static outcome resolve(const char *given, std::string *path)
{
    require_text(given);
    *path = given[0] == '/' ? given : std::string("/") + given;
    if (phone.fuzzed) {
        std::string_view content;
        outcome found = ask_input(&content);
        *path = '#' + std::to_string(phone.nodes.size());
        if (found == outcome::ANSWERS)
            phone.nodes[*path].content = content;
        return found;
    }
    const canned_node *node = node_at(*path);
    return node ? outcome::ANSWERS : outcome::NOTHING;
}

// The same for what is opened: links are followed, unless that is refused. False, with errno, when it is not
// there or may not be made.
static bool open_path(const char *given, bool make, bool truncate, bool follow, unsigned mode,
                      std::string *path)
{
    outcome found = resolve(given, path);
    const canned_node *node = found == outcome::ANSWERS ? node_at(*path) : nullptr;
    if (node && node->kind == canned_node::LINK) {
        errno = ELOOP;
        if (!follow)
            return false;
        *path = node->content;
        node = node_at(*path);
    }
    const size_t slash = path->rfind('/');
    const bool homeless = slash != std::string::npos && slash > 0 &&
                          !phone.fuzzed && // its folder is not there
                          !node_at(path->substr(0, slash));
    errno = ENOENT;
    if (found == outcome::FAILURE || (!node && (!make || homeless)))
        return false;
    errno = EISDIR;
    if (node && node->kind == canned_node::FOLDER)
        return false;
    if (!node) {
        change(*path) = {};
        change(*path).mode = mode;
    } else if (truncate && node->kind == canned_node::REGULAR) {
        change(*path).content.clear();
    }
    return true;
}

// A read or a write by a call that may fail: how much of `size` it takes, or -1.
static ssize_t taken_of(canned_call call, size_t size)
{
    if (fails(call))
        return -1;
    if (fails(static_cast<canned_call>(call + 1)))
        return 0;
    return static_cast<ssize_t>(fails(static_cast<canned_call>(call + 2)) ? std::min<size_t>(size, 1) : size);
}

static ssize_t read_node(handle &from, void *buffer, size_t size)
{
    require_memory(buffer, size, "a read has room for all that it asks for");
    const std::string &content = from.content();
    const size_t left = content.size() - std::min(content.size(), from.position);
    const ssize_t count = taken_of(FAIL_READ, std::min(size, left));
    if (count > 0)
        memcpy(buffer, content.data() + from.position, static_cast<size_t>(count));
    from.position += static_cast<size_t>(std::max<ssize_t>(count, 0));
    return count;
}

static ssize_t write_node(handle &to, const void *data, size_t size)
{
    require_memory(data, size, "a write stays within its data");
    const ssize_t count = taken_of(FAIL_WRITE, std::min(size, phone.write_limit));
    if (count <= 0)
        return count;
    size = static_cast<size_t>(count);
    if (node_at(to.path) && node_at(to.path)->kind == canned_node::REGULAR) {
        std::string &content = change(to.path).content;
        content.resize(std::max(content.size(), to.position + size));
        content.replace(to.position, size, static_cast<const char *>(data), size);
    }
    to.position += size;
    return count;
}

static off_t seek(handle &in, off_t offset, int whence)
{
    const size_t base = whence == SEEK_CUR ? in.position : whence == SEEK_END ? in.content().size() : 0;
    offset += static_cast<off_t>(base);
    if (offset < 0 || fails(FAIL_LSEEK)) {
        errno = EINVAL;
        return -1;
    }
    in.position = static_cast<size_t>(offset);
    return offset;
}

// What a descriptor stands for. Only what is open is used.
static handle &handle_of(int descriptor)
{
    const auto index = static_cast<size_t>(descriptor - FIRST_DESCRIPTOR);
    require(descriptor >= FIRST_DESCRIPTOR && index < handles.size() && handles[index].open,
            "only what is open is read, written or closed");
    return handles[index];
}

static FILE *open_stream(handle of, const char *mode, int status = 0)
{
    auto *opened = new stream{std::move(of), status};
    cookie_io_functions_t io = {};
    io.read = [](void *cookie, char *buffer, size_t size) {
        return read_node(static_cast<stream *>(cookie)->of, buffer, size);
    };
    io.write = [](void *cookie, const char *data, size_t size) {
        return std::max<ssize_t>(write_node(static_cast<stream *>(cookie)->of, data, size), 0);
    };
    io.seek = [](void *cookie, off64_t *offset, int whence) {
        *offset = seek(static_cast<stream *>(cookie)->of, *offset, whence);
        return *offset < 0 ? -1 : 0;
    };
    io.close = [](void *cookie) {
        auto *closed = static_cast<stream *>(cookie);
        streams.erase(std::find(streams.begin(), streams.end(), closed));
        delete closed;
        return 0;
    };
    opened->file = fopencookie(opened, mode, io);
    require(opened->file, "there is memory for a stream");
    streams.push_back(opened);
    return opened->file;
}

// ---- tools

static const canned_tool::run *rule_for(std::string_view line)
{
    for (canned_tool &tool : phone.tools) {
        std::string_view rule = tool.line;
        const bool begins = !rule.empty() && rule.back() == '*';
        if (begins ? line.substr(0, rule.size() - 1) == rule.substr(0, rule.size() - 1) : line == rule)
            return &tool.runs[tool.next + 1 < tool.runs.size() ? tool.next++ : tool.next];
    }
    return nullptr;
}

// The next word of a line, without the quotes around it.
static std::string word(std::string_view &line)
{
    line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
    const char quote = !line.empty() && (line[0] == '"' || line[0] == '\'') ? line[0] : ' ';
    line.remove_prefix(quote != ' ');
    std::string out(line.substr(0, line.find(quote)));
    line.remove_prefix(std::min(out.size() + 1, line.size()));
    return out;
}

static canned_tool::run run_stage(std::string_view stage, const std::string &input)
{
    stage.remove_prefix(std::min(stage.find_first_not_of(' '), stage.size()));
    stage.remove_suffix(stage.size() - 1 - std::min(stage.find_last_not_of(' '), stage.size() - 1));
    if (const canned_tool::run *rule = rule_for(stage))
        return *rule;
    canned_tool::run out;
    const std::string tool = word(stage);
    if (tool == "echo")
        out.output = std::string(stage) + '\n';
    if (tool == "cat") {
        std::string path = word(stage);
        const canned_node *node = node_at(path[0] == '/' ? path : '/' + path);
        out = {node ? node->content : "", node ? 0 : 256};
    }
    if (tool == "rm") {
        word(stage); // -f
        while (!stage.empty())
            change(word(stage)) = {{}, canned_node::GONE, 0};
    }
    if (tool == "grep" || tool == "egrep") {
        const std::string wanted = word(stage);
        std::istringstream lines(input);
        for (std::string line; std::getline(lines, line);)
            if (line.find(wanted) != std::string::npos)
                out.output += line + '\n';
        out.status = out.output.empty() ? 256 : 0;
    }
    return out;
}

static canned_tool::run run_tool(const char *given)
{
    require_text(given);
    std::string_view line = given;
    record.lines.emplace_back(line);
    if (line.substr(0, PATH_PREFIX.size()) == PATH_PREFIX)
        line.remove_prefix(PATH_PREFIX.size());
    if (const canned_tool::run *rule = rule_for(line))
        return *rule;
    canned_tool::run out;
    std::string target;
    const size_t arrow = line.find("> ");
    if (arrow != std::string_view::npos) {
        target = line.substr(arrow + 2);
        line = line.substr(0, line.find_last_not_of("&>", arrow) + 1);
    }
    for (size_t end = 0; end != std::string_view::npos && !line.empty();) {
        end = line.find('|');
        out = run_stage(line.substr(0, end), out.output);
        line.remove_prefix(std::min(end == std::string_view::npos ? end : end + 1, line.size()));
    }
    if (!target.empty()) {
        change(target) = {out.output, canned_node::REGULAR, 0};
        out.output.clear();
    }
    return out;
}

// ---- the phone

static std::string content_of(const fs::path &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

static void load_healthy_phone()
{
    const std::string source = PHONE_SOURCE;
    const std::string root = source + "/root";
    for (const char *folder : {"/data", "/dev", "/tmp"}) // git keeps no empty ones
        healthy_nodes[folder].kind = canned_node::FOLDER;
    for (const fs::directory_entry &entry : fs::recursive_directory_iterator(root)) {
        canned_node &node = healthy_nodes[entry.path().string().substr(root.size())];
        node.kind = entry.is_directory() ? canned_node::FOLDER : canned_node::REGULAR;
        if (entry.is_regular_file())
            node.content = content_of(entry.path());
    }
    std::istringstream lines(content_of(source + "/properties"));
    for (std::string line; std::getline(lines, line);)
        if (size_t sign = line.find('='); line[0] != '#' && sign != std::string::npos)
            healthy_properties[line.substr(0, sign)] = line.substr(sign + 1);
}

static void free_responses()
{
    for (const auto &response : responses)
        free(response.first);
    responses.clear();
}

std::vector<std::string> close_left_open()
{
    std::vector<std::string> left;
    for (const handle &each : handles)
        if (each.open)
            left.push_back(each.path);
    handles.clear();
    while (!streams.empty()) {
        left.push_back(streams.back()->of.path);
        fclose(streams.back()->file);
    }
    for (folder *each : folders) {
        left.push_back(each->path);
        delete each;
    }
    folders.clear();
    return left;
}

size_t may_leave_open(uint16_t code)
{
    static constexpr uint16_t ONE[] = {0xE600, 0x0C0A, 0x1501, 0xCA00, 0x2000, 0x2600};
    return static_cast<size_t>(std::count(std::begin(ONE), std::end(ONE), code));
}

void boot(canned_phone booted)
{
    close_left_open();
    free_responses();
    if (!booted.fuzzed && healthy_nodes.empty())
        load_healthy_phone();
    phone = std::move(booted);
    record = {};
    taken = 0;
    threads.clear();
    dec_check_flag_long = 0;
    hw_dec_done_flag = 0;
}

canned_phone &the_phone() { return phone; }

canned_record &the_record() { return record; }

const std::string *property_of(const std::string &key)
{
    auto changed = phone.properties.find(key);
    if (changed != phone.properties.end())
        return changed->second ? &*changed->second : nullptr;
    auto healthy = healthy_properties.find(key);
    return healthy == healthy_properties.end() ? nullptr : &healthy->second;
}

const diagpkt_entry *entry_of(uint16_t code)
{
    const diagpkt_entry *end = diag_command_table.entries + diag_command_table.count;
    const diagpkt_entry *found = std::find_if(diag_command_table.entries, end, [=](const diagpkt_entry &e) {
        return e.low <= code && code <= e.high;
    });
    return found == end ? nullptr : found;
}

canned_answer ask(uint16_t code, uint8_t selector, std::string_view data, int length)
{
    static auto *const request = static_cast<uint8_t *>(malloc(REQUEST_ROOM)); // its end is guarded
    const diagpkt_entry *entry = entry_of(code);
    require(entry, "the code is in the table");
    data = data.substr(0, PACKET_MAX - PACKET_DATA);
    const size_t told = length < 0 ? data.size() : static_cast<size_t>(length);
    const size_t head[] = {75, DIAG_SUBSYSTEM, code % 256U, code / 256U, selector, told % 256, told / 256};
    memset(request, 0, REQUEST_ROOM); // as the router does
    std::transform(std::begin(head), std::end(head), request,
                   [](size_t byte) { return static_cast<uint8_t>(byte); });
    std::copy(data.begin(), data.end(), request + PACKET_DATA);

    record = {};
    canned_answer answer;
    answer.data = request + PACKET_DATA;
    void *response = entry->handler(request, static_cast<uint16_t>(PACKET_DATA + data.size()));
    require(responses.size() == (response ? 1 : 0) && (!response || responses.count(response)),
            "one buffer, and it is answered; without one there is no response");
    answer.logged = record.log.size();
    for (const thread &each : phone.fuzzed ? std::vector<thread>() : std::exchange(threads, {})) {
        pthread_t real;
        require(pthread_create(&real, nullptr, each.routine, each.argument) == 0, "there is a thread");
        pthread_join(real, nullptr);
    }
    threads.clear();
    require(wake_locks.empty(), "a wake lock is released");
    const bool out_fails =
        std::any_of(phone.faults.begin(), phone.faults.end(), [](const canned_fault &fault) {
            return fault.call == FAIL_LOG || fault.call == FAIL_LOG_NONE;
        });
    require(out_fails || std::accumulate(record.log.begin(), record.log.end(), std::string()) == record.out,
            "both logs get the same");
    if (!response)
        return answer;
    answer.none = false;
    answer.code = responses[response].first;
    answer.bytes.assign(static_cast<char *>(response), responses[response].second);
    free_responses();
    const size_t size = answer.bytes.size();
    require(size == ECHO_RESPONSE || size == TEXT_RESPONSE || size == LONG_RESPONSE,
            "a size that the wire knows");
    require(std::equal(std::begin(head), std::begin(head) + ECHO_RESPONSE, answer.bytes.begin(),
                       [](size_t sent, char byte) { return static_cast<uint8_t>(byte) == sent; }),
            "head and selector are echoed");
    if (size > PACKET_DATA) {
        answer.length = packet_length(answer.bytes.data());
        require(answer.length <= size - PACKET_DATA, "the length fits the response");
        answer.text = answer.bytes.substr(PACKET_DATA, answer.length);
    }
    return answer;
}

template <typename... Values> static void note(const char *format, Values... values)
{
    char text[256];
    snprintf(text, sizeof text, format, values...);
    record.deeds.emplace_back(text);
}

extern "C" {

// ---- the system, as `redirect` names it

int canned_open(const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const unsigned mode = flags & O_CREAT ? va_arg(arguments, unsigned) : 0;
    va_end(arguments);
    handle opened;
    if (fails(FAIL_OPEN, EACCES) ||
        !open_path(path, flags & O_CREAT, flags & O_TRUNC, !(flags & O_NOFOLLOW), mode, &opened.path))
        return -1;
    require(flags & O_CLOEXEC, "a descriptor is not inherited by tools");
    handles.push_back(opened);
    return FIRST_DESCRIPTOR + static_cast<int>(handles.size() - 1);
}

int canned_close(int descriptor)
{
    handle_of(descriptor).open = false;
    return 0;
}

ssize_t canned_read(int descriptor, void *buffer, size_t size)
{
    return read_node(handle_of(descriptor), buffer, size);
}

ssize_t canned_write(int descriptor, const void *data, size_t size)
{
    if (descriptor == STDOUT_FILENO) { // the log
        require_memory(data, size, "a log line stays within its buffer");
        require(record.counts[FAIL_LOG] < 1000000, "a log that takes nothing is not written for ever");
        const ssize_t count = taken_of(FAIL_LOG, size);
        record.out.append(static_cast<const char *>(data), static_cast<size_t>(std::max<ssize_t>(count, 0)));
        return count;
    }
    return write_node(handle_of(descriptor), data, size);
}

ssize_t canned_pread(int descriptor, void *buffer, size_t size, off_t offset)
{
    handle elsewhere = handle_of(descriptor);
    elsewhere.position = static_cast<size_t>(offset);
    return read_node(elsewhere, buffer, size);
}

ssize_t canned_pwrite(int descriptor, const void *data, size_t size, off_t offset)
{
    handle elsewhere = handle_of(descriptor);
    elsewhere.position = static_cast<size_t>(offset);
    return write_node(elsewhere, data, size);
}

off_t canned_lseek(int descriptor, off_t offset, int whence)
{
    return seek(handle_of(descriptor), offset, whence);
}

int canned_fsync(int descriptor) // a stream of fopencookie has no descriptor
{
    return !fails(FAIL_FSYNC) && descriptor >= 0 && handle_of(descriptor).open ? 0 : -1;
}

int canned_fstat(int, struct stat *told) // of standard output alone
{
    *told = {};
    told->st_mode = phone.null_output ? S_IFCHR : S_IFREG;
    return 0;
}

int canned_ioctl(int descriptor, unsigned long request, ...)
{
    va_list arguments;
    va_start(arguments, request);
    void *state = va_arg(arguments, void *);
    va_end(arguments);
    handle &device = handle_of(descriptor);
    if (fails(FAIL_IOCTL, ENOTTY))
        return -1;
    if (phone.fuzzed)
        return read_node(device, state, sizeof phone.power_state) < 0 ? -1 : 0;
    memcpy(state, &phone.power_state, sizeof phone.power_state);
    return 0;
}

FILE *canned_fopen(const char *path, const char *mode)
{
    const bool writes = strchr(mode, 'w') || strchr(mode, 'a');
    handle opened;
    if (fails(FAIL_FOPEN, EACCES) || !open_path(path, writes, strchr(mode, 'w'), true, 0666, &opened.path))
        return nullptr;
    require(strchr(mode, 'e'), "a stream is not inherited by tools");
    opened.position = strchr(mode, 'a') ? opened.content().size() : 0;
    return open_stream(opened, writes ? "w+" : "r");
}

int canned_access(const char *path, int)
{
    std::string absolute;
    if (!fails(FAIL_ACCESS, EACCES) && resolve(path, &absolute) == outcome::ANSWERS)
        return 0;
    errno = ENOENT;
    return -1;
}

int canned_stat(const char *path, struct stat *told)
{
    std::string absolute;
    *told = {};
    told->st_mode =
        resolve(path, &absolute) == outcome::ANSWERS && node_at(absolute)->kind == canned_node::NULL_DEVICE
            ? S_IFCHR
            : S_IFREG;
    return 0;
}

DIR *canned_opendir(const char *path)
{
    std::string absolute;
    if (fails(FAIL_OPENDIR, EACCES) || resolve(path, &absolute) != outcome::ANSWERS)
        return nullptr;
    auto *opened = new folder{absolute, {}, 0, {}};
    if (phone.fuzzed) {
        std::istringstream lines(node_at(absolute)->content);
        for (std::string name; std::getline(lines, name);)
            opened->names.push_back(name);
    } else {
        opened->names = {".", ".."};
        for (const auto *nodes : {&healthy_nodes, &phone.nodes})
            for (auto each = nodes->upper_bound(absolute + '/'); each != nodes->end(); ++each)
                if (each->first.rfind(absolute + '/', 0) == 0 && node_at(each->first) &&
                    each->first.find('/', absolute.size() + 1) == std::string::npos)
                    opened->names.push_back(each->first.substr(absolute.size() + 1));
    }
    folders.push_back(opened);
    return reinterpret_cast<DIR *>(opened);
}

dirent *canned_readdir(DIR *opened)
{
    auto *from = reinterpret_cast<folder *>(opened);
    if (from->next >= from->names.size())
        return nullptr;
    const std::string name = from->names[from->next++].substr(0, sizeof from->entry.d_name - 1);
    memset(from->entry.d_name, 0, sizeof from->entry.d_name);
    std::copy(name.begin(), name.end(), from->entry.d_name);
    return &from->entry;
}

int canned_closedir(DIR *opened)
{
    auto *closed = reinterpret_cast<folder *>(opened);
    folders.erase(std::find(folders.begin(), folders.end(), closed));
    delete closed;
    return 0;
}

FILE *canned_popen(const char *line, const char *mode)
{
    require(strcmp(mode, "re") == 0, "a tool's output is read, and not inherited by the next tool");
    std::string_view output;
    if (fails(FAIL_POPEN, EAGAIN) || (phone.fuzzed && ask_input(&output) == outcome::FAILURE))
        return nullptr;
    canned_tool::run run{std::string(output), 0};
    if (!phone.fuzzed)
        run = run_tool(line);
    return open_stream({std::string("the output of ") + line, run.output}, "r", run.status);
}

int canned_pclose(FILE *output)
{
    auto of =
        std::find_if(streams.begin(), streams.end(), [=](stream *each) { return each->file == output; });
    require(of != streams.end() && (*of)->of.output, "only the output of a tool is closed so");
    const int status = (*of)->status;
    return fclose(output) == 0 ? status : -1;
}

int canned_system(const char *line)
{
    require_text(line);
    if (fails(FAIL_SYSTEM, EAGAIN))
        return -1;
    if (!phone.fuzzed) {
        const int status = run_tool(line).status;
        record.lines.back() = "system: " + record.lines.back();
        return status;
    }
    std::string_view answer;
    if (ask_input(&answer) == outcome::FAILURE) {
        errno = EAGAIN;
        return -1;
    }
    uint16_t status = 0; // as wait() tells it: exit status, signal, or stopped
    std::copy_n(answer.data(), std::min(answer.size(), sizeof status), reinterpret_cast<char *>(&status));
    return status;
}

int canned_kill(pid_t id, int signal)
{
    require(id > 0, "a signal goes to one process, and not to a group or to all");
    require(id != OWN_ID, "the service does not signal itself");
    note("signal %d to process %d", signal, id);
    return fails(FAIL_KILL, ESRCH) ? -1 : 0;
}

pid_t canned_getpid() { return OWN_ID; }

// How much two texts differ is logged, and every C library has numbers of its own.
static int sign(int difference) { return (difference > 0) - (difference < 0); }

int canned_strncmp(const char *one, const char *other, size_t length)
{
    return sign(strncmp(one, other, length));
}

int canned_strncasecmp(const char *one, const char *other, size_t length)
{
    return sign(strncasecmp(one, other, length));
}

int canned_pthread_create(pthread_t *made, const pthread_attr_t *, void *(*routine)(void *), void *argument)
{
    *made = {};
    if (fails(FAIL_THREAD))
        return EAGAIN;
    threads.push_back({routine, argument});
    return 0;
}

int canned_pthread_detach(pthread_t) // what nobody waits for is done at once
{
    const thread last = threads.back();
    threads.pop_back();
    last.routine(last.argument);
    return 0;
}

__attribute__((noreturn)) void canned_pthread_exit(void *value) { pthread_exit(value); }

void *canned_malloc(size_t size) { return fails(FAIL_MALLOC, ENOMEM) ? nullptr : malloc(size); }

unsigned canned_sleep(unsigned seconds)
{
    record.microseconds += seconds * 1000000ULL;
    return 0;
}

int canned_usleep(useconds_t microseconds)
{
    record.microseconds += microseconds;
    return 0;
}

// ---- the four libraries

void *diagpkt_subsys_alloc(unsigned subsystem, unsigned code, unsigned length)
{
    require(subsystem == DIAG_SUBSYSTEM, "a response is asked for under the service's subsystem");
    if (fails(FAIL_RESPONSE))
        return nullptr;
    void *bytes = malloc(length);
    memset(bytes, UNSET, length);
    responses[bytes] = {code, length};
    return bytes;
}

int property_get(const char *key, char *value, const char *default_value)
{
    require_text(key);
    require_memory(value, PROPERTY_VALUE_MAX, "a property's value has room");
    std::string_view answer;
    const std::string *set = phone.fuzzed ? nullptr : property_of(key);
    const outcome found = phone.fuzzed ? ask_input(&answer) : set ? outcome::ANSWERS : outcome::NOTHING;
    if (found == outcome::FAILURE || fails(FAIL_PROPERTY_GET))
        return -1;
    if (set)
        answer = *set;
    if (found == outcome::NOTHING && default_value)
        answer = default_value;
    answer = answer.substr(0, answer.find('\0'));
    if (phone.fuzzed)
        answer = answer.substr(0, PROPERTY_VALUE_MAX - 1);
    std::copy(answer.begin(), answer.end(), value);
    value[answer.size()] = '\0';
    return static_cast<int>(answer.size());
}

int property_set(const char *key, const char *value)
{
    require_text(key);
    require_text(value);
    std::string_view answer;
    if ((phone.fuzzed && ask_input(&answer) == outcome::FAILURE) || fails(FAIL_PROPERTY_SET))
        return -1;
    if (!phone.fuzzed)
        phone.properties[key] = value;
    return 0;
}

int android_reboot(unsigned command, int flags, const char *reason)
{
    note("reboot 0x%08X, flags %d, reason %s, slept %llu s, %s", command, flags, reason ? reason : "none",
         static_cast<unsigned long long>(record.microseconds / 1000000),
         wake_locks.empty() ? "may sleep" : "awake");
    return fails(FAIL_REBOOT) ? -1 : 0;
}

int __android_log_print(int priority, const char *tag, const char *format, ...) // NOLINT: the phone's name
{
    va_list arguments;
    va_list again;
    va_start(arguments, format);
    va_copy(again, arguments);
    std::string line(static_cast<size_t>(vsnprintf(nullptr, 0, format, arguments)), '\0');
    vsnprintf(line.data(), line.size() + 1, format, again); // reads all of the arguments
    va_end(again);
    va_end(arguments);
    require(priority == ANDROID_LOG_ERROR && strcmp(tag, "Diag_Lib") == 0,
            "all is logged as Diag_Lib's errors");
    record.log.push_back(line);
    return 1;
}

int acquire_wake_lock(int level, const char *name)
{
    wake_locks.push_back(level);
    note("wake lock %d %s", level, name);
    return 0;
}

int release_wake_lock(const char *)
{
    wake_locks.pop_back();
    return 0;
}
}
