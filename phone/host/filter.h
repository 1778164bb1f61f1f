// The system calls that no process of a phone has.
#pragma once

#include <string>

namespace host
{

// The filter as bubblewrap takes it (--seccomp): the bytes of a classic BPF program.
std::string system_call_filter();

} // namespace host
