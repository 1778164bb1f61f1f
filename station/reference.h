// The catalogue as text: a command's page for --help, the whole reference in Markdown.
#pragma once

#include "catalogue.h"

#include <string>

namespace station
{

std::string command_page(const Command &command, uint16_t code);
std::string usage_line(const Command &command, const Name &name);
std::string reference_markdown();

} // namespace station
