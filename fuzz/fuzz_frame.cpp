// The framing of the port, against a decoder that takes one byte at a time and computes the FCS bit by bit.
//
// An input is a byte for how the rest is split, a byte that lets the first frame begin with enough plain
// bytes to be about as long as a packet may be, and the bytes on the wire.
#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "platform/port/frame.h"

namespace
{

using bytes = std::vector<uint8_t>;

constexpr size_t HEADER = 2;
constexpr uint8_t LONG_FRAME = 0xFC; // the second byte from here on: such a frame takes its time
constexpr size_t LONG_PREFIX = port::PACKET_MAX - 4;

struct told {
    port::event event;
    bytes packet;
    bool operator==(const told &other) const { return event == other.event && packet == other.packet; }
};

void require(bool condition)
{
    if (!condition)
        abort();
}

uint16_t fcs_by_bit(const uint8_t *next, size_t length)
{
    unsigned fcs = 0xFFFF;
    for (; length > 0; next++, length--) {
        fcs ^= *next;
        for (int bit = 0; bit < 8; bit++)
            fcs = fcs & 1 ? fcs >> 1 ^ 0x8408 : fcs >> 1;
    }
    return static_cast<uint16_t>(~fcs);
}

told judge(const bytes &frame, bool aborted)
{
    if (frame.size() > port::PACKET_MAX + 2)
        return {port::event::too_long, {}};
    if (aborted)
        return {port::event::bad_fcs, {}};
    if (frame.size() < port::PACKET_MIN + 2)
        return {port::event::too_short, {}};
    size_t length = frame.size() - 2;
    if (fcs_by_bit(frame.data(), length) != (frame[length] | frame[length + 1] << 8))
        return {port::event::bad_fcs, {}};
    return {port::event::packet, bytes(frame.begin(), frame.end() - 2)};
}

std::vector<told> decode_simply(const bytes &wire)
{
    std::vector<told> all;
    bytes frame;
    bool escaped = false;
    for (uint8_t byte : wire) {
        if (byte == port::FLAG) {
            if (!frame.empty() || escaped)
                all.push_back(judge(frame, escaped));
            frame.clear();
            escaped = false;
        } else if (byte == port::ESCAPE && !escaped) {
            escaped = true;
        } else {
            frame.push_back(escaped ? byte ^ port::ESCAPE_XOR : byte);
            escaped = false;
        }
    }
    return all;
}

// Each part in a buffer of its own, whose ends are guarded.
std::vector<told> decode_in_parts(const bytes &wire, unsigned seed)
{
    static const auto decoder = std::make_unique<port::decoder>();
    memset(decoder.get(), 0, offsetof(port::decoder, packet));
    std::vector<told> all;
    for (size_t begin = 0; begin < wire.size();) {
        seed = seed * 1103515245 + 12345;
        size_t count = wire.size() > port::PACKET_MAX / 2 ? 1 + (seed >> 8) % 16384 : 1 + (seed >> 16) % 16;
        count = seed % 8 == 0 || count > wire.size() - begin ? wire.size() - begin : count;
        bytes part(wire.begin() + static_cast<long>(begin), wire.begin() + static_cast<long>(begin + count));
        part.shrink_to_fit();
        begin += count;

        const uint8_t *next = part.data();
        size_t left = part.size();
        for (;;) {
            port::event event = port::decode(decoder.get(), &next, &left);
            require(next + left == part.data() + part.size());
            if (event == port::event::more)
                break;
            bytes packet;
            if (event == port::event::packet)
                packet.assign(decoder->packet, decoder->packet + decoder->length);
            all.push_back({event, packet});
        }
        require(left == 0);
    }
    return all;
}

bytes encode(const bytes &packet)
{
    bytes frame(port::encoded_max(packet.size()));
    size_t size = port::encode(packet.data(), packet.size(), frame.data());
    require(size <= frame.size());
    frame.resize(size);
    return frame;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *input, size_t size)
{
    uint8_t header[HEADER] = {};
    const size_t given = std::min(size, sizeof header);
    std::copy(input, input + given, header);
    bytes wire;
    if (header[1] >= LONG_FRAME)
        wire.resize(LONG_PREFIX + (header[1] - LONG_FRAME), 'x');
    wire.insert(wire.end(), input + given, input + size);

    // However the bytes are split, the same frames are told.
    const std::vector<told> expected = decode_simply(wire);
    require(decode_in_parts(wire, header[0]) == expected);

    // A packet comes back as it went out; whatever was on the wire before, a flag makes room for it.
    const bytes frame = encode(wire);
    bytes resynced = wire;
    resynced.push_back(port::FLAG);
    const size_t before = decode_simply(resynced).size();
    resynced.insert(resynced.end(), frame.begin(), frame.end());
    const std::vector<told> all = decode_in_parts(resynced, header[0]);
    if (wire.empty()) // the FCS alone
        return 0;
    require(all.size() == before + 1);
    if (wire.size() < port::PACKET_MIN)
        require(all.back().event == port::event::too_short);
    else if (wire.size() > port::PACKET_MAX)
        require(all.back().event == port::event::too_long);
    else
        require(all.back() == told{port::event::packet, wire});
    return 0;
}
