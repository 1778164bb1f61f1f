// One station on one port: sends a request, waits for its answer, repeats it where that is safe.
#pragma once

#include "station/client/bytes.h"
#include "station/client/transport.h"

#include <memory>
#include <string>

namespace port
{
struct decoder;
}

namespace station
{

enum class Outcome {
    answer,  // a response of the service
    refused, // the router's error packet: nobody serves the code
    silence, // no answer in time, or the connection was lost or never made
};

struct Exchange {
    Outcome outcome = Outcome::silence;
    Bytes packet;        // the response, empty unless it is an answer
    double milliseconds; // of the last attempt, from the request to its answer
    int attempts = 0;
    int skipped = 0;     // broken frames and answers to other requests that came before this one
    std::string problem; // why there is no answer
};

class Client
{
  public:
    struct Settings {
        std::string port;
        double timeout = 30; // seconds, for each attempt
        int retries = 0;
    };

    explicit Client(Settings settings);
    ~Client();

    // A request that is not repeatable is sent at most once, whatever `retries` says.
    Exchange ask(const Bytes &request, bool repeatable);

    Settings &settings() { return settings_; }
    // Grows when a lost connection was made anew.
    int connections() const { return connections_; }

  private:
    void connect(bool patient, Deadline deadline);
    bool attempt(const Bytes &request, bool patient, Exchange &exchange);

    Settings settings_;
    int connections_ = 0;
    std::unique_ptr<Port> port_;
    std::unique_ptr<port::decoder> decoder_;
};

} // namespace station
