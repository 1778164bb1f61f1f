// Every handler, through the registered table, with whatever a station may send and whatever the phone may
// answer.
//
// An input is a byte of flags, a byte for the phone's writes, the request from its command code on (code,
// selector, data length, data), and what the phone answers, one after the other in the order asked. Data and
// answers are ended by SEPARATOR.
#include <diag.h>

#include <algorithm>

#include "core/packet.h"
#include "core/shell.h"
#include "core/table.h"
#include "hwdec/detect.h"
#include "tests/canned/phone.h"

static constexpr std::string_view SEPARATOR = "\xFF\xFE\xFD";

namespace
{

enum flag : uint8_t {
    NO_RESPONSE_BUFFER = 0x01,
    SILENT = 0x02,
    ASKED_TWICE = 0x04,
    LENGTH_AS_SENT = 0x08, // otherwise the data's own
    READS_FAIL = 0x10,
    THREADS_FAIL = 0x20,
};

} // namespace

static constexpr size_t FLAGS = 0;
static constexpr size_t WRITES = 1;
static constexpr size_t CODE = 2;
static constexpr size_t SELECTOR = 4;
static constexpr size_t LENGTH = 5;
static constexpr size_t HEADER = 7;

// How much each write takes: all, at most so many bytes, or:
static constexpr uint8_t WRITES_ALL = 0;
static constexpr uint8_t WRITES_NOTHING = 0xFE;
static constexpr uint8_t WRITES_FAIL = 0xFF;

static uint16_t read_u16(const uint8_t *bytes) { return static_cast<uint16_t>(bytes[0] | bytes[1] << 8); }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *input, size_t size)
{
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
    const std::string_view data = pieces.front();
    pieces.erase(pieces.begin());

    const uint8_t flags = header[FLAGS];
    uint16_t code = read_u16(header + CODE);
    if (!entry_of(code)) // stands for one that is served
        code = diag_command_table.entries[code % diag_command_table.count].low;

    canned_phone phone;
    phone.fuzzed = true;
    phone.answers = std::move(pieces);
    const uint8_t writes = header[WRITES];
    if (writes != WRITES_ALL)
        phone.write_limit = writes;
    const std::pair<bool, canned_call> faults[] = {
        {flags & NO_RESPONSE_BUFFER, FAIL_RESPONSE}, {flags & READS_FAIL, FAIL_READ},
        {flags & THREADS_FAIL, FAIL_THREAD},         {writes == WRITES_NOTHING, FAIL_WRITE_NONE},
        {writes == WRITES_FAIL, FAIL_WRITE},
    };
    for (const auto &[wanted, call] : faults)
        if (wanted)
            phone.faults.push_back({call, 0});
    boot(std::move(phone));

    diag_quiet_flag = hw_dec_log_suppressed = flags & SILENT ? 1 : 0;
    for (int times = flags & ASKED_TWICE ? 2 : 1; times > 0; times--) {
        const canned_answer answer =
            ask(code, header[SELECTOR], data, flags & LENGTH_AS_SENT ? read_u16(header + LENGTH) : -1);
        require(answer.none == static_cast<bool>(flags & NO_RESPONSE_BUFFER),
                "an answer, unless there is no buffer");
        require(close_left_open().size() <= may_leave_open(code), "no descriptor and no tool is left behind");
    }
    return 0;
}
