#include "station/plan/pattern.h"

#include "station/client/errors.h"

#include <re2/re2.h>

namespace station
{

// Linear in the answer's length, whatever the pattern; answers are bytes, not always characters.
static RE2::Options pattern_options()
{
    RE2::Options options(RE2::Latin1);
    options.set_log_errors(false);
    return options;
}

bool matches(const std::string &pattern, const std::string &text)
{
    return RE2::PartialMatch(text, RE2(pattern, pattern_options()));
}

void check_pattern(const std::string &text)
{
    const RE2 pattern(text, pattern_options());
    if (!pattern.ok())
        throw UsageError("'" + text + "' is no pattern: " + pattern.error());
}

std::string literal(const std::string &text) { return RE2::QuoteMeta(text); }

} // namespace station
