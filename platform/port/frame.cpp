#include "frame.h"

#include <cstring>

namespace port
{

static constexpr uint16_t FCS_POLYNOMIAL = 0x8408; // x^16 + x^12 + x^5 + 1, bits reversed
static constexpr uint16_t FCS_INITIAL = 0xFFFF;
static constexpr uint16_t FCS_GOOD = 0xF0B8; // what remains after a packet and its own FCS

// of[k][byte]: what a byte does to the FCS when k more bytes follow it. So eight bytes are taken at once.
static constexpr size_t STEP = 8;

namespace
{

struct fcs_table {
    uint16_t of[STEP][256];
};

} // namespace

static constexpr fcs_table make_fcs_table()
{
    fcs_table table{};
    for (unsigned byte = 0; byte < 256; byte++) {
        unsigned value = byte;
        for (int bit = 0; bit < 8; bit++)
            value = (value & 1) != 0 ? (value >> 1) ^ FCS_POLYNOMIAL : value >> 1;
        table.of[0][byte] = static_cast<uint16_t>(value);
    }
    for (size_t k = 1; k < STEP; k++)
        for (unsigned byte = 0; byte < 256; byte++) {
            uint16_t before = table.of[k - 1][byte];
            table.of[k][byte] = static_cast<uint16_t>((before >> 8) ^ table.of[0][before & 0xFF]);
        }
    return table;
}

static constexpr fcs_table TABLE = make_fcs_table();

static uint16_t fcs_over(const uint8_t *bytes, size_t length)
{
    unsigned fcs = FCS_INITIAL;
    for (; length >= STEP; bytes += STEP, length -= STEP)
        fcs = TABLE.of[7][(fcs ^ bytes[0]) & 0xFF] ^ TABLE.of[6][(fcs >> 8) ^ bytes[1]] ^
              TABLE.of[5][bytes[2]] ^ TABLE.of[4][bytes[3]] ^ TABLE.of[3][bytes[4]] ^ TABLE.of[2][bytes[5]] ^
              TABLE.of[1][bytes[6]] ^ TABLE.of[0][bytes[7]];
    for (; length > 0; bytes++, length--)
        fcs = (fcs >> 8) ^ TABLE.of[0][(fcs ^ *bytes) & 0xFF];
    return static_cast<uint16_t>(fcs);
}

// Whether one of the eight bytes of `word` is `byte`.
static bool holds(uint64_t word, uint8_t byte)
{
    static constexpr uint64_t EACH = 0x0101010101010101;
    uint64_t zero_where_equal = word ^ (EACH * byte);
    return ((zero_where_equal - EACH) & ~zero_where_equal & (EACH << 7)) != 0;
}

// How many bytes from the first on are sent as they are.
static size_t plain_run(const uint8_t *bytes, size_t length)
{
    size_t run = 0;
    for (uint64_t word; run + sizeof word <= length; run += sizeof word) {
        memcpy(&word, bytes + run, sizeof word);
        if (holds(word, FLAG) || holds(word, ESCAPE))
            break;
    }
    while (run < length && bytes[run] != FLAG && bytes[run] != ESCAPE)
        run++;
    return run;
}

static uint8_t *stuff(uint8_t *out, const uint8_t *bytes, size_t length)
{
    for (size_t taken = 0; taken < length; taken++) {
        size_t run = plain_run(bytes + taken, length - taken);
        memcpy(out, bytes + taken, run);
        out += run;
        taken += run;
        if (taken < length) {
            *out++ = ESCAPE;
            *out++ = bytes[taken] ^ ESCAPE_XOR;
        }
    }
    return out;
}

// Adds to the frame; of one that is too long the rest is skipped.
static void collect(decoder *state, const uint8_t *bytes, size_t count)
{
    size_t room = sizeof state->packet - state->length;
    if (count > room) {
        count = room;
        state->oversized = true;
    }
    memcpy(state->packet + state->length, bytes, count);
    state->length += count;
}

// Judges the frame that a flag has just closed and takes its FCS off.
static event judge(decoder *state)
{
    if (state->oversized)
        return event::too_long;
    if (state->escaped)
        return event::bad_fcs;
    if (state->length < PACKET_MIN + 2)
        return event::too_short;
    if (fcs_over(state->packet, state->length) != FCS_GOOD)
        return event::bad_fcs;
    state->length -= 2;
    return event::packet;
}

uint16_t fcs16(const uint8_t *bytes, size_t length)
{
    return static_cast<uint16_t>(~fcs_over(bytes, length));
}

size_t encode(const uint8_t *packet, size_t length, uint8_t *frame)
{
    const uint16_t fcs = fcs16(packet, length);
    const uint8_t trailer[] = {static_cast<uint8_t>(fcs & 0xFF), static_cast<uint8_t>(fcs >> 8)};
    uint8_t *out = stuff(frame, packet, length);
    out = stuff(out, trailer, sizeof trailer);
    *out++ = FLAG;
    return static_cast<size_t>(out - frame);
}

event decode(decoder *state, const uint8_t **input, size_t *left)
{
    if (state->closed) {
        state->length = 0;
        state->escaped = state->oversized = state->closed = false;
    }
    while (*left > 0) {
        size_t run = state->escaped ? 0 : plain_run(*input, *left);
        if (run > 0) {
            collect(state, *input, run);
            *input += run;
            *left -= run;
            continue;
        }
        const uint8_t byte = *(*input)++;
        --*left;
        if (byte == FLAG) {
            if (state->length == 0 && !state->escaped)
                continue; // a flag between frames
            state->closed = true;
            return judge(state);
        }
        if (state->escaped) {
            const uint8_t meant = byte ^ ESCAPE_XOR;
            collect(state, &meant, 1);
            state->escaped = false;
        } else {
            state->escaped = true;
        }
    }
    return event::more;
}

} // namespace port
