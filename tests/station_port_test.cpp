// The station against ports that behave and ports that do not: sockets, TCP, a pseudo-terminal.
#include "station/client/client.h"
#include "station/client/encode.h"
#include "station/client/errors.h"
#include "station/client/files.h"
#include "station/plan/run.h"
#include "station/plan/script.h"

#include <arpa/inet.h>
#include <atomic>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <netinet/in.h>
#include <regex>
#include <sys/wait.h>
#include <thread>

#include "tests/fake_port.h"

using namespace station;
using namespace std::chrono_literals;
using namespace std::string_literals;

namespace
{

constexpr double SOON = 0.3;

struct Fixture {
    explicit Fixture(Behaviour behaviour, const std::string &name = "port")
        : path(directory.path + "/" + name), port(listen_unix(path), std::move(behaviour))
    {
    }
    Client client(int retries = 0, bool trace = false) const { return Client({path, SOON, retries, trace}); }

    temporary_folder directory;
    std::string path;
    FakePort port;
};

Bytes request(uint16_t code = 0xE602)
{
    Bytes packet = empty_request(code);
    put_text(packet, "~}a"); // both bytes that the framing stuffs
    return packet;
}

std::string text_of_answer(const Exchange &exchange)
{
    if (exchange.packet.size() < DATA_OFFSET)
        return "";
    return {exchange.packet.begin() + DATA_OFFSET,
            exchange.packet.begin() + static_cast<long>(DATA_OFFSET) + exchange.packet[LENGTH_OFFSET]};
}

// Of each line of a trace the direction: blank for an event.
std::string directions(const std::string &trace)
{
    return std::regex_replace(trace, std::regex(".{16}(.).*\n"), "$1");
}

// What keeps a port from being used, or nothing.
template <typename Use> std::string fault_of(const Use &use)
{
    try {
        use();
    } catch (const PortError &error) {
        return error.what();
    }
    return "";
}

TEST(Port, EveryTransport)
{
    const Behaviour echo = [](const Bytes &packet, int) {
        return answer(packet, {packet.begin() + DATA_OFFSET, packet.begin() + DATA_OFFSET + 3});
    };
    {
        temporary_folder deep;
        const std::string directory = deep.path + "/" + std::string(120, 'd');
        std::filesystem::create_directory(directory);
        FakePort port(listen_unix(directory + "/port"), echo);
        EXPECT_EQ(text_of_answer(Client({directory + "/port", SOON, 0}).ask({request(), true})), "~}a");
    }
    {
        const int listener = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr *>(&address), size), 0);
        ASSERT_EQ(listen(listener, 8), 0);
        getsockname(listener, reinterpret_cast<sockaddr *>(&address), &size);
        FakePort port(listener, echo);
        testing::internal::CaptureStderr();
        Client client({"tcp:127.0.0.1:" + std::to_string(ntohs(address.sin_port)), SOON, 0, true});
        EXPECT_EQ(text_of_answer(client.ask({request(), true})), "~}a");
        EXPECT_EQ(directions(testing::internal::GetCapturedStderr()), " >>><<<><");
    }
    {
        const int terminal = posix_openpt(O_RDWR | O_NOCTTY);
        ASSERT_EQ(grantpt(terminal), 0);
        ASSERT_EQ(unlockpt(terminal), 0);
        int stop[2];
        ASSERT_EQ(pipe2(stop, O_CLOEXEC), 0);
        std::atomic<int> requests{0};
        EXPECT_EQ(write(terminal, "late", 4), 4);
        std::thread thread([&] { FakePort::serve(terminal, stop[0], requests, echo); });
        testing::internal::CaptureStderr();
        {
            Client client({ptsname(terminal), SOON, 0, true});
            EXPECT_EQ(text_of_answer(client.ask({request(), true})), "~}a");
            EXPECT_EQ(text_of_answer(client.ask({request(0x0A0D), true})),
                      "~}a"); // bytes a cooked line would change
        }
        EXPECT_EQ(directions(testing::internal::GetCapturedStderr()), " >>><<<><><");
        close(stop[1]);
        thread.join();
        close(stop[0]);
        close(terminal);
    }
}

TEST(Port, WritesAllAndTellsHowItEnds)
{
    temporary_folder directory;
    const std::string path = directory.path + "/port";
    const owned::descriptor listener(listen_unix(path));
    Port port(path, Clock::now() + 5000ms);
    owned::descriptor phone(accept(listener.get(), nullptr, nullptr));
    Bytes much(1000000), there(much.size());
    for (size_t i = 0; i < much.size(); i++)
        much[i] = static_cast<uint8_t>(i * i >> 8);
    std::thread reader([&] { recv(phone.get(), there.data(), there.size(), MSG_WAITALL); });
    port.write(much, Clock::now() + 5s);
    reader.join();
    EXPECT_TRUE(there == much);
    EXPECT_TRUE(port.read(Clock::now()).empty());
    EXPECT_EQ(write(phone.get(), "x", 1), 1);
    EXPECT_EQ(port.read(Clock::now() + 5000ms), Bytes{'x'});
    EXPECT_EQ(fault_of([&] { port.write(much, Clock::now() + 20ms); }), "the port takes no bytes");
    phone.reset();
    EXPECT_EQ(fault_of([&] { port.read(Clock::now() + 20ms); }),
              "the port is gone: Connection reset by peer");
    EXPECT_EQ(fault_of([&] { port.read(Clock::now() + 20ms); }), "the port was closed by the other side");
    EXPECT_EQ(fault_of([&] { port.write(much, Clock::now() + 20ms); }), "the port is gone: Broken pipe");
}

TEST(Port, SkipsWhatIsNotTheAnswer)
{
    const Bytes too_long(150000, 'x');
    Fixture fixture([&](const Bytes &packet, int) {
        Bytes broken = frame_of(response_to(packet, "broken"));
        broken[12] ^= 1;
        const Bytes garbage{0x7E, 0x7E, 0x01, 0x7E, 0x7D, 0x7E, 'x', 'y', 'z', 0x7E};
        return Reply{garbage + broken + too_long + Bytes{0x7E} +
                     frame_of(response_to(empty_request(0x0100), "late")) +
                     frame_of(response_to(packet, "right"))};
    });
    testing::internal::CaptureStderr();
    const Exchange exchange = Client({fixture.path, 5, 0, true}).ask({request(), true});
    EXPECT_EQ(text_of_answer(exchange), "right");
    EXPECT_GE(exchange.skipped, 5);
    const std::string trace = testing::internal::GetCapturedStderr();
    for (const std::string &said :
         {"< 7e7e017e  broken: too short"s, "< 7d7e  broken: wrong FCS"s,
          "< " + to_hex({too_long.begin(), too_long.begin() + 140000}) + "  broken: too long\n"})
        EXPECT_NE(trace.find(said), std::string::npos) << said.substr(0, 100);
}

TEST(Port, WhatComesBehindTheAnswerIsDropped)
{
    Fixture fixture([](const Bytes &packet, int) {
        Bytes wire;
        for (const char *text : {"right", "late", "late"})
            wire = wire + frame_of(response_to(packet, text, 4000)); // more than is read at once
        return Reply{wire};
    });
    Client client = fixture.client(0, true);
    for (const char *expected : {"", "late: dropped\n"}) {
        testing::internal::CaptureStderr();
        const Exchange exchange = client.ask({request(), true});
        EXPECT_EQ(text_of_answer(exchange), "right");
        EXPECT_NE(testing::internal::GetCapturedStderr().find(expected), std::string::npos);
    }
}

TEST(Port, AnAnswerThatComesAfterItsTimeIsNotTheNextOnes)
{
    // The second request gets the first one's answer before its own.
    Bytes first;
    Fixture fixture([&](const Bytes &packet, int count) {
        if (count == 0) {
            first = packet;
            return Reply{};
        }
        return Reply{frame_of(response_to(first, "first")) + frame_of(response_to(packet, "second"))};
    });
    Client client = fixture.client(0, true);
    testing::internal::CaptureStderr();
    EXPECT_EQ(client.ask({request(0x0100), false}).outcome, Outcome::silence);
    EXPECT_EQ(text_of_answer(client.ask({request(0x0101), false})), "second");
    EXPECT_EQ(directions(testing::internal::GetCapturedStderr()), " >  >>><<<><<") << "brought into step";
}

TEST(Port, HalfAFrameEndsWithTheTimeout)
{
    Fixture fixture([](const Bytes &packet, int) {
        Bytes half = frame_of(response_to(packet, "never whole"));
        half.resize(half.size() / 2);
        return Reply{half};
    });
    testing::internal::CaptureStderr();
    const Exchange exchange = fixture.client(0, true).ask({request(), true});
    const std::string trace = testing::internal::GetCapturedStderr();
    EXPECT_EQ(exchange.outcome, Outcome::silence);
    EXPECT_GE(exchange.milliseconds, 299);
    EXPECT_LT(exchange.milliseconds, 5000);
    EXPECT_EQ(exchange.problem, "no answer within 0.3 s");
    EXPECT_NE(trace.find("  not a whole frame\n"), std::string::npos) << trace;
    EXPECT_EQ(directions(trace), " >< ");
}

TEST(Port, AnAnswerOfAnotherShapeIsNoAnswer)
{
    const struct {
        size_t expected_size, size;
        unsigned length;
        uint8_t selector;
        std::string problem;
    } rows[] = {
        {263, 263, 256, 0, ""},
        {263, 64, 0, 0, "broken answer: 64 bytes came, the command answers 263"},
        {263, 263, 257, 0, "broken answer: its length says 257, its data field holds 256"},
        {263, 263, 0, 1, "no answer within 0.3 s, only 1 that are none"},
        {0, 7, 0, 0, ""},
        {0, 7, 1, 0, "broken answer: its length says 1, its data field holds 0"},
    };
    for (const auto &row : rows) {
        Fixture fixture([&](const Bytes &packet, int) {
            Bytes response = response_to(packet, "", row.size);
            response[SELECTOR_OFFSET] = row.selector;
            put_u16(response, LENGTH_OFFSET, row.length);
            return Reply{frame_of(response)};
        });
        const Exchange exchange = fixture.client().ask({request(), true, row.expected_size});
        EXPECT_EQ(exchange.outcome, row.problem.empty() ? Outcome::answer : Outcome::silence);
        EXPECT_EQ(exchange.problem, row.problem);
        EXPECT_FALSE(exchange.port_died);
    }
}

TEST(Port, RefusalIsTheRoutersErrorPacket)
{
    const Bytes asked = request(0x7777);
    const std::pair<size_t, Outcome> rows[] = {{4, Outcome::answer},
                                               {5, Outcome::refused},
                                               {asked.size(), Outcome::refused},
                                               {asked.size() + 1, Outcome::answer}};
    for (const auto &[echoed, outcome] : rows) {
        Fixture fixture([&, size = echoed](const Bytes &packet, int) {
            Bytes echo = packet + Bytes{'+'};
            echo.resize(size);
            return Reply{frame_of(Bytes{port::ERROR_PACKET + 1} + echo) +
                         frame_of(Bytes{port::ERROR_PACKET} + echo) + frame_of(response_to(packet, "OK"))};
        });
        EXPECT_EQ(fixture.client(3).ask({asked, true}).outcome, outcome) << echoed;
        EXPECT_EQ(fixture.port.requests, 1);
    }
}

TEST(Port, RepeatsWhatIsSafeToRepeatAndNothingElse)
{
    const Behaviour answers_the_third = [](const Bytes &packet, int count) {
        if (count % 3 == 2)
            return answer(packet, "OK");
        return Reply{{}, count % 3 == 0}; // hangs up, is silent
    };
    Fixture safe(answers_the_third);
    Client client = safe.client(2);
    const Exchange exchange = client.ask({request(), true});
    EXPECT_EQ(exchange.outcome, Outcome::answer);
    EXPECT_EQ(exchange.attempts, 3);
    EXPECT_FALSE(exchange.port_died);
    EXPECT_EQ(client.endings(), 1);
    EXPECT_EQ(safe.port.connections, 3);

    Fixture once(answers_the_third);
    EXPECT_EQ(once.client(2).ask({request(), false}).outcome, Outcome::silence);
    EXPECT_EQ(once.port.requests, 1);
}

TEST(Port, ARequestNotYetSentIsRetriedWhateverItIs)
{
    temporary_folder directory;
    const std::string path = directory.path + "/port";
    std::unique_ptr<FakePort> port;
    std::thread late([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        port = std::make_unique<FakePort>(listen_unix(path),
                                          [](const Bytes &packet, int) { return answer(packet, "OK"); });
    });
    EXPECT_EQ(Client({path, 5, 1}).ask({request(), false}).outcome, Outcome::answer);
    late.join();
}

TEST(Port, AServiceThatCameBackIsFoundAgain)
{
    Fixture fixture([](const Bytes &packet, int) {
        Reply reply = answer(packet, "OK");
        reply.hang_up = true;
        return reply;
    });
    Client client = fixture.client();
    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(client.ask({request(), false}).outcome, Outcome::answer);
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    EXPECT_EQ(fixture.port.connections, 3);
}

TEST(Port, AFloodOfGarbageDoesNotHoldTheStation)
{
    // Frames of others, faster than the station can wait for silence.
    temporary_folder directory;
    const std::string path = directory.path + "/port";
    const int listener = listen_unix(path);
    std::thread flood([&] {
        const int fd = accept(listener, nullptr, nullptr);
        const Bytes frames = frame_of(response_to(empty_request(0x0100), "noise"));
        while (send(fd, frames.data(), frames.size(), MSG_NOSIGNAL) > 0) {
        }
        close(fd);
    });
    const auto begin = Clock::now();
    EXPECT_EQ(Client({path, SOON, 0}).ask({request(), true}).outcome, Outcome::silence);
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(5));
    flood.join();
    close(listener);
}

TEST(Port, AStationThatWasStoppedFindsItsAnswer)
{
    temporary_folder directory;
    const std::string path = directory.path + "/port";
    const int listener = listen_unix(path);
    const Bytes frame = frame_of(response_to(request(), "in time"));
    const pid_t phone = fork();
    if (phone == 0) {
        const int fd = accept(listener, nullptr, nullptr);
        uint8_t asked[64];
        (void)!read(fd, asked, sizeof asked);
        kill(getppid(), SIGSTOP);
        (void)!write(fd, frame.data(), frame.size());
        usleep(static_cast<useconds_t>(2 * SOON * 1e6));
        kill(getppid(), SIGCONT);
        _exit(0);
    }
    EXPECT_EQ(text_of_answer(Client({path, SOON, 0}).ask({request(), false})), "in time");
    waitpid(phone, nullptr, 0);
    close(listener);
}

// A phone's shell for files, by what each line of it is about, of which one comes out otherwise.
struct Shell {
    std::string about, says;
    bool is_silent = false;
    std::string size_after = "0"; // of the part, behind a silence
    std::string of_removing{};
    std::vector<std::string> asked = {};

    Reply operator()(const Bytes &packet)
    {
        const std::string line = text_of_request(packet);
        const std::pair<const char *, std::string> usual[] = {
            {"if [ -L", "ok"},     {"set -C", "0"},     {"base64 -d", "  3"},
            {"sha256sum", sha256}, {"mv -f", "ok"},     {"rm -f", of_removing},
            {"if [ -f", "3"},      {"count=1", "YWJj"}, {"wc -c", size_after}};
        for (const auto &[about_this, answer_to_it] : usual) {
            if (line.find(about_this) == std::string::npos)
                continue;
            asked.push_back(about_this);
            const bool is_other = about == about_this;
            if (is_other && is_silent) {
                is_silent = false;
                about.clear();
                return {};
            }
            if (is_other && says == "refused")
                return {frame_of(Bytes{port::ERROR_PACKET} + Bytes(packet.begin(), packet.begin() + 8))};
            return {frame_of(response_to(packet, is_other ? says : answer_to_it, 775))};
        }
        return {};
    }
    static std::string text_of_request(const Bytes &packet)
    {
        return {packet.begin() + DATA_OFFSET, packet.end()};
    }
    std::string sha256 = digest({'a', 'b', 'c'}) + "  -";
};

// What came of moving "abc" to and from that phone: the error, without the part's random name, or nothing.
std::string moved(Shell &shell, bool is_push, int retries = 0)
{
    const Fixture phone([&](const Bytes &packet, int) { return shell(packet); });
    Client client = phone.client(retries);
    std::string part, what;
    const Progress progress = [&](size_t moved, size_t) {
        shell.asked.push_back("moved " + std::to_string(moved));
        if (shell.about == "progress")
            throw Interrupted("ended");
    };
    try {
        if (is_push)
            push_file(client, {'a', 'b', 'c'}, "/data/x", progress,
                      [&](const std::string &name) { part = name; });
        else
            pull_file(
                client, "/data/x", [](const Bytes &) {}, progress);
    } catch (const std::exception &error) {
        what = error.what();
    }
    const size_t at = part.empty() ? std::string::npos : what.find(part);
    return at == std::string::npos ? what : what.replace(at, part.size(), "PART");
}

TEST(Files, WhatAPhoneSaysIsChecked)
{
    const std::string here = "its SHA-256 here is " + digest({'a', 'b', 'c'}) + ", the phone says '0  -'";
    const struct {
        bool is_push;
        const char *about, *says;
        std::string told;
    } rows[] = {
        {true, "", "", ""},
        {true, "if [ -L", "a link", "/data/x is a link: nothing was written"},
        {true, "if [ -L", "ERROR", "the phone could not start a shell"},
        {true, "if [ -L", "refused", "refused by the router: nobody serves this code"},
        {true, "set -C", "1", "nothing was written: the phone says '1'"},
        {true, "set -C", "  ", "nothing was written: the phone says '  '"},
        {true, "base64 -d", "4", "writing stops at byte 0: the phone says '4'"},
        {true, "sha256sum", "0  -", "the content did not get there whole: " + here},
        {true, "progress", "", "ended: /data/x is as it was"},
        {true, "mv -f", "no", "the file could not be moved to its place: the phone says 'no'"},
        {false, "", "", ""},
        {false, "if [ -f", "12x", "nothing can be read: the phone says '12x'"},
        {false, "if [ -f", "1073741824", ""},
        {false, "if [ -f", "1073741825",
         "/data/x has 1073741825 bytes; more than 1073741824 are not fetched"},
        {false, "if [ -f", "99999999999999999999999",
         "/data/x has 99999999999999999999999 bytes; more than 1073741824 are not fetched"},
        {false, "count=1", "YW*j", "the phone answers 'YW*j' where a part of the file should come"},
        {false, "count=1", "YWI=",
         "the file was changed while it was read, or it cannot be read at all: " +
             std::string("its SHA-256 here is ") + digest({'a', 'b'}) + ", the phone says '" +
             digest({'a', 'b', 'c'}) + "  -'"},
        {false, "sha256sum", "0  -",
         "the file was changed while it was read, or it cannot be read at all: " + here},
    };
    for (const auto &row : rows) {
        Shell shell{row.about, row.says};
        EXPECT_EQ(moved(shell, row.is_push), row.told) << row.about;
        const bool is_begun = row.is_push && !row.told.empty() && shell.asked.size() > 2;
        EXPECT_EQ(shell.asked.back() == "rm -f", is_begun) << row.about;
        if (!is_begun)
            continue;
        shell = {row.about, row.says};
        shell.of_removing = "rm: no";
        EXPECT_EQ(moved(shell, true), row.told + "; a part may be left in PART");
    }
}

TEST(Files, AnAnswerThatIsLostIsAskedFor)
{
    using Asked = std::vector<std::string>;
    const Asked begin = {"if [ -L", "set -C", "base64 -d", "wc -c"}, end = {"moved 3", "sha256sum", "mv -f"};
    const auto with = [&](Asked asked, const Asked &more) {
        asked.insert(asked.end(), more.begin(), more.end());
        return asked;
    };
    Shell pulled;
    EXPECT_EQ(moved(pulled, false), "");
    EXPECT_EQ(pulled.asked, (Asked{"if [ -f", "count=1", "moved 3", "sha256sum"}));
    Shell there{"base64 -d", "", true, "3"};
    EXPECT_EQ(moved(there, true, 1), "");
    EXPECT_EQ(there.asked, with(begin, end)) << "it got there";
    Shell lost{"base64 -d", "", true, "0"};
    EXPECT_EQ(moved(lost, true, 1), "");
    EXPECT_EQ(lost.asked, with(with(begin, {"base64 -d"}), end)) << "it is sent again";
    Shell torn{"base64 -d", "", true, "2"};
    EXPECT_EQ(moved(torn, true, 1), "writing stops at byte 0: the phone says '2'");
    Shell given_up{"base64 -d", "", true};
    EXPECT_EQ(moved(given_up, true), "no answer within 0.3 s; a part may be left in PART");
    Shell asked_again{"if [ -L", "", true};
    EXPECT_EQ(moved(asked_again, true, 1), "");
    const std::string once = "no answer within 0.3 s (sent once: this request is not safe to repeat)";
    Shell not_begun{"set -C", "", true};
    EXPECT_EQ(moved(not_begun, true, 1), once);
    Shell not_there{"mv -f", "", true};
    EXPECT_EQ(moved(not_there, true, 1), once + "; a part may be left in PART");
}

TEST(Run, WaitsForTheRestartedPhone)
{
    // Told to restart, the phone answers for a while, goes away and comes back: slowly, and faster than one
    // can see.
    for (const int milliseconds_away : {400, 0}) {
        temporary_folder directory;
        const std::string path = directory.path + "/port";
        std::atomic<bool> restarted{false};
        std::atomic<bool> was_away{false};
        const Behaviour behaviour = [&](const Bytes &packet, int) {
            if (packet[2] == 0x32)
                restarted = true;
            return answer(packet, was_away ? "back" : "OK");
        };
        auto port = std::make_unique<FakePort>(listen_unix(path), behaviour);
        std::thread init([&] {
            while (!restarted)
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
            std::this_thread::sleep_for(std::chrono::milliseconds(400));
            port.reset();
            unlink(path.c_str());
            std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds_away));
            was_away = true;
            port = std::make_unique<FakePort>(listen_unix(path), behaviour);
        });
        std::ofstream(directory.path + "/script") << "restart\nwait 10\nset-cpu-frequency => back\n";
        Settings settings;
        settings.client.port = path;
        Nobody nobody;
        const Interrupts interrupts{0};
        station::Run run(settings, nobody, interrupts);
        for (const Step &step : parse_plan(directory.path + "/script", settings).steps) {
            const Row row = run.take(step, [](const Prompt &) {});
            EXPECT_TRUE(row.as_expected) << row.answer;
        }
        init.join();
    }
}

} // namespace
