#include "station/client/client.h"

#include "frame.h"
#include "station/client/errors.h"

#include <algorithm>
#include <cstdio>
#include <thread>
#include <utility>

namespace station
{
namespace
{

constexpr auto RECONNECT_PAUSE = std::chrono::milliseconds(100);
constexpr size_t HEAD_SIZE = 4;

Bytes frame_of(const Bytes &packet)
{
    // The flag in front closes whatever a station before left half sent.
    Bytes frame(1 + port::encoded_max(packet.size()));
    frame[0] = port::FLAG;
    frame.resize(1 + port::encode(packet.data(), packet.size(), frame.data() + 1));
    return frame;
}

bool answers(const Bytes &packet, const Bytes &request)
{
    return packet.size() >= HEAD_SIZE &&
           std::equal(packet.begin(), packet.begin() + HEAD_SIZE, request.begin());
}

bool refuses(const Bytes &packet, const Bytes &request)
{
    return packet.size() > HEAD_SIZE && packet[0] == port::ERROR_PACKET &&
           packet.size() - 1 <= request.size() &&
           std::equal(packet.begin() + 1, packet.end(), request.begin());
}

Deadline after(double seconds)
{
    return Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

} // namespace

Client::Client(Settings settings) : settings_(std::move(settings)) {}

Client::~Client() = default;

// A patient connect waits for a service that is being started again.
void Client::connect(bool patient, Deadline deadline)
{
    if (port_) {
        // What lies there came too late for its own request. A closed connection shows here too, before the
        // request is on its way.
        try {
            while (!port_->read(Clock::now()).empty() && Clock::now() < deadline) {
            }
            return;
        } catch (const PortError &) {
            port_.reset();
        }
    }
    for (;;) {
        try {
            port_ = std::make_unique<Port>(settings_.port, deadline);
            decoder_ = std::make_unique<port::decoder>();
            connections_++;
            return;
        } catch (const PortError &) {
            if (!patient || Clock::now() + RECONNECT_PAUSE >= deadline)
                throw;
        }
        std::this_thread::sleep_for(RECONNECT_PAUSE);
    }
}

// Returns whether any byte of the request may have reached the service.
bool Client::attempt(const Bytes &request, bool patient, Exchange &exchange)
{
    const Deadline deadline = after(settings_.timeout);
    bool sent = false;
    auto begin = Clock::now();
    auto stop_watch = [&] {
        exchange.milliseconds = std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
    };
    try {
        connect(patient, deadline);
        begin = Clock::now();
        sent = true;
        port_->write(frame_of(request), deadline);
        for (;;) {
            const Bytes bytes = port_->read(deadline);
            if (bytes.empty() || Clock::now() >= deadline) {
                char text[64];
                std::snprintf(text, sizeof text, "no answer within %g s", settings_.timeout);
                throw PortError(text);
            }
            const uint8_t *input = bytes.data();
            size_t left = bytes.size();
            for (;;) {
                const port::event event = port::decode(decoder_.get(), &input, &left);
                if (event == port::event::more)
                    break;
                const Bytes packet = event == port::event::packet
                                         ? Bytes(decoder_->packet, decoder_->packet + decoder_->length)
                                         : Bytes();
                if (answers(packet, request)) {
                    exchange.outcome = Outcome::answer;
                    exchange.packet = packet;
                    stop_watch();
                    return sent;
                }
                if (refuses(packet, request)) {
                    exchange.outcome = Outcome::refused;
                    exchange.problem = "refused by the router: nobody serves this code";
                    stop_watch();
                    return sent;
                }
                exchange.skipped++;
            }
        }
    } catch (const PortError &error) {
        stop_watch();
        exchange.problem = error.what();
        port_.reset();
    }
    return sent;
}

Exchange Client::ask(const Bytes &request, bool repeatable)
{
    Exchange exchange{};
    for (;;) {
        const bool sent = attempt(request, settings_.retries > 0, exchange);
        exchange.attempts++;
        if (exchange.outcome != Outcome::silence || exchange.attempts > settings_.retries)
            return exchange;
        if (sent && !repeatable) {
            exchange.problem += " (sent once: this request is not safe to repeat)";
            return exchange;
        }
        std::this_thread::sleep_for(RECONNECT_PAUSE);
    }
}

} // namespace station
