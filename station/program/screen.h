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

    // What has to be printed to have these lines where those before are; nothing when they are the same.
    std::string printed(const std::vector<std::string> &lines);

    // The person has typed a line behind the last one: all is drawn anew, from a row further below.
    void forget()
    {
        drawn_.clear();
        rows_++;
    }

  private:
    std::string drawn_;
    size_t rows_ = 0;
};

} // namespace station
