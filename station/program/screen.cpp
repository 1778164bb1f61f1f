#include "station/program/screen.h"

#include "station/catalogue/answer.h"
#include "station/program/columns.h"
#include "station/program/output.h"

#include <algorithm>
#include <cstdio>
#include <sys/ioctl.h>
#include <unistd.h>

namespace station
{

static constexpr size_t BAR = 20, BAR_MIN = 4;
static constexpr size_t UNIT = 24, UNIT_MIN = 10;
static constexpr size_t NUMBER = 4;
static constexpr size_t REST_MIN = 14; // columns for the step or the verdict
static constexpr char INDENT[] = "    ";

static std::string fitted(const std::string &raw, size_t width) { return cut(escaped(raw), width); }

static std::string verdict(End end)
{
    return end == End::fail ? "FAIL" : end == End::aborted ? "ABORTED" : "ERROR";
}

static std::string slot_line(const SlotState &slot, size_t width)
{
    // A narrow terminal has shorter bars and names.
    const size_t spare = width - std::min(width, NUMBER + UNIT_MIN + 1 + BAR_MIN + 3 + REST_MIN);
    const size_t bar = BAR_MIN + std::min(spare / 2, BAR - BAR_MIN);
    const size_t unit = UNIT_MIN + std::min(spare / 2, UNIT - UNIT_MIN);
    char number[16];
    std::snprintf(number, sizeof number, "%3d ", slot.number);
    const size_t filled = slot.steps ? std::min(slot.done, slot.steps) * bar / slot.steps : 0;
    const std::string head = number + padded(fitted(slot.unit, unit), unit) + " [" +
                             std::string(filled, '#') + std::string(bar - filled, '.') + "] ";
    const size_t used = NUMBER + unit + 1 + bar + 3;
    const size_t left = width - std::min(width, used);
    switch (slot.phase) {
    case SlotState::Phase::waits:
        return head + fitted("waits for a phone", left);
    case SlotState::Phase::refused:
        return head + fitted("refused", left);
    case SlotState::Phase::tests:
        return head + fitted(std::to_string(slot.done + 1) + "/" + std::to_string(slot.steps) + " " +
                                 slot.step + (slot.failing.empty() ? "" : "  (has failed)"),
                             left);
    default:
        return head + (slot.end == End::pass ? "\033[1;32mPASS\033[0m"
                                             : "\033[1;31m" + verdict(slot.end) + "\033[0m");
    }
}

std::vector<std::string> screen_lines(const std::vector<SlotState> &slots, const std::string &below,
                                      size_t width, size_t height)
{
    std::vector<std::string> lines;
    const bool fits = slots.size() < height;
    const size_t shown = fits ? slots.size() : height - 2;
    size_t room = fits ? height - 1 - shown : 0; // for causes
    for (size_t i = 0; i < shown; i++) {
        const SlotState &slot = slots[i];
        lines.push_back(slot_line(slot, width));
        if (room == 0 || slot.phase == SlotState::Phase::waits || slot.cause.empty())
            continue;
        const std::string cause = (slot.failing.empty() ? "" : slot.failing + ": ") + slot.cause;
        lines.push_back(INDENT + fitted(cause, width - (sizeof INDENT - 1)));
        room--;
    }
    if (!fits)
        lines.push_back(INDENT + fitted("... and " + std::to_string(slots.size() - shown) + " slots more",
                                        width - (sizeof INDENT - 1)));
    lines.push_back(fitted(below, width));
    return lines;
}

void Screen::draw(const std::vector<SlotState> &slots, const std::string &below)
{
    winsize window = {};
    ioctl(STDOUT_FILENO, TIOCGWINSZ, &window);
    // The last column and row stay free: a character there moves some terminals on.
    const size_t width = (window.ws_col > 20 ? window.ws_col : 80) - 1;
    const size_t height = (window.ws_row > 4 ? window.ws_row : 24) - 1;
    std::fputs(printed(screen_lines(slots, below, width, height)).c_str(), stdout);
    flush_output();
}

std::string Screen::printed(const std::vector<std::string> &lines)
{
    std::string text;
    for (const std::string &line : lines)
        text += (text.empty() ? "" : "\n") + line;
    if (text == drawn_)
        return "";
    std::string moved = "\r";
    if (rows_ > 1)
        moved += "\033[" + std::to_string(rows_ - 1) + "A";
    moved += "\033[J";
    drawn_ = text;
    rows_ = lines.size();
    return moved + text;
}

} // namespace station
