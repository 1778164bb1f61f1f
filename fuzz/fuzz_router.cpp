// The router behind its socket: up to four stations at once, whose bytes arrive in pieces and mixed.
//
// An input is a byte that counts the stations and tells which of them leave without reading, then pieces: a
// byte with the station and the piece's length, and the piece.
#include <diag.h>
#include <log.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "platform/port/frame.h"

int __android_log_print(int, const char *, const char *, ...) { return 1; }

namespace
{

using bytes = std::vector<uint8_t>;

constexpr uint8_t SUBSYSTEM = 250;
constexpr size_t REQUEST_ROOM = port::PACKET_MAX + 1024;
enum code : uint16_t { ECHO = 0x0100, SILENT, AS_LONG_AS_TOLD };
constexpr size_t TOLD = 4; // bytes 4 and 5 of the request
constexpr uint8_t FILLER = 'x';

constexpr unsigned STATIONS_MAX = 4;
constexpr unsigned PIECE_MAX = 64;
constexpr int PATIENCE_MS = 5000;

sockaddr_un port_address;

void require(bool condition, const char *promise)
{
    if (condition)
        return;
    fprintf(stderr, "broken promise: %s\n", promise);
    abort();
}

// ---- what the service's part is

// What a handler answers; nothing for SILENT.
bytes answer_of(uint16_t code, const bytes &request)
{
    if (code == ECHO)
        return request;
    if (code == SILENT)
        return {};
    size_t told = request.size() > TOLD + 1 ? request[TOLD] | request[TOLD + 1] << 8 : 0;
    bytes answer(std::max(told, port::PACKET_MIN), FILLER);
    std::copy(request.begin(), request.begin() + port::PACKET_MIN, answer.begin());
    return answer;
}

void *handle(void *packet, uint16_t length)
{
    auto *request = static_cast<uint8_t *>(packet);
    require(std::all_of(request + length, request + REQUEST_ROOM, [](uint8_t byte) { return byte == 0; }),
            "a request is zero behind its packet");
    auto code = static_cast<uint16_t>(request[2] | request[3] << 8);
    bytes answer = answer_of(code, bytes(request, request + length));
    memset(request, FILLER, REQUEST_ROOM); // a handler may write to all of it
    if (answer.empty())
        return nullptr;
    void *response = diagpkt_subsys_alloc(SUBSYSTEM, code, static_cast<unsigned>(answer.size()));
    require(response != nullptr, "there is memory for an answer");
    memcpy(response, answer.data(), answer.size());
    return response;
}

void start()
{
    char folder[] = "/tmp/fuzz_router.XXXXXX";
    require(mkdtemp(folder) != nullptr, "there is a folder for the port");
    port_address.sun_family = AF_UNIX;
    snprintf(port_address.sun_path, sizeof port_address.sun_path, "%s/port", folder);
    setenv("DIAG_PORT", port_address.sun_path, 1);
    static const diagpkt_entry entries[] = {{ECHO, AS_LONG_AS_TOLD, handle}};
    static const diagpkt_table table = {0, 0xFF, SUBSYSTEM, 1, 0, entries};
    diagpkt_tbl_reg(&table);
    require(Diag_LSM_Init(nullptr), "the router starts");
    atexit([] {
        Diag_LSM_DeInit();
        *strrchr(port_address.sun_path, '/') = '\0';
        rmdir(port_address.sun_path);
    });
}

// ---- the stations

// The fuzzer's own alarm may cut a call short.
template <typename Call> auto uninterrupted(Call call)
{
    auto result = call();
    while (result < 0 && errno == EINTR)
        result = call();
    return result;
}

struct station {
    int fd = -1;
    bool leaves = false;
    bytes sent;
    bytes received;
};

std::vector<bytes> packets_in(const bytes &wire)
{
    static const auto decoder = std::make_unique<port::decoder>();
    memset(decoder.get(), 0, offsetof(port::decoder, packet));
    std::vector<bytes> all;
    const uint8_t *next = wire.data();
    size_t left = wire.size();
    for (port::event event; (event = port::decode(decoder.get(), &next, &left)) != port::event::more;)
        if (event == port::event::packet)
            all.emplace_back(decoder->packet, decoder->packet + decoder->length);
    return all;
}

std::vector<bytes> answers_to(const bytes &sent)
{
    std::vector<bytes> all;
    for (const bytes &request : packets_in(sent)) {
        auto code = static_cast<uint16_t>(request[2] | request[3] << 8);
        bytes answer;
        if (request[1] == SUBSYSTEM && code >= ECHO && code <= AS_LONG_AS_TOLD) {
            answer = answer_of(code, request);
        } else {
            answer = {port::ERROR_PACKET};
            answer.insert(answer.end(), request.begin(),
                          request.begin() +
                              static_cast<long>(std::min(request.size(), port::ERROR_ECHO_MAX)));
        }
        if (!answer.empty())
            all.push_back(answer);
    }
    return all;
}

void connect_station(station &s)
{
    s.fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    int connected = uninterrupted(
        [&] { return connect(s.fd, reinterpret_cast<sockaddr *>(&port_address), sizeof port_address); });
    require(connected == 0, "a station can connect");
}

void send_piece(station &s, const uint8_t *piece, size_t length)
{
    ssize_t sent = uninterrupted([&] { return send(s.fd, piece, length, MSG_NOSIGNAL); });
    require(sent == static_cast<ssize_t>(length), "a station's bytes are taken");
    s.sent.insert(s.sent.end(), piece, piece + length);
}

// Until the router, which has been told that nothing more comes, has answered all and closes.
void read_to_the_end(station &s)
{
    static uint8_t buffer[65536];
    for (;;) {
        pollfd readable = {s.fd, POLLIN, 0};
        require(uninterrupted([&] { return poll(&readable, 1, PATIENCE_MS); }) == 1,
                "every station is answered");
        ssize_t count = uninterrupted([&] { return recv(s.fd, buffer, sizeof buffer, 0); });
        require(count >= 0, "a station that reads is not cut off");
        if (count == 0)
            return;
        s.received.insert(s.received.end(), buffer, buffer + count);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *input, size_t size)
{
    static const bool started = (start(), true);
    (void)started;
    if (size == 0)
        return 0;

    std::vector<station> stations(1 + *input % STATIONS_MAX);
    for (size_t i = 0; i < stations.size(); i++) {
        stations[i].leaves = *input >> (4 + i) & 1;
        connect_station(stations[i]);
    }
    const uint8_t *end = input + size;
    for (const uint8_t *next = input + 1; next < end;) {
        station &s = stations[*next % stations.size()];
        size_t length = 1 + *next / STATIONS_MAX % PIECE_MAX;
        next++;
        length = std::min(length, static_cast<size_t>(end - next));
        if (length > 0)
            send_piece(s, next, length);
        next += length;
    }
    for (station &s : stations) {
        if (s.leaves)
            close(s.fd);
        else
            shutdown(s.fd, SHUT_WR);
    }
    for (station &s : stations) {
        if (s.leaves)
            continue;
        read_to_the_end(s);
        close(s.fd);
        require(packets_in(s.received) == answers_to(s.sent),
                "each request is answered once, in order, to whom has sent it");
    }
    return 0;
}
