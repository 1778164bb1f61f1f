// The registered table, and a service that has answered a thousand requests.
#include "core/table.h"

#include <sys/wait.h>

#include "tests/sample_phone.h"

// The first code of each entry, in the order that is part of the interface. The handlers behind them are
// compared with the station's catalogue, where that is built.
static constexpr uint16_t CODES[] = {
    0x001E, 0x0028, 0x0029, 0x0100, 0x0101, 0x010B, 0x0116, 0x0117, 0x0128, 0x0129, 0x012A, 0x012C, 0x012D,
    0x0132, 0x0133, 0x013C, 0x013D, 0x013E, 0x013F, 0x0141, 0x0142, 0x0143, 0x0A00, 0x0B00, 0x0B01, 0x0B0A,
    0x0B15, 0x0B1E, 0x0140, 0x1300, 0x1301, 0x1302, 0x0C00, 0x0C01, 0x0C1E, 0x0C0A, 0x0C0B, 0x0C0C, 0x0F00,
    0x0F01, 0x0F02, 0x0B14, 0x1400, 0x1500, 0x1501, 0x1502, 0x1E00, 0x1E01, 0x2000, 0x2001, 0x2003, 0x2004,
    0x2100, 0x2101, 0x2102, 0x2103, 0x2400, 0x2401, 0x2402, 0x2403, 0x2600, 0x3600, 0x3601, 0x3602, 0x3800,
    0x3801, 0x3802, 0x3803, 0x3807, 0x3808, 0x3809, 0x3201, 0x3202, 0x3203, 0x3204, 0x3205, 0x3206, 0x3207,
    0x3208, 0x3209, 0x320A, 0x320B, 0x320C, 0x320D, 0x320E, 0x320F, 0x5000, 0xC800, 0xC801, 0xC802, 0xCA00,
    0xD200, 0xD201, 0xD20A, 0xD20B, 0xD214, 0xD215, 0xD21E, 0xD228, 0xD232, 0xD23C, 0xE600, 0xE601, 0xE602,
    0xE603, 0xE604, 0xE605, 0xE606, 0xE607,
};

TEST(Table, IsForTheSubsystemAndHoldsItsCodesInOrder)
{
    const diagpkt_table &table = diag_command_table;
    EXPECT_EQ(table.delay, 0);
    EXPECT_EQ(table.command, 0xFF);
    EXPECT_EQ(table.subsystem, 250);
    EXPECT_EQ(table.processor, 0);
    ASSERT_EQ(table.count, 109);
    for (int i = 0; i < table.count; i++) {
        uint16_t more = CODES[i] == 0x0C01 ? 3 : CODES[i] == 0x0C1E ? 1 : 0; // two entries are ranges
        EXPECT_EQ(table.entries[i].low, CODES[i]);
        EXPECT_EQ(table.entries[i].high, CODES[i] + more);
    }
}

using ManyRequests = SamplePhone;

TEST_F(ManyRequests, LeaveBehindOnlyWhatIsMeantToBeLeft)
{
    constexpr int REQUESTS = 1000;
    int commands_left = 0; // of the streams left open
    size_t power_actions = 0;
    for (int i = 0; i < REQUESTS; i++) {
        const sample &request = samples()[static_cast<size_t>(i) * 7 % samples().size()];
        prepare_for(request);
        forget_log();
        response answer = ask(request.code, request.selector, request.data, request.length);
        EXPECT_EQ(answer.text, request.answer) << request.code;
        EXPECT_EQ(answer.bytes.size(), response_of(request.code)) << request.code;
        descriptors_left_open += request.left_open;
        if (request.code == 0x2000 || request.code == 0x2600)
            commands_left++;
        if (request.starts_power_action())
            power_actions++;
    }
    wait_for_reboots(power_actions);
    int children = 0;
    while (waitpid(-1, nullptr, 0) > 0)
        children++;
    EXPECT_EQ(children, commands_left);
}
