// A phone that exists in the fuzzed bytes alone. Whatever the service asks of the system or of the four
// libraries, a tool's output, a node's content, a property's value, takes the next of a list of answers. No
// file is opened, no process started or signalled, no time spent.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

// The answer of a call that fails. Without an answer left, a tool prints nothing, a property is not set, and
// nothing is there to be opened.
constexpr std::string_view FAILS = "\xFE";

// How much each write takes: all, at most so many bytes, or:
constexpr uint8_t WRITES_ALL = 0;
constexpr uint8_t WRITES_NOTHING = 0xFE;
constexpr uint8_t WRITES_FAIL = 0xFF;

struct canned_phone {
    std::vector<std::string_view> answers;
    uint8_t write_limit = WRITES_ALL;
    bool reads_fail = false;
    bool threads_fail = false;
    bool allocation_fails = false; // of the response
};

// From now on the service is on this phone. The bytes that its answers point at must outlive the requests.
void boot(canned_phone phone);

// What the service got from diagpkt_subsys_alloc since boot() or the last free_responses().
struct canned_response {
    size_t size;
    uint8_t *bytes;
};
const std::vector<canned_response> &responses();
void free_responses();

// Closes what the service has left open: descriptors, streams and folders. Returns how many there were.
size_t close_left_open();

// Ends the run as a fault that the fuzzer keeps.
void require(bool condition, const char *promise);
