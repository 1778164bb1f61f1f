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
#include <sys/wait.h>
#include <thread>

#include "tests/fake_port.h"

using namespace station;
using namespace std::string_literals;

namespace
{

constexpr double SOON = 0.3;

struct Fixture {
    explicit Fixture(Behaviour behaviour, const std::string &name = "port")
        : path(directory.path + "/" + name), port(listen_unix(path), std::move(behaviour))
    {
    }
    Client client(int retries = 0, double timeout = SOON) const { return Client({path, timeout, retries}); }

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
        Client client({"tcp:127.0.0.1:" + std::to_string(ntohs(address.sin_port)), SOON, 0});
        EXPECT_EQ(text_of_answer(client.ask({request(), true})), "~}a");
    }
    {
        const int terminal = posix_openpt(O_RDWR | O_NOCTTY);
        ASSERT_EQ(grantpt(terminal), 0);
        ASSERT_EQ(unlockpt(terminal), 0);
        int stop[2];
        ASSERT_EQ(pipe2(stop, O_CLOEXEC), 0);
        std::atomic<int> requests{0};
        std::thread thread([&] { FakePort::serve(terminal, stop[0], requests, echo); });
        {
            Client client({ptsname(terminal), SOON, 0});
            EXPECT_EQ(text_of_answer(client.ask({request(), true})), "~}a");
            EXPECT_EQ(text_of_answer(client.ask({request(0x0A0D), true})),
                      "~}a"); // bytes a cooked line would change
        }
        close(stop[1]);
        thread.join();
        close(stop[0]);
        close(terminal);
    }
}

TEST(Port, SkipsWhatIsNotTheAnswer)
{
    Fixture fixture([](const Bytes &packet, int) {
        Bytes broken = frame_of(response_to(packet, "broken"));
        broken[12] ^= 1;
        const Bytes garbage{0x7E, 0x7E, 0x01, 0x7E, 0x7D, 0x7E, 'x', 'y', 'z', 0x7E};
        return Reply{garbage + broken + frame_of(response_to(empty_request(0x0100), "late")) +
                     frame_of(response_to(packet, "right"))};
    });
    const Exchange exchange = fixture.client().ask({request(), true});
    EXPECT_EQ(text_of_answer(exchange), "right");
    EXPECT_GE(exchange.skipped, 3);
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
    Client client = fixture.client();
    EXPECT_EQ(client.ask({request(0x0100), false}).outcome, Outcome::silence);
    EXPECT_EQ(text_of_answer(client.ask({request(0x0101), false})), "second");
}

TEST(Port, HalfAFrameEndsWithTheTimeout)
{
    Fixture fixture([](const Bytes &packet, int) {
        Bytes half = frame_of(response_to(packet, "never whole"));
        half.resize(half.size() / 2);
        return Reply{half};
    });
    const auto begin = Clock::now();
    const Exchange exchange = fixture.client().ask({request(), true});
    EXPECT_EQ(exchange.outcome, Outcome::silence);
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(5));
    EXPECT_EQ(exchange.problem, "no answer within 0.3 s");
}

TEST(Port, AnAnswerOfAnotherShapeIsNoAnswer)
{
    // of another size, with a length beyond its data, with another selector
    for (const int kind : {0, 1, 2}) {
        Fixture fixture([kind](const Bytes &packet, int) {
            Bytes response = response_to(packet, "text");
            if (kind == 0)
                response.resize(64);
            response[kind == 1 ? 6 : 4] += kind == 0 ? 0 : 1;
            return Reply{frame_of(response)};
        });
        Question question{request(), true};
        question.response_size = 263;
        const Exchange exchange = fixture.client().ask(question);
        EXPECT_EQ(exchange.outcome, Outcome::silence);
        EXPECT_EQ(exchange.problem.find("broken answer") == 0, kind != 2) << exchange.problem;
        EXPECT_FALSE(exchange.port_died);
    }
}

TEST(Port, RefusalIsTheRoutersErrorPacket)
{
    Fixture fixture([](const Bytes &packet, int) {
        return Reply{frame_of(Bytes{port::ERROR_PACKET} + Bytes(packet.begin(), packet.begin() + 8))};
    });
    EXPECT_EQ(fixture.client(3).ask({request(0x7777), true}).outcome, Outcome::refused);
    EXPECT_EQ(fixture.port.requests, 1);
}

TEST(Port, RepeatsWhatIsSafeToRepeatAndNothingElse)
{
    const Behaviour answers_the_third = [](const Bytes &packet, int count) {
        if (count % 3 == 2)
            return answer(packet, "OK");
        return Reply{{}, count % 3 == 0}; // hangs up, is silent
    };
    Fixture safe(answers_the_third);
    const Exchange exchange = safe.client(2).ask({request(), true});
    EXPECT_EQ(exchange.outcome, Outcome::answer);
    EXPECT_EQ(exchange.attempts, 3);
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
    std::vector<std::string> asked = {};

    Reply operator()(const Bytes &packet)
    {
        const std::string line = text_of_request(packet);
        const std::pair<const char *, std::string> usual[] = {
            {"if [ -L", "ok"}, {"set -C", "0"},  {"base64 -d", "  3"}, {"sha256sum", sha256}, {"mv -f", "ok"},
            {"rm -f", ""},     {"if [ -f", "3"}, {"count=1", "YWJj"},  {"wc -c", size_after}};
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
            return {frame_of(response_to(packet, is_other ? says : answer_to_it, 775))};
        }
        return {};
    }
    static std::string text_of_request(const Bytes &packet)
    {
        return {packet.begin() + DATA_OFFSET, packet.end()};
    }
    const std::string sha256 = digest({'a', 'b', 'c'}) + "  -";
};

// What came of moving "abc" to and from that phone: the error, without the part's random name, or nothing.
std::string moved(Shell &shell, bool is_push, int retries = 0)
{
    const Fixture phone([&](const Bytes &packet, int) { return shell(packet); });
    Client client = phone.client(retries);
    std::string part, what;
    try {
        if (is_push)
            push_file(
                client, {'a', 'b', 'c'}, "/data/x", [](size_t, size_t) {},
                [&](const std::string &name) { part = name; });
        else
            pull_file(
                client, "/data/x", [](const Bytes &) {}, [](size_t, size_t) {});
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
        {true, "set -C", "1", "nothing was written: the phone says '1'"},
        {true, "set -C", "  ", "nothing was written: the phone says '  '"},
        {true, "base64 -d", "4", "writing stops at byte 0: the phone says '4'"},
        {true, "sha256sum", "0  -", "the content did not get there whole: " + here},
        {true, "mv -f", "no", "the file could not be moved to its place: the phone says 'no'"},
        {false, "", "", ""},
        {false, "if [ -f", "12x", "nothing can be read: the phone says '12x'"},
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
    }
    Shell stays{"rm -f", "no"};
    stays.size_after = "x";
    EXPECT_EQ(moved(stays, true), "");
}

TEST(Files, AnAnswerThatIsLostIsAskedFor)
{
    using Asked = std::vector<std::string>;
    const Asked begin = {"if [ -L", "set -C", "base64 -d", "wc -c"}, end = {"sha256sum", "mv -f"};
    const auto with = [&](Asked asked, const Asked &more) {
        asked.insert(asked.end(), more.begin(), more.end());
        return asked;
    };
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
