// What `script/phone` has done by this program; each returns its exit status.
#pragma once

#include "files.h"

#include <string>
#include <vector>

namespace host
{

// `arguments`: what stands behind the name of the phone.
int shell(const Fd &state, bool raw, const std::string &command);
int logcat(const Fd &state, const std::vector<std::string> &arguments);

// Prints the last lines of the phone's log and console, cleaned.
void show_ends(const Fd &state, int out);

} // namespace host
