#include "station/plan/decimal.h"

#include <algorithm>
#include <tuple>

namespace station
{

static bool are_digits(std::string_view text)
{
    return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

std::optional<Decimal> Decimal::parse(std::string_view text)
{
    Decimal decimal;
    decimal.text_ = text;
    const bool has_minus = !text.empty() && text[0] == '-';
    text.remove_prefix(has_minus ? 1 : 0);
    const size_t point = text.find('.');
    const std::string_view whole = text.substr(0, point);
    const std::string_view fraction = point == std::string_view::npos ? "0" : text.substr(point + 1);
    if (!are_digits(whole) || !are_digits(fraction))
        return std::nullopt;
    decimal.whole_ = whole.substr(std::min(whole.find_first_not_of('0'), whole.size()));
    decimal.fraction_ = fraction.substr(0, fraction.find_last_not_of('0') + 1);
    decimal.negative_ = has_minus && !(decimal.whole_.empty() && decimal.fraction_.empty());
    return decimal;
}

bool Decimal::operator<(const Decimal &other) const
{
    // Without zeros in front the longer whole is more; without zeros behind, the longer of two fractions that
    // begin the same.
    const auto magnitude = [](const Decimal &one) {
        return std::tuple(one.whole_.size(), std::string_view(one.whole_), std::string_view(one.fraction_));
    };
    if (negative_ != other.negative_)
        return negative_;
    return negative_ ? magnitude(other) < magnitude(*this) : magnitude(*this) < magnitude(other);
}

} // namespace station
