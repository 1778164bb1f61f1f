// One station on one port: sends a request, waits for its answer, repeats it where that is safe.
#pragma once

#include "station/client/bytes.h"
#include "station/client/transport.h"

#include <functional>
#include <memory>
#include <string>

namespace port
{
enum class event;
} // namespace port

namespace station
{

// A request, and what has to be known to believe its answer.
struct Question {
    Bytes packet;
    bool repeatable = false;                // otherwise it is sent at most once, whatever `retries` says
    size_t response_size = 0;               // in bytes; 0 for a code whose size nobody has told
    std::function<Bytes()> fresh = nullptr; // makes the packet when it is sent, if it tells the time
};

// A port-check with a selector of chance: the service echoes its five bytes.
Question port_check();

enum class Outcome {
    answer,  // a response of the service
    refused, // the router's error packet: nobody serves the code
    silence, // no answer in time, or none to believe, or the connection was lost or never made
};

struct Exchange {
    Outcome outcome = Outcome::silence;
    Bytes packet;            // the response, empty unless it is an answer
    double milliseconds = 0; // of the last attempt, from the request to its answer
    int attempts = 0;
    int skipped = 0;        // broken frames and answers to other requests that came before this one
    bool port_died = false; // the connection was lost or not made, or the port answers no port-check
    std::string problem;    // why there is no answer
};

class Client
{
  public:
    struct Settings {
        std::string port;
        double timeout = 30; // seconds, for each attempt
        int retries = 0;
        bool trace = false; // to standard error
    };

    explicit Client(Settings settings);
    ~Client();

    Exchange ask(const Question &question);

    Settings &settings() { return settings_; }
    // Looks whether there is a connection that the other side has not ended.
    [[nodiscard]] bool is_connected();
    // Grows when a lost connection was made anew.
    [[nodiscard]] int connections() const { return connections_; }
    // Grows when the other side has ended one. What was lost otherwise has this side given up.
    [[nodiscard]] int endings() const { return endings_; }

  private:
    struct Input;
    enum class Received { packet, broken, nothing };

    void drop_what_is_late(Deadline deadline);
    void connect(bool patient, Deadline deadline);
    void open(bool patient, Deadline deadline);
    void bring_into_step(Deadline deadline);
    void send(const Bytes &packet, Deadline deadline);
    Received receive(Bytes &packet, Deadline deadline, bool &time_is_over);
    void trace_input(port::event event, const Bytes &piece);
    void await_answer(const Bytes &request, size_t response_size, Deadline deadline, Exchange &exchange);
    bool attempt(const Question &question, bool patient, Exchange &exchange);

    Settings settings_;
    int connections_ = 0, endings_ = 0;
    bool in_step_ = false;     // the next answer that comes is the next request's
    bool answer_lost_ = false; // and may still come, if the port is alive at all
    std::unique_ptr<Port> port_;
    std::unique_ptr<Input> input_;
};

} // namespace station
