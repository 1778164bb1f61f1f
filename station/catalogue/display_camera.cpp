// The panel, the display processor, the RGB light and the cameras.
#include "station/catalogue/catalogue.h"

namespace station
{

static constexpr char CURVE_FIELDS[] =
    "curve records of 16 bytes, each four signed 32-bit numbers, low byte first: A (quadratic), B "
    "(linear) and K (offset), scaled by 10000, and D (the input at full scale). Step x of 0 to 255 "
    "shows the brightness (A t t + B t + K) / 10000 with t = D x / 255, rounded and kept within 0 "
    "to 255; step 0 is dark";
static constexpr char LAMP_LEAVES[] = "The lamp stays as it was set.";

static std::vector<Choice> lamp_colours()
{
    return {{"red", 1, "red"}, {"green", 2, "green"}, {"blue", 3, "blue"}};
}

static std::vector<Choice> lamp_colours_and_off()
{
    return {{"off", 0, "dark"}, {"red", 1, "red"}, {"green", 2, "green"}, {"blue", 3, "blue"}};
}

static Command table_writer(uint16_t code, const char *name, const char *handler, const char *does,
                            unsigned records, const char *range)
{
    return Command(code, name, handler)
        .does(does)
        .takes(Parameter("NUMBER...", "A B K D of each curve, in order; four numbers alone serve for all")
                   .optional())
        .takes(Parameter("--file PATH", "a text file of the numbers; '#' begins a comment").optional())
        .encoded(curve_records(records))
        .field("5-6", "u16", "not looked at; this client sends the records' size")
        .field(range, "records", CURVE_FIELDS)
        .ok("all tables are written")
        .error("the old file could not be removed, or the new one not be opened or written")
        .leaves("\"/mnt/vendor/persist/rgb_data.bin\" is a text of one line a table, in the order of the "
                "records: two upper-case hexadecimal digits for each step, 512 in all, and a line feed (1539 "
                "bytes for 3 tables, 7695 for 15). After \"ERROR\" it is gone or incomplete.")
        .response(775)
        .repeatable()
        .lasts("tens of milliseconds; each table is synced to storage");
}

static Command show(uint16_t code, const char *name, const char *handler, const char *does)
{
    return Command(code, name, handler)
        .does(does)
        .ok("the app was called; what it makes of it is not looked at")
        .leaves("What the app shows.")
        .repeatable()
        .lasts("tens of milliseconds; on a phone up to seconds");
}

std::vector<Command> display_camera_commands()
{
    return {
        Command(0x3600, "camera-dsp-power", "diag_cmd_control_camera_dsp_power")
            .does("Powers the cameras' pre-processor up or down.")
            .takes(Parameter("STATE", "up or down")
                       .byte(SELECTOR_OFFSET, {{"up", 1, "power up"}, {"down", 0, "power down"}}))
            .field("4", "u8", "1 up, 0 down; any other value is an error")
            .ok("the device took the word")
            .error("it did not, or byte 4 is neither 0 nor 1 (nothing is written)")
            .leaves("The processor stays in its state.")
            .repeatable(),
        Command(0x3601, "camera-dsp-state", "diag_cmd_query_camera_dsp_state")
            .does("Checks that the cameras' pre-processor is powered up.")
            .field("4", "u8", "0; any other value is an error")
            .ok("it is")
            .error("it is not, its device cannot be asked, or byte 4 is not 0")
            .leaves("Nothing.")
            .repeatable(),
        Command(0x3602, "camera-id", "diag_cmd_get_camera_id")
            .does("Reads a camera sensor's fuse id.")
            .takes(Parameter("CAMERA", "which sensor")
                       .byte(SELECTOR_OFFSET, {{"front", 0, "\"vendor.camera.sensor.f.fuseID\""},
                                               {"wide", 1, "\"vendor.camera.sensor.w.fuseID\""},
                                               {"tele", 2, "\"persist.camera.sensor.rearTele.fuseID\""},
                                               {"ultra", 3, "\"vendor.camera.sensor.u.fuseID\""},
                                               {"depth", 4, "\"persist.camera.sensor.rearDepth.fuseID\""},
                                               {"macro", 5, "\"vendor.camera.sensor.m2x.fuseID\""}}))
            .field("4", "i8", "0 to 5, in the order above; any other value is an error")
            .error("the sensor's property is not set or empty, or there is no such sensor")
            .value("the id", "as the property holds it")
            .leaves("Nothing.")
            .repeatable(),
        Command(0x3800, "set-rgb", "diag_cmd_set_rgb_data")
            .does("Lights the lamp on a phone with the older lamp driver.")
            .takes(Parameter("GROUP", "channel group")
                       .byte(7, {{"off", 0x00, "0x00"},
                                 {"red", 0x10, "0x10"},
                                 {"green", 0x20, "0x20"},
                                 {"blue", 0x30, "0x30"}}))
            .takes(Parameter("BRIGHTNESS", "0 to 255").byte(8))
            .field("7", "u8", "group: 0x00, 0x10, 0x20 or 0x30; any other value is an error")
            .field("8", "u8", "brightness")
            .ok("the lamp driver was written to")
            .error(
                "another group (nothing is opened), or the driver's node cannot be opened or takes nothing")
            .leaves(LAMP_LEAVES)
            .repeatable(),
        Command(0x3801, "test-rgb", "diag_cmd_test_rgb_calibration")
            .does("Lights a colour at a step of the stored tables; older lamp driver, file of 15 tables.")
            .takes(Parameter("COLOUR", "the colour").byte(7, lamp_colours()))
            .takes(Parameter("STEP", "0 to 255").byte(8))
            .field("7", "u8", "1 red, 2 green, 3 blue; any other value is an error")
            .field("8", "u8", "step")
            .ok("all channels of the colour are lit")
            .error(
                "the tables' file cannot be opened, another colour, or the driver's node refuses a channel")
            .leaves("The lamp stays as it was set; after \"ERROR\" some channels may be lit.")
            .repeatable(),
        table_writer(0x3802, "set-rgb-table", "diag_cmd_set_rgb_table",
                     "Makes brightness tables of 15 curves and stores them, for the older lamp driver: five "
                     "tables each for "
                     "red, green and blue.",
                     15, "7-246"),
        Command(0x3803, "set-rgb-switch", "diag_cmd_set_rgb_switch")
            .does("Writes a switch text to the second lamp, as it is.")
            .takes({"TEXT", "the driver's switch text, at most 256 bytes"})
            .encoded(text_of("TEXT"))
            .field("5-6", "u16", "the text's length: so many bytes are written")
            .field("7..", "text", "what is written")
            .ok("written")
            .error("more than 256 bytes, or the lamp's node cannot be opened or refuses the text")
            .leaves(LAMP_LEAVES)
            .repeatable(),
        Command(0x3807, "set-rgb-new", "diag_cmd_set_rgb_data_new")
            .does("Lights the lamp on a phone with either lamp driver.")
            .takes(Parameter("COLOUR", "the colour").byte(7, lamp_colours_and_off()))
            .takes(Parameter("BRIGHTNESS", "0 to 255").byte(8))
            .field("7", "u8", "0 off, 1 red, 2 green, 3 blue; any other value is an error")
            .field("8", "u8", "brightness")
            .ok("the lamp is lit")
            .error("another colour, an unknown lamp driver, or its node refuses")
            .leaves(LAMP_LEAVES)
            .repeatable(),
        Command(0x3808, "test-rgb-new", "diag_cmd_test_rgb_calibration_new")
            .does("Lights a colour at a step of the stored tables; either lamp driver, file of 3 tables.")
            .takes(Parameter("COLOUR", "the colour").byte(7, lamp_colours()))
            .takes(Parameter("STEP", "0 to 255").byte(8))
            .field("7", "u8", "1 red, 2 green, 3 blue; any other value is an error")
            .field("8", "u8", "step")
            .ok("the colour is lit")
            .error("another colour, the tables' file cannot be opened, an unknown lamp driver, or its node "
                   "refuses")
            .leaves(LAMP_LEAVES)
            .repeatable(),
        table_writer(
            0x3809, "set-rgb-table-new", "diag_cmd_set_rgb_table_new",
            "Makes brightness tables of 3 curves (red, green, blue) and stores them, for test-rgb-new.", 3,
            "7-54"),
        Command(0x3201, "set-lcd-data", "diag_cmd_set_lcd_data")
            .does("Writes the panel's colour calibration block. 108 bytes are always written, a shorter "
                  "block is filled up "
                  "with zero bytes.")
            .takes(Parameter("--file PATH", "a file's content, - for standard input").optional())
            .takes(Parameter("--hex HEX", "bytes in hexadecimal").optional())
            .takes(Parameter("--text TEXT", "a text").optional())
            .encoded(bytes_from_options())
            .field("5-6", "u16", "1 to 108")
            .field("7..", "bytes", "the block")
            .ok("written; a node that refuses the write counts as written too")
            .error("the length is 0 or above 108, or the node cannot be opened or takes nothing")
            .leaves("The panel's calibration.")
            .repeatable(),
        show(0x3202, "lcd-picture", "diag_cmd_set_lcd_picture",
             "Shows a colour on the whole screen, or on its middle.")
            .takes({"COLOUR", "RRGGBB, RED,GREEN,BLUE or a name: black, white, red, green, blue, yellow, "
                              "magenta, cyan, grey"})
            .takes(Parameter("--margin PERCENT", "leave a margin of 1 to 50 percent").optional())
            .encoded(picture_colour())
            .field("5-6", "u16", "4 with a margin, 3 without")
            .field("7", "u8", "red")
            .field("8", "u8", "green")
            .field("9", "u8", "blue")
            .field("10", "u8", "margin in percent, 1 to 50; looked at only when the length is 4")
            .error("a margin of 0 or above 50, or no shell could be started"),
        Command(0x3203, "lcd-calibration", "diag_cmd_check_lcd_calibration")
            .does("Checks that the panel's calibration is valid, by the property "
                  "\"vendor.display.panel.calibration.status\".")
            .ok("it begins with \"0\": calibrated")
            .error("it begins with \"1\" or \"2\" (data lost, or the panel was changed), with anything else, "
                   "or is not set")
            .leaves("Nothing.")
            .repeatable(),
        show(0x3204, "quit-picture", "diag_cmd_quit_picture_apk", "Ends the app that shows colours.")
            .error("no shell could be started"),
        Command(0x3205, "dsp-power-up", "diag_cmd_dsp_power_up")
            .does("Powers the display processor's pass-through up and reads its state back.")
            .ok("it is up")
            .error("the node cannot be written or read, or reads otherwise")
            .leaves("It stays up.")
            .repeatable(),
        Command(0x3206, "dsp-power-down", "diag_cmd_dsp_power_down")
            .does("Powers the display processor's pass-through down and reads its state back.")
            .ok("it is down")
            .error("the node cannot be written or read, or reads otherwise")
            .leaves("It stays down.")
            .repeatable(),
        Command(0x3207, "dsp-effect-off", "diag_cmd_dsp_effect_down")
            .does("Has the display processor bypass its picture effects. Check it with dsp-effect-state.")
            .ok("the node took it; it is not read back")
            .error("the node cannot be written")
            .leaves("The effects stay off.")
            .repeatable(),
        Command(0x3208, "dsp-effect-state", "diag_cmd_query_dsp_effect")
            .does("Checks that the display processor bypasses its picture effects.")
            .ok("it does")
            .error("it does not, or the node cannot be read")
            .leaves("Nothing.")
            .repeatable(),
        Command(0x3209, "lcd-max-brightness", "diag_cmd_set_lcd_maxbrightness")
            .does("Sets the backlight to its maximum and reads it back.")
            .ok("it is at its maximum")
            .error("a node cannot be read or written, or the brightness reads otherwise")
            .leaves("The backlight stays so.")
            .repeatable(),
        Command(0x320A, "dsp-effect-reset", "diag_cmd_set_dsp_effect")
            .does("Sets the display processor's picture effects to neutral values, with four lines of its "
                  "configuration "
                  "tools.")
            .ok("all lines were run; what came of them is not looked at")
            .error("a line could not be started; those before it are in force")
            .leaves("The neutral values stay.")
            .repeatable()
            .lasts("tens of milliseconds"),
        Command(0x320B, "lcd-id", "diag_cmd_get_lcd_id")
            .does("Reads the panel's id.")
            .error("the node cannot be read")
            .empty(true, "the node is empty")
            .value("the id", "the node's text without its line feed")
            .leaves("Nothing.")
            .repeatable(),
        Command(0x320C, "display-status", "diag_cmd_get_display_status")
            .does("Reads the display processor's error counts.")
            .ok("no errors, or none behind the last line that counts none")
            .error("the node cannot be opened")
            .empty(false, "the node is empty")
            .bad_value("the counts",
                       "the counts above 0, run together; behind \"OK\" when a line before them counts none")
            .leaves("Nothing.")
            .repeatable(),
        Command(0x320D, "color-mode", "diag_cmd_get_color_mode")
            .does("Reads the colour mode setting.")
            .error("the settings tool could not be started or printed nothing")
            .empty(true, "it printed an empty line")
            .value("the mode", "as the tool prints it, without the line feed; \"null\" when it was never set")
            .leaves("Nothing.")
            .repeatable()
            .lasts("some 10 ms"),
        show(0x320E, "set-lcd-frequency", "diag_cmd_set_lcd_frequency",
             "Asks the picture app for a refresh rate.")
            .takes(Parameter("HERTZ", "the rate, 0 to 255").byte(7))
            .field("7", "u8", "the rate in hertz")
            .error("no shell could be started"),
        Command(0x320F, "lcd-frequency", "diag_cmd_get_lcd_frequency")
            .does("Reads the refresh rate.")
            .error("the tool could not be started or tells no rate")
            .value("the rate", "its whole part in hertz")
            .leaves("Nothing.")
            .repeatable()
            .lasts("some 10 ms"),
    };
}

} // namespace station
