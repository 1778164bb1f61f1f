// What the screens and lamps of virtual phones show, as their shell service tells it. A phone is hostile:
// what it tells is bounded, has to fit its pattern, and is waited for by a thread that nobody else waits for.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <thread>

namespace station::page
{

// Whether a virtual phone's shell listens beside the port, in a folder that only this user writes to.
bool has_screen(const std::string &port);

// The JSON of what the phone's shell has printed. What is not there, or not as it should be, is null; all is
// of an empty text.
std::string screen_json(const std::string &printed);

// One look at a phone serves everybody who asks; nobody asks, nobody looks.
class Screens
{
  public:
    Screens();
    ~Screens();
    Screens(const Screens &) = delete;
    Screens &operator=(const Screens &) = delete;

    // The newest look, which may be a second old; waits a moment for the first one.
    std::string of(const std::string &port);

  private:
    using Clock = std::chrono::steady_clock;
    struct Seen {
        std::string json; // empty until the first look
        Clock::time_point wanted{}, next{};
    };

    void look();

    std::mutex mutex_;
    std::condition_variable changed_;
    std::map<std::string, Seen> seen_;
    bool ends_ = false;
    std::thread thread_;
};

} // namespace station::page
