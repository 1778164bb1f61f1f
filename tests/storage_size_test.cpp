// Memory, flash and disk over the whole range of their sizes; the transcripts have one of each in full.
#include <gtest/gtest.h>

#include "tests/canned/phone.h"

namespace
{
struct bound {
    long kib; // from which on it is
    int gib;  // of that size, up to the next bound
};
} // namespace

static constexpr bound MEMORY[] = {
    {0, 0},         {0x100400, 2},  {0x200400, 3},  {0x300400, 4},  {0x400400, 6},  {0x600400, 8},
    {0x800400, 10}, {0xA00400, 12}, {0xC00400, 14}, {0xE00400, 16}, {0x1000400, 0},
};
static constexpr bound STORAGE[] = {
    {0, 0},           {0x800400, 16},    {0x1000400, 32},    {0x2000400, 64}, {0x4000400, 128},
    {0x8000400, 256}, {0x10000400, 512}, {0x20000400, 1024}, {0x40000400, 0},
};
static constexpr char MEMORY_TOTAL[] = "cat proc/meminfo | grep MemTotal:|sed -e 's/.*:[^0-9]//'";
static constexpr char DISK_SIZE[] = "cat /proc/partitions | grep nvme0n1 | tr -s ' ' | cut -f4 -d ' '";

// What two digits tell, of which the counted length ends before the first 0.
static int size_of(const canned_answer &answer)
{
    const auto low = static_cast<unsigned char>(answer.bytes[7]);
    const auto high = static_cast<unsigned char>(answer.bytes[8]);
    EXPECT_EQ(answer.length, low == 0 ? 0U : high == 0 ? 1U : 2U);
    return low + 255 * high;
}

// Asks at each bound and just below it.
template <size_t COUNT, typename Ask> static void expect_sizes(const bound (&bounds)[COUNT], Ask ask_for)
{
    for (size_t i = 1; i < COUNT; i++) {
        EXPECT_EQ(ask_for(bounds[i].kib - 1), bounds[i - 1].gib) << bounds[i].kib - 1;
        EXPECT_EQ(ask_for(bounds[i].kib), bounds[i].gib) << bounds[i].kib;
    }
}

static canned_answer ask_tool(uint16_t code, const char *line, long number)
{
    canned_phone phone;
    phone.tools = {{line, {{std::to_string(number) + " kB\n", 0}}}};
    boot(phone);
    return ask(code);
}

static canned_answer ask_flash(const std::string &units)
{
    canned_phone phone;
    phone.nodes["/proc/partitions"].content = units;
    boot(phone);
    return ask(0x0B00);
}

TEST(Sizes, OfMemory)
{
    expect_sizes(MEMORY, [](long kib) { return size_of(ask_tool(0x0A00, MEMORY_TOTAL, kib)); });
}

TEST(Sizes, OfDisks)
{
    expect_sizes(STORAGE, [](long kib) {
        const canned_answer answer = ask_tool(0x2100, DISK_SIZE, kib);
        return answer.text == "ERROR" ? 0 : size_of(answer);
    });
}

TEST(Sizes, OfFlashAreTheSumOfSixUnits)
{
    for (const char large : {'a', 'b', 'c', 'd', 'e', 'f'}) {
        expect_sizes(STORAGE, [large](long kib) {
            std::string units;
            for (const char unit : {'a', 'b', 'c', 'd', 'e', 'f'})
                units += "8 0 " + std::to_string(unit == large ? kib - 5120 : 1024) + " sd" + unit +
                         "\n8 1 9999999 sd" + unit + "1\n";
            const int size = size_of(ask_flash(units));
            if (kib < 0x40000400 || large == 'f')
                return size;
            return size - 1024; // a sum that leaves the table keeps the size that it had before
        });
    }
}

TEST(Sizes, AreToldInBase255)
{
    for (int gib = 1; gib < 1100; gib++) {
        canned_phone phone;
        phone.nodes["/proc/partitions"].kind = canned_node::GONE;
        phone.tools = {{"ghr", {{"memTotal: " + std::to_string(gib) + "\n", 0}}}};
        boot(phone);
        EXPECT_EQ(size_of(ask(0x0B00)), gib);
    }
}
