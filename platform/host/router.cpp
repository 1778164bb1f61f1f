// libdiag of a workstation: the packet router, on a Unix stream socket that speaks to any number of stations.
//
// One thread does it all: it accepts stations, takes one request at a time, calls the handler, sends the
// answer. No station can hold up another: the sockets never block, each waiting station gets one request
// served per turn, and answers that a station does not read are queued for it alone. docs/port.md tells what
// a station sees.
#include "diag.h"
#include "export.h"
#include "frame.h"
#include "log.h"

#include <poll.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace
{

constexpr char PORT_VARIABLE[] = "DIAG_PORT"; // environment: the socket's path
constexpr char DEFAULT_PORT[] = "/dev/socket/diag/port";
constexpr char TAG[] = "libdiag";
constexpr int ANDROID_LOG_WARN = 5;

constexpr size_t REQUEST_ROOM = port::PACKET_MAX + 1024; // zero behind the packet
constexpr size_t RESPONSE_MAX = port::PACKET_MAX;
constexpr uint8_t UNSET = 0xA5; // what a new response buffer holds
constexpr size_t TABLES_MAX = 32;

constexpr size_t INPUT_ROOM = 16384;           // of each station
constexpr size_t OUTPUT_MAX = size_t{1} << 20; // queued for a station: no request of it is taken beyond that
constexpr int64_t STUCK_MS = 1000;             // a station that must read its answers and does not is let go
constexpr int64_t REPORT_MS = 1000;            // between two lines about dropped frames
constexpr int TICK_MS = 100;                   // while one of those times runs
constexpr int FIRST_TABLE_MS = 1000;           // how long the first request waits for a table
constexpr int EVENTS_MAX = 64;                 // taken from epoll at once

// In front of every response buffer: the handler returns no length. Keeps the alignment of malloc.
struct alignas(std::max_align_t) response_head {
    size_t length;
};

struct station {
    station *next;      // of all stations
    station *next_turn; // of those with a request to serve
    int fd;
    bool queued;      // waits for its turn
    bool ended;       // sends nothing any more, but may still read
    uint32_t watched; // events that epoll is to report
    size_t input_begin;
    size_t input_end;
    uint8_t *output; // what its socket did not take yet
    size_t output_begin;
    size_t output_end;
    size_t output_room;
    int64_t progress_ms; // when it had to read, or its socket took something last
    port::decoder decoder;
    uint8_t input[INPUT_ROOM];
};

// Dropped frames, by reason.
struct drops {
    unsigned long bad_fcs;
    unsigned long too_short;
    unsigned long too_long;
};

// Written by registering threads, read by the router's: a table is complete before it is counted.
diagpkt_table tables[TABLES_MAX];
std::atomic<size_t> table_count{0};
pthread_mutex_t registering = PTHREAD_MUTEX_INITIALIZER;

// Written before the router's thread starts and after it has ended.
bool running;
pthread_t thread;
char port_path[sizeof(sockaddr_un::sun_path)];
int listener = -1;
int epoll = -1;
int waker = -1; // an eventfd: there is a table, or an end

std::atomic<bool> stopping{false};

// The router thread's own.
station *stations;
station *turn_first;
station *turn_last;
station *served_last; // null when it has left since
bool accepting;
bool clock_runs; // something waits for tick()
drops dropped;
drops reported;
int64_t report_ms;
alignas(16) uint8_t request[REQUEST_ROOM]; // all zero between requests
uint8_t frame[port::encoded_max(RESPONSE_MAX)];

int64_t now_ms()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

void wake()
{
    if (waker < 0)
        return;
    const uint64_t once = 1;
    ssize_t written = write(waker, &once, sizeof once);
    (void)written; // a counter that cannot take more wakes as well
}

// ---- Stations

size_t pending(const station *s) { return s->output_end - s->output_begin; }

bool full(const station *s) { return pending(s) >= OUTPUT_MAX; }

// Its answers stand in the way: of its own next request, or of its end.
bool must_read(const station *s) { return full(s) || (s->ended && pending(s) > 0); }

void start_clock(station *s)
{
    s->progress_ms = now_ms();
    clock_runs = true;
}

void queue_turn(station *s)
{
    if (s->queued)
        return;
    s->queued = true;
    s->next_turn = nullptr;
    (turn_last != nullptr ? turn_last->next_turn : turn_first) = s;
    turn_last = s;
}

station *take_turn()
{
    station *s = turn_first;
    if (s != nullptr) {
        turn_first = s->next_turn;
        if (turn_first == nullptr)
            turn_last = nullptr;
        s->queued = false;
    }
    return s;
}

void let_go(station *s)
{
    station **link = &stations;
    while (*link != s)
        link = &(*link)->next;
    *link = s->next;
    if (s->queued) {
        station *before = nullptr;
        for (station *other = turn_first; other != nullptr && other != s; other = other->next_turn)
            before = other;
        (before != nullptr ? before->next_turn : turn_first) = s->next_turn;
        if (turn_last == s)
            turn_last = before;
    }
    if (served_last == s)
        served_last = nullptr;
    close(s->fd); // leaves epoll with it
    free(s->output);
    free(s);
}

bool watch(int fd, uint32_t events, void *data, int operation)
{
    epoll_event event{};
    event.events = events;
    event.data.ptr = data;
    return epoll_ctl(epoll, operation, fd, &event) == 0;
}

// Has epoll report what the station's state can use. False: the station is gone.
bool watch_station(station *s)
{
    uint32_t events =
        (s->ended || full(s) ? 0u : uint32_t{EPOLLIN}) | (pending(s) > 0 ? uint32_t{EPOLLOUT} : 0u);
    if (events != s->watched) {
        if (!watch(s->fd, events, s, EPOLL_CTL_MOD)) {
            let_go(s);
            return false;
        }
        s->watched = events;
    }
    return true;
}

void accept_station()
{
    int fd = accept4(listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd < 0) {
        if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
            // Whoever waits keeps waiting, and the next tick tries again.
            accepting = !watch(listener, 0, &listener, EPOLL_CTL_MOD);
            clock_runs = true;
        }
        return;
    }
    auto *s = static_cast<station *>(malloc(sizeof(station)));
    if (s == nullptr) {
        close(fd);
        return;
    }
    memset(s, 0, offsetof(station, decoder) + offsetof(port::decoder, packet)); // the buffers need not be
    s->fd = fd;
    s->watched = EPOLLIN;
    s->next = stations;
    stations = s;
    if (!watch(fd, EPOLLIN, s, EPOLL_CTL_ADD))
        let_go(s);
}

// ---- Answers

// What the socket took of the bytes, 0 when it is full, or -1 when the station is gone.
ssize_t send_some(const station *s, const uint8_t *bytes, size_t length)
{
    ssize_t sent;
    do
        sent = send(s->fd, bytes, length, MSG_NOSIGNAL);
    while (sent < 0 && errno == EINTR);
    return sent >= 0 ? sent : errno == EAGAIN || errno == EWOULDBLOCK ? 0 : -1;
}

// Sends what is queued. False: the station is gone.
bool flush(station *s)
{
    ssize_t sent = send_some(s, s->output + s->output_begin, pending(s));
    if (sent < 0) {
        let_go(s);
        return false;
    }
    if (sent > 0) {
        s->output_begin += static_cast<size_t>(sent);
        s->progress_ms = now_ms();
    }
    if (pending(s) == 0) {
        free(s->output);
        s->output = nullptr;
        s->output_begin = s->output_end = s->output_room = 0;
        if (s->ended) {
            let_go(s);
            return false;
        }
    }
    if (!full(s) && s->input_begin < s->input_end)
        queue_turn(s);
    return watch_station(s);
}

bool queue_output(station *s, const uint8_t *bytes, size_t length)
{
    const bool waited = must_read(s);
    if (s->output_end + length > s->output_room) {
        if (s->output_begin > 0)
            memmove(s->output, s->output + s->output_begin, pending(s));
        s->output_end = pending(s);
        s->output_begin = 0;
    }
    if (s->output_end + length > s->output_room) {
        size_t room = 2 * (s->output_end + length);
        auto *grown = static_cast<uint8_t *>(realloc(s->output, room));
        if (grown == nullptr)
            return false;
        s->output = grown;
        s->output_room = room;
    }
    memcpy(s->output + s->output_end, bytes, length);
    s->output_end += length;
    if (!waited && must_read(s))
        start_clock(s);
    return true;
}

// Frames and sends a packet, or queues what the socket does not take. False: the station is gone.
bool answer(station *s, const uint8_t *packet, size_t length)
{
    size_t size = port::encode(packet, length, frame);
    ssize_t sent = pending(s) == 0 ? send_some(s, frame, size) : 0;
    if (sent < 0) {
        let_go(s);
        return false;
    }
    if (sent == static_cast<ssize_t>(size))
        return true;
    if (!queue_output(s, frame + sent, size - static_cast<size_t>(sent))) {
        let_go(s); // half an answer would spoil the next one
        return false;
    }
    return watch_station(s);
}

// ---- Requests

diagpkt_handler find_handler(unsigned subsystem, unsigned code)
{
    size_t count = table_count.load(std::memory_order_acquire);
    for (size_t i = 0; i < count; i++) {
        const diagpkt_table &table = tables[i];
        if (table.subsystem != subsystem)
            continue;
        for (size_t k = 0; k < table.count; k++)
            if (table.entries[k].low <= code && code <= table.entries[k].high)
                return table.entries[k].handler;
    }
    return nullptr;
}

// Serves the packet in the station's decoder. False: the station is gone.
bool serve(station *s)
{
    const uint8_t *packet = s->decoder.packet;
    size_t length = s->decoder.length;
    diagpkt_handler handler = find_handler(packet[1], packet[2] | unsigned{packet[3]} << 8);
    if (handler == nullptr) {
        uint8_t refusal[1 + port::ERROR_ECHO_MAX];
        size_t echoed = length < port::ERROR_ECHO_MAX ? length : port::ERROR_ECHO_MAX;
        refusal[0] = port::ERROR_PACKET;
        memcpy(refusal + 1, packet, echoed);
        return answer(s, refusal, 1 + echoed);
    }
    memcpy(request, packet, length);
    void *response = handler(request, static_cast<uint16_t>(length));
    bool present = true;
    if (response != nullptr) {
        response_head *head = static_cast<response_head *>(response) - 1;
        present = answer(s, static_cast<uint8_t *>(response), head->length);
        free(head);
    }
    // For the next request, while the station reads its answer. All of it: the handler may have written
    // anywhere.
    memset(request, 0, sizeof request);
    return present;
}

// Counts a frame that is no packet.
void count_drop(port::event reason)
{
    if (reason == port::event::bad_fcs)
        dropped.bad_fcs++;
    else if (reason == port::event::too_short)
        dropped.too_short++;
    else
        dropped.too_long++;
    clock_runs = true;
}

// Fills the station's empty input. False: there is nothing to decode, or no station any more.
bool receive(station *s)
{
    ssize_t received = recv(s->fd, s->input, sizeof s->input, 0);
    if (received < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR))
        return false; // epoll reports it again
    if (received < 0 || (received == 0 && pending(s) == 0)) {
        let_go(s);
        return false;
    }
    if (received == 0) { // it may have shut down its own direction alone, and still read
        s->ended = true;
        start_clock(s);
        watch_station(s);
        return false;
    }
    s->input_begin = 0;
    s->input_end = static_cast<size_t>(received);
    return true;
}

// Gives the station its turn: at most one request, and what one read of the socket holds. Returns whether a
// part of that is left for another turn.
bool take_request(station *s)
{
    if (full(s) || s->ended || (s->input_begin == s->input_end && !receive(s)))
        return false;
    for (;;) {
        const uint8_t *next = s->input + s->input_begin;
        size_t left = s->input_end - s->input_begin;
        port::event event = port::decode(&s->decoder, &next, &left);
        s->input_begin = s->input_end - left;
        if (event == port::event::more)
            return false;
        if (event == port::event::packet)
            return serve(s) && left > 0;
        count_drop(event);
    }
}

// ---- The thread

// What runs by the clock. Returns whether anything still does.
bool tick()
{
    bool runs = false;
    const int64_t now = now_ms();
    for (station *s = stations, *next; s != nullptr; s = next) {
        next = s->next;
        if (!must_read(s))
            continue;
        if (now - s->progress_ms < STUCK_MS) {
            runs = true;
        } else {
            __android_log_print(ANDROID_LOG_WARN, TAG, "a station does not read: closed, %zu bytes unsent\n",
                                pending(s));
            let_go(s);
        }
    }
    if (!accepting) {
        accepting = watch(listener, EPOLLIN, &listener, EPOLL_CTL_MOD);
        runs = runs || !accepting;
    }
    if (memcmp(&dropped, &reported, sizeof dropped) != 0) {
        if (now - report_ms < REPORT_MS) {
            runs = true;
        } else {
            report_ms = now;
            reported = dropped;
            __android_log_print(ANDROID_LOG_WARN, TAG,
                                "frames dropped so far: %lu with a wrong FCS, %lu too short, %lu too long\n",
                                dropped.bad_fcs, dropped.too_short, dropped.too_long);
        }
    }
    return runs;
}

void *route(void *unused)
{
    (void)unused;
    // The service registers its table right after the connection: a request that is there already waits for
    // it.
    pollfd first_table = {waker, POLLIN, 0};
    poll(&first_table, 1, FIRST_TABLE_MS);

    bool more = false; // served_last has input left
    while (!stopping.load(std::memory_order_acquire)) {
        if (clock_runs)
            clock_runs = tick();
        epoll_event events[EVENTS_MAX];
        int count = epoll_wait(epoll, events, EVENTS_MAX,
                               (served_last != nullptr && more) || turn_first != nullptr ? 0
                               : clock_runs                                              ? TICK_MS
                                                                                         : -1);
        for (int i = 0; i < count; i++) {
            if (events[i].data.ptr == &listener) {
                accept_station();
            } else if (events[i].data.ptr == &waker) {
                uint64_t times;
                ssize_t drained = read(waker, &times, sizeof times);
                (void)drained;
            } else {
                auto *s = static_cast<station *>(events[i].data.ptr);
                if (pending(s) > 0 && (events[i].events & ~uint32_t{EPOLLIN}) != 0 && !flush(s))
                    continue;
                if ((events[i].events & ~uint32_t{EPOLLOUT}) == 0)
                    continue;
                // Epoll reports in order of arrival, but for the station served last, which it would report
                // first.
                if (s == served_last)
                    more = true;
                else
                    queue_turn(s);
            }
        }
        if (served_last != nullptr && more)
            queue_turn(served_last);
        served_last = take_turn();
        more = served_last != nullptr && take_request(served_last);
    }
    for (station *s = stations, *next; s != nullptr; s = next) {
        next = s->next;
        if (pending(s) == 0 || flush(s))
            let_go(s);
    }
    return nullptr;
}

// ---- The connection

bool fail(const char *what)
{
    fprintf(stderr, "libdiag: %s %s: %s\n", what, port_path, strerror(errno));
    return false;
}

void close_fd(int *fd)
{
    if (*fd >= 0)
        close(*fd);
    *fd = -1;
}

bool choose_path()
{
    const char *path = getenv(PORT_VARIABLE);
    if (path == nullptr || *path == '\0')
        path = DEFAULT_PORT;
    if (strlen(path) >= sizeof port_path) {
        fprintf(stderr, "libdiag: the path of the port is longer than %zu bytes: %s\n", sizeof port_path - 1,
                path);
        return false;
    }
    snprintf(port_path, sizeof port_path, "%s", path);
    return true;
}

// A socket that nobody listens at may be replaced; anything else may not.
bool path_is_free()
{
    struct stat there;
    if (lstat(port_path, &there) != 0)
        return errno == ENOENT || fail("cannot look at");
    if (!S_ISSOCK(there.st_mode)) {
        errno = ENOTSOCK;
        return fail("will not replace");
    }
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return fail("cannot make a socket for");
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof address.sun_path, "%s", port_path);
    bool answered =
        connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0 || errno == EAGAIN;
    close(fd);
    errno = EADDRINUSE;
    return !answered || fail("cannot listen at");
}

// The socket gets its name when it listens, so that whoever sees it can connect.
bool listen_at_path()
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    int length = snprintf(address.sun_path, sizeof address.sun_path, "%s.%d", port_path, getpid());
    if (length >= static_cast<int>(sizeof address.sun_path)) {
        errno = ENAMETOOLONG;
        return fail("cannot listen at");
    }
    listener = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    unlink(address.sun_path); // of a process of the same id, long gone
    if (listener < 0 || bind(listener, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0)
        return fail("cannot make a socket for");
    if (listen(listener, SOMAXCONN) != 0 || rename(address.sun_path, port_path) != 0) {
        fail("cannot listen at");
        unlink(address.sun_path);
        return false;
    }
    return true;
}

bool start_thread()
{
    epoll = epoll_create1(EPOLL_CLOEXEC);
    waker = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (epoll < 0 || waker < 0 || !watch(listener, EPOLLIN, &listener, EPOLL_CTL_ADD) ||
        !watch(waker, EPOLLIN, &waker, EPOLL_CTL_ADD))
        return fail("cannot watch");
    stopping = false;
    accepting = true;
    clock_runs = false;
    dropped = reported = {};
    report_ms = now_ms() - REPORT_MS;
    if (table_count > 0)
        wake();
    errno = pthread_create(&thread, nullptr, route, nullptr);
    return errno == 0 || fail("cannot start a thread for");
}

void close_all()
{
    unlink(port_path); // before the socket closes: from then on another process may take the name
    close_fd(&listener);
    close_fd(&epoll);
    close_fd(&waker);
}

} // namespace

extern "C" EXPORT bool Diag_LSM_Init(uint8_t *unused)
{
    (void)unused;
    if (running)
        return true;
    if (!choose_path() || !path_is_free())
        return false;
    if (!listen_at_path()) {
        close_fd(&listener);
        return false;
    }
    running = start_thread();
    if (!running)
        close_all();
    return running;
}

extern "C" EXPORT bool Diag_LSM_DeInit(void)
{
    if (!running || pthread_equal(pthread_self(), thread) != 0)
        return false;
    stopping.store(true, std::memory_order_release);
    wake();
    pthread_join(thread, nullptr); // after the handler that is running
    close_all();
    table_count = 0;
    running = false;
    return true;
}

extern "C" EXPORT void diagpkt_tbl_reg(const diagpkt_table *table)
{
    pthread_mutex_lock(&registering);
    size_t count = table_count.load(std::memory_order_relaxed);
    if (table != nullptr && count < TABLES_MAX) {
        tables[count] = *table;
        table_count.store(count + 1, std::memory_order_release);
        wake();
    } else {
        __android_log_print(ANDROID_LOG_WARN, TAG, "a table is not registered: %s\n",
                            table == nullptr ? "it is none" : "there are too many");
    }
    pthread_mutex_unlock(&registering);
}

extern "C" EXPORT void *diagpkt_subsys_alloc(unsigned int subsystem, unsigned int code, unsigned int length)
{
    (void)subsystem; // the handler copies both from the request
    (void)code;
    if (length > RESPONSE_MAX)
        return nullptr;
    auto *head = static_cast<response_head *>(malloc(sizeof(response_head) + length));
    if (head == nullptr)
        return nullptr;
    head->length = length;
    // Not zeroed on the phone, and here never zero by chance: who forgets to fill it shall see it.
    memset(head + 1, UNSET, length);
    return head + 1;
}
