// What the phone's logcat and the workstation's have in common: what they are told, and what they show of it.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace log_view
{

static constexpr int FOLLOW_PERIOD_MS = 50; // between two looks at a log that is followed

struct Wanted {
    std::string tag; // "*": any
    char priority;   // at least
};

struct View {
    bool follow = true, clear = false;
    bool silent = false; // what is not wanted is left out
    size_t last = SIZE_MAX;
    std::string layout = "threadtime";
    std::vector<Wanted> wanted;
};

// Takes [-d] [-c] [-t LINES] [-v LAYOUT] [-b BUFFER] [-s] [TAG[:PRIORITY]]... in any order. Returns what is
// wrong with it, or nothing.
std::string parse(const std::vector<std::string> &words, View &view);

// Prints the complete lines of `text`, the last `last` of those wanted, each as `shown` has it, and leaves
// the rest. False: nobody reads.
bool print_lines(const View &view, std::string &text, size_t last,
                 const std::function<std::string(std::string_view)> &shown);

} // namespace log_view
