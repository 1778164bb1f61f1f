// `station devices`: the ports that answer.
#include "station/catalogue/answer.h"
#include "station/catalogue/command_line.h"
#include "station/client/errors.h"
#include "station/program/line.h"
#include "station/program/output.h"

#include <algorithm>
#include <cstdio>
#include <glob.h>
#include <libserialport.h>
#include <map>
#include <memory>
#include <thread>

namespace station
{

static constexpr char VIRTUAL_PHONES[] = "build/phone/*/port";
static constexpr int TIMEOUT_SECONDS = 1;

namespace
{

struct Device {
    std::string port, serial, build, state;
    std::string kind; // what the USB device calls itself
    bool answers = false;
};

class Matches
{
  public:
    explicit Matches(const std::string &pattern) { glob(pattern.c_str(), GLOB_NOSORT, nullptr, &found_); }
    ~Matches() { globfree(&found_); }
    Matches(const Matches &) = delete;
    Matches &operator=(const Matches &) = delete;
    char **begin() const { return found_.gl_pathv; }
    char **end() const { return found_.gl_pathv + found_.gl_pathc; }

  private:
    glob_t found_ = {};
};

} // namespace

static void add_matches(const std::string &pattern, std::map<std::string, Device> &devices)
{
    for (const char *path : Matches(pattern))
        devices[path].port = path;
}

static std::string words_of(const char *text) { return text ? text : ""; }

static bool has_word(std::string text, const char *word)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char character) { return static_cast<char>(std::tolower(character)); });
    return text.find(word) != std::string::npos;
}

// A byte sent to a line may move a machine: only those are asked whose USB interface calls itself a phone's
// diagnostics. Others have to be named.
static void add_serial_lines(std::map<std::string, Device> &devices)
{
    sp_port **listed = nullptr;
    if (sp_list_ports(&listed) != SP_OK)
        return;
    const std::unique_ptr<sp_port *, void (*)(sp_port **)> ports(listed, sp_free_port_list);
    for (sp_port **port = listed; *port; port++) {
        const std::string called =
            words_of(sp_get_port_description(*port)) + " " + words_of(sp_get_port_usb_product(*port));
        const std::string path = words_of(sp_get_port_name(*port));
        const bool is_phone = sp_get_port_transport(*port) == SP_TRANSPORT_USB && has_word(called, "diag");
        if (is_phone || devices.count(path)) {
            devices[path].port = path;
            devices[path].kind = called;
        }
    }
}

static std::string answer_to(Client &client, const std::vector<std::string> &words)
{
    Settings unused;
    const Request request = parse_request(words, unused);
    const Exchange exchange = client.ask(request);
    const Result result = judge(request, exchange);
    return result.verdict == SUCCESS ? answer_line(exchange, result) : "";
}

static void ask(Device &device, double timeout)
{
    Client::Settings settings;
    settings.port = device.port;
    settings.timeout = timeout;
    try {
        Client client(settings);
        const Exchange exchange = client.ask(port_check());
        if (exchange.outcome == Outcome::silence)
            return;
        if (exchange.outcome == Outcome::refused) {
            device.state = "not serving yet";
        } else {
            device.serial = answer_to(client, {"usb-serial"});
            device.build = answer_to(client, {"ap-version"});
            device.state = answer_to(client, {"get-prop", "init.svc.diag_service"});
            if (device.state.empty())
                device.state = "serves";
        }
        device.answers = true;
    } catch (const std::exception &) {
        return; // nothing that could be a port
    }
}

static void print_json(const std::vector<Device> &devices)
{
    Json all = Json::array();
    for (const Device &device : devices) {
        Json entry{{"port", device.port},
                   {"serial", device.serial},
                   {"build", device.build},
                   {"service", device.state}};
        if (!device.kind.empty())
            entry["usb"] = device.kind;
        all.push_back(std::move(entry));
    }
    std::puts(all.dump(JSON_INDENT).c_str());
}

static void print_table(std::vector<Device> rows)
{
    rows.insert(rows.begin(), {"port", "serial", "build", "service", {}, {}});
    size_t width = 0;
    for (const Device &row : rows)
        width = std::max(width, row.port.size());
    for (const Device &row : rows)
        std::printf("%-*s  %-16s  %-24s  %s\n", static_cast<int>(width), escaped(row.port).c_str(),
                    escaped(row.serial).c_str(), escaped(row.build).c_str(), escaped(row.state).c_str());
}

int serve_devices(const std::vector<std::string> &words, Settings &settings)
{
    CommandLine line(
        "devices",
        "Lists the ports that answer: virtual phones, serial lines of phones on USB, and those that are "
        "named.");
    std::string pattern;
    double timeout = TIMEOUT_SECONDS;
    line.takes("--ports GLOB", pattern, "also the ports that match");
    line.takes("--timeout SECONDS", timeout,
               "seconds to wait for an answer; " + std::to_string(TIMEOUT_SECONDS) + " otherwise");
    line.takes("--json", settings.json, "print JSON");
    line.parse(words);
    std::map<std::string, Device> found;
    add_matches(VIRTUAL_PHONES, found);
    add_matches(pattern, found);
    add_serial_lines(found);
    std::vector<std::thread> asking;
    for (auto &[path, device] : found)
        asking.emplace_back(ask, std::ref(device), timeout);
    for (std::thread &thread : asking)
        thread.join();

    std::vector<Device> answering;
    for (const auto &[path, device] : found)
        if (device.answers)
            answering.push_back(device);
    if (settings.json)
        print_json(answering);
    else if (!answering.empty())
        print_table(answering);
    else
        std::fputs("station: no port answers\n", stderr);
    return answering.empty() ? NO_ANSWER : SUCCESS;
}

} // namespace station
