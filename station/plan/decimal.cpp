#include "station/plan/decimal.h"

#include <algorithm>

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
    decimal.negative_ = !text.empty() && text[0] == '-';
    text.remove_prefix(decimal.negative_ ? 1 : 0);
    const size_t point = text.find('.');
    const std::string_view whole = text.substr(0, point);
    const std::string_view fraction = point == std::string_view::npos ? "0" : text.substr(point + 1);
    if (!are_digits(whole) || !are_digits(fraction))
        return std::nullopt;
    decimal.whole_ = whole.substr(std::min(whole.find_first_not_of('0'), whole.size()));
    decimal.fraction_ = fraction.substr(0, fraction.find_last_not_of('0') + 1);
    if (decimal.whole_.empty() && decimal.fraction_.empty())
        decimal.negative_ = false;
    return decimal;
}

int Decimal::compare(const Decimal &other) const
{
    if (negative_ != other.negative_)
        return negative_ ? -1 : 1;
    int order = whole_.size() != other.whole_.size() ? (whole_.size() < other.whole_.size() ? -1 : 1)
                                                     : whole_.compare(other.whole_);
    if (order == 0)
        order = fraction_.compare(other.fraction_); // no zeros behind: the longer of two equal heads is more
    return negative_ ? -order : order;
}

} // namespace station
