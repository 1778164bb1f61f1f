// The port's framing, byte by byte.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <utility>

#include "tests/wire.h"

namespace
{

// What a decoder makes of the input when it arrives in the given pieces: the packets and the drops, in order.
struct outcome {
    std::vector<bytes> packets;
    std::vector<port::event> drops;
};

outcome decode(const bytes &input, size_t piece = SIZE_MAX)
{
    auto decoder = std::make_unique<port::decoder>();
    outcome result;
    for (size_t begin = 0; begin < input.size(); begin += std::min(piece, input.size() - begin)) {
        const uint8_t *next = input.data() + begin;
        size_t left = std::min(piece, input.size() - begin);
        for (port::event event; (event = port::decode(decoder.get(), &next, &left)) != port::event::more;) {
            if (event == port::event::packet)
                result.packets.emplace_back(decoder->packet, decoder->packet + decoder->length);
            else
                result.drops.push_back(event);
        }
        EXPECT_EQ(left, 0u);
    }
    return result;
}

TEST(Frame, KnownCheckValueAndWireBytes)
{
    const std::string digits = "123456789";
    EXPECT_EQ(port::fcs16(reinterpret_cast<const uint8_t *>(digits.data()), digits.size()), 0x906E);
    // The low byte of the FCS goes first, and only the flag and the escape are stuffed.
    EXPECT_EQ(frame_of({'1', '2', '3', '4', '5', '6', '7', '8', '9'}),
              (bytes{'1', '2', '3', '4', '5', '6', '7', '8', '9', 0x6E, 0x90, 0x7E}));
    bytes stuffed = frame_of({0x7E, 0x7D, 0x5E, 0x11});
    EXPECT_EQ(bytes(stuffed.begin(), stuffed.begin() + 6), (bytes{0x7D, 0x5E, 0x7D, 0x5D, 0x5E, 0x11}));
}

TEST(Frame, EveryByteValueComesBackWhateverThePieces)
{
    bytes packet;
    for (int value = 0; value < 256; value++)
        packet.push_back(static_cast<uint8_t>(value));
    const bytes input = frame_of(packet) + frame_of({1, 2, 3, 4});
    for (size_t piece = 1; piece <= input.size(); piece++) {
        outcome result = decode(input, piece);
        ASSERT_EQ(result.packets, (std::vector<bytes>{packet, {1, 2, 3, 4}})) << "in pieces of " << piece;
        ASSERT_TRUE(result.drops.empty());
    }
}

TEST(Frame, SizesAtTheLimits)
{
    EXPECT_EQ(decode(frame_of(bytes(4))).packets.size(), 1u);
    for (uint8_t fill : {0x00, 0x7D}) {
        EXPECT_EQ(decode(frame_of(bytes(65535, fill))).packets, std::vector<bytes>{bytes(65535, fill)});
        EXPECT_EQ(decode(frame_of(bytes(65536, fill))).drops,
                  std::vector<port::event>{port::event::too_long});
    }
}

TEST(Frame, DropsTellWhyAndTheNextFrameIsGood)
{
    using port::event;
    bytes wrong = frame_of({1, 2, 3, 4, 5});
    wrong[2] ^= 1;
    const std::pair<bytes, std::vector<event>> cases[] = {
        {{}, {}},
        {{0x7E, 0x7E, 0x7E}, {}}, // flags between frames are free
        {wrong, {event::bad_fcs}},
        {frame_of({1, 2, 3}), {event::too_short}}, // right FCS, but no packet
        {{0x55, 0x7E}, {event::too_short}},
        {bytes{1, 2, 3, 4, 5, 6, 7} + bytes{0x7D, 0x7E}, {event::bad_fcs}}, // aborted
        {{0x7D, 0x7E}, {event::bad_fcs}},
        {frame_of(bytes(200000, 0x7E)) + frame_of({9}), {event::too_long, event::too_short}},
    };
    for (const auto &[garbage, drops] : cases) {
        outcome result = decode(garbage + frame_of({0xAA, 0xBB, 0xCC, 0xDD}));
        EXPECT_EQ(result.drops, drops);
        EXPECT_EQ(result.packets, (std::vector<bytes>{{0xAA, 0xBB, 0xCC, 0xDD}}));
    }
}

} // namespace
