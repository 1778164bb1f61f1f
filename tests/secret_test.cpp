// Secrets of the key commands: cleared where they were kept, told in hexadecimal.
#include <gtest/gtest.h>

#include <algorithm>
#include <new>

#include "commands/security_keys/secret.h"
#include "tests/canned/phone.h"

TEST(Secret, IsGoneAfterItsScope)
{
    alignas(secret<16>) unsigned char memory[sizeof(secret<16>)];
    auto *buffer = new (memory) secret<16>;
    std::fill_n(buffer->bytes, 16, 's');
    buffer->~secret();
    EXPECT_TRUE(std::all_of(memory, memory + sizeof memory, [](unsigned char byte) { return byte == 0; }));
}

TEST(Secret, CardDataIsHexadecimalWhateverTheByte)
{
    for (int byte = 0; byte < 256; byte++) {
        if (byte == '\n') // would end the line
            continue;
        char digits[3];
        snprintf(digits, sizeof digits, "%02X", static_cast<unsigned>(byte));
        std::string expected = "cplc:";
        for (int i = 0; i < 50; i++)
            expected += i == 42 ? std::string("mac:") + digits : digits;
        boot({});
        the_phone().nodes["/data/cplc_info"].content.assign(50, static_cast<char>(byte));
        EXPECT_EQ(ask(0xD232).text, expected);
    }
}
