// Conditions that decide whether a unit leaves a test stage.
#include "station/catalogue/catalogue.h"

namespace station
{

std::vector<Command> status_check_commands()
{
    return {
        Command(0x0B1E, "external-storage", "diag_cmd_check_extsd_insert")
            .does("Tells whether a memory card or a USB drive is mounted: whether \"/storage\" holds more "
                  "than \"emulated\" "
                  "and \"self\".")
            .good("READY", "one is there")
            .good("ABSENT", "none is there")
            .error("\"/storage\" cannot be read")
            .leaves("Nothing.")
            .repeatable(),
        Command(0x1300, "remove-file", "diag_cmd_remove_file")
            .does("Removes a file, or a directory with all it holds. The path goes to the shell without "
                  "quotes: a path with "
                  "blanks removes each of its words.")
            .takes({"PATH", "at most 255 bytes"})
            .encoded(text_of("PATH"))
            .field("5-6", "u16",
                   "the path's length without its terminating zero, at most 255: so many bytes are taken")
            .field("7..", "text", "the path")
            .ok("the removal was run")
            .bad("NOTEXIST", "nothing is there under this path")
            .error("the path has more than 255 bytes (nothing is removed), or no shell could be started")
            .leaves("The file is gone.")
            .lasts("some 10 ms, longer for large directories"),
        Command(0x1301, "turbo-write", "diag_cmd_verify_turbo_write")
            .does(
                "Tells whether the main storage offers turbo write: whether its switch is there, on or off.")
            .ok("it does")
            .error("it does not")
            .leaves("Nothing.")
            .repeatable(),
        Command(0x1302, "run-in-result", "diag_cmd_get_mmi_result")
            .does("Reads the result file of a run-in test.")
            .takes(Parameter("FILE", "0 for the first test, 1 for the second")
                       .byte(SELECTOR_OFFSET)
                       .optional("0"))
            .field("4", "u8",
                   "0: \"/sdcard/runin/bigboard_mmi/result.txt\"; 1: "
                   "\"/sdcard/runin/bigboard_mmi_2/result.txt\"")
            .bad("NOT_EXSIT", "the test has left no file")
            .error("byte 4 is neither 0 nor 1, or the file cannot be read")
            .empty(true, "the file is empty")
            .value("the result", "the file's first 256 bytes; a closing line feed is not counted")
            .leaves("Nothing.")
            .response(775)
            .repeatable(),
        Command(0x1400, "qkey", "diag_cmd_get_qkey_prop")
            .does("Reads the payment service's key, the property \"ro.vendor.tc.qkey\".")
            .error("the property is not set or has not exactly 88 characters")
            .value("the key", "88 characters")
            .leaves("Nothing.")
            .repeatable(),
        Command(0x1500, "check-scratch", "diag_cmd_judge_scratch_exsit")
            .does("Checks that no scratch partition is left among the dynamic partitions.")
            .ok("none is left")
            .error("one is there, or the partition tool could not be started")
            .leaves("Nothing.")
            .repeatable()
            .lasts("some 10 ms"),
        Command(0x1501, "fingerprint-data", "diag_cmd_check_fingerprint_data")
            .does("Checks that the fingerprint sensor holds calibration data: that its state begins with "
                  "\"0\".")
            .ok("it does")
            .error("it does not, or its node cannot be read")
            .leaves("Nothing. A check that fails leaves a descriptor of the node open in the service.")
            .repeatable(),
        Command(0x1502, "fingerprint-id", "diag_cmd_check_fingerprint_id")
            .does("Reads the fingerprint sensor's id, the property \"persist.vendor.sys.fp.uid\".")
            .error("it is not set or empty")
            .value("the id", "as the property holds it")
            .leaves("Nothing.")
            .repeatable(),
    };
}

} // namespace station
