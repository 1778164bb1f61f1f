#include "station/page/screen.h"

#include "phone/shell_wire.h"
#include "platform/owned/descriptor.h"
#include "station/records/text.h"
#include "station/text/json.h"

#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <regex>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

namespace station::page
{

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

static constexpr auto PATIENCE = milliseconds(1000);
static constexpr auto PAUSE = milliseconds(500); // between two looks at a phone
static constexpr auto PAUSE_AFTER_NONE = milliseconds(5000);
static constexpr auto BREATH = milliseconds(60); // between looks at all: a look costs a phone's process
static constexpr auto FIRST = milliseconds(400); // that the first one is waited for
static constexpr auto FORGET = std::chrono::seconds(3); // what nobody has asked for
static constexpr size_t PRINTED_MAX = 400;

// The shell's own words and no program: a process for each look. FIELD|FIELD|...
static constexpr char LOOK[] =
    "f() { typeset w=; [[ -f $1 ]] && read -r w <$1; print -rn -- \"$w|\"; }\n"
    "cd /sys/class/backlight/panel0-backlight\n"
    "f /dev/state/display; f /dev/state/refresh_rate; f brightness; f max_brightness; f /dev/state/picture\n"
    "f /sys/rgb/name; f /sys/rgb/mcu_control; f /sys/bus/i2c/devices/1-002c/mmi_cali; f /sys/rgb_led1/mmi\n";

// The phone's folder, when its port is the "port" of one.
static owned::descriptor open_folder(const std::filesystem::path &port)
{
    if (port.filename() != "port")
        return {};
    owned::descriptor folder(
        open(port.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat status = {};
    const bool is_own = fstat(folder.get(), &status) == 0 && status.st_uid == geteuid() &&
                        (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
    return is_own ? std::move(folder) : owned::descriptor();
}

static bool has_shell(const owned::descriptor &folder)
{
    struct stat status = {};
    return folder && fstatat(folder.get(), "shell", &status, AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISSOCK(status.st_mode) && status.st_uid == geteuid();
}

bool has_screen(const std::string &port) { return has_shell(open_folder(port)); }

// What the look has printed; nothing when the phone has no shell or takes too long.
static std::string ask_shell(const std::string &port, milliseconds patience)
{
    const owned::descriptor folder = open_folder(port);
    if (!has_shell(folder))
        return {};
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path, "/proc/self/fd/%d/shell", folder.get());
    const owned::descriptor phone(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (connect(phone.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        return {};
    const std::string open = std::string(5, '\0') + "dumb" + '\0' + LOOK;
    const std::string asked =
        shell_wire::encode(shell_wire::OPEN, open) + shell_wire::encode(shell_wire::INPUT, "");
    if (send(phone.get(), asked.data(), asked.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(asked.size()))
        return {};
    std::string received, printed;
    for (const auto end = Clock::now() + patience; Clock::now() < end;) {
        pollfd answer = {};
        answer.fd = phone.get();
        answer.events = POLLIN;
        const auto left = std::chrono::ceil<milliseconds>(end - Clock::now());
        poll(&answer, 1, static_cast<int>(left.count()));
        char some[PRINTED_MAX];
        const ssize_t count = read(phone.get(), some, sizeof some);
        if (count <= 0)
            return {};
        received.append(some, static_cast<size_t>(count));
        for (shell_wire::Frame frame; shell_wire::take(received, frame);) {
            if (frame.kind == shell_wire::OUTPUT)
                printed += frame.bytes;
            if (printed.size() > PRINTED_MAX)
                return {};
            if (frame.kind == shell_wire::EXIT)
                return printed;
        }
    }
    return {};
}

static Json number(const std::string &text)
{
    static const std::regex DIGITS("[0-9]{1,5}");
    return std::regex_match(text, DIGITS) ? Json(std::stoi(text)) : Json();
}

static Json picture(const std::string &text)
{
    static const std::regex COLOR_AND_MARGIN("([0-9A-F]{6}) ([0-9]{1,3})");
    std::smatch parts;
    if (!std::regex_match(text, parts, COLOR_AND_MARGIN))
        return nullptr;
    return {{"color", parts.str(1)}, {"margin", std::min(std::stoi(parts.str(2)), 100)}};
}

static const char *color_of_newer(int selector)
{
    static constexpr const char *COLORS[] = {"green", "red", "blue"};
    return selector < static_cast<int>(std::size(COLORS)) ? COLORS[selector] : "";
}

// Of all lamps, or of one of its channels, of which five have a colour.
static const char *color_of_older(int selector)
{
    switch (selector) {
    case 0x10:
        return "red";
    case 0x20:
        return "green";
    case 0x30:
        return "blue";
    default:
        const int channel = selector - 0x40;
        return channel < 0 ? "" : channel % 16 < 5 ? "red" : channel % 16 < 10 ? "green" : "blue";
    }
}

// What a light's driver was told last. The newer chip: two digits of a colour and two of a brightness, the
// first of which may be a blank; the older one: "00", the colour, the brightness, a current, or the channel.
static Json lamp(const std::string &chip, const std::string &newer, const std::string &older,
                 const std::string &lit_switch)
{
    static const std::regex NEWER("([[:xdigit:]]{2})([[:xdigit:]]{2})");
    static const std::regex OLDER("[[:xdigit:]]{2}([[:xdigit:]]{2})([[:xdigit:]]{2})[[:xdigit:]]{2}");
    const bool is_old = chip == "aw9120_led";
    std::string told = is_old ? older : newer;
    std::replace(told.begin(), told.end(), ' ', '0');
    std::string color;
    int brightness = 0;
    if (!told.empty() && told != "0000") {
        std::smatch parts;
        if (!std::regex_match(told, parts, is_old ? OLDER : NEWER))
            return nullptr;
        const int selector = std::stoi(parts.str(1), nullptr, 16);
        brightness = std::stoi(parts.str(2), nullptr, 16);
        color = is_old ? color_of_older(selector) : color_of_newer(selector);
    }
    const bool is_lit = brightness > 0 && !color.empty();
    Json shown{{"on", is_lit}, {"color", is_lit ? Json(color) : Json()}, {"brightness", brightness}};
    if (lit_switch == "0" || lit_switch == "1")
        shown["switch"] = lit_switch == "1";
    return shown;
}

std::string screen_json(const std::string &printed)
{
    std::vector<std::string> fields;
    for (size_t at = 0, end; (end = printed.find('|', at)) != std::string::npos; at = end + 1)
        fields.push_back(printed.substr(at, end - at));
    Json json{{"time", records::time_text(records::now())},
              {"screen", nullptr},
              {"lamp", nullptr},
              {"picture", nullptr}};
    if (fields.size() == 9) {
        json["screen"] = {{"on", fields[0] != "OFF"},
                          {"refresh_rate", number(fields[1])},
                          {"brightness", number(fields[2])},
                          {"max_brightness", number(fields[3])}};
        json["picture"] = picture(fields[4]);
        json["lamp"] = lamp(fields[5], fields[6], fields[7], fields[8]);
    }
    return json.dump();
}

Screens::Screens() : thread_([this] { look(); }) {}

Screens::~Screens()
{
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        ends_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

std::string Screens::of(const std::string &port)
{
    std::unique_lock<std::mutex> lock(mutex_);
    seen_[port].wanted = Clock::now();
    changed_.notify_all();
    changed_.wait_for(lock, FIRST, [&] { return !seen_[port].json.empty(); });
    return seen_[port].json.empty() ? screen_json("") : seen_[port].json;
}

void Screens::look()
{
    for (std::unique_lock<std::mutex> lock(mutex_); !ends_;) {
        const auto now = Clock::now();
        for (auto each = seen_.begin(); each != seen_.end();)
            each = now - each->second.wanted > FORGET ? seen_.erase(each) : std::next(each);
        const auto due = std::min_element(seen_.begin(), seen_.end(), [](const auto &a, const auto &b) {
            return a.second.next < b.second.next;
        });
        if (due == seen_.end() || due->second.next > now) {
            changed_.wait_for(lock, seen_.empty() ? FORGET : BREATH);
            continue;
        }
        const std::string port = due->first;
        lock.unlock();
        const std::string printed = ask_shell(port, PATIENCE);
        const std::string json = screen_json(printed);
        lock.lock();
        Seen &seen = seen_[port];
        seen.json = json;
        seen.next = Clock::now() + (printed.empty() ? PAUSE_AFTER_NONE : PAUSE);
        changed_.notify_all();
        changed_.wait_for(lock, BREATH, [this] { return ends_; });
    }
}

} // namespace station::page
