// Panel, display processor, RGB light and cameras. What reaches a node or a device is recorded byte for byte.
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdarg>
#include <filesystem>

#include "tests/fake_platform.h"

static strings writes;           // to anything but the standard streams, as "PATH<BYTES"
static int writes_until_void;    // this many writes from now, one takes nothing
static int32_t power_state;      // of the pre-ISP device
static unsigned int asked_state; // the request it was asked with

ssize_t write(int fd, const void *data, size_t length)
{
    if (fd > STDERR_FILENO) {
        char path[256] = {};
        (void)!readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), path, sizeof path - 1);
        writes.push_back(std::string(path) + "<" + std::string(static_cast<const char *>(data), length));
        if (writes_until_void > 0 && --writes_until_void == 0)
            return 0;
    }
    return syscall(SYS_write, fd, data, length);
}

// A regular file has no power state to tell: this is the driver.
int ioctl(int fd, unsigned long request, ...) noexcept
{
    va_list arguments;
    va_start(arguments, request);
    auto *state = va_arg(arguments, int32_t *);
    va_end(arguments);
    asked_state = static_cast<unsigned int>(request);
    if (power_state < 0)
        return static_cast<int>(syscall(SYS_ioctl, fd, request, state));
    *state = power_state;
    return 0;
}

static std::string bytes(std::initializer_list<int> values)
{
    return std::string(values.begin(), values.end());
}

class DisplayCamera : public Phone
{
  protected:
    void SetUp() override
    {
        for (const char *folder : {"/sys/touchscreen", "/sys/class", "/sys/devices", "/sys/bus", "/sys/rgb",
                                   "/sys/rgb_led1", "/d/iris", "/mnt/vendor/persist", "/dev/rk_preisp"})
            std::filesystem::remove_all(folder);
        std::filesystem::create_directories("/mnt/vendor/persist");
        writes_until_void = 0;
        power_state = -1;
        Phone::SetUp();
    }

    static std::string text(uint16_t code, const std::string &data = "", uint8_t selector = 0,
                            int length = -1)
    {
        writes.clear();
        return ask(code, selector, data, length).text;
    }
};

TEST_F(DisplayCamera, ColorBlockIsWrittenWhole)
{
    const std::string path = "/sys/touchscreen/novatek_vane_color";
    const std::string block(108, '\x81');
    EXPECT_EQ(text(0x3201, block), "ERROR") << "no node";
    node(path, "");
    for (int length : {0, 109, 65535})
        EXPECT_EQ(text(0x3201, block + "x", 0, length), "ERROR") << length;
    EXPECT_TRUE(writes.empty());
    EXPECT_EQ(text(0x3201, block), "OK");
    EXPECT_EQ(writes, strings{path + "<" + block});
    EXPECT_EQ(text(0x3201, block, 0, 3), "OK");
    EXPECT_EQ(writes, strings{path + "<\x81\x81\x81" + std::string(105, '\0')});
    writes_until_void = 1;
    EXPECT_EQ(text(0x3201, block), "ERROR");
    link_node(path, "/dev/full");
    EXPECT_EQ(text(0x3201, block), "OK") << "a refusal is no failure";
}

TEST_F(DisplayCamera, PictureAppIsAskedToShow)
{
    const struct {
        uint16_t code;
        std::string data, arguments; // none: an error
        int length = -1;
    } cases[] = {
        {0x3202, bytes({255, 10, 0}), " --es color FF0A00"},
        {0x3202, bytes({0, 255, 0, 51}), " --es color 00FF00", 5},
        {0x3202, bytes({0, 255, 0, 1}), " --es color 00FF00 --ei marginPercent 1"},
        {0x3202, bytes({0, 255, 0, 50}), " --es color 00FF00 --ei marginPercent 50"},
        {0x3202, bytes({0, 255, 0, 51}), ""},
        {0x3202, bytes({0, 255, 0, 0}), ""},
        {0x3204, "", " --es action finish"},
        {0x320E, bytes({255}), " -e freq 255"},
    };
    tool("am", "exit 1"); // nobody asks what it returns
    strings expected;
    for (const auto &row : cases) {
        EXPECT_EQ(text(row.code, row.data, 0, row.length), row.arguments.empty() ? "ERROR" : "OK");
        if (!row.arguments.empty())
            expected.push_back("am start -n com.corvane.factorytest/.modules.tools.testtools.SwitchPicAct" +
                               row.arguments);
    }
    EXPECT_EQ(runs(), expected);
}

TEST_F(DisplayCamera, BrightnessIsSetToItsMaximum)
{
    const std::string highest = "/sys/class/backlight/panel0-backlight/max_brightness";
    const std::string current = "/sys/class/backlight/panel0-backlight/brightness";
    EXPECT_EQ(text(0x3209), "ERROR");
    node(highest, "2047\n");
    node(current, "100\n");
    EXPECT_EQ(text(0x3209), "OK");
    EXPECT_EQ(content(current), "2047\n");
    node(highest, std::string(300, '7')); // fills the buffer to its last byte
    EXPECT_EQ(text(0x3209), "OK");
    EXPECT_EQ(content(current), std::string(256, '7'));
    link_node(current, "/dev/full");
    EXPECT_EQ(text(0x3209), "ERROR") << "not written";
    link_node(current, "/dev/null");
    EXPECT_EQ(text(0x3209), "ERROR") << "not kept";
}

TEST_F(DisplayCamera, PanelIdAndStatusAreCutToTheWire)
{
    const std::string id = "/sys/devices/virtual/misc/iris5/iris5_lcdid";
    const std::string status = "/sys/devices/virtual/misc/iris5/iris5_display_status";
    EXPECT_EQ(text(0x320B), "ERROR");
    EXPECT_EQ(text(0x320C), "ERROR");
    node(id, "21 43\n");
    EXPECT_EQ(ask(0x320B).text, "21 43");
    EXPECT_EQ(ask(0x320B).data, "21 43" + std::string(251, '\0'));
    node(id, std::string(300, 'x'));
    EXPECT_EQ(text(0x320B), std::string(256, 'x'));

    const std::string nines(255, '9');
    expect_by_node(0x320C, status,
                   {{"0 0x00 none\n", "OK"},
                    {"3 0x10 crc\n", "3"},
                    {"3\n", "3\n"},
                    {"", ""},
                    {"-1\n", "OK"},
                    {" 7 behind a blank\n", "OK"},
                    {"2 a\n17 b\n", "217"},
                    {"123 a\n0 b\n", "OK"},
                    {"0 a\n5 b\n", "OK5"},
                    {nines + "88\n1", nines + "8"}}); // in two pieces, the second clipped
}

TEST_F(DisplayCamera, ToolsAndPropertiesAreCutToTheWire)
{
    expect_by_tool(0x320D, "settings",
                   {{"printf '256\\nsecond\\n'", "256"},
                    {"printf 256", "25"},
                    {"echo", ""},
                    {"true", "ERROR"},
                    {"printf %05000d 1", std::string(254, '0')}});
    EXPECT_EQ(runs().back(), "settings get system color_mode");
    expect_by_tool(0x320F, "dumpsys",
                   {{"echo 'other (1.0)'; echo '  Period: 16666666 (60.00 Hz)'", "60"},
                    {"echo 'Period (120.1)'; echo 'Period (90.1)'", "120"},
                    {"echo Period 60.00", "ERROR"},
                    {"echo 'period (60.0)'", "ERROR"}});
    EXPECT_EQ(runs().back(), "dumpsys SurfaceFlinger --dispsync");
    expect_by_property(0x3203, "vendor.display.panel.calibration.status",
                       {{"0", "OK"}, {"01", "OK"}, {"10", "ERROR"}, {"3", "ERROR"}, {"", "ERROR"}});
}

TEST_F(DisplayCamera, ProcessorPowerIsReadBack)
{
    const std::string power = "/sys/devices/virtual/misc/iris5/iris5_pt_power";
    EXPECT_EQ(text(0x3205), "ERROR");
    for (auto [code, value] : {std::pair(0x3205, "1"), std::pair(0x3206, "0")}) {
        link_node(power, "/dev/null");
        EXPECT_EQ(text(static_cast<uint16_t>(code)), "ERROR");
        std::filesystem::remove(power);
        node(power, "x\n");
        EXPECT_EQ(text(static_cast<uint16_t>(code)), "OK");
        EXPECT_EQ(writes, strings{power + "<" + value});
    }

    const std::string bypass = "/d/iris/abyp_opt";
    EXPECT_EQ(text(0x3207), "ERROR");
    EXPECT_EQ(text(0x3208), "ERROR");
    node(bypass, "0\n");
    EXPECT_EQ(text(0x3208), "ERROR");
    EXPECT_EQ(text(0x3207), "OK");
    EXPECT_EQ(writes, strings{bypass + "<1"});
    EXPECT_EQ(text(0x3208), "OK");

    tool("irisConfig", "exit 1"); // not what stops it
    tool("softirisConfig", "");
    EXPECT_EQ(text(0x320A), "OK");
    EXPECT_EQ(runs(), (strings{"irisConfig 56 1 1", "softirisConfig 516 1 1", "softirisConfig 515 1 1",
                               "softirisConfig 517 1 6500"}));
}

static const std::string OLD_NODE = "/sys/bus/i2c/devices/1-002c/mmi_cali";
static const std::string NEW_NODE = "/sys/rgb/mcu_control";
static const std::string TABLE = "/mnt/vendor/persist/rgb_data.bin";

// Writes of the reset and these strings to a light's node.
static strings lit(const std::string &path, strings texts)
{
    texts.insert(texts.begin(), "0000");
    for (std::string &each : texts)
        each.insert(0, path + "<");
    return texts;
}

TEST_F(DisplayCamera, LightTakesGroupOrColorAndBrightness)
{
    EXPECT_EQ(text(0x3800, bytes({0x10, 0x80})), "ERROR") << "no node";
    node(OLD_NODE, "");
    node(NEW_NODE, "");
    const struct {
        const char *chip;
        uint16_t code;
        int first, brightness;
        strings expected; // none: an error
    } cases[] = {
        {"", 0x3800, 0x00, 0xFF, lit(OLD_NODE, {"0000FF05"})},
        {"", 0x3800, 0x30, 0x0A, lit(OLD_NODE, {"00300A05"})},
        {"", 0x3800, 0x08, 0x80, {}},
        {"", 0x3800, 0x40, 0x80, {}},
        {"aw9120_led\n", 0x3807, 0, 7, lit(OLD_NODE, {"00000705"})},
        {"aw9120_led\n", 0x3807, 3, 0xA0, lit(OLD_NODE, {"0030A005"})},
        {"aw9120_led\n", 0x3807, 4, 7, {}},
        {"aw2015_led\n", 0x3807, 0, 255, lit(NEW_NODE, {"0000"})},
        {"aw2015_led1\n", 0x3807, 1, 10, lit(NEW_NODE, {"01 A"})},
        {"aw2015_led", 0x3807, 2, 5, lit(NEW_NODE, {"00 5"})},
        {"aw2015_led", 0x3807, 3, 255, lit(NEW_NODE, {"02FF"})},
        {"aw2015\n", 0x3807, 1, 7, {}},
        {"", 0x3807, 1, 7, {}},
    };
    for (const auto &row : cases) {
        node("/sys/rgb/name", row.chip);
        EXPECT_EQ(text(row.code, bytes({row.first, row.brightness})), row.expected.empty() ? "ERROR" : "OK");
        EXPECT_EQ(writes, row.expected);
    }
    for (int nth : {1, 2}) {
        writes_until_void = nth;
        EXPECT_EQ(text(0x3800, bytes({0, 1})), "ERROR");
    }
    link_node(OLD_NODE, "/dev/full");
    EXPECT_EQ(text(0x3800, bytes({0, 1})), "OK") << "a refusal is no failure here";
    node("/sys/rgb/name", "aw9120_led");
    EXPECT_EQ(text(0x3807, bytes({0, 1})), "ERROR") << "but here it is";

    const std::string second = "/sys/rgb_led1/mmi";
    EXPECT_EQ(text(0x3803, "12"), "ERROR") << "no node";
    node(second, "");
    EXPECT_EQ(text(0x3803, bytes({'1', 0, 'x'})), "OK");
    EXPECT_EQ(writes, strings{second + "<" + bytes({'1', 0, 'x'})});
    EXPECT_EQ(text(0x3803, std::string(256, 's')), "OK");
    EXPECT_EQ(text(0x3803, std::string(257, 's')), "ERROR");
}

static std::string record(int32_t a, int32_t b, int32_t k, int32_t d)
{
    std::string out;
    for (int32_t value : {a, b, k, d})
        for (int shift = 0; shift < 32; shift += 8)
            out += static_cast<char>(static_cast<uint32_t>(value) >> shift);
    return out;
}

// The line whose entry at each step is what `value` says, and 0 at step 0.
template <typename function> static std::string table_line(function value)
{
    std::string line = "00";
    char digits[3];
    for (int x = 1; x < 256; x++) {
        snprintf(digits, sizeof digits, "%02X", static_cast<unsigned int>(value(x)) & 0xFF);
        line += digits;
    }
    return line + "\n";
}

TEST_F(DisplayCamera, TablesAreComputedFromCurves)
{
    constexpr int32_t HIGH = INT32_MAX;
    constexpr int32_t LOW = INT32_MIN;
    const auto constant = [](int value) { return table_line([value](int) { return value; }); };
    const std::pair<std::string, std::string> cases[] = {
        {record(0, 0, 2550000, 12345), constant(255)},
        {record(0, 10000, 0, 255), table_line([](int x) { return x; })},
        {record(0, -10000, 0, -255), table_line([](int x) { return x; })},
        {record(0, 5000, 0, 255), table_line([](int x) { return (x + 1) / 2; })}, // halves upwards
        {record(10000, 0, 0, 15),
         table_line([](int x) { return (2 * x * x + 289) / (2 * 289); })}, // (x/17)^2
        {record(0, 20000, 0, 255), table_line([](int x) { return std::min(2 * x, 255); })},
        {record(0, 10000, -1000000, 255), table_line([](int x) { return std::max(x - 100, 0); })},
        {record(0, 0, 4999, 255), constant(0)},
        {record(0, 0, 5000, 255), constant(1)},
        {record(0, -1, 5000, 1), constant(0)}, // 4999 and a fraction, which is dropped before the scaling
        {record(0, 0, 2544999, 0), constant(254)},
        {record(-3, -20, -70000, 255), constant(0)},
        {record(HIGH, HIGH, HIGH, HIGH), constant(255)},
        {record(LOW, LOW, LOW, HIGH), constant(0)},
        {record(LOW, 0, HIGH, LOW), constant(0)},
    };
    std::string records, lines;
    for (const auto &[curve, line] : cases) {
        records += curve;
        lines += line;
    }
    node(TABLE, std::string(10000, 'x'));
    response answer = ask(0x3802, 0, records);
    EXPECT_EQ(answer.text, "OK");
    EXPECT_EQ(content(TABLE), lines);
    answer = ask(0x3809, 0, records);
    EXPECT_EQ(answer.text, "OK");
    EXPECT_EQ(content(TABLE), lines.substr(0, 3 * 513));
    // A product fused with the sum behind it would give 2 here.
    EXPECT_EQ(text(0x3809, record(225, -51783, -142300, 340)), "OK");
    EXPECT_EQ(content(TABLE).substr(2 * 175, 2), "03");

    the_phone().failing_popen = 1;
    EXPECT_EQ(text(0x3802), "ERROR") << "not removed";
    std::filesystem::remove(TABLE);
    std::filesystem::create_directory(TABLE);
    EXPECT_EQ(text(0x3809), "ERROR") << "not opened";
    std::filesystem::remove(TABLE);
    tool("rm", ""); // so that the file may be one that takes nothing
    link_node(TABLE, "/dev/full");
    EXPECT_EQ(text(0x3802), "ERROR") << "not written";
}

TEST_F(DisplayCamera, OlderLightShowsAStepOfTheTable)
{
    EXPECT_EQ(text(0x3801, bytes({4, 0})), "ERROR");
    const std::string digits = "0123456789ABCDEF";
    std::string table; // line i, step x: the digits i and x mod 16
    for (size_t i = 0; i < 15; i++, table += "\n")
        for (size_t x = 0; x < 256; x++)
            table += {digits[i], digits[x % 16]};
    node(TABLE, table);
    EXPECT_EQ(text(0x3801, bytes({1, 0})), "ERROR") << "no node";
    node(OLD_NODE, "");

    const std::string none(2, '\0');
    const struct {
        std::string table;
        int color, step;
        strings expected;
    } cases[] = {
        {table, 0, 0, {}},
        {table, 4, 0, {}},
        {table, 1, 255, lit(OLD_NODE, {"00400F05", "00411F05", "00422F05", "00433F05"})},
        {table, 2, 0, lit(OLD_NODE, {"00455005", "00466005", "00477005", "00488005", "00499005"})},
        {table, 3, 26, lit(OLD_NODE, {"004AAA05", "004BBA05", "004CCA05", "004DDA05"})},
        // Of more than 15 lines the next is dropped and those behind it come in from the second place on.
        {table + "zz\nyy\nxx", 1, 0, lit(OLD_NODE, {"00400005", "0041yy05", "0042xx05", "00433005"})},
        // What a short file does not hold is zero.
        {"AABB\nCC", 1, 1,
         lit(OLD_NODE, {"0040BB05", "0041" + none + "05", "0042" + none + "05", "0043" + none + "05"})},
    };
    for (const auto &row : cases) {
        node(TABLE, row.table);
        EXPECT_EQ(text(0x3801, bytes({row.color, row.step})), row.expected.empty() ? "ERROR" : "OK");
        EXPECT_EQ(writes, row.expected);
    }
    node(TABLE, std::string(2000, 'F'));
    writes_until_void = 3;
    EXPECT_EQ(text(0x3801, bytes({2, 200})), "ERROR") << "the second channel fails";
    EXPECT_EQ(writes.size(), 3u);
}

TEST_F(DisplayCamera, EitherLightShowsAStepOfTheTable)
{
    EXPECT_EQ(text(0x3808, bytes({4, 0})), "ERROR");
    EXPECT_EQ(text(0x3808, bytes({1, 0})), "ERROR") << "no file";
    const std::string inner(506, '0');
    node(TABLE, "1234" + inner + "5F\n" + "6789" + inner + "AF\n" + "BCDE" + inner + "EF\n");
    EXPECT_EQ(text(0x3808, bytes({1, 0})), "ERROR") << "no chip";
    const struct {
        const char *name;
        int color, step;
        std::string node, string;
    } cases[] = {
        {"aw2015_led\n", 1, 255, NEW_NODE, "015F"},     {"aw2015_led\n", 2, 0, NEW_NODE, "0067"},
        {"aw2015_led\n", 3, 1, NEW_NODE, "02DE"},       {"aw9120_led\n", 1, 1, OLD_NODE, "00443405"},
        {"aw9120_led\n", 2, 255, OLD_NODE, "0049AF05"}, {"aw9120_led\n", 3, 0, OLD_NODE, "004EBC05"},
    };
    for (const auto &row : cases) {
        node("/sys/rgb/name", row.name);
        link_node(row.node, "/dev/full");
        EXPECT_EQ(text(0x3808, bytes({row.color, row.step})), "ERROR") << "not reset";
        std::filesystem::remove(row.node);
        node(row.node, "");
        EXPECT_EQ(text(0x3808, bytes({row.color, row.step})), "OK") << row.string;
        EXPECT_EQ(writes, lit(row.node, {row.string}));
    }
    writes_until_void = 2;
    EXPECT_EQ(text(0x3808, bytes({3, 0})), "ERROR");
    node(TABLE, "12\n");
    EXPECT_EQ(text(0x3808, bytes({2, 0})), "OK") << "a line that is missing is zeroes";
    EXPECT_EQ(writes.back(), OLD_NODE + "<0049" + std::string(2, '\0') + "05");
}

TEST_F(DisplayCamera, CameraProcessorIsPowered)
{
    const std::string device = "/dev/rk_preisp";
    EXPECT_EQ(text(0x3601), "ERROR") << "no device";
    EXPECT_EQ(text(0x3600, "", 2), "ERROR");
    EXPECT_FALSE(exists(device));
    node(device, "");
    EXPECT_EQ(text(0x3600, "", 1), "OK");
    EXPECT_EQ(writes, strings{device + "<pwrup"});
    EXPECT_EQ(text(0x3600, "", 0), "OK");
    EXPECT_EQ(writes, strings{device + "<pwrdown"});

    EXPECT_EQ(text(0x3601, "", 1), "ERROR");
    EXPECT_EQ(text(0x3601), "ERROR") << "a regular file has no state";
    EXPECT_EQ(asked_state, 0x80047013u);
    power_state = 1;
    EXPECT_EQ(text(0x3601), "ERROR");
    power_state = 0;
    EXPECT_EQ(text(0x3601), "OK");
}

TEST_F(DisplayCamera, FuseIdsAreFoundByCameraNumber)
{
    const char *keys[] = {
        "vendor.camera.sensor.f.fuseID",          "vendor.camera.sensor.w.fuseID",
        "persist.camera.sensor.rearTele.fuseID",  "vendor.camera.sensor.u.fuseID",
        "persist.camera.sensor.rearDepth.fuseID", "vendor.camera.sensor.m2x.fuseID",
    };
    for (uint8_t camera = 0; camera < 6; camera++)
        expect_by_property(0x3602, keys[camera], {{"", "ERROR"}, {"fuse", "fuse"}}, camera);
    for (uint8_t camera : {6, 0x80, 0xFF})
        EXPECT_EQ(text(0x3602, "", camera), "ERROR");
}
