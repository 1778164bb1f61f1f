// The phone's getprop: prints the property NAME, or all of them when none is named.
#include "cutils.h"

#include <cstdio>
#include <filesystem>
#include <set>
#include <string>

namespace
{

constexpr char PROPERTIES[] = "/dev/__properties__";

}

int main(int argc, char **argv)
{
    char value[PROPERTY_VALUE_MAX];
    if (argc > 3) {
        fprintf(stderr, "usage: getprop [NAME [DEFAULT]]\n");
        return 1;
    }
    if (argc > 1) {
        property_get(argv[1], value, argc > 2 ? argv[2] : "");
        puts(value);
        return 0;
    }
    std::set<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(PROPERTIES))
        if (std::string name = entry.path().filename(); name[0] != '.')
            names.insert(name);
    for (const auto &name : names) {
        property_get(name.c_str(), value, "");
        printf("[%s]: [%s]\n", name.c_str(), value);
    }
    return 0;
}
