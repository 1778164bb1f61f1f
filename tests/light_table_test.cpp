// The tables of the RGB light over the range of their curves; the transcripts have one of each command in
// full.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>

#include "tests/canned/phone.h"

static constexpr char TABLE[] = "/mnt/vendor/persist/rgb_data.bin";

static std::string record(int32_t a, int32_t b, int32_t k, int32_t d)
{
    std::string out;
    for (int32_t value : {a, b, k, d})
        for (int shift = 0; shift < 32; shift += 8)
            out += static_cast<char>(static_cast<uint32_t>(value) >> shift);
    return out;
}

// The line whose entry at each step is what `value` says, and 0 at step 0.
template <typename Value> static std::string line_of(Value value)
{
    std::string line = "00";
    char digits[3];
    for (int x = 1; x < 256; x++) {
        snprintf(digits, sizeof digits, "%02X", static_cast<unsigned>(value(x)) & 0xFF);
        line += digits;
    }
    return line + "\n";
}

static std::string constant(int value)
{
    return line_of([value](int) { return value; });
}

static std::string table_of(uint16_t code, const std::string &records)
{
    canned_phone phone;
    phone.nodes["/mnt/vendor/persist"].kind = canned_node::FOLDER;
    boot(phone);
    EXPECT_EQ(ask(code, 0, records).text, "OK");
    return node_at(TABLE)->content;
}

TEST(LightTable, FollowsItsCurve)
{
    constexpr int32_t HIGH = INT32_MAX;
    constexpr int32_t LOW = INT32_MIN;
    const std::pair<std::string, std::string> curves[] = {
        {record(0, 0, 2550000, 12345), constant(255)},
        {record(0, 10000, 0, 255), line_of([](int x) { return x; })},
        {record(0, -10000, 0, -255), line_of([](int x) { return x; })},
        {record(0, 5000, 0, 255), line_of([](int x) { return (x + 1) / 2; })}, // halves upwards
        {record(10000, 0, 0, 15), line_of([](int x) { return (2 * x * x + 289) / (2 * 289); })}, // (x/17)^2
        {record(0, 20000, 0, 255), line_of([](int x) { return std::min(2 * x, 255); })},
        {record(0, 10000, -1000000, 255), line_of([](int x) { return std::max(x - 100, 0); })},
        {record(0, 0, 4999, 255), constant(0)},
        {record(0, 0, 5000, 255), constant(1)},
        {record(0, -1, 5000, 1), constant(0)}, // 4999 and a fraction, which is dropped before the scaling
        {record(0, 0, 2544999, 0), constant(254)},
        {record(-3, -20, -70000, 255), constant(0)},
        {record(HIGH, HIGH, HIGH, HIGH), constant(255)},
        {record(LOW, LOW, LOW, HIGH), constant(0)},
        {record(LOW, 0, HIGH, LOW), constant(0)},
    };
    std::string records;
    std::string lines;
    for (const auto &[curve, line] : curves) {
        records += curve;
        lines += line;
    }
    EXPECT_EQ(table_of(0x3802, records), lines);
    EXPECT_EQ(table_of(0x3809, records), lines.substr(0, 3 * 513));
    // A product fused with the sum behind it would give 2 here.
    EXPECT_EQ(table_of(0x3809, record(225, -51783, -142300, 340)).substr(2 * 175, 2), "03");
}
