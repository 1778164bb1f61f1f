// Numbers as plans and phones write them, compared digit by digit: a limit's end is where it was written,
// which no binary fraction is.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace station
{

class Decimal
{
  public:
    // Such as 5, -12.50: digits with at most one point between them, and a minus sign before them. Of any
    // length; nothing for any other text.
    static std::optional<Decimal> parse(std::string_view text);

    // As it was written.
    [[nodiscard]] const std::string &text() const { return text_; }

    // By value: 1.50 is 1.5 and -0 is 0.
    [[nodiscard]] bool operator<(const Decimal &other) const;

  private:
    std::string text_;
    bool negative_ = false;
    std::string whole_;    // without zeros in front
    std::string fraction_; // without zeros behind
};

} // namespace station
