// Nodes, properties and shell lines: whatever has no command of its own.
#include "station/catalogue/catalogue.h"

namespace station
{

static constexpr char PAIR_LENGTH[] = "length of the pair, 1 to 256: so many bytes are taken";
static constexpr char PAIR_TEXT[] =
    "text, each half at most 255 bytes; what stands behind a second '+' is dropped and "
    "the answer is the same; without a '+' the second half is empty";
static constexpr char TEXT_LENGTH[] = "the text's length; only its range is checked, 1 to 512";

static Command command(uint16_t code, const char *name, const char *handler)
{
    Command made(code, name, handler);
    made.response(775);
    return made;
}

std::vector<Command> access_commands()
{
    return {
        command(0xE600, "read-node", "diag_cmd_read_node")
            .does("Reads a file or node, or checks that it begins with a text. At most 256 bytes are read, "
                  "in one go; a "
                  "closing line feed is not counted.")
            .takes({"PATH", "the node's absolute path"})
            .takes(Parameter("--expect TEXT", "succeed only if the node begins with TEXT").optional())
            .encoded(joined_to_compare("PATH", "--expect"))
            .field("4", "u8",
                   "0: read; anything else: read as many bytes as the expected text has and compare")
            .field("5-6", "u16", "length of the text, 1 to 512: so many bytes are taken")
            .field("7..", "text",
                   "the path, or the path, '+' and the expected text; each at most 255 bytes; what stands "
                   "behind a second '+' is dropped")
            .error("the node cannot be opened or read, is empty or holds only a line feed, does not begin "
                   "with the "
                   "expected text, or the length is 0 or above 512")
            .value("the content", "what was read; with an expected text, as many bytes as that has")
            .leaves("Nothing. A comparison that fails leaves a descriptor of the node open in the service.")
            .repeatable(),
        command(0xE601, "write-node", "diag_cmd_write_node")
            .does("Writes a text to a file or node, from its beginning, without a line feed behind it. A "
                  "missing file is "
                  "created. A file is not truncated: a shorter value leaves the tail of the old content "
                  "standing.")
            .takes({"PATH", "the node's absolute path"})
            .takes({"VALUE", "the text; may be empty"})
            .encoded(joined("PATH", "VALUE"))
            .field("5-6", "u16", PAIR_LENGTH)
            .field("7..", "path '+' value", PAIR_TEXT)
            .ok("written")
            .error("the node cannot be opened or refuses the value, a half is too long, or the length is 0 "
                   "or above 256")
            .leaves("The node holds the value. Bytes written before a failure stay written."),
        command(0xE602, "get-prop", "diag_cmd_get_prop")
            .does("Reads a system property.")
            .takes({"KEY", "the property's name"})
            .encoded(text_of("KEY"))
            .field("5-6", "u16", TEXT_LENGTH)
            .field("7..", "text", "the name and its terminating zero byte")
            .error("the property is not set or empty, or the length is 0 or above 512")
            .value("the value", "the property's value")
            .leaves("Nothing.")
            .repeatable(),
        command(0xE603, "set-prop", "diag_cmd_set_prop")
            .does("Sets a system property. An empty value sets the property to the empty text.")
            .takes({"KEY", "the property's name"})
            .takes({"VALUE", "the value; may be empty"})
            .encoded(joined("KEY", "VALUE"))
            .field("5-6", "u16", PAIR_LENGTH)
            .field("7..", "name '+' value", PAIR_TEXT)
            .ok("set")
            .error("the phone refuses the name or the value (a value has at most 91 characters unless the "
                   "name begins "
                   "with \"ro.\"; a property of that kind is set once), a half is too long, or the length is "
                   "0 or above "
                   "256")
            .leaves("The property holds the value until the phone restarts; one beginning with \"persist.\" "
                    "beyond that."),
        command(0xE604, "shell", "diag_cmd_excute_cmd")
            .does("Runs a shell line and waits for its end. Neither its output nor its exit status is looked "
                  "at.")
            .takes({"LINE", "the command line, one argument"})
            .encoded(text_of("LINE"))
            .field("5-6", "u16", TEXT_LENGTH)
            .field("7..", "text",
                   "the line and its terminating zero byte; at most 685 characters are run, with the "
                   "service's rights and a PATH of the system's and the vendor's tool directories")
            .ok("the line was started and has ended, whatever came of it")
            .error("no shell could be started, or the length is 0 or above 512")
            .leaves("What the line does.")
            .lasts("as long as the line runs; there is no limit"),
        command(0xE605, "shell-check", "diag_cmd_excute_cmd_check")
            .does("Runs a shell line and looks for an output line that begins with a text.")
            .takes({"LINE", "the command line, one argument"})
            .takes({"TEXT", "what one of its output lines must begin with"})
            .encoded(joined("LINE", "TEXT"))
            .field("5-6", "u16", PAIR_LENGTH)
            .field("7..", "line '+' text", PAIR_TEXT)
            .ok("an output line begins with the text")
            .error(
                "none does, no shell could be started, a half is too long, or the length is 0 or above 256")
            .leaves("What the line does.")
            .lasts("until the line has ended"),
        command(0xE606, "shell-output", "diag_cmd_get_cmd_result")
            .does("Runs a shell line and answers its standard output; standard error is not in it, unless "
                  "the line ends with `2>&1`. Unlike the other shell commands it leaves the service's PATH "
                  "as it is.")
            .takes({"LINE", "the command line, one argument"})
            .encoded(text_of("LINE"))
            .field("5-6", "u16", TEXT_LENGTH)
            .field("7..", "text", "the line and its terminating zero byte")
            .error("no shell could be started, or the length is 0 or above 512")
            .empty(true, "the line printed nothing")
            .value("the output",
                   "at most 768 bytes, without the last line feed. Output is read in pieces, a line or 255 "
                   "bytes of a longer one. The piece that passes byte 768 is clipped there, and 768 are "
                   "counted; when another piece follows, 767. Of a line with a zero byte, what follows in "
                   "its piece is left out, the line feed too")
            .leaves("What the line does.")
            .lasts("until the line has ended"),
        command(0xE607, "process-state", "diag_cmd_get_process_state")
            .does("Tells whether a process runs: whether `ps -A| grep NAME` prints a process. NAME goes to "
                  "the shell as it is and is a pattern of grep. The line's own processes are listed too, "
                  "without their arguments: `sh`, `ps`, `grep` and parts of these are always found, and so "
                  "is what stands in every line, such as the user.")
            .takes({"NAME", "the process's name or a part of it"})
            .encoded(text_of("NAME"))
            .field("5-6", "u16", TEXT_LENGTH)
            .field("7..", "text", "the name and its terminating zero byte")
            .good("EXSIT", "a process line holds the name")
            .good("NOT_EXSIT", "none does")
            .error("the length is 0 or above 512")
            .leaves("Nothing.")
            .repeatable()
            .lasts("some 10 ms"),
    };
}

} // namespace station
