// The options that every request takes, before its name or behind it.
#pragma once

#include "station/catalogue/request.h"

#include <CLI/CLI.hpp>

namespace station
{

inline void add_request_options(CLI::App &app, Settings &settings)
{
    auto *group = app.add_option_group("port and output");
    group->add_option("--port", settings.client.port, "socket path, serial device or tcp:HOST:PORT")
        ->type_name("PORT");
    group->add_option("--timeout", settings.client.timeout, "seconds to wait for an answer, in each attempt")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.001, 1e6));
    group
        ->add_option("--retries", settings.client.retries,
                     "attempts after the first, where repeating is safe")
        ->type_name("NUMBER")
        ->check(CLI::Range(0, 1000));
    group->add_flag("--json", settings.json, "print JSON");
    group->add_flag("--plain", settings.plain, "print the answer alone");
    group->add_flag("--raw-hex", settings.raw_hex, "print the whole response packet in hexadecimal");
}

} // namespace station
