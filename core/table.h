// The commands that the service registers with the router.
#pragma once

#include <diag.h>

extern const diagpkt_table diag_command_table;
