#include "station/program/reference.h"

#include "frame.h"
#include "station/catalogue/page.h"
#include "station/client/encode.h"

#include <algorithm>
#include <cctype>
#include <map>

namespace station
{

// Stands above the families in the reference.
static constexpr char INTRODUCTION[] = R"(# Commands of the diag service

For whoever writes a test station's software. The service answers @COUNT@ commands; this is what to send, what comes back
and what it means. Everything here is also in the station client: `station list` names the commands, `station NAME --help`
shows one. This file is made by `station reference`; change `station/catalogue/` and make it anew.

## The port

The service is reached over the phone's diagnostic port. A packet travels in a frame: the packet, its FCS-16 (low byte
first), with each 0x7D and 0x7E in both sent as 0x7D and the byte xor 0x20, closed by the flag 0x7E. [port.md](port.md)
has the details. Requests are served one at a time, in the order they come. There is exactly one response to a request, or
none when the phone has no memory for it; a station waits with a time limit of its own.

A code that nobody serves is answered by the router with an error packet: the byte 0x13, then the first bytes of the
request.

## The packet

| Bytes | Type | Request | Response |
|---|---|---|---|
| 0 | u8 | command code, any but 0x13; this client sends 0x4B | as in the request |
| 1 | u8 | subsystem, 250 (0xFA) | as in the request |
| 2-3 | u16 | the command's code | as in the request |
| 4 | u8 | selector; 0 where the command names none | as in the request |
| 5-6 | u16 | number of data bytes | number of data bytes that count |
| 7.. | | data | data |

Numbers are unsigned and sent low byte first unless a command says otherwise. A response has the fixed size that its
command names, whatever its length field says. What lies behind the counted bytes is not part of the answer: mostly zero
bytes, but a line feed that is not counted (as in 0x0C01-0x0C04, 0x013F, 0x1302) or more of a value that was cut (as in
0xE606, 0xD21E) may stand there. One answer is shorter than the table: that of 0x013C (port-check) ends behind byte 4.

A command that takes nothing gets selector 0 and length 0; what else is sent is ignored. Of a packet that ends early, 4
bytes at least, the missing bytes are read as zero: the first 4 alone mean selector 0 and no data.

**Texts** in requests end with a zero byte inside the packet, which the length does not count. Whether the length is used
is told at each command's bytes 5-6: some take as many bytes as are counted, and fewer when a zero byte comes first; some
only check its range, and the text runs to its zero byte.

A **pair of texts** is sent as one text with a `+` between them, so neither may hold a `+`: **what stands behind a second
`+` is lost without a sign**. `x+a+b` does the same as `x+a`, and the answer is the same too. Each half has at most 255
bytes; both together with the `+`, except where a command says otherwise, 256.


@EXAMPLE@

## Answers

Success and failure are told by the data alone; the selector comes back as it was sent. Texts are answered without a
terminator and have to be compared byte for byte, odd spellings included.

| Word | Bytes | Meaning |
|---|---|---|
| `OK` | 2 | done, or the check passed |
| `ERROR` | 5 | not done, or the check did not pass; the cause is only in the phone's log, under the tag `Diag_Lib` |
| `EXSIT`, `NOT_EXSIT` | 5, 9 | there, not there; where a command says so |

A command that reads a value answers the value in their place. A value that happens to be the text ERROR cannot be told from
a failure.

The log is read with `adb logcat -s Diag_Lib`, of the virtual phone with `script/phone logcat NAME -d`, and over the port
with `station shell-output "logcat -d | grep HANDLER | tail -n 3"`, 768 bytes of it; each command's handler is named below.
What is answered so is logged as well: `station shell "logcat -c"` before the command in question empties the log. Where a
tool's words are not logged, run it with `station shell-output "TOOL 2>&1"`.


## The client

    station [--port PORT] [--timeout SECONDS] [--retries NUMBER] [--json | --plain | --raw-hex] NAME ARGUMENT...

`PORT` is the path of a Unix stream socket, a serial device or `tcp:HOST:PORT`; without the option it is `$STATION_PORT`, or
the virtual phone's `build/phone/phone0/port`. A word that stands for a byte (`boot-mode ffbm`) may be given as a number too
(`boot-mode 1`). Arguments that begin with `-` go behind `--`. `station send CODE` sends anything else: `--text`, `--hex`,
`--file`, `--byte4`, `--length`, `--body`. [station.md](station.md) has the rest: scripts, files, exit statuses, serial lines.

A lost answer does not tell whether the command was carried out. So `--retries` repeats a request that got no answer, over
a new connection, only where it is marked *safe to repeat*: carrying it out twice comes to the same as once. Connecting is
repeated for every request, as long as nothing was sent.

)";

static std::string spaced_hex(const Bytes &bytes)
{
    std::string text;
    for (uint8_t byte : bytes)
        text += (text.empty() ? "" : " ") + to_hex({byte});
    return text;
}

static std::string example()
{
    Bytes packet = empty_request(0xE602);
    put_text(packet, "ro.build.id");
    Bytes frame(port::encoded_max(packet.size()));
    frame.resize(port::encode(packet.data(), packet.size(), frame.data()));
    return "As an example, `get-prop ro.build.id` is the packet\n\n    " + spaced_hex(packet) +
           "\n\nand the frame\n\n    " + spaced_hex(frame);
}

static void fill_in(std::string &text, const std::string &mark, const std::string &content)
{
    text.replace(text.find(mark), mark.size(), content);
}

static std::string answer_name(const Answer &answer)
{
    switch (answer.fit) {
    case Answer::Fit::word:
        return "`" + std::string(answer.text) + "`";
    case Answer::Fit::empty:
        return "*nothing*";
    case Answer::Fit::anything:
        break;
    }
    return "*" + std::string(answer.text) + "*";
}

static std::string codes(const Command &command)
{
    return command.is_range() ? code_text(command.low) + "-" + code_text(command.high)
                              : code_text(command.low);
}

static std::string choice_list(const Parameter &parameter)
{
    std::string text;
    for (const Choice &choice : parameter.choices)
        text += (text.empty() ? " (" : "; ") + std::string("`") + choice.word + "` " + choice.meaning;
    return text.empty() ? text : text + ")";
}

static std::string heading(const Command &command)
{
    std::string text = codes(command);
    for (const Name &name : command.names)
        text += (&name == &command.names.front() ? " " : ", ") + std::string(name.name);
    return text;
}

// What Markdown makes of a heading for links to it.
static std::string anchor(const std::string &title)
{
    std::string link = "#";
    for (unsigned char character : title)
        if (std::isalnum(character) || character == '-')
            link += static_cast<char>(std::tolower(character));
        else if (character == ' ')
            link += '-';
    return link;
}

// Every code, by number.
static std::string index()
{
    std::map<uint16_t, std::string> rows;
    for (const Command &command : catalogue())
        for (const Name &name : command.names)
            rows[name.code] = "| " + code_text(name.code) + " | [" + name.name + "](" +
                              anchor(heading(command)) + ") | " + one_line(command, name) + " |\n";
    std::string text = "| Code | Name | What it does |\n|---|---|---|\n";
    for (const auto &row : rows)
        text += row.second;
    return text;
}

static std::string command_section(const Command &command)
{
    std::string text = "### " + heading(command) + "\n\n" + command.summary + "\n\n";
    if (command.is_range()) {
        text += "| Code | Name | Meaning |\n|---|---|---|\n";
        for (const Name &name : command.names)
            text += "| " + code_text(name.code) + " | " + name.name + " | " + name.summary + " |\n";
        text += "\n";
    }
    for (const Name &name : command.names)
        text += "    station " + usage_line(command, name) + "\n";
    text += "\n";
    for (const Parameter &parameter : command.parameters) {
        text += "- `" + std::string(parameter.form) + "`: " + parameter.meaning + choice_list(parameter);
        if (parameter.standard)
            text += "; when left out, `" + std::string(parameter.standard) + "`";
        text += "\n";
    }
    if (!command.parameters.empty())
        text += "\n";
    if (command.fields.empty())
        text += "Request: the head alone.\n\n";
    else {
        text += "| Request bytes | Type | Content |\n|---|---|---|\n";
        for (const Field &field : command.fields)
            text += "| " + std::string(field.bytes) + " | " + field.type + " | " + field.meaning + " |\n";
        text += "\n";
    }
    text += "| Answer | | Meaning |\n|---|---|---|\n";
    for (const Answer &answer : command.answers)
        text += "| " + answer_name(answer) + " | " + (answer.success ? "success" : "failure") + " | " +
                answer.meaning + " |\n";
    text += "\nLeft behind: " + std::string(command.aftermath) + "\n\n";
    text += "Response " + std::to_string(command.response_size) + " bytes. " +
            (command.safe_to_repeat ? "Safe to repeat. " : "**Not safe to repeat.** ") + "Takes " +
            command.duration + ". Handler `" + command.handler + "`.\n\n";
    return text;
}

std::string reference_markdown()
{
    std::string text = INTRODUCTION;
    fill_in(text, "@EXAMPLE@", example());
    fill_in(text, "@COUNT@", std::to_string(catalogue().size()));
    text += "## All commands\n\n" + index();
    text += "\n";
    for (int family = 0; family <= static_cast<int>(Family::security_keys); family++) {
        text += "## " + std::string(family_title(static_cast<Family>(family))) + "\n\n";
        for (const Command &command : catalogue())
            if (command.family == static_cast<Family>(family))
                text += command_section(command);
    }
    text.pop_back(); // one line feed at the end
    return text;
}

} // namespace station
