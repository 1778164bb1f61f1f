#include "station/records/text.h"

#include "station/text/text.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
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

std::string escaped_unless(bool (*is_fit)(uint32_t character), std::string_view text)
{
    std::string escaped;
    while (!text.empty()) {
        uint32_t character = 0;
        const size_t length = utf8_character(text, 0, character);
        const std::string_view bytes = text.substr(0, std::max<size_t>(length, 1));
        if (length > 0 && is_fit(character))
            escaped += bytes;
        else
            append_escaped(escaped, bytes);
        text.remove_prefix(bytes.size());
    }
    return escaped;
}

std::string clean(std::string_view text)
{
    return escaped_unless([](uint32_t character) { return character != 0; }, text);
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

namespace
{

// A text that is read from its beginning; what does not stand there is left.
class Reading
{
  public:
    explicit Reading(std::string_view text) : rest_(text) {}

    bool is_at_end() const { return rest_.empty(); }
    bool takes(char character)
    {
        if (rest_.empty() || rest_.front() != character)
            return false;
        rest_.remove_prefix(1);
        return true;
    }
    std::string digits() // all that stand there
    {
        std::string all(rest_.substr(0, rest_.find_first_not_of("0123456789")));
        rest_.remove_prefix(all.size());
        return all;
    }
    // A number of so many digits.
    bool takes(size_t count, int &number)
    {
        const std::string all = digits();
        if (all.size() != count)
            return false;
        number = std::stoi(all);
        return true;
    }

  private:
    std::string_view rest_;
};

} // namespace

static std::optional<Time> parse_date(const std::string &text)
{
    std::tm given{};
    int minutes_east = 0, fraction = 0;
    Reading reading(text);
    if (!reading.takes(4, given.tm_year) || !reading.takes('-') || !reading.takes(2, given.tm_mon) ||
        !reading.takes('-') || !reading.takes(2, given.tm_mday))
        return {};
    if (reading.takes('T') || reading.takes(' ')) {
        if (!reading.takes(2, given.tm_hour) || !reading.takes(':') || !reading.takes(2, given.tm_min))
            return {};
        if (reading.takes(':') && !reading.takes(2, given.tm_sec))
            return {};
        if (reading.takes('.'))
            fraction = std::stoi((reading.digits() + "000").substr(0, 3));
        const bool is_east = reading.takes('+');
        if (is_east || reading.takes('-')) {
            std::tm zone{};
            if (!reading.takes(2, zone.tm_hour) || !reading.takes(':') || !reading.takes(2, zone.tm_min))
                return {};
            minutes_east = (is_east ? 1 : -1) * (60 * zone.tm_hour + zone.tm_min);
        } else
            reading.takes('Z');
    }
    given.tm_year -= 1900;
    given.tm_mon -= 1;
    std::tm parts = given;
    const std::time_t seconds = timegm(&parts);
    // There is no 31 of November: it would be the first of the next month.
    if (!reading.is_at_end() || given.tm_mon != parts.tm_mon || given.tm_hour != parts.tm_hour ||
        given.tm_min != parts.tm_min)
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

// Of 32 digits, as ids are written.
static std::string with_hyphens(std::string digits)
{
    for (size_t at : {8, 13, 18, 23})
        digits.insert(at, "-");
    return digits;
}

namespace
{

class Ids
{
  public:
    // Puts the time forward where the ids are ahead of it.
    std::string next(uint64_t &time)
    {
        static constexpr uint64_t BACK_MILLISECONDS = 10'000;
        static constexpr uint64_t VARIANT = 1ULL << 63;
        const std::lock_guard<std::mutex> lock(mutex_);
        if (time > time_ || time + BACK_MILLISECONDS < time_) {
            time_ = time;
            high_ = any_(source_) & 0xFFF;
            // 62 bits are its own; the first stays free, to count on in this millisecond.
            low_ = any_(source_) >> 3;
        } else
            low_ += 1 + (any_(source_) >> 32);
        time = time_;
        char digits[64];
        std::snprintf(digits, sizeof digits, "%012lx7%03lx%016lx", time_, high_, VARIANT | low_);
        return with_hyphens(digits);
    }

  private:
    std::mutex mutex_;
    std::random_device source_;
    std::uniform_int_distribution<uint64_t> any_;
    uint64_t time_{}, high_{}, low_{}; // of the last id; the bits before its variant and behind it
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
    const std::string filled = with_hyphens(std::string(32, fill));
    if (prefix.size() > filled.size())
        return {};
    const std::string id = lower_case(std::string(prefix)) + filled.substr(prefix.size());
    const bool is_one = std::equal(id.begin(), id.end(), filled.begin(), [](unsigned char given, char form) {
        return form == '-' ? given == '-' : std::isxdigit(given);
    });
    return is_one ? id : "";
}

std::string id_at(Time time)
{
    char digits[64];
    std::snprintf(digits, sizeof digits, "%012lx%020d", std::max<long>(time.time_since_epoch().count(), 0),
                  0);
    return with_hyphens(digits);
}

Time time_in(std::string id)
{
    id.erase(std::remove(id.begin(), id.end(), '-'), id.end());
    return Time(milliseconds(std::strtoll(id.substr(0, 12).c_str(), nullptr, 16)));
}

} // namespace station::records
