// The slots of a line on a terminal, drawn over what was drawn before.
#pragma once

#include "station/line/line.h"

#include <string>
#include <vector>

namespace station
{

// A line a slot (number, unit, bar, step or verdict); below it the cause of its failure, as far as the others
// leave room for it; and `below` at the end. No line is wider than `width` columns, and there are at most
// `height` of them, which is more than 2.
std::vector<std::string> screen_lines(const std::vector<SlotState> &slots, const std::string &below,
                                      size_t width, size_t height);

class Screen
{
  public:
    // Throws OutputError.
    void draw(const std::vector<SlotState> &slots, const std::string &below);

    // What the person types stands behind the last line: it has to be drawn anew.
    void forget() { drawn_.clear(); }

  private:
    std::string drawn_;
    size_t rows_ = 0;
};

} // namespace station
