// What the page's programs ask for: GET /api/... and POST /api/slots/NAME/answer.
#pragma once

#include "station/page/asked_often.h"
#include "station/page/feed.h"
#include "station/page/message.h"
#include "station/page/screen.h"
#include "station/records/source.h"

#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace station::page
{

// What all threads that answer share.
struct Shared {
    records::Where where;
    Feed &feed;
    Screens &screens;
    AskedOften &asked_often;
};

// One thread's: it has a connection to the records of its own.
class Api
{
  public:
    Api(const Shared &shared, const LineSide &side) : shared_(shared), side_(side) {}

    Reply answer(const Request &request);

    // By any thread: what is being asked of the records ends with an error.
    void interrupt();

  private:
    using Words = std::vector<std::string>;

    Reply get(const Request &request, const Words &words);
    Reply slots(const Request &request);
    Reply events(const Request &request);
    Reply screen(const Request &request, const std::string &slot);
    Reply take_answer(const Request &request, const std::string &slot);
    std::string port_of(const std::string &slot) const;

    Reply runs(const Request &request);
    Reply run(const Request &request, const std::string &id);
    Reply plans(const Request &request);
    Reply yield(const Request &request);
    Reply measurements(const Request &request);
    template <typename Ask> auto ask(Ask &&question);
    template <typename Ask> auto ask_once(records::Source &source, Ask &&question);
    void keep(std::shared_ptr<records::Source> source);

    const Shared &shared_;
    LineSide side_;
    std::mutex mutex_; // of the pointer, not of what it leads to
    std::shared_ptr<records::Source> source_;
    bool is_interrupted_ = false;
};

} // namespace station::page
