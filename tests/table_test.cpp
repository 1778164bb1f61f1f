// The registered table, and a service that has answered a thousand requests.
#include "core/table.h"

#include <sys/wait.h>

#include "tests/command_list.h"
#include "tests/sample_phone.h"

TEST(Table, IsWhatTheStationsKnow)
{
    const diagpkt_table &table = diag_command_table;
    EXPECT_EQ(table.delay, 0);
    EXPECT_EQ(table.command, 0xFF);
    EXPECT_EQ(table.subsystem, 250);
    EXPECT_EQ(table.processor, 0);
    ASSERT_EQ(table.count, COMMAND_COUNT);
    for (int i = 0; i < COMMAND_COUNT; i++) {
        EXPECT_EQ(table.entries[i].low, COMMANDS[i].low) << COMMANDS[i].name;
        EXPECT_EQ(table.entries[i].high, COMMANDS[i].high) << COMMANDS[i].name;
        EXPECT_EQ(table.entries[i].handler, COMMANDS[i].handler) << COMMANDS[i].name;
    }
}

class ManyRequests : public SamplePhone
{
};

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
        const known_command &command = *command_of(request.code);
        EXPECT_EQ(answer.text, request.answer) << command.name;
        EXPECT_EQ(answer.bytes.size(), command.response) << command.name;
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
