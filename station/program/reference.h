// The whole catalogue as a reference in Markdown.
#pragma once

#include <string>

namespace station
{

std::string reference_markdown();

} // namespace station
