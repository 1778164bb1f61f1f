// The station against ports that behave and ports that do not: sockets, TCP, a pseudo-terminal.
#include "station/client/client.h"
#include "station/client/encode.h"
#include "station/client/errors.h"
#include "station/program/output.h"

#include <arpa/inet.h>
#include <atomic>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <netinet/in.h>
#include <poll.h>
#include <sys/wait.h>
#include <thread>

#include "tests/wire.h"

using namespace station;
using namespace std::string_literals;

namespace
{

constexpr double SOON = 0.3;

Bytes response_to(const Bytes &request, const std::string &text)
{
    Bytes response(request.begin(), request.begin() + 5);
    response.push_back(static_cast<uint8_t>(text.size()));
    response.push_back(0);
    response.insert(response.end(), text.begin(), text.end());
    response.resize(263);
    return response;
}

// What a port does with the request it got as its count-th, over all connections.
struct Reply {
    Bytes wire;
    bool hang_up = false;
};
using Behaviour = std::function<Reply(const Bytes &request, int count)>;

Reply answer(const Bytes &request, const std::string &text) { return {frame_of(response_to(request, text))}; }

// Serves one connection after the other on its own thread.
class FakePort
{
  public:
    FakePort(int listener, Behaviour behaviour) : listener_(listener), behaviour_(std::move(behaviour))
    {
        EXPECT_EQ(pipe2(stop_, O_CLOEXEC), 0);
        thread_ = std::thread([this] { accept_all(); });
    }
    ~FakePort()
    {
        close(stop_[1]);
        thread_.join();
        close(stop_[0]);
        close(listener_);
    }

    std::atomic<int> requests{0};
    std::atomic<int> connections{0};

    // Serves an open connection until the other side or the test ends it.
    static void serve(int fd, int stop, std::atomic<int> &requests, const Behaviour &behaviour)
    {
        const auto decoder = std::make_unique<port::decoder>();
        uint8_t buffer[4096];
        while (ready(fd, stop)) {
            const ssize_t count = read(fd, buffer, sizeof buffer);
            if (count <= 0)
                return;
            const uint8_t *input = buffer;
            auto left = static_cast<size_t>(count);
            for (port::event event;
                 (event = port::decode(decoder.get(), &input, &left)) != port::event::more;) {
                if (event != port::event::packet)
                    continue;
                const Reply reply =
                    behaviour({decoder->packet, decoder->packet + decoder->length}, requests++);
                if (write(fd, reply.wire.data(), reply.wire.size()) !=
                    static_cast<ssize_t>(reply.wire.size()))
                    return; // the station has gone
                if (reply.hang_up)
                    return;
            }
        }
    }

  private:
    static bool ready(int fd, int stop)
    {
        pollfd waiting[] = {{fd, POLLIN, 0}, {stop, POLLIN, 0}};
        return poll(waiting, 2, -1) > 0 && !waiting[1].revents;
    }

    void accept_all()
    {
        while (ready(listener_, stop_[0])) {
            const int fd = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
            connections++;
            serve(fd, stop_[0], requests, behaviour_);
            close(fd);
        }
    }

    int listener_;
    Behaviour behaviour_;
    int stop_[2];
    std::thread thread_;
};

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
        EXPECT_EQ(text_of_answer(Client({directory + "/port", SOON, 0}).ask(request(), true)), "~}a");
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
        EXPECT_EQ(text_of_answer(client.ask(request(), true)), "~}a");
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
            EXPECT_EQ(text_of_answer(client.ask(request(), true)), "~}a");
            EXPECT_EQ(text_of_answer(client.ask(request(0x0A0D), true)),
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
    const Exchange exchange = fixture.client().ask(request(), true);
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
    EXPECT_EQ(client.ask(request(0x0100), false).outcome, Outcome::silence);
    EXPECT_EQ(text_of_answer(client.ask(request(0x0101), false)), "second");
}

TEST(Port, HalfAFrameEndsWithTheTimeout)
{
    Fixture fixture([](const Bytes &packet, int) {
        Bytes half = frame_of(response_to(packet, "never whole"));
        half.resize(half.size() / 2);
        return Reply{half};
    });
    const auto begin = Clock::now();
    const Exchange exchange = fixture.client().ask(request(), true);
    EXPECT_EQ(exchange.outcome, Outcome::silence);
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(5));
    EXPECT_EQ(exchange.problem, "no answer within 0.3 s");
}

TEST(Port, RefusalIsTheRoutersErrorPacket)
{
    Fixture fixture([](const Bytes &packet, int) {
        return Reply{frame_of(Bytes{port::ERROR_PACKET} + Bytes(packet.begin(), packet.begin() + 8))};
    });
    EXPECT_EQ(fixture.client(3).ask(request(0x7777), true).outcome, Outcome::refused);
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
    const Exchange exchange = safe.client(2).ask(request(), true);
    EXPECT_EQ(exchange.outcome, Outcome::answer);
    EXPECT_EQ(exchange.attempts, 3);
    EXPECT_EQ(safe.port.connections, 3);

    Fixture once(answers_the_third);
    EXPECT_EQ(once.client(2).ask(request(), false).outcome, Outcome::silence);
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
    EXPECT_EQ(Client({path, 5, 1}).ask(request(), false).outcome, Outcome::answer);
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
        EXPECT_EQ(client.ask(request(), false).outcome, Outcome::answer);
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
    EXPECT_EQ(Client({path, SOON, 0}).ask(request(), true).outcome, Outcome::silence);
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(5));
    flood.join();
    close(listener);
}

// The program itself, for its exit status and output.
struct Finished {
    int status;
    std::string output;
};

Finished station_run(const std::string &arguments)
{
    FILE *stream = popen((std::string(STATION_PROGRAM) + " " + arguments + " 2>&1").c_str(), "r");
    Finished run{};
    char buffer[512];
    while (fgets(buffer, sizeof buffer, stream))
        run.output += buffer;
    run.status = WEXITSTATUS(pclose(stream));
    return run;
}

Reply phone(const Bytes &packet, int)
{
    const unsigned code = packet[2] + 256U * packet[3];
    switch (code) {
    case 0x013C:
        return {frame_of({packet.begin(), packet.begin() + 5})};
    case 0xE602:
        return answer(packet, packet[DATA_OFFSET] == 'r' ? "a value" : "ERROR");
    case 0x0B00:
        return answer(packet, "\x01\x01");
    case 0xE604:
        return {};
    default:
        return {frame_of(Bytes{port::ERROR_PACKET} + packet)};
    }
}

TEST(Program, ExitStatuses)
{
    Fixture fixture(phone);
    const std::string port = "--port " + fixture.path + " --timeout 0.3 ";
    const struct {
        std::string arguments;
        int status;
        const char *output;
    } cases[] = {
        {port + "get-prop ro.a", 0, "0xE602 get-prop: a value  ("},
        {port + "get-prop a", 1, "ERROR - the property is not set"},
        {port + "shell true", 2, "no answer within 0.3 s"},
        {port + "send 0x7777", 3, "refused by the router"},
        {port + "no-such-name", 64, "is no command"},
        {port, 64, "no command"},
        {"--port /no/such/port port-check", 2, "No such file"},
        {"--port /dev/null/x port-check", 2, "Not a directory"},
        {"--port tcp:nonsense port-check", 64, "tcp:HOST:PORT"},
        {"--timeout nine port-check", 64, "--timeout"},
        // options behind the command, other forms of the answer
        {"get-prop ro.a --plain " + port, 0, "a value\n"},
        {"--raw-hex port-check --port " + fixture.path, 0, "fa3c0100\n"},
        {port + "--json flash-size", 0, "\"gib\": 256"},
        {"get-prop --help", 0, "the property's name"},
        {"list", 0, "109 commands"},
    };
    for (const auto &one : cases) {
        const Finished run = station_run(one.arguments);
        EXPECT_EQ(run.status, one.status) << one.arguments << "\n" << run.output;
        EXPECT_NE(run.output.find(one.output), std::string::npos) << one.arguments << "\n" << run.output;
    }
}

TEST(Program, Scripts)
{
    Fixture fixture(phone);
    auto outcome_of = [&](const std::string &script) {
        std::ofstream(fixture.directory.path + "/script") << script;
        return station_run("--port " + fixture.path + " --timeout 0.3 run " + fixture.directory.path +
                           "/script");
    };
    const Finished good = outcome_of("# all of it\n"
                                     "port-check\n"
                                     "get-prop ro.a => a value\n"
                                     "  ! get-prop a => ERROR\n"
                                     "flash-size => 256 GiB\n"
                                     "get-prop ro.a =~ ^a.*e$\r\n"
                                     "send 0x7777 => refused by the router\n"
                                     "? shell true\n"
                                     "skip set-hdcp-key no such partition here\n"
                                     "sleep 0.01\n"
                                     "wait 2\n");
    EXPECT_EQ(good.status, 0) << good.output;
    EXPECT_NE(good.output.find("7 requests, 0 not as expected, 1 left out"), std::string::npos)
        << good.output;
    EXPECT_NE(good.output.find("0xE602  get-prop"), std::string::npos) << good.output;

    for (const char *line :
         {"get-prop a", "! get-prop ro.a", "get-prop ro.a => another", "shell true", "send 0x7777"}) {
        const Finished run = outcome_of("port-check\n"s + line + "\nport-check\n");
        EXPECT_EQ(run.status, 1) << line << "\n" << run.output;
        EXPECT_NE(run.output.find("3 requests, 1 not as expected"), std::string::npos) << run.output;
        EXPECT_NE(run.output.find("line 2 wants"), std::string::npos) << run.output;
    }
    // A script with a mistake anywhere sends nothing.
    const int before = fixture.port.requests;
    for (const char *line : {"no-such-name", "wait", "wait soon", "get-prop 'a", "get-prop ro.a =~ ("}) {
        const Finished run = outcome_of("port-check\n"s + line + "\n");
        EXPECT_EQ(run.status, 64) << line;
        EXPECT_NE(run.output.find("script:2: "), std::string::npos) << run.output;
    }
    EXPECT_EQ(fixture.port.requests, before);
}

TEST(Program, AScriptWaitsForTheRestartedPhone)
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
            return packet[2] == 0x3C ? phone(packet, 0) : answer(packet, was_away ? "back" : "OK");
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
        std::ofstream(directory.path + "/script") << "restart\nwait 10\nget-prop a => back\n";
        const Finished run = station_run("--port " + path + " run " + directory.path + "/script");
        EXPECT_EQ(run.status, 0) << run.output;
        init.join();
    }
}

} // namespace
