// A phone that knows its answers by heart, on a port in this process, and a bench to play plans on it.
#pragma once

#include "station/catalogue/catalogue.h"
#include "station/client/encode.h"
#include "station/plan/play.h"

#include <algorithm>
#include <fstream>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "tests/fake_port.h"

namespace station
{

class FakePhone
{
  public:
    explicit FakePhone(const std::string &serial = "CV00000001", const std::string &name = "port")
        : path(folder_.path + "/" + name)
    {
        answers["usb-serial"] = serial;
        start();
    }

    void start()
    {
        port_ = std::make_unique<FakePort>(listen_unix(path),
                                           [this](const Bytes &request, int) { return reply_to(request); });
    }
    // Ends all connections and goes away.
    void stop()
    {
        port_.reset();
        unlink(path.c_str());
    }

    const temporary_folder folder_;
    const std::string path;
    // By the command's name, or its name and text: "OK" where nothing stands. Before the phone is asked, or
    // from `happens` alone.
    std::map<std::string, std::string> answers;
    std::string log; // what logcat has of a failure
    // Called with what is asked, before it is answered; false for silence, nothing for an end of the
    // connection.
    std::function<std::optional<bool>(const std::string &asked)> happens;

    std::vector<std::string> ends_behind; // the answers behind which it ends the connection

    // What was asked so far, "get-prop ro.a" a line; fetching the log is "log" and the handler's name.
    std::vector<std::string> asked()
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        return asked_;
    }

  private:
    Reply reply_to(const Bytes &request)
    {
        const auto code = static_cast<uint16_t>(request[2] | request[3] << 8);
        const Command *const command = find_command(code);
        if (!command) // as the router does
            return {frame_of(Bytes{port::ERROR_PACKET} + request), false};
        const std::string name = command->name_of(code).name;
        const size_t length = request[LENGTH_OFFSET] + 256U * request[LENGTH_OFFSET + 1];
        const std::string text(request.begin() + DATA_OFFSET,
                               request.begin() + static_cast<long>(DATA_OFFSET + length));
        std::string whole = name + (text.empty() ? "" : " " + text);
        const size_t handler = text.find("\\[diag_cmd_", text.find("Enter") + 1);
        const bool fetches = text.find("logcat") != std::string::npos;
        if (fetches)
            whole = "log " + text.substr(handler + 2, text.find(']', handler) - handler - 2);
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            asked_.push_back(whole);
        }
        const std::optional<bool> goes_on = happens ? happens(whole) : true;
        if (!goes_on)
            return {{}, true};
        if (!*goes_on)
            return {};
        std::string answer_text = "OK";
        for (const std::string &key : {name, whole})
            if (answers.count(key) > 0)
                answer_text = answers[key];
        return {frame_of(response_to(request, fetches ? log : answer_text, command->response_size)),
                std::count(ends_behind.begin(), ends_behind.end(), whole) > 0};
    }

    std::mutex mutex_;
    std::vector<std::string> asked_;
    std::unique_ptr<FakePort> port_;
};

} // namespace station
