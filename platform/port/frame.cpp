#include "frame.h"

namespace port
{

namespace
{

constexpr uint16_t FCS_POLYNOMIAL = 0x8408; // x^16 + x^12 + x^5 + 1, bits reversed
constexpr uint16_t FCS_INITIAL = 0xFFFF;
constexpr uint16_t FCS_GOOD = 0xF0B8; // what remains after a packet and its own FCS

struct fcs_table {
    uint16_t of[256];
};

constexpr fcs_table make_fcs_table()
{
    fcs_table table{};
    for (unsigned byte = 0; byte < 256; byte++) {
        unsigned value = byte;
        for (int bit = 0; bit < 8; bit++)
            value = (value & 1) != 0 ? (value >> 1) ^ FCS_POLYNOMIAL : value >> 1;
        table.of[byte] = static_cast<uint16_t>(value);
    }
    return table;
}

constexpr fcs_table TABLE = make_fcs_table();

uint16_t fcs_add(uint16_t fcs, uint8_t byte)
{
    return static_cast<uint16_t>((fcs >> 8) ^ TABLE.of[(fcs ^ byte) & 0xFF]);
}

uint16_t fcs_over(const uint8_t *bytes, size_t length)
{
    uint16_t fcs = FCS_INITIAL;
    for (size_t i = 0; i < length; i++)
        fcs = fcs_add(fcs, bytes[i]);
    return fcs;
}

uint8_t *stuff(uint8_t *out, uint8_t byte)
{
    if (byte == FLAG || byte == ESCAPE) {
        *out++ = ESCAPE;
        byte ^= ESCAPE_XOR;
    }
    *out++ = byte;
    return out;
}

// Judges the frame that a flag has just closed and takes its FCS off.
event judge(decoder *state)
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

} // namespace

uint16_t fcs16(const uint8_t *bytes, size_t length)
{
    return static_cast<uint16_t>(~fcs_over(bytes, length));
}

size_t encode(const uint8_t *packet, size_t length, uint8_t *frame)
{
    uint8_t *out = frame;
    for (size_t i = 0; i < length; i++)
        out = stuff(out, packet[i]);
    uint16_t fcs = fcs16(packet, length);
    out = stuff(out, static_cast<uint8_t>(fcs & 0xFF));
    out = stuff(out, static_cast<uint8_t>(fcs >> 8));
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
        uint8_t byte = *(*input)++;
        --*left;
        if (byte == FLAG) {
            if (state->length == 0 && !state->escaped)
                continue; // a flag between frames
            state->closed = true;
            return judge(state);
        }
        if (state->escaped) {
            byte ^= ESCAPE_XOR;
            state->escaped = false;
        } else if (byte == ESCAPE) {
            state->escaped = true;
            continue;
        }
        if (state->length == sizeof state->packet)
            state->oversized = true; // skip to the next flag
        else
            state->packet[state->length++] = byte;
    }
    return event::more;
}

} // namespace port
