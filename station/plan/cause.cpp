#include "station/plan/cause.h"

#include "station/catalogue/answer.h"
#include "station/client/encode.h"

#include <sstream>

namespace station
{

static constexpr char SHELL_OUTPUT[] = "shell-output";
static constexpr double TIMEOUT = 2;
static constexpr size_t PIECE = 700; // of an answer's 768 bytes
static constexpr int PIECES = 3;
static constexpr size_t CAUSE_MAX = 600;
static constexpr size_t LINES_MAX = 8;

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

std::string cause_in(const std::string &log, const std::string &handler)
{
    std::istringstream lines(log);
    std::string line, cause;
    if (!std::getline(lines, line) || line.find("[" + handler + "]:Enter") == std::string::npos)
        return {};
    const std::string process = process_of(line);
    for (size_t count = 0; std::getline(lines, line) && count < LINES_MAX;) {
        if (lines.eof() && log.size() >= PIECE * PIECES) // cut in its middle
            break;
        if (process_of(line) != process)
            continue;
        if (line.find("]:Enter") != std::string::npos &&
            line.find("[diag_cmd_get_cmd_result]") != std::string::npos)
            break; // the fetch's own
        const std::string message = escaped(message_of(line), false);
        if (message.empty() || cause.size() + message.size() > CAUSE_MAX)
            continue;
        cause += (cause.empty() ? "" : " / ") + message;
        count++;
    }
    return cause;
}

// Requests are served one behind the other: what lies in the log between the handler's entry and the fetch's
// own is the request's. The fetches are logged, too, so the later ones find the entry by its whole line.
std::string fetch_cause(Client &client, const Request &request)
{
    uint16_t code = 0;
    const Command *const shell = find_command(SHELL_OUTPUT, code);
    if (!request.command || !shell)
        return {};
    client.settings().timeout = TIMEOUT;
    client.settings().retries = 0;
    const std::string handler = request.command->handler;
    const std::string piece = "head -c " + std::to_string(PIECE);
    std::string log = output_of(
        client, *shell, code,
        "(echo;logcat -d -v threadtime -t 400|tac)|sed '1,/\\[diag_cmd_get_cmd_result]:Enter/d;/\\[" +
            handler + "]:Enter/q'|tac|" + piece);
    const std::string entry = log.substr(0, log.find('\n'));
    if (entry.find('\'') != std::string::npos || entry.size() > 200)
        return {};
    for (int i = 1; i < PIECES && log.size() == PIECE * static_cast<size_t>(i); i++)
        log += output_of(client, *shell, code,
                         "logcat -d -v threadtime -t 800|grep -Fx -A 60 '" + entry + "'|tail -c +" +
                             std::to_string(log.size() + 1) + "|" + piece);
    return cause_in(log, handler);
}

} // namespace station
