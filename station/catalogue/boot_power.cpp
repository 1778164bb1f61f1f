// Boot mode, restart, shutdown and suspend, clock and screen.
#include "station/catalogue/catalogue.h"

namespace station
{

static constexpr char RESTART_LEAVES[] =
    "Two seconds after the answer the phone goes down under a wake lock. That it does not is "
    "only told in the log.";

std::vector<Command> boot_power_commands()
{
    return {
        Command(0x0128, "boot-mode", "diag_cmd_switch_boot_mode")
            .does("Chooses how the phone boots next, by the boot message at the head of the misc partition. "
                  "It does not "
                  "restart the phone: send restart for that.")
            .takes(Parameter("MODE", "the mode")
                       .byte(SELECTOR_OFFSET, {{"normal", 0, "an empty message: a normal boot"},
                                               {"ffbm", 1, "factory test mode, \"ffbm-01\""},
                                               {"recovery", 2, "recovery, \"boot-recovery\""},
                                               {"pfbm", 3, "the other factory mode, \"pfbm-\""}}))
            .field("4", "u8",
                   "0 normal, 1 ffbm, 2 recovery, 3 pfbm; any other value empties the message as 0 does")
            .ok("the message is written")
            .error("the misc partition cannot be opened or written")
            .leaves("The first 128 bytes of the misc partition. The service clears them only with "
                    "\"normal\": with \"ffbm\" and \"pfbm\" every later restart enters the mode until "
                    "boot-mode normal. On the virtual phone recovery clears its own.")
            .repeatable(),
        Command(0x0129, "query-boot-mode", "diag_cmd_query_boot_mode")
            .does("Tells the mode the phone runs in now.")
            .good("ftmmi_mode", "factory test mode: \"ro.bootmode\" begins with \"ffbm\"")
            .good("normal_mode", "any other mode, pfbm and an unknown one included")
            .error("the property could not be read")
            .leaves("Nothing.")
            .repeatable(),
        Command(0x012A, "suspend", "diag_cmd_fctest_power_suspend")
            .does("Prepares the phone's suspend with its own test tool; answers as soon as the tool asks for "
                  "the USB cable "
                  "to be pulled.")
            .ok("pull the cable now; the tool goes on in the background")
            .error("the tool could not be started or ended without asking")
            .leaves("A phone that sleeps once the cable is out.")
            .lasts("until the tool prints its prompt, seconds"),
        Command(0x012C, "restart-fastboot", "diag_cmd_restart_fastboot")
            .does("Restarts the phone into its boot loader.")
            .ok("the restart is on its way")
            .error("it could not be set on its way")
            .leaves(RESTART_LEAVES)
            .takes_phone_down(),
        Command(0x012D, "restart-recovery", "diag_cmd_restart_recovery")
            .does("Restarts the phone into recovery.")
            .ok("the restart is on its way")
            .error("it could not be set on its way")
            .leaves(RESTART_LEAVES)
            .takes_phone_down(),
        Command(0x0132, "restart", "diag_cmd_device_restart")
            .does("Restarts the phone, into the mode that boot-mode chose. docs/port.md tells how a station "
                  "waits for the new run.")
            .ok("the restart is on its way")
            .error("it could not be set on its way")
            .leaves(RESTART_LEAVES)
            .takes_phone_down(),
        Command(0x0133, "shutdown", "diag_cmd_device_shutdown")
            .does("Powers the phone off, after its test tool has woken it.")
            .ok("the power-off is on its way")
            .error("the wake-up tool could not be started, and nothing is powered off; or the power-off "
                   "could not be set "
                   "on its way")
            .leaves("Four seconds after the answer the phone is powered off under a wake lock. That it is "
                    "not is only told "
                    "in the log.")
            .lasts("as long as the wake-up tool runs, up to seconds")
            .takes_phone_down(),
        Command(0x013C, "port-check", "diag_cmd_check_diag_com_port")
            .does("Echoes the request's first five bytes: the service is up.")
            .encoded([](const Arguments &, Bytes &packet) { packet.resize(SELECTOR_OFFSET + 1); })
            .empty(true, "the service is up; the response has no length and no data")
            .leaves("Nothing.")
            .response(5)
            .repeatable()
            .lasts("below a millisecond"),
        Command(0x0B15, "set-time", "diag_cmd_set_system_time")
            .does("Sets the clock with `date` and reads its seconds back; nothing else is compared, nor is "
                  "it seen when `date` refuses. Read the clock with shell-output to be sure.")
            .takes({"DATE", "\"2026-11-21 10:00:05\" as one argument or two, or now for the station's own "
                            "local time; either way the phone takes it as local time in its own time zone "
                            "(on the virtual phone UTC)"})
            .takes(Parameter("CLOCK", "the time of day, when DATE is the day alone").optional())
            .takes(Parameter("--limit SECONDS", "the highest seconds reading that passes after the set; by "
                                                "default 5 more than set, at most "
                                                "59")
                       .optional())
            .encoded(clock_time(), "DATE", "now")
            .field("5-6", "u16", "data length, 10 (1 to 256 pass)")
            .field("7", "u8", "month")
            .field("8", "u8", "day")
            .field("9", "u8", "hour")
            .field("10", "u8", "minute")
            .field("11-12", "u16, high byte first", "year; the only big-endian field there is")
            .field("13", "character", "what stands between year and seconds, '.'")
            .field("14", "u8", "seconds")
            .field("15", "u8", "not used")
            .field("16", "u8",
                   "limit: the highest seconds reading that passes, below 60. Behind the turn of the minute "
                   "the reading is small and passes; so from 55 seconds on, where the limit cannot be 5 "
                   "more, 59 is the limit to send, and it lets everything pass")
            .ok("set, and the seconds read back are at most the limit")
            .error("the length is 0 or above 256; `date` could not be started; the seconds read back are "
                   "above the limit, "
                   "or the limit is 60 or more (the clock is set all the same)")
            .leaves("The clock may be set even when the answer is \"ERROR\".")
            .lasts("some 10 ms"),
        Command(0x0B14, "screen-off-timeout", "diag_cmd_sys_screen_off_timeout")
            .does("Sets after how long the screen goes dark, and reads the setting back.")
            .takes({"SECONDS", "seconds, of which the request's three bytes cannot say all. Below 65536 it "
                               "can say those that leave a remainder of 0 to 255 when divided by 4096: 0 to "
                               "255 and 4096 to 4351, but not 300 or 1800. From a x 65536 on, the remainder "
                               "has to be (a mod 16) x 256 to (a mod 16) x 256 + 255"})
            .encoded(screen_timeout())
            .field("5-6", "u16", "3, exactly")
            .field("7", "u8", "a: anything above 16 counts as 16")
            .field("8", "u8", "b: only its high half counts")
            .field("9", "u8", "c: the seconds are a x 65536 + (a mod 16) x 256 + (b div 16) x 4096 + c")
            .ok("set and read back")
            .error(
                "the length is not 3, the settings tool could not be started, or it reads back another value")
            .leaves("The setting \"screen_off_timeout\", in milliseconds.")
            .repeatable()
            .lasts("tens of milliseconds; on a phone up to seconds"),
        Command(0x0F00, "power-key", "diag_cmd_simulate_power_key")
            .does("Presses the power key: the screen goes on or off.")
            .ok("the key was sent")
            .error("the tool could not be started")
            .leaves("The screen in the other state.")
            .lasts("some 10 ms"),
        Command(0x0F01, "brighten-screen", "diag_cmd_brighten_screen")
            .does("Keeps the screen on while the phone is powered, wakes it and unlocks it.")
            .ok("both tools were run")
            .error("one of them could not be started")
            .leaves("The stay-on setting stays until it is taken back (`svc power stayon false`).")
            .repeatable()
            .lasts("tens of milliseconds"),
        Command(0x0F02, "screen-state", "diag_cmd_get_screen_state")
            .does("Tells whether the screen is on.")
            .good("ON", "it is on")
            .good("OFF", "it is off")
            .error("the tool could not be started, or its last line tells neither")
            .empty(false, "the tool told nothing")
            .leaves("Nothing.")
            .repeatable()
            .lasts("some 10 ms"),
        Command(0xCA00, "wipe-data", "diag_cmd_factory_wipe_data")
            .does("Orders the wipe of the user's data: recovery finds its arguments in the misc partition.")
            .takes(Parameter("WHEN", "when to wipe")
                       .byte(SELECTOR_OFFSET,
                             {{"now", 0, "restart into recovery at once"},
                              {"next-boot", 1, "on the next boot, whoever starts it"},
                              {"arguments-only", 2, "only leave the arguments for a later recovery"}}))
            .field("4", "u8",
                   "0: restart into recovery now; 1: write the recovery command too, the next boot wipes; "
                   "any other "
                   "value: write the arguments alone")
            .ok("the arguments are written, and with 0 the restart is on its way")
            .error(
                "the misc partition cannot be opened or written, or the restart could not be set on its way")
            .leaves(
                "The arguments at offset 64 of the misc partition, with 1 also \"boot-recovery\" at its "
                "head. With 0 "
                "the phone goes down two seconds after the answer. After \"ERROR\" a part may be written.")
            .takes_phone_down(true),
    };
}

} // namespace station
