// `station line` and `station devices`.
#pragma once

#include "station/catalogue/request.h"

#include <string>
#include <vector>

namespace station
{

// They return the exit status; throw UsageError, PortError, OutputError and records::Error.
int serve_line(const std::vector<std::string> &words, Settings &settings);
int serve_devices(const std::vector<std::string> &words, Settings &settings);

std::string station_name(); // the host's

} // namespace station
