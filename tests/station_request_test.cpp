// What the station sends for a command line, byte for byte, and what it makes of answers.
#include "core/table.h"
#include "station/catalogue/request.h"
#include "station/catalogue/suggest.h"
#include "station/client/encode.h"
#include "station/client/errors.h"
#include "station/program/output.h"
#include "tests/canned/phone.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <set>
#include <unistd.h>

using namespace station;

namespace
{

Request request_of(const std::string &line)
{
    Settings settings;
    return parse_request(split_words(line), settings);
}

// The packet behind the head and the code: byte 4, length, data.
std::string body_of(const std::string &line)
{
    const Bytes packet = request_of(line).packet;
    EXPECT_GE(packet.size(), 5U);
    EXPECT_EQ(packet[1], 250);
    return to_hex({packet.begin() + 4, packet.end()});
}

// Hexadecimal digits, with blanks between the fields to be read more easily.
std::string bytes_of(std::string digits)
{
    digits.erase(std::remove(digits.begin(), digits.end(), ' '), digits.end());
    return digits;
}

class File
{
  public:
    explicit File(const std::string &content)
    {
        const int fd = mkstemp(&path[0]);
        EXPECT_EQ(write(fd, content.data(), content.size()), static_cast<ssize_t>(content.size()));
        close(fd);
    }
    ~File() { unlink(path.c_str()); }

    std::string path = "/tmp/station_testXXXXXX";
};

std::string repeated(const std::string &text, int count)
{
    std::string all;
    while (count-- > 0)
        all += text;
    return all;
}

TEST(Request, BytesOfEveryKind)
{
    const struct {
        const char *line;
        std::string body;
    } cases[] = {
        {"port-check", "00"},
        {"query-boot-mode", "000000"},
        // texts: the terminator is there and not counted
        {"get-prop a.b", "000300 612e6200"},
        {"shell \"a b\"", "000300 61206200"},
        {"read-node /a", "000200 2f6100"},
        {"read-node /a --expect 1", "010400 2f612b3100"},
        {"write-node /a \"\"", "000300 2f612b00"},
        {"set-prop k v", "000300 6b2b7600"},
        {"set-battery-capacity 50", "000200 353000"},
        {"set-wlan-mac 00:1a:2B:3c:4d:5e", "000c00 303031613242336334643565 00"},
        {"set-bt-address A1B2C3D4E5F6", "000c00 413142324333443445354636 00"},
        // a byte by word and by number
        {"run-in-result", "000000"},
        {"set-rgb blue 128", "000200 3080"},
        {"set-rgb-new green 0x05", "000200 0205"},
        {"set-lcd-frequency 120", "000100 78"},
        // binary fields
        {"set-time \"2026-11-21 10:00:05\"", "000a00 0b150a00 07ea 2e05000a"},
        {"set-time 2026-11-21 10:00:58", "000a00 0b150a00 07ea 2e3a003b"},
        {"set-time 2026-01-02T03:04:05 --limit 60", "000a00 01020304 07ea 2e05003c"},
        {"screen-off-timeout 30", "000300 00001e"},
        {"screen-off-timeout 61695", "000300 00f0ff"},
        {"screen-off-timeout 65792", "000300 010000"},
        {"screen-off-timeout 1048576", "000300 100000"},
        {"lcd-picture FF0000", "000300 ff0000"},
        {"lcd-picture 10,11,12 --margin 20", "000400 0a0b0c14"},
        {"lcd-picture 255,0,0 --margin 255", "000400 ff0000ff"},
        {"set-wlan-mac 00-1A-2b-3C-4d-5E", "000c00 303031413262334334643545 00"},
        {"set-time 2026-12-31 23:59:60 --limit 0", "000a00 0c1f173b 07ea 2e3b0000"},
        {"screen-off-timeout 0", "000300 000000"},
        {"screen-off-timeout 1110271", "000300 10f0ff"},
        {"set-lcd-data --hex \"01 02:03\"", "000300 010203"},
        {"set-rgb-table-new 1 -2 3 255", "003000" + repeated("01000000feffffff03000000ff000000", 3)},
        {"set-rgb-table 0 10000 0 255", "00f000" + repeated("000000001027000000000000ff000000", 15)},
        // anything at all
        {"send 0xE602 --text a --byte4 7 --length 513", "070102 6100"},
        {"send get-prop --hex 6100", "000200 6100"},
        {"send 0x013C", "000000"},
        {"send 0x013C --body 05", "05"},
    };
    for (const auto &one : cases)
        EXPECT_EQ(body_of(one.line), bytes_of(one.body)) << one.line;

    EXPECT_EQ(to_hex(request_of("battery-current").packet).substr(2, 6), "fa030c");
    EXPECT_EQ(to_hex(request_of("start-charging").packet).substr(2, 6), "fa1f0c");
}

TEST(Request, BytesFromFiles)
{
    const File cek("abc"), pm(std::string("\0\x7e", 2)), curves("1 2 3 4 # red\n5 6 7 8\n\n9 10 11 -12\n");
    EXPECT_EQ(body_of("set-hdcp-key --cek " + cek.path + " --pm " + pm.path),
              bytes_of("000300 0200 616263 007e"));
    EXPECT_EQ(body_of("store-widevine-keybox --file " + pm.path), bytes_of("000200 007e"));
    EXPECT_EQ(body_of("set-rgb-table-new --file " + curves.path),
              bytes_of("003000 01000000020000000300000004000000 05000000060000000700000008000000 "
                       "090000000a0000000b000000f4ffffff"));
}

TEST(Request, WhatCannotBeSentIsRefused)
{
    for (const char *line :
         {"no-such-command", "write-node /a b+c", "read-node /a --expect 1+1", "wipe-data",
          "set-bt-address 001a2b3c4dZZ", "screen-off-timeout 600", "set-time 2026-13-01 00:00:00",
          "set-lcd-data --hex 00 --text a", "send 1 --hex \"0 0\"", "lcd-picture 1,2,3,4", "set-time now now",
          "set-time 2026-11-21 10:00:05 --limit 256", "screen-off-timeout -1",
          "set-rgb-table-new 1 2 3 2147483648", "set-wlan-mac 00:1a:2b:3c:4d:5e:6f", "boot-mode -1",
          "boot-mode 1x"})
        EXPECT_THROW(request_of(line), UsageError) << line;
    EXPECT_THROW(split_words("a 'b"), UsageError);
    const auto why = [](const std::string &line) {
        try {
            request_of(line);
        } catch (const UsageError &error) {
            return std::string(error.what());
        }
        return std::string();
    };
    EXPECT_EQ(why(""), "no request");
    // A packet holds so much, and no byte more.
    const File fits(std::string(65527, 'x')), too_much(std::string(65528, 'x'));
    EXPECT_EQ(request_of("store-widevine-keybox --file " + fits.path).packet.size(), 65534U);
    EXPECT_EQ(why("store-widevine-keybox --file " + too_much.path), "more data than a packet holds");
}

TEST(Request, WhatWasProbablyMeant)
{
    EXPECT_EQ(suggestion("get-porp", command_names()), "; did you mean get-prop?");
    EXPECT_EQ(suggestion("getprop", command_names()), "; did you mean get-prop?");
    EXPECT_EQ(suggestion("abc", {"abcd", "xyz"}), "; did you mean abcd?");
    EXPECT_EQ(suggestion("ab", {"wxyz"}), "");
    // three faults in eight letters, and four: put in, left out, changed, swapped
    for (const char *mistyped : {"a1b2c3defgh", "cefgh", "123defgh", "badcfegh"})
        EXPECT_EQ(suggestion(mistyped, {"abcdefgh"}), "; did you mean abcdefgh?") << mistyped;
    for (const char *mistyped : {"a1b2c3d4efgh", "cegh", "1234efgh", "badcfehg"})
        EXPECT_EQ(suggestion(mistyped, {"abcdefgh"}), "") << mistyped;
    EXPECT_EQ(suggestion("abcz", {"abcx", "abcy"}), "; did you mean abcx?") << "the first of the near ones";
    EXPECT_NE(suggestion(std::string(64, 'a'), {std::string(64, 'a')}), "");
    EXPECT_EQ(suggestion(std::string(65, 'a'), {std::string(65, 'a')}), "");
    EXPECT_EQ(suggestion("$l", {"$A", "$L"}), "; did you mean $L?");
    EXPECT_EQ(suggestion("LABEL", {"LABE", "label"}), "; did you mean label?");
    EXPECT_EQ(suggestion("a", {}), "");
}

TEST(Request, TellsWhetherThePhoneGoesDownAndWhetherItTellsTheTime)
{
    for (const char *line : {"restart", "wipe-data now", "send wipe-data --body \"\""})
        EXPECT_TRUE(request_of(line).takes_phone_down) << line;
    for (const char *line : {"wipe-data next-boot", "get-prop a", "send wipe-data --byte4 1"})
        EXPECT_FALSE(request_of(line).takes_phone_down) << line;
    EXPECT_FALSE(request_of("set-time 2026-11-21 10:00:05").fresh);
    const Bytes now = request_of("set-time now").fresh();
    EXPECT_NEAR(now.at(11) * 256 + now.at(12), 1969.5 + static_cast<double>(time(nullptr)) / 31556952, 1);
}

// A command's line is made once and serves all that ask for it.
TEST(Request, KeepsNothingOfTheOneBefore)
{
    EXPECT_EQ(body_of("read-node /a --expect 1"), bytes_of("010400 2f612b3100"));
    EXPECT_EQ(body_of("read-node /b"), bytes_of("000200 2f6200"));
    EXPECT_THROW(request_of("read-node --expect 1 --json"), UsageError);
    Settings settings;
    settings.client.timeout = 7;
    parse_request({"read-node", "/b", "--timeout", "3", "--plain"}, settings);
    EXPECT_EQ(settings.client.timeout, 3);
    EXPECT_TRUE(settings.plain);
    settings = {};
    settings.client.timeout = 9;
    parse_request({"read-node", "/b"}, settings);
    EXPECT_EQ(settings.client.timeout, 9);
    EXPECT_FALSE(settings.plain);
}

TEST(Request, WordsOfALine)
{
    using Words = std::vector<std::string>;
    EXPECT_EQ(split_words(" a  \"b c\"\t'd\"e' \"\" f\\ g "), (Words{"a", "b c", "d\"e", "", "f g"}));
    EXPECT_EQ(split_words("\\  a\\"), (Words{" ", "a\\"}));
    EXPECT_EQ(split_words(R"(shell-output "printf \"a\nb\"")"), (Words{"shell-output", R"(printf "a\nb")"}));
    // A shell line in brackets is a text like any other.
    EXPECT_EQ(to_text(request_of("shell \"[ -e /a ]\"").packet).substr(7, 9), "[ -e /a ]");
}

Exchange answered(uint16_t code, const std::string &data, size_t size = 263)
{
    Exchange exchange;
    exchange.outcome = Outcome::answer;
    exchange.packet = empty_request(code);
    put_data(exchange.packet, {data.begin(), data.end()});
    exchange.packet.resize(size);
    return exchange;
}

TEST(Answer, VerdictAndMeaning)
{
    using namespace std::string_literals;
    const struct {
        const char *line;
        std::string data;
        Verdict verdict;
        const char *shown;
    } cases[] = {
        {"get-prop a", "x", SUCCESS, "x"},
        {"get-prop a", "ERROR", FAILURE, "ERROR"},
        {"set-prop a b", "OK", SUCCESS, "OK"},
        {"set-prop a b", "OKAY", FAILURE, "OKAY"},
        {"process-state a", "NOT_EXSIT", SUCCESS, "NOT_EXSIT"},
        {"install-widevine a", "NOT_EXSIT", FAILURE, "NOT_EXSIT"},
        {"remove-file /a", "NOTEXIST", FAILURE, "NOTEXIST"},
        {"open-bt", "EXIST", SUCCESS, "EXIST"},
        {"screen-state", "", FAILURE, "(empty)"},
        {"shell-output a", "", SUCCESS, "(empty)"},
        {"shell-output a", "a\nb\x01", SUCCESS, "a\\nb\\x01"},
        {"shell-output a", "\x1b[2J\xc3\xa9\xc2\x9b\xe2\x80\xae\xff", SUCCESS,
         "\\x1b[2J\xc3\xa9\\xc2\\x9b\\xe2\\x80\\xae\\xff"},
        {"cpu-feature-id", "0014A0E1\n", SUCCESS, "0014A0E1"},
        {"ram-size", "\x0C", SUCCESS, "12 GiB"},
        {"ram-size", "", FAILURE, "(empty)"},
        {"flash-size", "\x80", SUCCESS, "128 GiB"},
        {"flash-size", "\x01\x01", SUCCESS, "256 GiB"},
        {"ssd-size", "\x04\x04", SUCCESS, "1024 GiB"},
        {"ssd-size", "ERROR", FAILURE, "ERROR"},
        {"detect-phone", "P", SUCCESS, "P"},
        {"detect-phone", "rgb0:F\0acc:F\0"s, FAILURE, "missing: rgb0 acc"},
        {"get-bt-address", "ABCDEF123456", SUCCESS, "AB:CD:EF:12:34:56"},
        {"cplc", "cplc:0102mac:03", SUCCESS, "CPLC 0102, identifier 03"},
        {"cplc", "cplc:0\n1mac:", SUCCESS, "CPLC 0\\n1, identifier "},
        {"cplc", "cplc:0102", SUCCESS, "cplc:0102"},
        {"cplc", "mac:03", SUCCESS, "mac:03"},
        {"get-bt-address", "ABC", SUCCESS, "AB:C"},
        {"flash-size", "\x02\x02", SUCCESS, "512 GiB"},
        {"display-status", "OK", SUCCESS, "OK"},
        {"display-status", "3", FAILURE, "3"},
        {"set-hdcp-key --cek /dev/null --pm /dev/null", "store_PM_fail", FAILURE, "store_PM_fail"},
        {"send 0x9999", "ERROR", FAILURE, "ERROR"},
        {"send 0x9999", "anything", SUCCESS, "anything"},
    };
    for (const auto &one : cases) {
        const Request request = request_of(one.line);
        const Exchange exchange = answered(request.code, one.data);
        const Result result = judge(request, exchange);
        EXPECT_EQ(result.verdict, one.verdict) << one.line << " " << one.data;
        EXPECT_EQ(answer_line(exchange, result), one.shown);
        EXPECT_NE(to_json(request, exchange, result)
                      .dump()
                      .find("\"length\":" + std::to_string(one.data.size()) + ","),
                  std::string::npos);
    }
}

TEST(Answer, OfEverySize)
{
    const Request request = request_of("ram-size");
    const auto shown = [&](uint16_t length, size_t size) {
        Exchange exchange = answered(request.code, "\x0C", size);
        exchange.packet[LENGTH_OFFSET] = length;
        return answer_line(exchange, judge(request, exchange));
    };
    EXPECT_EQ(shown(1, 8), "12 GiB");
    EXPECT_EQ(shown(0, 7), "(empty)");
    EXPECT_EQ(shown(200, 8), "12 GiB") << "no more than came";
    Exchange exchange = answered(request.code, "", 5);
    EXPECT_EQ(answer_line(exchange, judge(request, exchange)), "(echo)");
    EXPECT_STREQ(judge(request_of("set-prop a b"), answered(0, "OKAY")).word,
                 "not an answer of this command");
    EXPECT_EQ(gib_byte({}, {}).text, "0 GiB");
    EXPECT_EQ(gib_base255({}, Bytes(7, 9)).text, "0 GiB");
    EXPECT_EQ(gib_base255({}, Bytes(8, 9)).text, "9 GiB");
}

TEST(Answer, BytesThatAreNoTextAreStillJson)
{
    const Request request = request_of("wechat-key");
    const Exchange exchange = answered(request.code, "\xff\xfe", 775);
    const std::string json = to_json(request, exchange, judge(request, exchange)).dump();
    EXPECT_NE(json.find(R"("text":"\ufffd\ufffd","hex":"fffe")"), std::string::npos) << json;
}

TEST(Catalogue, IsTheRegisteredTable)
{
    // Without a buffer for the response a handler does no more than to log its name.
    boot({});
    the_phone().faults = {{FAIL_RESPONSE, 0}};
    std::vector<uint8_t> request(65535 + 1024);
    ASSERT_EQ(catalogue().size(), diag_command_table.count);
    for (size_t i = 0; i < diag_command_table.count; i++) {
        const diagpkt_entry &entry = diag_command_table.entries[i];
        const Command *command = find_command(entry.low);
        ASSERT_TRUE(command) << i;
        EXPECT_EQ(command->low, entry.low) << i;
        EXPECT_EQ(command->high, entry.high) << i;
        EXPECT_EQ(entry.handler(request.data(), 7), nullptr);
        const std::string &line = the_record().log.back();
        EXPECT_EQ(line.substr(1, line.find(']') - 1), command->handler) << i;
    }
}

TEST(Catalogue, IsCompleteAndUnambiguous)
{
    std::set<std::string> names{"send", "list", "run", "push", "pull", "reference", "wait", "sleep", "skip"};
    for (const Command &command : catalogue()) {
        EXPECT_EQ(command.names.size(), command.high - command.low + 1U) << command.handler;
        EXPECT_FALSE(std::string(command.summary).empty()) << command.handler;
        EXPECT_FALSE(std::string(command.aftermath).empty()) << command.handler;
        EXPECT_TRUE(command.response_size == 263 || command.response_size == 775 ||
                    command.response_size == 5);
        for (size_t i = 0; i < command.names.size(); i++) {
            EXPECT_EQ(command.names[i].code, command.low + i);
            EXPECT_TRUE(names.insert(command.names[i].name).second) << command.names[i].name;
        }
        // An answer behind one that takes anything would never be seen.
        for (const Answer &answer : command.answers)
            EXPECT_TRUE(answer.fit != Answer::Fit::anything || &answer == &command.answers.back())
                << command.handler;
        EXPECT_TRUE(std::any_of(command.answers.begin(), command.answers.end(), [](const Answer &answer) {
            return answer.success;
        })) << command.handler;
        // A request with arguments says where they go.
        EXPECT_TRUE(command.parameters.empty() || !command.fields.empty()) << command.handler;
    }
}

} // namespace
