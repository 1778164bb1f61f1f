// The one double of the phone, in memory: for transcripts, unit tests, fault injection and fuzzing.
// `redirect` sends to it whatever the service asks of the system, and it has the four libraries under their
// own names. No file is opened, no process started or signalled, no time spent.
//
// A healthy phone's nodes and properties are those of phone/; a test states what differs, and what tools
// print. A fuzzed phone exists in the input alone: whatever it is asked takes the next of a list of answers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct diagpkt_entry;

// The calls that can be made to fail. Those with a name of two words fail in a way of their own: nothing or
// one byte is taken.
enum canned_call {
    FAIL_OPEN,
    FAIL_FOPEN,
    FAIL_OPENDIR,
    FAIL_ACCESS,
    FAIL_READ,
    FAIL_READ_NONE,
    FAIL_READ_PART,
    FAIL_WRITE,
    FAIL_WRITE_NONE,
    FAIL_WRITE_PART,
    FAIL_LSEEK,
    FAIL_FSYNC,
    FAIL_IOCTL,
    FAIL_KILL,
    FAIL_POPEN,
    FAIL_SYSTEM,
    FAIL_THREAD,
    FAIL_PROPERTY_GET,
    FAIL_PROPERTY_SET,
    FAIL_REBOOT,
    FAIL_RESPONSE,
    FAIL_MALLOC,
    FAIL_LOG,
    FAIL_LOG_NONE,
    FAIL_LOG_PART,
    CANNED_CALLS
};
extern const char *const CANNED_CALL_NAMES[CANNED_CALLS];

struct canned_fault {
    canned_call call;
    int number; // 1 for its first call; 0: all of them
};

struct canned_node {
    enum node_kind { REGULAR, FOLDER, LINK, NULL_DEVICE, GONE };
    std::string content;      // of a link: its target
    node_kind kind = REGULAR; // the null device takes everything and keeps nothing
    unsigned mode = 0;        // with which the service has made it
};

// A line that is run, or one stage of a pipeline, and what it prints: each run takes the next output, the
// last one stays. A line that ends in "*" stands for all that begin so. Lines without a rule print nothing;
// cat, echo, grep and rm do what they are for.
struct canned_tool {
    struct run {
        std::string output;
        int status = 0; // as wait() tells it
    };
    std::string line;
    std::vector<run> runs;
    size_t next = 0;
};

struct canned_phone {
    std::map<std::string, canned_node, std::less<>>
        nodes; // other than on the healthy phone, by absolute path
    std::map<std::string, std::optional<std::string>, std::less<>> properties; // the same; no value: not set
    std::vector<canned_tool> tools;
    std::vector<canned_fault> faults;
    int32_t power_state = 0;  // what a device answers to ioctl
    bool null_output = false; // standard output is the null device

    // Fuzzing. The bytes that the answers point at must outlive the requests.
    bool fuzzed = false;
    std::vector<std::string_view> answers;
    size_t write_limit = SIZE_MAX; // how much each write takes
};
// The answer of a call that fails. Without an answer left, a tool prints nothing, a property is not set, and
// nothing is there to be opened.
constexpr std::string_view FAILS = "\xFE";

// What the service has done since boot() or the beginning of the last request.
struct canned_record {
    std::vector<std::string> log;   // messages, as the phone's log got them
    std::string out;                // as standard output got them
    std::vector<std::string> lines; // that were run: by system() with "system: " before
    std::vector<std::string> deeds; // kills, reboots, wake locks, properties set
    uint64_t microseconds = 0;      // slept
    int counts[CANNED_CALLS] = {};
};

// Before a tool's line that is to be found in the phone's folders.
constexpr std::string_view PATH_PREFIX =
    "export PATH=/sbin:/system/sbin:/system/bin:/system/xbin:/vendor/bin:/vendor/xbin; ";

// From now on the service is on this phone; it forgets what it knew of another.
void boot(canned_phone phone);
canned_phone &the_phone();
canned_record &the_record();
// A node or property as it is now; null when it is not there.
const canned_node *healthy_node(const std::string &path);
const canned_node *node_at(const std::string &path);
const std::string *property_of(const std::string &key);

struct canned_answer {
    bool none = true;           // no reply
    const void *data = nullptr; // where the request's data was
    unsigned code = 0;          // under which the response was drawn
    std::string bytes;          // the whole response
    size_t length = 0;          // as bytes 5-6 tell
    std::string text;           // that many bytes of the data
    size_t logged = 0;          // messages before the answer; those behind are of threads
};
const diagpkt_entry *entry_of(uint16_t code); // of the registered table, or null
// Sends a request as the router does, then lets the threads run that it has started. Ends the run when what
// comes back is no answer. `length` is what bytes 5-6 say, by default the number of data bytes.
canned_answer ask(uint16_t code, uint8_t selector = 0, std::string_view data = {}, int length = -1);

// What the service has left open, by path or line; all of it is closed.
std::vector<std::string> close_left_open();
// How much a command may leave open: a node that does not hold what was expected, a partition that refuses a
// write, a tool that takes its time.
size_t may_leave_open(uint16_t code);

// Ends the run as a fault; `what_is_tried` tells of which request.
void require(bool condition, const char *promise);
extern std::string what_is_tried;
