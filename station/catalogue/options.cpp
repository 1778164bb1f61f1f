#include "station/catalogue/options.h"

#include "station/client/errors.h"

namespace station
{

void add_request_options(CommandLine &line, Settings &settings)
{
    line.group("port and output");
    line.takes("--port PORT", settings.client.port, "socket path, serial device or tcp:HOST:PORT");
    line.takes("--timeout SECONDS", settings.client.timeout,
               "seconds to wait for an answer, in each attempt");
    line.takes("--retries NUMBER", settings.client.retries, {0, 1000},
               "attempts after the first, where repeating is safe");
    line.takes("--trace", settings.client.trace,
               "show the bytes of both directions, with times, on standard error");
    line.takes("--json", settings.json, "print JSON");
    line.takes("--plain", settings.plain, "print the answer alone");
    line.takes("--raw-hex", settings.raw_hex, "print the whole response packet in hexadecimal");
}

void check(const Settings &settings)
{
    if (settings.plain && (settings.json || settings.raw_hex))
        throw UsageError(std::string("--plain and ") + (settings.json ? "--json" : "--raw-hex") +
                         " are two forms of the same answer: choose one");
}

} // namespace station
