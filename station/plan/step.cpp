#include "station/plan/step.h"

#include <algorithm>
#include <sstream>

namespace station
{

const char *left_out(const Step &step) { return step.must_fail ? "failure" : "success"; }

const std::string &Step::name() const { return !title.empty() ? title : !text.empty() ? text : request.name; }

double Step::patience() const { return std::min(timeout, within.value_or(timeout)); }

static std::string limits_text(const Step &step)
{
    const std::string low = step.low ? step.low->text() : "", high = step.high ? step.high->text() : "";
    return (!low.empty() && low == high ? low : low + ".." + high) +
           (step.unit.empty() ? "" : " " + step.unit);
}

std::string Step::wanted() const
{
    std::string text_wanted = must_fail ? "a failure" : "";
    if (compares)
        text_wanted += (text_wanted.empty() ? "" : ": ") + std::string(is_pattern ? "like " : "") + expected;
    if (has_limits)
        text_wanted = "in " + limits_text(*this);
    if (text_wanted.empty())
        text_wanted = "a success";
    std::ostringstream time;
    if (within)
        time << ", within " << *within << " s";
    return text_wanted + time.str();
}

} // namespace station
