// The packet router behind its socket: what stations see, friendly and hostile.
#include "diag.h"

#include <gtest/gtest.h>

#include <poll.h>
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <fstream>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <thread>

#include "tests/wire.h"

namespace
{

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr uint8_t SUBSYSTEM = 250;
constexpr size_t REQUEST_ROOM = 65535 + 1024;
enum code : uint16_t { ECHO = 0x0100, SILENT, SLOW, LARGEST, DIRTY, HANGING, OPENING, LAST = 0x01FF };

std::mutex log_lock;
std::string logged;

// What the router's log has behind a text, once that is there.
std::optional<std::string> logged_behind(const std::string &text)
{
    for (int i = 0; i < 500; i++, std::this_thread::sleep_for(milliseconds(10))) {
        const std::lock_guard<std::mutex> guard(log_lock);
        if (const size_t at = logged.find(text); at != std::string::npos)
            return logged.substr(at + text.size());
    }
    return std::nullopt;
}

// Until its end there are no descriptors beyond so many.
struct descriptors_limited {
    explicit descriptors_limited(rlim_t number)
    {
        getrlimit(RLIMIT_NOFILE, &before);
        const rlimit fewer = {std::min(number, before.rlim_cur), before.rlim_max};
        EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &fewer), 0);
    }
    ~descriptors_limited() { setrlimit(RLIMIT_NOFILE, &before); }

    rlimit before{};
};

std::string complaint_of_init(rlim_t descriptors = RLIM_INFINITY)
{
    testing::internal::CaptureStderr();
    std::optional<descriptors_limited> limited(descriptors);
    EXPECT_FALSE(Diag_LSM_Init(nullptr));
    limited.reset();
    return testing::internal::GetCapturedStderr();
}

std::atomic<int> in_handler{0};
std::atomic<bool> released{false};
std::atomic<bool> overlapped{false};

bytes packet_of(unsigned code, const bytes &body = {}, uint8_t subsystem = SUBSYSTEM, uint8_t command = 0x4B)
{
    bytes packet(4 + body.size());
    packet[0] = command;
    packet[1] = subsystem;
    packet[2] = static_cast<uint8_t>(code & 0xFF);
    packet[3] = static_cast<uint8_t>(code >> 8);
    std::copy(body.begin(), body.end(), packet.begin() + 4);
    return packet;
}

void *respond(const void *packet, unsigned length)
{
    void *response = diagpkt_subsys_alloc(SUBSYSTEM, 0, length);
    memcpy(response, packet, length);
    return response;
}

void *echo(void *request, uint16_t length)
{
    overlapped = overlapped || in_handler.exchange(1) != 0;
    void *response = respond(request, length);
    in_handler = 0;
    return response;
}

void *silent(void *, uint16_t) { return nullptr; }

void *slow(void *request, uint16_t length)
{
    in_handler = 1;
    std::this_thread::sleep_for(milliseconds(20));
    in_handler = 0;
    return respond(request, length);
}

void *hanging(void *request, uint16_t length)
{
    in_handler = 1;
    while (!released)
        std::this_thread::sleep_for(milliseconds(1));
    in_handler = 0;
    return respond(request, length);
}

// Tells in its fifth byte whether there are the descriptors that a handler may need.
void *opening(void *request, uint16_t)
{
    std::vector<int> opened(16);
    std::generate(opened.begin(), opened.end(), [] { return open("/dev/null", O_RDONLY | O_CLOEXEC); });
    bytes answer = packet_of(OPENING, {1});
    memcpy(answer.data(), request, 4);
    for (int fd : opened)
        if (close(fd) != 0)
            answer[4] = 0;
    return respond(answer.data(), static_cast<unsigned>(answer.size()));
}

// Of flags, which take twice the room on the wire, or of the fifth byte.
void *largest(void *request, uint16_t length)
{
    void *response = diagpkt_subsys_alloc(SUBSYSTEM, 0, 65535);
    memset(response, length > 4 ? static_cast<uint8_t *>(request)[4] : 0x7E, 65535);
    memcpy(response, request, 4);
    return response;
}

// Tells in its fifth byte whether the buffer was zero behind the packet, and leaves it dirty to its end.
void *dirty(void *request, uint16_t length)
{
    auto *buffer = static_cast<uint8_t *>(request);
    uint8_t answer[5];
    memcpy(answer, buffer, 4);
    answer[4] =
        std::all_of(buffer + length, buffer + REQUEST_ROOM, [](uint8_t byte) { return byte == 0; }) ? 1 : 0;
    memset(buffer, 0xEE, REQUEST_ROOM);
    return respond(answer, sizeof answer);
}

const diagpkt_entry ENTRIES[] = {
    {ECHO, ECHO, echo},          {SILENT, SILENT, silent}, {SLOW, SLOW, slow},
    {LARGEST, LARGEST, largest}, {DIRTY, DIRTY, dirty},    {HANGING, HANGING, hanging},
    {OPENING, OPENING, opening}, {0x0180, LAST, echo},
};
const diagpkt_table TABLE = {0, 0xFF, SUBSYSTEM, std::size(ENTRIES), 0, ENTRIES};

class Station
{
  public:
    explicit Station(const std::string &path) : fd_(connect_unix(path)) { EXPECT_GE(fd_, 0); }
    ~Station() { close(fd_); }
    Station(const Station &) = delete;
    Station &operator=(const Station &) = delete;

    void send(const bytes &raw) const
    {
        EXPECT_EQ(::send(fd_, raw.data(), raw.size(), MSG_NOSIGNAL), static_cast<ssize_t>(raw.size()));
    }

    // What the socket takes at once; negative when the router has closed it.
    ssize_t push(const bytes &raw) const
    {
        ssize_t sent = ::send(fd_, raw.data(), raw.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        return sent < 0 && errno == EAGAIN ? 0 : sent;
    }

    void finish() const { shutdown(fd_, SHUT_WR); }

    bool is_let_go() const
    {
        pollfd end = {fd_, 0, 0};
        return poll(&end, 1, 0) == 1 && (end.revents & POLLHUP) != 0;
    }

    // The next answer, or nothing when none comes in time or the router has closed the connection.
    std::optional<bytes> receive(int wait_ms = 5000)
    {
        for (;;) {
            const uint8_t *next = input_.data() + begin_;
            size_t left = input_.size() - begin_;
            port::event event = port::decode(decoder_.get(), &next, &left);
            begin_ = input_.size() - left;
            EXPECT_TRUE(event == port::event::packet || event == port::event::more);
            if (event == port::event::packet)
                return bytes(decoder_->packet, decoder_->packet + decoder_->length);
            pollfd readable = {fd_, POLLIN, 0};
            if (poll(&readable, 1, wait_ms) != 1)
                return std::nullopt;
            input_.resize(65536);
            ssize_t received = recv(fd_, input_.data(), input_.size(), 0);
            input_.resize(received > 0 ? static_cast<size_t>(received) : 0);
            begin_ = 0;
            if (received <= 0)
                return std::nullopt;
        }
    }

    std::optional<bytes> ask(const bytes &packet)
    {
        send(frame_of(packet));
        return receive();
    }

  private:
    int fd_;
    bytes input_;
    size_t begin_ = 0;
    std::unique_ptr<port::decoder> decoder_ = std::make_unique<port::decoder>();
};

class Router : public ::testing::Test
{
  protected:
    void SetUp() override
    {
        setenv("DIAG_PORT", path_.c_str(), 1);
        ASSERT_TRUE(Diag_LSM_Init(nullptr));
        diagpkt_tbl_reg(&TABLE);
    }

    void TearDown() override
    {
        Diag_LSM_DeInit();
        unlink(path_.c_str());
        EXPECT_TRUE(std::filesystem::is_empty(folder_.path)) << "something is left beside the port";
    }

    temporary_folder folder_;
    std::string path_ = folder_.path + "/port";
};

TEST_F(Router, DispatchesOnSubsystemAndCodeAlone)
{
    Station station(path_);
    for (unsigned code : {unsigned{ECHO}, 0x0180u, 0x01A5u, unsigned{LAST}})
        for (uint8_t command : {0x00, 0x4B, 0x7E, 0xFF})
            EXPECT_EQ(station.ask(packet_of(code, {1, 2, 3}, SUBSYSTEM, command)),
                      packet_of(code, {1, 2, 3}, SUBSYSTEM, command));

    // Refused: the error byte and the first 16 bytes of the packet.
    for (const bytes &refused :
         {packet_of(0x0200), packet_of(0x017F, bytes(5, 0x7D)), packet_of(ECHO, bytes(100, 9), 0),
          packet_of(0x0001, bytes(65531, 1)), packet_of(0x00FF, {}, 251)}) {
        bytes expected = refused;
        expected.resize(std::min<size_t>(refused.size(), 16));
        expected.insert(expected.begin(), 0x13);
        EXPECT_EQ(station.ask(refused), expected);
    }
}

TEST_F(Router, AnswersEachOfManyRequestsInOneWriteAndNoneForNull)
{
    Station station(path_);
    bytes input;
    for (uint8_t i = 0; i < 100; i++)
        for (unsigned code : {SILENT, ECHO})
            input = input + frame_of(packet_of(code, {i}));
    station.send(input);
    for (uint8_t i = 0; i < 100; i++)
        ASSERT_EQ(station.receive(), packet_of(ECHO, {i}));
    EXPECT_EQ(station.receive(20), std::nullopt);
}

TEST_F(Router, TheBufferIsZeroBehindThePacketWhateverWasThere)
{
    Station station(path_);
    for (size_t size : {65531, 0, 1, 60000, 300, 0})
        EXPECT_EQ(station.ask(packet_of(DIRTY, bytes(size, 0xDD))), packet_of(DIRTY, {1})) << size;
}

TEST_F(Router, TheLargestPacketsPassAndLargerFramesAreDropped)
{
    Station station(path_);
    std::thread sender([&] {
        station.send(frame_of(packet_of(ECHO, bytes(65531, 0x7E))));
        station.send(frame_of(packet_of(ECHO, bytes(65532, 0x7E))));
        station.send(frame_of(packet_of(LARGEST)));
    });
    EXPECT_EQ(station.receive(), packet_of(ECHO, bytes(65531, 0x7E)));
    EXPECT_EQ(station.receive(), packet_of(LARGEST, bytes(65531, 0x7E)));
    sender.join();
    EXPECT_EQ(diagpkt_subsys_alloc(SUBSYSTEM, ECHO, 65536), nullptr);
}

TEST_F(Router, GarbageAndHalfFramesHarmNobody)
{
    Station patient(path_);
    EXPECT_EQ(patient.ask(packet_of(ECHO)), packet_of(ECHO)); // it has its descriptor now
    const int descriptors = open_descriptors();
    std::mt19937 random(1); // NOLINT(cert-msc51-cpp): the same garbage every time
    for (int round = 0; round < 20; round++) {
        Station hostile(path_);
        bytes garbage(size_t{5000} * static_cast<size_t>(round % 4));
        for (uint8_t &byte : garbage)
            byte = static_cast<uint8_t>(random() % 3 == 0 ? 0x7D + random() % 2 : random());
        hostile.push(garbage);
        if (round % 2 == 0) {
            hostile.push({0x7E});
            EXPECT_EQ(hostile.ask(packet_of(ECHO)), packet_of(ECHO));
        }
        bytes half = frame_of(packet_of(ECHO, bytes(100)));
        half.resize(half.size() / 2);
        hostile.push(half);
        EXPECT_EQ(patient.ask(packet_of(ECHO, {7})), packet_of(ECHO, {7}));
    }
    for (int i = 0; i < 100 && open_descriptors() != descriptors; i++)
        std::this_thread::sleep_for(milliseconds(10));
    EXPECT_EQ(open_descriptors(), descriptors);
}

TEST_F(Router, EachKindOfDropIsLogged)
{
    const std::pair<bytes, const char *> rows[] = {
        {{1, 2, 3, 4, 5, 6, 0x7E}, "1 with a wrong FCS, 0 too short, 0 too long\n"},
        {frame_of({1, 2, 3}), "0 with a wrong FCS, 1 too short, 0 too long\n"},
        {frame_of(bytes(65536)), "0 with a wrong FCS, 0 too short, 1 too long\n"},
    };
    for (const auto &[frame, text] : rows) {
        Diag_LSM_DeInit();
        ASSERT_TRUE(Diag_LSM_Init(nullptr));
        diagpkt_tbl_reg(&TABLE);
        Station(path_).send(frame);
        EXPECT_TRUE(logged_behind("libdiag:frames dropped so far: " + std::string(text))) << text;
    }
}

TEST_F(Router, AStationThatNeverReadsIsLetGoAndHoldsNobodyUp)
{
    Station hostile(path_), friendly(path_);
    const bytes request = frame_of(packet_of(LARGEST));
    bool gone = false;
    auto longest = milliseconds(0);
    for (int i = 0; i < 500 && !gone; i++) {
        for (int k = 0; k < 100 && !gone; k++)
            gone = hostile.push(request) < 0;
        auto start = steady_clock::now();
        ASSERT_EQ(friendly.ask(packet_of(ECHO)), packet_of(ECHO));
        longest = std::max(longest, std::chrono::duration_cast<milliseconds>(steady_clock::now() - start));
        std::this_thread::sleep_for(milliseconds(5));
    }
    EXPECT_TRUE(gone);
    EXPECT_LT(longest.count(), 1000);
    const int unsent = std::stoi(logged_behind("libdiag:a station does not read: closed, ").value_or("0"));
    EXPECT_TRUE(unsent >= 1 << 20 && unsent < (1 << 20) + 2 * 65537) << "and the answer that goes beyond it";
}

TEST_F(Router, ManyThatDoNotReadFillNoMemory)
{
    Station friendly(path_);
    std::vector<std::unique_ptr<Station>> hoarders(130); // each of less than one may
    for (auto &hoarder : hoarders) {
        hoarder = std::make_unique<Station>(path_);
        for (int i = 0; i < 14; i++)
            hoarder->push(frame_of(packet_of(LARGEST, {0})));
    }
    const auto is_let_go = [](const auto &hoarder) { return hoarder->is_let_go(); };
    for (int i = 0; i < 100 && std::none_of(hoarders.begin(), hoarders.end(), is_let_go); i++) {
        friendly.send(frame_of(packet_of(ECHO)));
        ASSERT_EQ(friendly.receive(60000), packet_of(ECHO));
        std::this_thread::sleep_for(milliseconds(100));
    }
    EXPECT_TRUE(std::any_of(hoarders.begin(), hoarders.end(), is_let_go));
}

TEST_F(Router, AStationThatReadsLateGetsEveryAnswerAlsoAfterItsLastWord)
{
    Station station(path_);
    for (uint8_t i = 0; i < 30; i++) // more than the router queues
        station.send(frame_of(packet_of(LARGEST)));
    station.finish();
    std::this_thread::sleep_for(milliseconds(100));
    for (int i = 0; i < 30; i++)
        ASSERT_TRUE(station.receive() == packet_of(LARGEST, bytes(65531, 0x7E))) << i;
    EXPECT_EQ(station.receive(), std::nullopt);
}

TEST_F(Router, OneAtATimeAndInTurn)
{
    Station busy(path_), brief(path_);
    constexpr int REQUESTS = 40; // 20 ms each
    for (int i = 0; i < REQUESTS; i++)
        busy.send(frame_of(packet_of(SLOW)));
    ASSERT_TRUE(busy.receive());
    auto start = steady_clock::now();
    EXPECT_EQ(brief.ask(packet_of(ECHO)), packet_of(ECHO));
    EXPECT_LT(steady_clock::now() - start, milliseconds(20 * REQUESTS / 2));
    for (int i = 1; i < REQUESTS; i++)
        ASSERT_TRUE(busy.receive());
    EXPECT_FALSE(overlapped);
}

TEST_F(Router, EndsAfterTheRunningHandlerAndBeginsAnew)
{
    const int descriptors = open_descriptors();
    for (int round = 0; round < 3; round++) {
        Station station(path_);
        station.send(frame_of(packet_of(SLOW, {1})));
        while (in_handler == 0)
            std::this_thread::yield();
        EXPECT_TRUE(Diag_LSM_DeInit());
        EXPECT_EQ(in_handler, 0);
        EXPECT_EQ(station.receive(), packet_of(SLOW, {1}));
        EXPECT_EQ(station.receive(), std::nullopt);
        EXPECT_NE(access(path_.c_str(), F_OK), 0);
        EXPECT_FALSE(Diag_LSM_DeInit());

        // A request that comes before the table is registered waits for it.
        ASSERT_TRUE(Diag_LSM_Init(nullptr));
        Station early(path_);
        early.send(frame_of(packet_of(ECHO)));
        EXPECT_EQ(early.receive(20), std::nullopt);
        diagpkt_tbl_reg(&TABLE);
        EXPECT_EQ(early.receive(), packet_of(ECHO));
    }
    Diag_LSM_DeInit();
    EXPECT_LE(open_descriptors(), descriptors);
}

TEST_F(Router, EndsWithoutAHandlerThatHangs)
{
    released = false;
    Station station(path_);
    station.send(frame_of(packet_of(HANGING, {1})));
    while (in_handler == 0)
        std::this_thread::yield();
    EXPECT_FALSE(Diag_LSM_DeInit());
    EXPECT_EQ(in_handler, 1);
    EXPECT_NE(access(path_.c_str(), F_OK), 0);
    EXPECT_TRUE(logged_behind("libdiag:the handler of 0x0105 does not return: left behind\n"));
    EXPECT_EQ(complaint_of_init(),
              "libdiag: a handler of the last connection has not returned\n"); // one at a time
    diagpkt_tbl_reg(&TABLE);

    released = true; // what it touches is still there
    EXPECT_EQ(station.receive(), packet_of(HANGING, {1}));
    EXPECT_EQ(station.receive(), std::nullopt);
    for (int i = 0; i < 100 && !Diag_LSM_Init(nullptr); i++)
        std::this_thread::sleep_for(milliseconds(10));
    EXPECT_EQ(Station(path_).ask(packet_of(ECHO)), packet_of(ECHO));
}

TEST_F(Router, ReplacesAStaleSocketAndNothingElse)
{
    Diag_LSM_DeInit();
    int other = listen_unix(path_);
    const auto complains = [](const std::string &port, const std::string &text) {
        setenv("DIAG_PORT", port.c_str(), 1);
        EXPECT_EQ(complaint_of_init(), "libdiag: " + text + '\n');
    };
    complains(path_, "cannot listen at " + path_ + ": Address already in use");
    close(other);
    const std::string fresh = '.' + std::to_string(getpid());
    std::ofstream(path_ + fresh) << "of a process that had this id";
    EXPECT_TRUE(Diag_LSM_Init(nullptr));
    Diag_LSM_DeInit();

    std::filesystem::create_directory(path_);
    complains(path_, "will not replace " + path_ + ": Socket operation on non-socket");
    EXPECT_EQ(rmdir(path_.c_str()), 0);
    complains("/dev/null/port", "cannot look at /dev/null/port: Not a directory");
    complains("", "cannot make a socket for /dev/socket/diag/port: No such file or directory");
    const std::string beyond(108, 'x'), longest(107 - fresh.size(), 'x');
    complains(beyond, "the path of the port is longer than 107 bytes: " + beyond);
    complains(longest + 'x', "cannot listen at " + longest + "x: File name too long");

    const int silent = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    for (const std::string &bad : {std::string("x"), std::string("1x"), std::to_string(silent)}) {
        setenv("DIAG_PORT_FD", bad.c_str(), 1);
        EXPECT_EQ(complaint_of_init(),
                  "libdiag: cannot listen at descriptor " + bad + ": Socket operation on non-socket\n");
    }
    close(silent);
    unsetenv("DIAG_PORT_FD");
}

TEST_F(Router, TablesThatCannotBeKeptAreLogged)
{
    diagpkt_tbl_reg(nullptr);
    EXPECT_TRUE(logged_behind("libdiag:a table is not registered: it is none\n"));
    for (int i = 0; i < 32; i++) // behind the first
        diagpkt_tbl_reg(&TABLE);
    EXPECT_EQ(logged_behind("libdiag:a table is not registered: there are too many\n"), "");
}

TEST_F(Router, StationsLeaveDescriptorsToTheHandlers)
{
    Station old(path_);
    ASSERT_TRUE(old.ask(packet_of(ECHO)));
    const int fd = dup(0);
    close(fd);

    // Nothing is left but the station's own: it waits.
    std::optional<descriptors_limited> limited(static_cast<rlim_t>(fd) + 1);
    {
        Station late(path_);
        late.send(frame_of(packet_of(ECHO)));
        EXPECT_EQ(late.receive(30), std::nullopt);
        EXPECT_TRUE(old.ask(packet_of(ECHO)));
        limited.reset();
        EXPECT_EQ(late.receive(), packet_of(ECHO));
    }

    // Both ends of a station are in this process.
    limited.emplace(200);
    std::vector<std::unique_ptr<Station>> idle;
    do {
        idle.push_back(std::make_unique<Station>(path_));
        idle.back()->push(frame_of(packet_of(ECHO)));
    } while (idle.back()->receive() && idle.size() < 100);
    EXPECT_GT(idle.size(), 50u);
    EXPECT_LT(idle.size(), 70u);
    EXPECT_TRUE(
        logged_behind("libdiag:no descriptors for more stations: 1 refused so far, 0 idle ones closed\n"));
    EXPECT_EQ(old.ask(packet_of(OPENING)), packet_of(OPENING, {1}));
    EXPECT_EQ(idle.front()->ask(packet_of(ECHO)), packet_of(ECHO));

    // All have been silent but one: a new station takes the place of another.
    for (int i = 0; i < 12; i++) {
        std::this_thread::sleep_for(milliseconds(100));
        ASSERT_TRUE(old.ask(packet_of(ECHO)));
    }
    for (int i = 0; i < 20; i++) {
        Station late(path_);
        EXPECT_EQ(late.ask(packet_of(OPENING)), packet_of(OPENING, {1}));
        EXPECT_TRUE(old.ask(packet_of(ECHO)));
        idle.push_back(std::make_unique<Station>(path_));
        EXPECT_TRUE(idle.back()->ask(packet_of(ECHO)));
        idle.erase(idle.begin());
    }
}

TEST_F(Router, WithoutADescriptorThereIsNoRouter)
{
    Diag_LSM_DeInit();
    const int next = dup(0) + 1; // one is the capture's
    close(next - 1);
    for (const auto &[spare, what] : {std::pair(0, "make a socket for "), {1, "watch "}, {2, "watch "}})
        EXPECT_EQ(complaint_of_init(static_cast<rlim_t>(next + spare)),
                  std::string("libdiag: cannot ") + what + path_ + ": Too many open files\n");
}

} // namespace

// In the place of the log's library.
extern "C" int __android_log_print(int, const char *tag, const char *format, ...)
{
    char line[256];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    const std::lock_guard<std::mutex> guard(log_lock);
    logged.append(tag).append(":").append(line);
    return 0;
}
