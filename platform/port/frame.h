// The framing of the diagnostic port, shared by the router and the station.
//
// On the wire a frame is the packet followed by its FCS-16 (RFC 1662 appendix C, low byte first). In both,
// 0x7E and 0x7D are sent as 0x7D and the byte xor 0x20; the frame is closed by the flag 0x7E. Flags between
// frames are free.
#pragma once

#include <cstddef>
#include <cstdint>

namespace port
{

constexpr uint8_t FLAG = 0x7E;
constexpr uint8_t ESCAPE = 0x7D;
constexpr uint8_t ESCAPE_XOR = 0x20;

// A packet's size in bytes, FCS and stuffing not counted.
constexpr size_t PACKET_MIN = 4;
constexpr size_t PACKET_MAX = 65535;

// What the router answers to a packet that nobody serves: this byte, then the first bytes of the refused
// packet, at most ERROR_ECHO_MAX of them.
constexpr uint8_t ERROR_PACKET = 0x13;
constexpr size_t ERROR_ECHO_MAX = 16;

// The FCS-16 of `length` bytes, as it is transmitted (complemented). "123456789" gives 0x906E.
uint16_t fcs16(const uint8_t *bytes, size_t length);

// The most bytes that encode() writes for a packet of `length` bytes: everything escaped, the FCS and the
// flag.
constexpr size_t encoded_max(size_t length) { return 2 * (length + 2) + 1; }

// Writes the frame of `packet` to `frame`, which holds at least encoded_max(length) bytes and does not
// overlap it. Returns the frame's size. The length is not judged, so that a test can build frames that the
// router must drop.
size_t encode(const uint8_t *packet, size_t length, uint8_t *frame);

enum class event {
    more,      // the input is used up and no frame is complete
    packet,    // a good packet lies in the decoder
    bad_fcs,   // dropped: the FCS is wrong, or the flag came right behind an escape (an aborted frame)
    too_short, // dropped: fewer than PACKET_MIN bytes
    too_long,  // dropped: more than PACKET_MAX bytes
};

// One direction of one connection. All its memory is inside; a zeroed one, or one begun with `decoder d{}`,
// is ready. Only `packet` and `length` are for callers, and only right after decode() returned event::packet.
struct decoder {
    size_t length;  // bytes collected; after event::packet the packet's size
    bool escaped;   // the last byte was an escape
    bool closed;    // the last byte was a flag: the next begins a frame
    bool oversized; // the frame has more bytes than a packet and its FCS
    uint8_t packet[PACKET_MAX + 2];
};

// Takes bytes from *input, of which *left remain, up to and including the flag that closes the next frame,
// and advances both. Call it until it returns event::more; every other value tells of one frame. A frame may
// be split over calls at any byte. Bytes after a dropped frame's flag begin a new frame.
event decode(decoder *state, const uint8_t **input, size_t *left);

} // namespace port
