// `station push` and `station pull`.
#pragma once

#include "station/catalogue/request.h"

#include <string>
#include <vector>

namespace station
{

// Take the words behind their name; return the exit status.
int serve_push(const std::vector<std::string> &words, Settings &settings);
int serve_pull(const std::vector<std::string> &words, Settings &settings);

} // namespace station
