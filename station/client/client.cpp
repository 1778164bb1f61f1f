#include "station/client/client.h"

#include "frame.h"
#include "station/client/encode.h"
#include "station/client/errors.h"
#include "station/client/trace.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <deque>
#include <random>
#include <thread>
#include <utility>

namespace station
{

static constexpr auto RECONNECT_PAUSE = std::chrono::milliseconds(100);
static constexpr uint16_t PORT_CHECK = 0x013C;
static constexpr size_t ECHO_SIZE = SELECTOR_OFFSET + 1;
static constexpr size_t TRACE_MAX = 140000; // bytes shown of a frame: more than the longest good one has

static Bytes frame_of(const Bytes &packet)
{
    // The flag in front closes whatever a station before left half sent.
    Bytes frame(port::encoded_max(packet.size()));
    frame.resize(port::encode(packet.data(), packet.size(), frame.data()));
    frame.insert(frame.begin(), port::FLAG);
    return frame;
}

// A response begins with what its request began with, selector included; a request that ends before its
// selector has 0 there.
static bool answers(const Bytes &packet, Bytes request)
{
    request.resize(ECHO_SIZE);
    return packet.size() >= ECHO_SIZE && std::equal(request.begin(), request.end(), packet.begin());
}

static bool refuses(const Bytes &packet, const Bytes &request)
{
    return packet.size() > std::min(ECHO_SIZE, request.size()) && packet[0] == port::ERROR_PACKET &&
           packet.size() - 1 <= request.size() &&
           std::equal(packet.begin() + 1, packet.end(), request.begin());
}

static std::string fault_of(const Bytes &response, size_t expected_size)
{
    if (expected_size != 0 && response.size() != expected_size)
        return "broken answer: " + std::to_string(response.size()) + " bytes came, the command answers " +
               std::to_string(expected_size);
    if (response.size() < DATA_OFFSET)
        return {};
    const size_t length = get_u16(response, LENGTH_OFFSET), room = response.size() - DATA_OFFSET;
    if (length <= room)
        return {};
    return "broken answer: its length says " + std::to_string(length) + ", its data field holds " +
           std::to_string(room);
}

static Deadline after(double seconds)
{
    return Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

static std::string seconds_text(double seconds)
{
    char text[32];
    std::snprintf(text, sizeof text, "%g s", seconds);
    return text;
}

Question port_check()
{
    thread_local std::mt19937 chance{std::random_device{}()};
    Bytes packet = empty_request(PORT_CHECK);
    packet.resize(ECHO_SIZE);
    packet[SELECTOR_OFFSET] = static_cast<uint8_t>(chance());
    return {packet, true, ECHO_SIZE};
}

// What comes over a connection.
struct Client::Input {
    port::decoder decoder{};
    Bytes bytes; // read and not yet looked at, from `taken` on
    size_t taken = 0;
    Bytes wire; // of the frame that is being read, for the trace
};

Client::Client(Settings settings) : settings_(std::move(settings)) {}

Client::~Client() = default;

// A patient one waits for a service that is being started again.
void Client::open(bool patient, Deadline deadline)
{
    for (;;) {
        try {
            port_ = std::make_unique<Port>(settings_.port, deadline);
            break;
        } catch (const PortError &) {
            if (!patient || Clock::now() + RECONNECT_PAUSE >= deadline)
                throw;
        }
        std::this_thread::sleep_for(RECONNECT_PAUSE);
    }
    input_ = std::make_unique<Input>();
    connections_++;
    in_step_ = !port_->outlives_stations() && !answer_lost_;
    if (settings_.trace)
        trace_event("connected to " + settings_.port);
}

// Nothing is under way here, so what lies there is nobody's. A closed connection shows here too, before the
// request is on its way.
void Client::drop_what_is_late(Deadline deadline)
{
    try {
        for (Bytes late; !(late = port_->read(Clock::now())).empty() && Clock::now() < deadline;)
            if (settings_.trace)
                trace_frame('<', late, "late: dropped");
        input_ = std::make_unique<Input>();
    } catch (const PortError &) {
        port_.reset();
        endings_++;
    }
}

bool Client::is_connected()
{
    if (port_)
        drop_what_is_late(after(settings_.timeout));
    return static_cast<bool>(port_);
}

void Client::connect(bool patient, Deadline deadline)
{
    if (port_)
        drop_what_is_late(deadline);
    if (!port_)
        open(patient, deadline);
    if (!in_step_)
        bring_into_step(deadline);
}

// What was asked on this line before, by this station or another, is answered before what is asked now. So
// the line is in step behind the echoes of port-checks that nobody else has sent: three, one behind the
// other, with selectors of chance, because one alone would be found among the late echoes of others too
// often.
void Client::bring_into_step(Deadline deadline)
{
    std::array<Bytes, 3> checks;
    for (Bytes &check : checks) {
        check = port_check().packet;
        send(check, deadline);
    }
    // A port at which nobody serves the port-check yet refuses it, and that tells as much.
    const auto is_echoed = [](const Bytes &check, const Bytes &packet) {
        return (packet.size() == ECHO_SIZE && answers(packet, check)) || refuses(packet, check);
    };
    std::deque<Bytes> last(checks.size());
    bool time_is_over = false;
    while (!std::equal(checks.begin(), checks.end(), last.begin(), is_echoed)) {
        Bytes packet;
        const Received received = receive(packet, deadline, time_is_over);
        if (received == Received::nothing)
            throw PortError("the port does not answer: no echo of a port-check within " +
                            seconds_text(settings_.timeout));
        if (received == Received::packet) {
            last.pop_front();
            last.push_back(std::move(packet));
        }
    }
    in_step_ = true;
    answer_lost_ = false;
}

void Client::send(const Bytes &packet, Deadline deadline)
{
    const Bytes frame = frame_of(packet);
    if (settings_.trace)
        trace_frame('>', frame, "");
    port_->write(frame, deadline);
}

// The next frame that comes, broken ones too; nothing at the deadline. What lies there then is read once
// more: a station that was stopped, or slept with its machine, finds its answer, while somebody who never
// stops sending does not hold it. `time_is_over` is the caller's, false at first.
Client::Received Client::receive(Bytes &packet, Deadline deadline, bool &time_is_over)
{
    for (;;) {
        if (input_->taken == input_->bytes.size()) {
            if (time_is_over)
                return Received::nothing;
            time_is_over = Clock::now() >= deadline;
            input_->bytes = port_->read(deadline);
            input_->taken = 0;
            if (input_->bytes.empty())
                return Received::nothing;
        }
        const uint8_t *const begin = input_->bytes.data() + input_->taken, *next = begin;
        size_t left = input_->bytes.size() - input_->taken;
        port::decoder &decoder = input_->decoder;
        const port::event event = port::decode(&decoder, &next, &left);
        if (settings_.trace)
            trace_input(event, {begin, next});
        input_->taken = input_->bytes.size() - left;
        if (event == port::event::packet) {
            packet.assign(decoder.packet, decoder.packet + decoder.length);
            return Received::packet;
        }
        if (event != port::event::more)
            return Received::broken;
    }
}

void Client::trace_input(port::event event, const Bytes &piece)
{
    const char *const made_of[] = {"", "", "broken: wrong FCS", "broken: too short", "broken: too long"};
    Bytes &wire = input_->wire;
    wire.insert(wire.end(), piece.begin(), piece.end());
    wire.resize(std::min(wire.size(), TRACE_MAX));
    if (event == port::event::more)
        return;
    trace_frame('<', wire, made_of[static_cast<size_t>(event)]);
    wire.clear();
}

// Throws PortError when there is none to believe before the deadline.
void Client::await_answer(const Bytes &request, size_t response_size, Deadline deadline, Exchange &exchange)
{
    for (bool time_is_over = false;;) {
        Bytes packet;
        const Received received = receive(packet, deadline, time_is_over);
        if (received == Received::nothing) {
            if (!input_->wire.empty())
                trace_frame('<', input_->wire, "not a whole frame");
            const std::string others =
                exchange.skipped > 0 ? ", only " + std::to_string(exchange.skipped) + " that are none" : "";
            throw NoAnswer("no answer within " + seconds_text(settings_.timeout) + others);
        }
        if (received == Received::packet && answers(packet, request)) {
            const std::string fault = fault_of(packet, response_size);
            if (!fault.empty())
                throw NoAnswer(fault);
            exchange.outcome = Outcome::answer;
            exchange.packet = std::move(packet);
            return;
        }
        if (received == Received::packet && refuses(packet, request)) {
            exchange.outcome = Outcome::refused;
            exchange.problem = "refused by the router: nobody serves this code";
            return;
        }
        exchange.skipped++;
    }
}

// Returns whether any byte of the request may have reached the service.
bool Client::attempt(const Question &question, bool patient, Exchange &exchange)
{
    bool sent = false;
    auto begin = Clock::now();
    exchange.port_died = false;
    const auto lose = [&](const PortError &error, bool port_died) {
        exchange.problem = error.what();
        exchange.port_died = port_died;
        answer_lost_ = answer_lost_ || sent;
        endings_ += port_ && port_died ? 1 : 0;
        port_.reset();
        if (settings_.trace)
            trace_event(exchange.problem);
    };
    try {
        connect(patient, after(settings_.timeout));
        const Bytes request = question.fresh ? question.fresh() : question.packet;
        const Deadline deadline = after(settings_.timeout);
        begin = Clock::now();
        sent = true;
        send(request, deadline);
        await_answer(request, question.response_size, deadline, exchange);
    } catch (const NoAnswer &error) {
        lose(error, false);
    } catch (const PortError &error) {
        lose(error, true);
    }
    exchange.milliseconds = std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
    return sent;
}

Exchange Client::ask(const Question &question)
{
    Exchange exchange{};
    for (;;) {
        const bool sent = attempt(question, settings_.retries > 0, exchange);
        exchange.attempts++;
        if (exchange.outcome != Outcome::silence || exchange.attempts > settings_.retries)
            return exchange;
        if (sent && !question.repeatable) {
            exchange.problem += " (sent once: this request is not safe to repeat)";
            return exchange;
        }
        std::this_thread::sleep_for(RECONNECT_PAUSE);
    }
}

} // namespace station
