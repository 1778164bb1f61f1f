// One line of a plan, from its words to a step.
#pragma once

#include "station/plan/inputs.h"

namespace station
{

// A word of the plan's language; what stands in quotes is text.
inline bool is(const Word &word, const char *text) { return !word.quoted && word.text == text; }

// Whether it looks like a comment, which has a line of its own.
bool begins_comment(const Word &word);

// The texts, joined by one blank each.
std::string joined(const Words &words);

// Takes the first word away; an empty one when there is none.
Word take(Words &words);

// Each takes a line's words, away from them or by reading, into the step and throws UsageError: `words` are
// as they stand, the sign in front left out; the step knows already whether it must or may fail.
void parse_skip(Words &words, Step &step);                                   // skip NAME REASON
void parse_pause(Words &words, Step &step);                                  // wait, sleep
void parse_prompt(Words &words, Step &step);                                 // tell, ask, input
void parse_asking(const Words &words, const Settings &settings, Step &step); // a request

} // namespace station
