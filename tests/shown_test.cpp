// What people see and what is left on the workstation: a line's screen, answers as lines and as JSON, files
// that are there whole or not at all.
#include "station/client/encode.h"
#include "station/client/errors.h"
#include "station/program/kept_file.h"
#include "station/program/output.h"
#include "station/program/screen.h"
#include "station/text/text.h"

#include <fstream>
#include <gtest/gtest.h>
#include <sstream>

#include "tests/wire.h"

namespace station
{

using Lines = std::vector<std::string>;

namespace
{

TEST(Screen, HasALineASlotAndKeepsToTheTerminal)
{
    SlotState tests;
    tests.number = 1;
    tests.phase = SlotState::Phase::tests;
    tests.unit = "CV00000001";
    tests.done = 5;
    tests.steps = 20;
    tests.step = "cell voltage";
    SlotState failed = tests;
    failed.number = 2;
    failed.phase = SlotState::Phase::shows;
    failed.end = End::fail;
    failed.done = 20;
    failed.failing = "name";
    failed.cause = "ERROR / because: \x1b[2Jgone";
    SlotState waits;
    waits.number = 3;
    waits.unit = "Gérät-\xff";
    waits.cause = "of the unit before";
    EXPECT_EQ(screen_lines({tests, failed, waits}, "below", 79, 23),
              (Lines{"  1 CV00000001               [#####...............] 6/20 cell voltage",
                     "  2 CV00000001               [####################] \033[1;31mFAIL\033[0m",
                     "    name: ERROR / because: \\x1b[2Jgone",
                     "  3 Gérät-\\xff               [....................] waits for a phone", "below"}));
    const std::string head = "  1 CV00000001";
    EXPECT_EQ(screen_lines({tests}, "", 60, 9).at(0),
              head + std::string(13, ' ') + "[####............] 6/20 cell volt");
    EXPECT_EQ(screen_lines({tests}, "", 40, 9).at(0), head + "   [#.....] 6/20 cell volt");
    EXPECT_EQ(screen_lines({tests}, "", 20, 9).at(0), head + " [#...] ");
    tests.failing = "name";
    EXPECT_EQ(screen_lines({tests}, "", 99, 9).at(0).substr(52), "6/20 cell voltage  (has failed)");
    tests.phase = SlotState::Phase::refused;
    tests.done = 21;
    EXPECT_EQ(screen_lines({tests}, "", 99, 9).at(0).substr(29), "[####################] refused");
    failed.end = End::pass;
    failed.cause.clear();
    EXPECT_EQ(screen_lines({failed}, "", 79, 23).at(0).substr(52), "\033[1;32mPASS\033[0m");
    failed.end = End::aborted;
    failed.cause = std::string(300, 'x');
    for (const size_t width : {20, 40, 60, 79, 200}) {
        std::vector<SlotState> many(9, failed);
        for (const size_t height : {3, 5, 9, 10, 12, 30}) {
            const Lines lines = screen_lines(many, std::string(300, 'y'), width, height);
            EXPECT_EQ(lines.size(), std::min<size_t>(height, 19));
            EXPECT_EQ(lines.back(), std::string(width, 'y'));
            for (const std::string &line : lines)
                EXPECT_TRUE(line.size() <= width || line.find('\033') != std::string::npos) << line;
        }
        EXPECT_EQ(screen_lines(many, "", width, 5).at(3),
                  std::string("    ... and 6 slots more").substr(0, width));
        EXPECT_EQ(screen_lines(many, "", width, 12).at(1), "    name: " + std::string(width - 10, 'x'));
    }
}

TEST(Screen, IsDrawnOverItselfAndOverWhatWasTyped)
{
    Screen screen;
    EXPECT_EQ(screen.printed({"a", "b", "c"}), "\r\033[Ja\nb\nc");
    EXPECT_EQ(screen.printed({"a", "b", "c"}), "");
    EXPECT_EQ(screen.printed({"a", "B"}), "\r\033[2A\033[Ja\nB");
    screen.forget(); // Enter has moved the cursor on
    EXPECT_EQ(screen.printed({"a", "B"}), "\r\033[2A\033[Ja\nB");
    EXPECT_EQ(screen.printed({"x"}), "\r\033[1A\033[Jx");
    EXPECT_EQ(screen.printed({"y"}), "\r\033[Jy");
}

// What is printed of an answer with this data.
std::string printed(const std::string &line, const std::string &data, const Settings &settings)
{
    Settings unused;
    const Request request = parse_request(split_words(line), unused);
    Exchange exchange;
    exchange.outcome = Outcome::answer;
    exchange.milliseconds = 12.345;
    exchange.attempts = 1;
    exchange.packet = empty_request(request.code);
    put_data(exchange.packet, {data.begin(), data.end()});
    exchange.packet.resize(request.response_size);
    testing::internal::CaptureStdout();
    print_result(settings, request, exchange, judge(request, exchange));
    return testing::internal::GetCapturedStdout();
}

TEST(Output, AnAnswerAsALineAndAlone)
{
    Settings line, plain, raw, json;
    plain.plain = raw.raw_hex = json.json = true;
    const struct {
        const char *asked, *data, *shown, *plain;
    } rows[] = {
        {"get-prop a", "blue", "0xE602 get-prop: blue  (12.3 ms)\n", "blue\n"},
        {"get-prop a", "ERROR",
         "0xE602 get-prop: ERROR - the property is not set or empty, or the length is 0 or above 512  (12.3 "
         "ms)\n",
         "ERROR\n"},
        {"shell-output a", "x\ny\n", "0xE606 shell-output:  (12.3 ms)\nx\ny\n", "x\ny\n"},
        {"shell-output a", "\x1b[2J\n", "0xE606 shell-output: \\x1b[2J  (12.3 ms)\n", "\x1b[2J\n"},
        {"ram-size", "\x08", "0x013E ram-size: 8 GiB  (12.3 ms)\n", "8 GiB\n"},
    };
    for (const auto &row : rows) {
        std::string shown = printed(row.asked, row.data, line);
        EXPECT_EQ(shown.substr(shown.find(' ')), std::string(row.shown).substr(6)) << row.asked;
        EXPECT_EQ(printed(row.asked, row.data, plain), row.plain) << row.asked;
    }
    EXPECT_EQ(printed("get-prop a", "b", raw).substr(0, 16), "4bfa02e600010062");
    EXPECT_NE(printed("ram-size", "\x08", json).find("\"decoded\": {\n    \"gib\": 8\n  },"),
              std::string::npos);
    EXPECT_EQ(printed("detect-phone", std::string("rgb0:F\0acc:F\0", 13), json), R"({
  "code": "0x013E",
  "name": "detect-phone",
  "request": "",
  "status": "failure",
  "milliseconds": 12.345,
  "attempts": 1,
  "skipped": 0,
  "byte4": 0,
  "length": 13,
  "text": "rgb0:F\u0000acc:F\u0000",
  "hex": "726762303a46006163633a4600",
  "meaning": "missing: rgb0 acc",
  "decoded": {
    "missing": [
      "rgb0",
      "acc"
    ]
  },
  "response_size": 263
}
)");
    for (const auto &[value, text] :
         {std::pair{9.994, "9.99"}, {10.0, "10.0"}, {99.94, "99.9"}, {100.0, "100"}})
        EXPECT_EQ(milliseconds_text(value), text);
}

TEST(Output, BytesThatAreNoCharactersAreTold)
{
    uint32_t character = 0;
    EXPECT_EQ(utf8_character("\xf8\x90\x80\x80", 0, character), 0U) << "of five bytes, once";
    EXPECT_EQ(utf8_character(std::string(1, '\0'), 0, character), 1U);
    EXPECT_EQ(Json("\x1b\xc3\xbc\xff").dump(), "\"\\u001b\\u00fc\\ufffd\"");
}

std::string content_of(const std::string &path)
{
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

TEST(KeptFile, IsThereWholeOrNotAtAll)
{
    temporary_folder folder;
    const std::string path = folder.path + "/file";
    const auto count = [&] {
        const std::filesystem::directory_iterator all(folder.path);
        return std::distance(begin(all), end(all));
    };
    std::ofstream(path + ".part") << "mine";
    {
        KeptFile file(path);
        std::fputs("half", file.file());
    }
    EXPECT_EQ(count(), 1);
    for (const char *text : {"first", "second"}) { // the second in the first's place
        KeptFile file(path);
        std::fputs(text, file.file());
        EXPECT_NE(content_of(path), text);
        file.keep();
        EXPECT_EQ(content_of(path), text);
    }
    EXPECT_EQ(count(), 2);
    EXPECT_EQ(content_of(path + ".part"), "mine");
    EXPECT_THROW(KeptFile(folder.path + "/none/file"), OutputError);
    EXPECT_THROW(KeptFile{folder.path}, OutputError);
    KeptFile full("/dev/full");
    std::fputs("x", full.file());
    EXPECT_THROW(full.keep(), OutputError);
    {
        KeptFile lost(folder.path + "/lost");
        std::filesystem::create_directory(folder.path + "/lost");
        EXPECT_THROW(lost.keep(), OutputError);
    }
    EXPECT_EQ(count(), 3) << "the folder, and nothing of the file";
}

} // namespace

} // namespace station
