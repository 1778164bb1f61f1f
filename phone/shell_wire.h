// What goes between `script/phone shell` and the shell service of the phone's init, over a Unix stream
// socket: frames of a kind (1 byte), a length (2 bytes, low first) and so many bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace shell_wire
{

constexpr size_t HEAD = 3, FRAME_MAX = 65535;

// To the phone. The first frame is OPEN: 1 with a terminal or 0 without, its rows and columns (2 bytes each,
// low first), its type ended by a NUL, and the command line; none of that is a shell.
constexpr char OPEN = 'O', INPUT = 'I' /* empty: its end */, SIZE = 'S' /* rows, columns */;
// From the phone. EXIT is the last frame: the status, 1 byte.
constexpr char OUTPUT = 'o', ERRORS = 'e', EXIT = 'x';

struct Frame {
    char kind;
    std::string bytes;
};

inline std::string number(unsigned value)
{
    return {static_cast<char>(value & 0xFF), static_cast<char>(value >> 8 & 0xFF)};
}
inline unsigned number_at(std::string_view bytes, size_t at)
{
    return at + 2 > bytes.size() ? 0
                                 : static_cast<unsigned char>(bytes[at]) |
                                       static_cast<unsigned>(static_cast<unsigned char>(bytes[at + 1])) << 8;
}

// The bytes of a frame; `bytes` are FRAME_MAX at most.
inline std::string encode(char kind, std::string_view bytes)
{
    return kind + number(static_cast<unsigned>(bytes.size())) + std::string(bytes);
}

// Takes the first frame off what has been received; false when it is not complete.
inline bool take(std::string &received, Frame &frame)
{
    if (received.size() < HEAD || received.size() < HEAD + number_at(received, 1))
        return false;
    frame.kind = received[0];
    frame.bytes = received.substr(HEAD, number_at(received, 1));
    received.erase(0, HEAD + frame.bytes.size());
    return true;
}

} // namespace shell_wire
