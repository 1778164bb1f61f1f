// `station records`: asking for what was kept.
#pragma once

#include "station/catalogue/request.h"

#include <string>
#include <vector>

namespace station
{

// `words` stand behind "records". Returns the exit status; throws UsageError, HelpAsked and OutputError.
int serve_records(const std::vector<std::string> &words, Settings &settings);

} // namespace station
