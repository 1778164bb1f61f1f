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
#include <thread>

namespace station
{

static constexpr char VIRTUAL_PHONES[] = "build/phone/*/port";
static constexpr double TIMEOUT = 1;

namespace
{

struct Device {
    std::string port;
    std::string kind; // "socket" or what the USB device calls itself
    std::string serial, build, state;
    bool answers = false;
};

} // namespace

static void add_matches(const std::string &pattern, std::map<std::string, Device> &devices)
{
    glob_t found = {};
    if (glob(pattern.c_str(), 0, nullptr, &found) == 0)
        for (size_t i = 0; i < found.gl_pathc; i++)
            devices[found.gl_pathv[i]].port = found.gl_pathv[i];
    globfree(&found);
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
    sp_port **ports = nullptr;
    if (sp_list_ports(&ports) != SP_OK)
        return;
    for (size_t i = 0; ports[i]; i++) {
        const std::string called =
            words_of(sp_get_port_description(ports[i])) + " " + words_of(sp_get_port_usb_product(ports[i]));
        const std::string path = words_of(sp_get_port_name(ports[i]));
        const bool is_phone = sp_get_port_transport(ports[i]) == SP_TRANSPORT_USB && has_word(called, "diag");
        const auto known = devices.find(path);
        if (is_phone || known != devices.end()) {
            devices[path].port = path;
            devices[path].kind = called;
        }
    }
    sp_free_port_list(ports);
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
        device.answers = exchange.outcome != Outcome::silence;
        if (exchange.outcome != Outcome::answer) {
            device.state = exchange.outcome == Outcome::refused ? "not serving yet" : "";
            return;
        }
        device.serial = answer_to(client, {"usb-serial"});
        device.build = answer_to(client, {"ap-version"});
        device.state = answer_to(client, {"get-prop", "init.svc.diag_service"});
        if (device.state.empty())
            device.state = "serves";
    } catch (const std::exception &) { // nothing that could be a port
        device.answers = false;
    }
}

int serve_devices(const std::vector<std::string> &words, Settings &settings)
{
    CommandLine line(
        "devices",
        "Lists the ports that answer: virtual phones, serial lines of phones on USB, and those that are "
        "named.");
    std::string pattern;
    double timeout = TIMEOUT;
    line.takes("--ports GLOB", pattern, "also the ports that match");
    line.takes("--timeout SECONDS", timeout, "seconds to wait for an answer; 1 otherwise");
    line.takes("--json", settings.json, "print JSON");
    line.parse(words);
    std::map<std::string, Device> found;
    add_matches(VIRTUAL_PHONES, found);
    if (!pattern.empty())
        add_matches(pattern, found);
    add_serial_lines(found);
    std::vector<std::thread> asking;
    for (auto &[path, device] : found)
        asking.emplace_back(ask, std::ref(device), timeout);
    for (std::thread &thread : asking)
        thread.join();

    Json all = Json::array();
    size_t count = 0;
    size_t width = 4;
    for (const auto &[path, device] : found)
        width = std::max(width, device.answers ? path.size() : 0);
    for (const auto &[path, device] : found) {
        if (!device.answers)
            continue;
        if (count++ == 0 && !settings.json)
            std::printf("%-*s  %-16s  %-24s  %s\n", static_cast<int>(width), "port", "serial", "build",
                        "service");
        Json entry{
            {"port", path}, {"serial", device.serial}, {"build", device.build}, {"service", device.state}};
        if (!device.kind.empty())
            entry["usb"] = device.kind;
        all.push_back(std::move(entry));
        if (!settings.json)
            std::printf("%-*s  %-16s  %-24s  %s\n", static_cast<int>(width), escaped(path, false).c_str(),
                        escaped(device.serial, false).c_str(), escaped(device.build, false).c_str(),
                        escaped(device.state, false).c_str());
    }
    if (settings.json)
        std::puts(all.dump(JSON_INDENT).c_str());
    else if (count == 0)
        std::fputs("station: no port answers\n", stderr);
    return count == 0 ? NO_ANSWER : SUCCESS;
}

} // namespace station
