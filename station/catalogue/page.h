// One command as text, for its --help and the reference.
#pragma once

#include "station/catalogue/catalogue.h"

#include <string>

namespace station
{

std::string command_page(const Command &command, uint16_t code);
// What it does, for lists.
std::string one_line(const Command &command, const Name &name);
std::string usage_line(const Command &command, const Name &name);

} // namespace station
