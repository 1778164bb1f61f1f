// Every handler, through the registered table, with whatever a station may send and whatever the phone may
// answer.
//
// An input is a byte of flags, a byte for the phone's writes, the request from its command code on (code,
// selector, data length, data), and what the phone answers, one after the other in the order asked. Data and
// answers are ended by SEPARATOR.
#include <diag.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "core/packet.h"
#include "core/shell.h"
#include "core/table.h"
#include "fuzz/canned_phone.h"
#include "hwdec/detect.h"

namespace
{

constexpr std::string_view SEPARATOR = "\xFF\xFE\xFD";

enum flag : uint8_t {
    NO_RESPONSE_BUFFER = 0x01,
    SILENT = 0x02,
    ASKED_TWICE = 0x04,
    LENGTH_AS_SENT = 0x08, // otherwise the data's own
    READS_FAIL = 0x10,
    THREADS_FAIL = 0x20,
};
constexpr size_t FLAGS = 0;
constexpr size_t WRITES = 1;
constexpr size_t CODE = 2;
constexpr size_t SELECTOR = 4;
constexpr size_t LENGTH = 5;
constexpr size_t HEADER = 7;

constexpr size_t PACKET_MAX = 65535;
constexpr size_t REQUEST_ROOM = PACKET_MAX + 1024;

// The commands that may leave something open: a node that does not hold what was expected, a partition that
// refuses a write, a tool that takes its time.
constexpr uint16_t LEAVE_ONE_OPEN[] = {0xE600, 0x0C0A, 0x1501, 0xCA00, 0x2000, 0x2600};

uint16_t read_u16(const uint8_t *bytes) { return static_cast<uint16_t>(bytes[0] | bytes[1] << 8); }

// The code itself when it is served, else one that is.
uint16_t served_code(uint16_t code, diagpkt_handler *handler)
{
    const diagpkt_entry *entries = diag_command_table.entries;
    for (size_t i = 0; i < diag_command_table.count; i++) {
        if (entries[i].low <= code && code <= entries[i].high) {
            *handler = entries[i].handler;
            return code;
        }
    }
    const diagpkt_entry &entry = entries[code % diag_command_table.count];
    *handler = entry.handler;
    return entry.low;
}

size_t may_leave_open(uint16_t code)
{
    for (uint16_t each : LEAVE_ONE_OPEN)
        if (each == code)
            return 1;
    return 0;
}

void judge(const uint8_t *response, const uint8_t *head, bool allocation_fails)
{
    if (allocation_fails) {
        require(response == nullptr, "without a buffer there is no response");
        return;
    }
    require(responses().size() == 1 && responses()[0].bytes == response, "one buffer, and it is answered");
    const canned_response &told = responses()[0];
    require(told.size == ECHO_RESPONSE || told.size == TEXT_RESPONSE || told.size == LONG_RESPONSE,
            "a response has one of the known sizes");
    require(memcmp(response, head, ECHO_RESPONSE) == 0, "head and selector are echoed");
    if (told.size > PACKET_DATA)
        require(packet_length(response) <= told.size - PACKET_DATA, "the length fits the response");
}

void forget_detections()
{
    dec_check_flag_long = 0;
    hw_dec_done_flag = 0;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *input, size_t size)
{
    // Its end is guarded. All of it is cleared for each request, as the router does.
    static auto *const request = static_cast<uint8_t *>(malloc(REQUEST_ROOM));
    uint8_t header[HEADER] = {};
    const size_t given = std::min(size, sizeof header);
    std::copy(input, input + given, header);

    std::vector<std::string_view> pieces;
    std::string_view rest(reinterpret_cast<const char *>(input) + given, size - given);
    for (size_t end = 0; end != std::string_view::npos;) {
        end = rest.find(SEPARATOR);
        pieces.push_back(rest.substr(0, end));
        rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + SEPARATOR.size());
    }
    const std::string_view data = pieces.front().substr(0, PACKET_MAX - PACKET_DATA);
    pieces.erase(pieces.begin());

    const uint8_t flags = header[FLAGS];
    diagpkt_handler handler;
    const uint16_t code = served_code(read_u16(header + CODE), &handler);
    const size_t length = flags & LENGTH_AS_SENT ? read_u16(header + LENGTH) : data.size();

    canned_phone phone;
    phone.answers = std::move(pieces);
    phone.write_limit = header[WRITES];
    phone.reads_fail = flags & READS_FAIL;
    phone.threads_fail = flags & THREADS_FAIL;
    phone.allocation_fails = flags & NO_RESPONSE_BUFFER;
    const bool allocation_fails = phone.allocation_fails;
    boot(std::move(phone));

    diag_quiet_flag = hw_dec_log_suppressed = flags & SILENT ? 1 : 0;
    forget_detections();
    for (int times = flags & ASKED_TWICE ? 2 : 1; times > 0; times--) {
        const uint8_t head[] = {75, DIAG_SUBSYSTEM, static_cast<uint8_t>(code),
                                static_cast<uint8_t>(code >> 8), header[SELECTOR]};
        memset(request, 0, REQUEST_ROOM);
        memcpy(request, head, sizeof head);
        request[LENGTH] = static_cast<uint8_t>(length);
        request[LENGTH + 1] = static_cast<uint8_t>(length >> 8);
        std::copy(data.begin(), data.end(), request + PACKET_DATA);

        void *response = handler(request, static_cast<uint16_t>(PACKET_DATA + data.size()));
        judge(static_cast<uint8_t *>(response), head, allocation_fails);
        free_responses();
        require(close_left_open() <= may_leave_open(code), "no descriptor and no tool is left behind");
    }
    return 0;
}
