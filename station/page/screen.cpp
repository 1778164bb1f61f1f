#include "station/page/screen.h"

#include "phone/shell_wire.h"
#include "station/records/text.h"
#include "station/text/json.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

namespace station::page
{

using std::chrono::milliseconds;

static constexpr auto PATIENCE = milliseconds(1000);
static constexpr auto PAUSE = milliseconds(500); // between two looks at a phone
static constexpr auto PAUSE_AFTER_NONE = milliseconds(5000);
static constexpr auto BREATH = milliseconds(60); // between looks at all: a look costs a phone's process
static constexpr auto FIRST = milliseconds(400); // that the first one is waited for
static constexpr auto FORGET = std::chrono::seconds(3); // what nobody has asked for
static constexpr size_t PRINTED_MAX = 400, SEEN_MAX = 256;

// The shell's own words and no program: a process for each look. FIELD|FIELD|...
static constexpr char LOOK[] =
    "f() { typeset w=; [[ -f $1 ]] && read -r w <$1; print -rn -- \"$w|\"; }\n"
    "cd /sys/class/backlight/panel0-backlight\n"
    "f /dev/state/display; f /dev/state/refresh_rate; f brightness; f max_brightness; f /dev/state/picture\n"
    "f /sys/rgb/name; f /sys/rgb/mcu_control; f /sys/bus/i2c/devices/1-002c/mmi_cali; f /sys/rgb_led1/mmi\n";

namespace
{

struct Descriptor {
    explicit Descriptor(int number) : fd(number) {}
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    ~Descriptor()
    {
        if (fd >= 0)
            close(fd);
    }
    int fd;
};

} // namespace

// The phone's folder, when its port is the "port" of one.
static int open_folder(const std::string &port)
{
    static constexpr char NAME[] = "/port";
    if (port.size() < sizeof NAME || port.compare(port.size() - 5, 5, NAME) != 0)
        return -1;
    const int folder =
        open(port.substr(0, port.size() - 5).c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    struct stat status = {};
    const bool is_own = folder >= 0 && fstat(folder, &status) == 0 && status.st_uid == geteuid() &&
                        (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
    if (folder >= 0 && !is_own)
        close(folder);
    return is_own ? folder : -1;
}

static bool has_shell(int folder)
{
    struct stat status = {};
    return folder >= 0 && fstatat(folder, "shell", &status, AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISSOCK(status.st_mode) && status.st_uid == geteuid();
}

bool has_screen(const std::string &port)
{
    const Descriptor folder(open_folder(port));
    return has_shell(folder.fd);
}

// What the look has printed; nothing when the phone has no shell or takes too long.
static std::string ask_shell(const std::string &port, milliseconds patience)
{
    const Descriptor folder(open_folder(port));
    if (!has_shell(folder.fd))
        return {};
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path, "/proc/self/fd/%d/shell", folder.fd);
    const Descriptor phone(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (phone.fd < 0 || connect(phone.fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        return {};
    const std::string open = std::string(5, '\0') + "dumb" + '\0' + LOOK;
    const std::string asked =
        shell_wire::encode(shell_wire::OPEN, open) + shell_wire::encode(shell_wire::INPUT, "");
    if (send(phone.fd, asked.data(), asked.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(asked.size()))
        return {};
    std::string received, printed;
    for (const auto end = std::chrono::steady_clock::now() + patience;;) {
        const auto left =
            std::chrono::duration_cast<milliseconds>(end - std::chrono::steady_clock::now()).count();
        pollfd answer = {phone.fd, POLLIN, 0};
        if (left <= 0 || poll(&answer, 1, static_cast<int>(left)) <= 0)
            return {};
        char some[1024];
        const ssize_t count = recv(phone.fd, some, sizeof some, 0);
        if (count <= 0)
            return {};
        received.append(some, static_cast<size_t>(count));
        for (shell_wire::Frame frame; shell_wire::take(received, frame);) {
            if (frame.kind == shell_wire::EXIT)
                return printed;
            if (frame.kind == shell_wire::OUTPUT)
                printed += frame.bytes;
        }
        if (printed.size() > PRINTED_MAX || received.size() > PRINTED_MAX)
            return {};
    }
}

static bool is_made_of(const std::string &text, const char *characters)
{
    return !text.empty() && text.find_first_not_of(characters) == std::string::npos;
}

static Json number(const std::string &text)
{
    return is_made_of(text, "0123456789") && text.size() <= 5 ? Json(std::stoi(text)) : Json();
}

// "FF0000 10"
static Json picture(const std::string &text)
{
    if (text.size() < 8 || text.size() > 10 || text[6] != ' ' ||
        !is_made_of(text.substr(0, 6), "0123456789ABCDEF") || !is_made_of(text.substr(7), "0123456789"))
        return nullptr;
    return {{"color", text.substr(0, 6)}, {"margin", std::min(std::stoi(text.substr(7)), 100)}};
}

// What a light's driver was told last. The newer chip: two digits of a colour and two of a brightness, the
// first of which may be a blank; the older one: "00", the colour, the brightness, a current, or the channel.
static Json lamp(const std::string &chip, const std::string &newer, const std::string &older,
                 const std::string &lit_switch)
{
    const bool is_old = chip == "aw9120_led";
    std::string told = is_old ? older : newer;
    std::replace(told.begin(), told.end(), ' ', '0');
    const bool is_off = told == "0000" || told.empty();
    if ((!is_off && told.size() != (is_old ? 8U : 4U)) ||
        (!is_off && !is_made_of(told, "0123456789ABCDEFabcdef")))
        return nullptr;
    std::string color;
    int brightness = 0;
    if (!is_off) {
        static constexpr const char *NEW[] = {"green", "red", "blue"};
        const auto hex = [&](size_t at) { return std::stoi(told.substr(at, 2), nullptr, 16); };
        const int selector = is_old ? hex(2) : hex(0);
        brightness = is_old ? hex(4) : hex(2);
        if (!is_old)
            color = selector < 3 ? NEW[selector] : "";
        else if (selector >= 0x40) // a channel of five a colour
            color = (selector & 15) < 5 ? "red" : (selector & 15) < 10 ? "green" : "blue";
        else
            color = selector == 0x10 ? "red" : selector == 0x20 ? "green" : selector == 0x30 ? "blue" : "";
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
    if (seen_.size() >= SEEN_MAX && seen_.count(port) == 0)
        return screen_json("");
    seen_[port].wanted = Clock::now();
    changed_.notify_all();
    changed_.wait_for(lock, FIRST, [&] { return ends_ || !seen_[port].json.empty(); });
    return seen_[port].json.empty() ? screen_json("") : seen_[port].json;
}

void Screens::look()
{
    for (std::unique_lock<std::mutex> lock(mutex_); !ends_;) {
        const auto now = Clock::now();
        std::string port;
        auto oldest = Clock::time_point::max();
        for (auto each = seen_.begin(); each != seen_.end();) {
            if (now - each->second.wanted > FORGET) {
                each = seen_.erase(each);
                continue;
            }
            if (each->second.next <= now && each->second.next < oldest) {
                oldest = each->second.next;
                port = each->first;
            }
            ++each;
        }
        if (port.empty()) {
            changed_.wait_for(lock, seen_.empty() ? FORGET : BREATH);
            continue;
        }
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
