#include "station/plan/cause.h"

#include "station/catalogue/answer.h"
#include "station/client/encode.h"

#include <sstream>

namespace station
{

static constexpr char SHELL_OUTPUT[] = "shell-output";
static constexpr double TIMEOUT = 2;
static constexpr size_t CAUSE_MAX = 700; // bytes of the log, of an answer's 768
static constexpr char LINES_MAX[] = "8";

static std::string output_of(Client &client, const Command &shell, uint16_t code, const std::string &line)
{
    Request request;
    request.code = code;
    request.command = &shell;
    request.packet = empty_request(code);
    put_text(request.packet, line);
    request.response_size = shell.response_size;
    const Exchange exchange = client.ask(request);
    if (exchange.outcome != Outcome::answer)
        return {};
    const std::string text = to_text(judge(request, exchange).data);
    return text == "ERROR" ? "" : text;
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
    const size_t tag = line.find(": ", std::min<size_t>(line.size(), 19)); // behind the time
    std::string message = tag == std::string::npos ? "" : line.substr(tag + 2);
    if (!message.empty() && message[0] == '[' && message.find("]:") != std::string::npos)
        message.erase(0, message.find("]:") + 2);
    const size_t end = message.find_last_not_of(" \t\r");
    return message.substr(0, end + 1);
}

std::string cause_in(const std::string &log)
{
    const size_t last = log.find_last_not_of("\r\n");
    const size_t before = last == std::string::npos ? last : log.rfind('\n', last);
    const std::string process = process_of(log.substr(before == std::string::npos ? 0 : before + 1));
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
    uint16_t code = 0;
    const Command *const shell = find_command(SHELL_OUTPUT, code);
    if (!request.command || !shell)
        return {};
    client.settings().timeout = TIMEOUT;
    client.settings().retries = 0;
    return cause_in(output_of(client, *shell, code,
                              "(echo;logcat -d -v threadtime -t 400|tac)|"
                              "sed '1,/\\[diag_cmd_get_cmd_result]:Enter/d;/\\[" +
                                  std::string(request.command->handler) +
                                  "]:Enter/q'|grep -v ']:Enter'|head -n " + LINES_MAX + "|tac|tail -c " +
                                  std::to_string(CAUSE_MAX)));
}

} // namespace station
