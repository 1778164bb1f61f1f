// The registered table, and a service that has answered a thousand requests.
#include "core/table.h"

#include <sys/wait.h>

#include "tests/sample_phone.h"

// Its entries are compared with the station's catalogue, where that is built.
TEST(Table, IsForTheSubsystemAndHoldsEachCodeOnce)
{
    const diagpkt_table &table = diag_command_table;
    EXPECT_EQ(table.delay, 0);
    EXPECT_EQ(table.command, 0xFF);
    EXPECT_EQ(table.subsystem, 250);
    EXPECT_EQ(table.processor, 0);
    ASSERT_EQ(table.count, 109);
    std::set<int> codes;
    for (const diagpkt_entry *entry = table.entries; entry < table.entries + table.count; entry++)
        for (int code = entry->low; code <= entry->high; code++)
            EXPECT_TRUE(codes.insert(code).second) << code;
    EXPECT_EQ(codes.size(), 113u);
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
