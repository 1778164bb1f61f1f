#include "station/records/text.h"

#include "station/text/text.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <ctime>
#include <mutex>
#include <random>

namespace station::records
{

using std::chrono::milliseconds;

const char *word(Verdict verdict)
{
    switch (verdict) {
    case Verdict::pass:
        return "pass";
    case Verdict::fail:
        return "fail";
    case Verdict::aborted:
        return "aborted";
    default:
        return "error";
    }
}

std::optional<Verdict> verdict_of(const std::string &word_of_it)
{
    for (Verdict verdict : {Verdict::pass, Verdict::fail, Verdict::aborted, Verdict::error})
        if (word_of_it == word(verdict))
            return verdict;
    return {};
}

std::string clean(std::string_view text)
{
    std::string cleaned;
    cleaned.reserve(text.size());
    for (size_t at = 0; at < text.size();) {
        uint32_t character = 0;
        const size_t length = utf8_character(text, at, character);
        if (length > 0 && character != 0)
            cleaned += text.substr(at, length);
        else
            append_escaped(cleaned, text.substr(at, 1));
        at += std::max<size_t>(length, 1);
    }
    return cleaned;
}

bool is_decimal(std::string_view text)
{
    if (!text.empty() && text[0] == '-')
        text.remove_prefix(1);
    const auto is_digit = [](char character) { return character >= '0' && character <= '9'; };
    return !text.empty() && is_digit(text.front()) && is_digit(text.back()) &&
           std::count(text.begin(), text.end(), '.') <= 1 &&
           std::all_of(text.begin(), text.end(),
                       [&](char character) { return is_digit(character) || character == '.'; });
}

std::string from_hex(std::string_view digits)
{
    std::string bytes;
    const auto value = [](char digit) { return digit <= '9' ? digit - '0' : (digit | 0x20) - 'a' + 10; };
    for (size_t i = 0; i + 1 < digits.size(); i += 2)
        bytes += static_cast<char>(value(digits[i]) << 4 | value(digits[i + 1]));
    return bytes;
}

Time now() { return std::chrono::floor<milliseconds>(std::chrono::system_clock::now()); }

std::string time_text(Time time)
{
    const auto seconds = std::chrono::floor<std::chrono::seconds>(time);
    const std::time_t since_1970 = seconds.time_since_epoch().count();
    std::tm parts{};
    gmtime_r(&since_1970, &parts);
    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", parts.tm_year + 1900,
                  parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec,
                  static_cast<int>((time - seconds).count()));
    return text;
}

static std::optional<Time> parse_date(const std::string &text)
{
    std::tm parts{};
    int length = 0, minutes_east = 0, fraction = 0;
    const char *at = text.c_str();
    if (std::sscanf(at, "%4d-%2d-%2d%n", &parts.tm_year, &parts.tm_mon, &parts.tm_mday, &length) != 3 ||
        length != 10)
        return {};
    at += length;
    if (*at == 'T' || *at == ' ') {
        if (std::sscanf(at + 1, "%2d:%2d%n", &parts.tm_hour, &parts.tm_min, &length) != 2 || length != 5)
            return {};
        at += 1 + length;
        if (*at == ':') {
            if (std::sscanf(at + 1, "%2d%n", &parts.tm_sec, &length) != 1 || length != 2)
                return {};
            at += 1 + length;
        }
        if (*at == '.')
            for (int weight = 100; std::isdigit(static_cast<unsigned char>(*++at)); weight /= 10)
                fraction += weight * (*at - '0');
        int hours = 0, minutes = 0;
        if (*at == 'Z')
            at++;
        else if ((*at == '+' || *at == '-') &&
                 std::sscanf(at + 1, "%2d:%2d%n", &hours, &minutes, &length) == 2 && length == 5) {
            minutes_east = (*at == '-' ? -1 : 1) * (60 * hours + minutes);
            at += 1 + length;
        }
    }
    parts.tm_year -= 1900;
    parts.tm_mon -= 1;
    const std::tm given = parts;
    const std::time_t seconds = timegm(&parts);
    // There is no 31 of November: it would be the first of the next month.
    if (*at || given.tm_mday != parts.tm_mday || given.tm_mon != parts.tm_mon ||
        given.tm_hour != parts.tm_hour || given.tm_min != parts.tm_min)
        return {};
    return Time(std::chrono::seconds(seconds) - std::chrono::minutes(minutes_east) + milliseconds(fraction));
}

Time time_of(const std::string &text) { return parse_date(text).value_or(Time{}); }

std::optional<Time> parse_time(const std::string &text, Time from)
{
    static constexpr std::pair<char, long> SECONDS[] = {
        {'s', 1}, {'m', 60}, {'h', 3600}, {'d', 86400}, {'w', 604800}};
    const bool is_span = text.size() >= 2 && text.size() <= 8 &&
                         std::all_of(text.begin(), text.end() - 1,
                                     [](unsigned char character) { return std::isdigit(character); });
    if (!is_span)
        return parse_date(text);
    for (const auto &[letter, seconds] : SECONDS)
        if (text.back() == letter)
            return from - std::chrono::seconds(seconds * std::stol(text));
    return {};
}

namespace
{

// The bits of an id behind its milliseconds: 12 in front of the variant, 62 behind it.
struct Tail {
    uint64_t high = 0, low = 0;
};

class Ids
{
  public:
    // Puts the time forward where the ids are ahead of it.
    std::string next(uint64_t &time)
    {
        static constexpr uint64_t BACK_MILLISECONDS = 10'000;
        const std::lock_guard<std::mutex> lock(mutex_);
        if (time > time_ || time + BACK_MILLISECONDS < time_) {
            time_ = time;
            tail_ = {random() & 0x7FF,
                     random() & LOW_BITS}; // its first bit stays free, to count on in this millisecond
        } else if ((tail_.low += 1 + (random() & 0xFFFFFFFF)) > LOW_BITS) {
            tail_.low &= LOW_BITS;
            if (++tail_.high > 0xFFF) {
                tail_.high = 0;
                time_++;
            }
        }
        time = time_;
        char text[64];
        std::snprintf(text, sizeof text, "%08lx-%04lx-7%03lx-%04lx-%012lx", time_ >> 16, time_ & 0xFFFF,
                      tail_.high, 0x8000 | tail_.low >> 48, tail_.low & 0xFFFFFFFFFFFF);
        return text;
    }

  private:
    static constexpr uint64_t LOW_BITS = (1ULL << 62) - 1;
    uint64_t random() { return static_cast<uint64_t>(source_()) << 32 | source_(); }

    std::mutex mutex_;
    std::random_device source_;
    uint64_t time_ = 0;
    Tail tail_;
};

} // namespace

std::string new_id(Time &time)
{
    static Ids ids;
    auto milliseconds_since_1970 =
        static_cast<uint64_t>(std::max<long>(time.time_since_epoch().count(), 0)) & 0xFFFFFFFFFFFF;
    std::string id = ids.next(milliseconds_since_1970);
    time = Time(milliseconds(milliseconds_since_1970));
    return id;
}

std::string id_bound(std::string_view prefix, char fill)
{
    static constexpr std::string_view FORM = "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx";
    std::string id(FORM);
    if (prefix.size() > id.size())
        return {};
    for (size_t i = 0; i < id.size(); i++) {
        const bool is_hyphen = FORM[i] == '-';
        const auto character = static_cast<unsigned char>(i < prefix.size() ? prefix[i]
                                                          : is_hyphen       ? '-'
                                                                            : fill);
        if (is_hyphen ? character != '-' : !std::isxdigit(character))
            return {};
        id[i] = static_cast<char>(std::tolower(character));
    }
    return id;
}

std::string id_at(Time time)
{
    char digits[32];
    std::snprintf(digits, sizeof digits, "%012lx", std::max<long>(time.time_since_epoch().count(), 0));
    return id_bound(std::string(digits, 8) + "-" + (digits + 8), '0');
}

} // namespace station::records
