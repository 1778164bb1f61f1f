// What of the detection no phone can bring about.
#include "hwdec/detect.h"

#include <gtest/gtest.h>

#include "hwdec/checks.h"
#include "tests/canned/phone.h"

TEST(Detection, RegistersNoComponentBehindTheLast)
{
    boot({});
    set_hw_dev_check_flag(28);
    set_hw_dev_check_flag(29);
    EXPECT_EQ(dec_check_flag_long, 0x10000000U);
    EXPECT_EQ(
        the_record().log.back(),
        "[set_hw_dev_check_flag]:failed, and dev_id is :29, and it is not in peripheral device array!\n");
    EXPECT_EQ(hwdec_hall_up_check(), -1);
    EXPECT_EQ(hwdec_hall_down_check(), -1);
}

TEST(Detection, ShowsZerosInItsLog)
{
    const uint8_t source[] = {'a', 0, 'b', 0};
    uint8_t target[6] = {9, 9, 9, 9, 9, 9};
    EXPECT_EQ(replace_asc_zero(source, 4, target), 0);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(target), 6), std::string("a!b!\0\x09", 6));
    EXPECT_EQ(replace_asc_zero(nullptr, 4, target), -1);
    EXPECT_EQ(replace_asc_zero(source, 4, nullptr), -1);
}
