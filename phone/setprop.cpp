// The phone's setprop: sets the property NAME to VALUE. A ctl.start or ctl.stop returns once init has acted
// on it.
#include "cutils.h"

#include <unistd.h>

#include <cstdio>
#include <string>

namespace
{

constexpr int CONTROL_TRIES = 200;
constexpr useconds_t CONTROL_PERIOD_US = 5000;

// init shows the state of a service as a property; there is none for a service that it does not know.
void await_service(const std::string &service, const std::string &state)
{
    const std::string name = "init.svc." + service;
    char value[PROPERTY_VALUE_MAX];
    for (int i = 0; i < CONTROL_TRIES; ++i) {
        if (property_get(name.c_str(), value, "") == 0 || value == state)
            return;
        usleep(CONTROL_PERIOD_US);
    }
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 3) {
        fprintf(stderr, "usage: setprop NAME VALUE\n");
        return 1;
    }
    const std::string name = argv[1];
    if (property_set(argv[1], argv[2]) != 0) {
        fprintf(stderr, "Failed to set property '%s' to '%s'.\n", argv[1], argv[2]);
        return 1;
    }
    if (name == "ctl.start")
        await_service(argv[2], "running");
    else if (name == "ctl.stop")
        await_service(argv[2], "stopped");
    return 0;
}
