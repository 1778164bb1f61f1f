#include "station/client/encode.h"

#include "station/client/errors.h"

#include <algorithm>
#include <cctype>
#include <ctime>
#include <sstream>

namespace station
{

static constexpr uint8_t SUBSYSTEM_PACKET =
    0x4B; // the command code byte; the service gives it back as it came
static constexpr uint8_t SUBSYSTEM = 250;

static bool has(const Arguments &arguments, const char *key)
{
    const auto found = arguments.find(key);
    return found != arguments.end() && !found->second.empty();
}

static std::string word(const Arguments &arguments, const char *key)
{
    return has(arguments, key) ? arguments.at(key).front() : std::string();
}

// Twelve hexadecimal digits, with or without separators.
static std::string address_digits(const std::string &text)
{
    std::string digits;
    for (char character : text)
        if (character != ':' && character != '-')
            digits += character;
    if (digits.size() != 12 ||
        !std::all_of(digits.begin(), digits.end(), [](unsigned char digit) { return std::isxdigit(digit); }))
        throw UsageError(
            "an address has 12 hexadecimal digits, in pairs joined by ':' or run together, not '" + text +
            "'");
    return digits;
}

static void refuse_plus(const std::string &text)
{
    if (text.find('+') != std::string::npos)
        throw UsageError("'" + text +
                         "' holds a '+', which joins the two texts of this request and cannot be sent");
}

static void put_joined(Bytes &packet, const std::string &first, const std::string &second)
{
    refuse_plus(first);
    refuse_plus(second);
    put_text(packet, first + "+" + second);
}

static Bytes bytes_from(const Arguments &arguments)
{
    const int sources = has(arguments, "--file") + has(arguments, "--hex") + has(arguments, "--text");
    if (sources != 1)
        throw UsageError("the data comes from exactly one of the data options");
    if (has(arguments, "--file"))
        return read_whole_file(word(arguments, "--file"));
    if (has(arguments, "--hex"))
        return from_hex(word(arguments, "--hex"));
    const std::string text = word(arguments, "--text");
    return {text.begin(), text.end()};
}

static std::tm moment(std::string text)
{
    std::tm time{};
    if (text == "now") {
        const std::time_t now = std::time(nullptr);
        localtime_r(&now, &time);
        return time;
    }
    const size_t joint = text.find('T');
    if (joint != std::string::npos)
        text[joint] = ' ';
    const char *end = strptime(text.c_str(), "%Y-%m-%d %H:%M:%S", &time);
    if (!end || *end || time.tm_year < 0)
        throw UsageError("a time is written as 2026-11-21 10:00:05 or now, not '" + text + "'");
    return time;
}

// The service reads a, b and c as a * 65536 + (a mod 16) * 256 + (b div 16) * 4096 + c, with a at most 16.
// Empty when no three bytes say this.
static Bytes packed(long seconds)
{
    for (long a = 0; a <= 16; a++)
        for (long b = 0; b < 16; b++) {
            const long c = seconds - a * 65536 - a % 16 * 256 - b * 4096;
            if (0 <= c && c <= 255)
                return {static_cast<uint8_t>(a), static_cast<uint8_t>(b * 16), static_cast<uint8_t>(c)};
        }
    return {};
}

namespace
{

struct NamedColour {
    const char *name;
    uint8_t red, green, blue;
};

} // namespace

static constexpr NamedColour COLOURS[] = {
    {"black", 0, 0, 0},       {"white", 255, 255, 255}, {"red", 255, 0, 0},
    {"green", 0, 255, 0},     {"blue", 0, 0, 255},      {"yellow", 255, 255, 0},
    {"magenta", 255, 0, 255}, {"cyan", 0, 255, 255},    {"grey", 128, 128, 128},
};

static Bytes colour_bytes(const std::string &text)
{
    for (const NamedColour &colour : COLOURS)
        if (text == colour.name)
            return {colour.red, colour.green, colour.blue};
    if (text.size() == 6 && text.find(',') == std::string::npos)
        return from_hex(text);
    Bytes bytes;
    std::istringstream parts(text);
    for (std::string part; std::getline(parts, part, ',');)
        bytes.push_back(static_cast<uint8_t>(parse_number(part, 0, 255, "a colour's channel")));
    if (bytes.size() != 3)
        throw UsageError("a colour is a name, RRGGBB or RED,GREEN,BLUE, not '" + text + "'");
    return bytes;
}

// Whole numbers from a file: any white space between them, '#' begins a comment.
static std::vector<std::string> numbers_in(const std::string &path)
{
    std::istringstream lines(to_text(read_whole_file(path)));
    std::vector<std::string> numbers;
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line.substr(0, line.find('#')));
        for (std::string number; words >> number;)
            numbers.push_back(number);
    }
    return numbers;
}

Bytes empty_request(uint16_t code)
{
    Bytes packet(DATA_OFFSET);
    packet[0] = SUBSYSTEM_PACKET;
    packet[1] = SUBSYSTEM;
    put_u16(packet, 2, code);
    return packet;
}

unsigned get_u16(const Bytes &packet, size_t offset)
{
    return packet.at(offset) + 256U * packet.at(offset + 1);
}

void put_u16(Bytes &packet, size_t offset, unsigned value)
{
    packet.at(offset) = static_cast<uint8_t>(value);
    packet.at(offset + 1) = static_cast<uint8_t>(value >> 8);
}

void put_data(Bytes &packet, const Bytes &data)
{
    if (data.size() > DATA_MAX)
        throw UsageError("more data than a packet holds");
    packet.insert(packet.end(), data.begin(), data.end());
    put_u16(packet, LENGTH_OFFSET, static_cast<unsigned>(data.size()));
}

void put_text(Bytes &packet, const std::string &text)
{
    put_data(packet, {text.begin(), text.end()});
    packet.push_back(0);
}

Encoder text_of(const char *key)
{
    return [key](const Arguments &arguments, Bytes &packet) { put_text(packet, word(arguments, key)); };
}

Encoder joined(const char *first, const char *second)
{
    return [=](const Arguments &arguments, Bytes &packet) {
        put_joined(packet, word(arguments, first), word(arguments, second));
    };
}

Encoder joined_to_compare(const char *first, const char *second)
{
    return [=](const Arguments &arguments, Bytes &packet) {
        if (has(arguments, second)) {
            packet[SELECTOR_OFFSET] = 1;
            put_joined(packet, word(arguments, first), word(arguments, second));
        } else {
            refuse_plus(word(arguments, first));
            put_text(packet, word(arguments, first));
        }
    };
}

Encoder bytes_from_options()
{
    return [](const Arguments &arguments, Bytes &packet) { put_data(packet, bytes_from(arguments)); };
}

Encoder wlan_mac()
{
    return [](const Arguments &arguments, Bytes &packet) {
        put_text(packet, address_digits(word(arguments, "MAC")));
    };
}

Encoder bluetooth_mac()
{
    return [](const Arguments &arguments, Bytes &packet) {
        put_text(packet, address_digits(word(arguments, "ADDRESS")));
    };
}

Encoder clock_time()
{
    return [](const Arguments &arguments, Bytes &packet) {
        const std::string clock = word(arguments, "CLOCK");
        const std::tm time = moment(word(arguments, "DATE") + (clock.empty() ? "" : " " + clock));
        const int seconds = std::min(time.tm_sec, 59);
        const long limit = has(arguments, "--limit")
                               ? parse_number(word(arguments, "--limit"), 0, 255, "--limit")
                               : std::min(seconds + 5, 59);
        const int year = time.tm_year + 1900;
        put_data(packet, {
                             static_cast<uint8_t>(time.tm_mon + 1),
                             static_cast<uint8_t>(time.tm_mday),
                             static_cast<uint8_t>(time.tm_hour),
                             static_cast<uint8_t>(time.tm_min),
                             static_cast<uint8_t>(year >> 8), // the one big-endian field of all commands
                             static_cast<uint8_t>(year),
                             '.',
                             static_cast<uint8_t>(seconds),
                             0,
                             static_cast<uint8_t>(limit),
                         });
    };
}

Encoder screen_timeout()
{
    return [](const Arguments &arguments, Bytes &packet) {
        constexpr long most = 16 * 65536 + 15 * 4096 + 255;
        const long seconds = parse_number(word(arguments, "SECONDS"), 0, most, "SECONDS");
        const Bytes data = packed(seconds);
        if (data.empty()) {
            long below = seconds, above = seconds;
            while (packed(below).empty())
                below--;
            while (packed(above).empty())
                above++;
            throw UsageError("the request's three bytes cannot say " + std::to_string(seconds) +
                             " s; the nearest they can are " + std::to_string(below) + " s and " +
                             std::to_string(above) + " s");
        }
        put_data(packet, data);
    };
}

Encoder picture_colour()
{
    return [](const Arguments &arguments, Bytes &packet) {
        Bytes data = colour_bytes(word(arguments, "COLOUR"));
        if (has(arguments, "--margin"))
            data.push_back(
                static_cast<uint8_t>(parse_number(word(arguments, "--margin"), 0, 255, "--margin")));
        put_data(packet, data);
    };
}

Encoder curve_records(unsigned count)
{
    return [count](const Arguments &arguments, Bytes &packet) {
        std::vector<std::string> numbers;
        if (has(arguments, "NUMBER"))
            numbers = arguments.at("NUMBER");
        if (has(arguments, "--file") != numbers.empty())
            throw UsageError("the curves come either as numbers or from --file");
        if (numbers.empty())
            numbers = numbers_in(word(arguments, "--file"));
        // One curve alone serves every record.
        if (numbers.size() == 4)
            for (unsigned i = 4; i < 4 * count; i++)
                numbers.push_back(numbers[i % 4]);
        if (numbers.size() != size_t{4} * count)
            throw UsageError("a table takes " + std::to_string(count) +
                             " curves of four numbers A B K D, or one for all; " +
                             std::to_string(numbers.size()) + " numbers came");
        Bytes data;
        for (const std::string &number : numbers) {
            const auto value =
                static_cast<uint32_t>(parse_number(number, INT32_MIN, INT32_MAX, "a curve's coefficient"));
            for (int shift = 0; shift < 32; shift += 8)
                data.push_back(static_cast<uint8_t>(value >> shift));
        }
        put_data(packet, data);
    };
}

Encoder hdcp_keys()
{
    return [](const Arguments &arguments, Bytes &packet) {
        const Bytes cek = read_whole_file(word(arguments, "--cek"));
        const Bytes pm = read_whole_file(word(arguments, "--pm"));
        Bytes data(2);
        data.insert(data.end(), cek.begin(), cek.end());
        data.insert(data.end(), pm.begin(), pm.end());
        put_data(packet, data);
        put_u16(packet, LENGTH_OFFSET, static_cast<unsigned>(cek.size()));
        put_u16(packet, DATA_OFFSET, static_cast<unsigned>(pm.size()));
    };
}

} // namespace station
