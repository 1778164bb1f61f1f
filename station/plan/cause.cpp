#include "station/plan/cause.h"

#include "station/catalogue/answer.h"

#include <sstream>

namespace station
{

static constexpr double TIMEOUT = 2;
static constexpr size_t CAUSE_MAX = 700; // bytes of the log, of an answer's 768
static constexpr char LINES_MAX[] = "8";

static std::string output_of(Client &client, const std::string &line)
{
    Settings unused;
    const Request request = parse_request({"shell-output", line}, unused);
    const Exchange exchange = client.ask(request);
    return exchange.outcome == Outcome::answer ? to_text(judge(request, exchange).data) : "";
}

// Of a line in logcat's threadtime layout: "11-21 22:49:09.238    36    38 E Diag_Lib: [handler]:Enter".
static std::string process_of(const std::string &line)
{
    std::istringstream words(line);
    std::string date, time, process;
    words >> date >> time >> process;
    return process;
}

static std::string message_of(const std::string &line)
{
    const size_t tag = line.find(": ");
    std::string message = tag == std::string::npos ? "" : line.substr(tag + 2);
    const size_t handler = message.find("]:");
    if (message[0] == '[' && handler != std::string::npos)
        message.erase(0, handler + 2);
    message.erase(message.find_last_not_of(" \t\r") + 1);
    return message;
}

std::string cause_in(const std::string &log)
{
    const size_t last = log.rfind('\n', log.find_last_not_of("\r\n")) + 1; // 0 for the only one
    const std::string process = process_of(log.substr(last));
    std::istringstream lines(log);
    std::string line, cause;
    if (log.size() >= CAUSE_MAX)
        std::getline(lines, line); // cut in its middle
    while (std::getline(lines, line)) {
        const std::string message = escaped(message_of(line), false);
        if (process_of(line) == process && !message.empty())
            cause += (cause.empty() ? "" : " / ") + message;
    }
    return cause;
}

// Requests are served one behind the other: what lies in the log between the handler's entry and the fetch's
// own is the request's. The last of it says the most, and entries nothing.
std::string fetch_cause(Client &client, const Request &request)
{
    if (!request.command)
        return {};
    client.settings().timeout = TIMEOUT;
    client.settings().retries = 0;
    return cause_in(output_of(client, "(echo;logcat -d -v threadtime -t 400|tac)|"
                                      "sed '1,/\\[diag_cmd_get_cmd_result]:Enter/d;/\\[" +
                                          std::string(request.command->handler) +
                                          "]:Enter/q'|grep -v ']:Enter'|head -n " + LINES_MAX +
                                          "|tac|tail -c " + std::to_string(CAUSE_MAX)));
}

} // namespace station
