// How a phone differs from the healthy one: what `script/phone up` was told by --serial, --set, --slow and
// --hang.
//
// The workstation has checked it and bound it into the phone as a file that the phone cannot write: a line
// each, "prop NAME VALUE", "set NODE VALUE", "slow TOOL SECONDS", "hang TOOL". It holds for every boot.
#pragma once

#include <map>
#include <string>
#include <vector>

struct Staging {
    std::map<std::string, std::string> properties;          // by name
    std::vector<std::pair<std::string, std::string>> nodes; // path and value
    std::map<std::string, std::string>
        tools; // by name: the seconds that one takes before it begins, or "hang"
};

// Nothing where no file is.
Staging read_staging();

// Gives each node its value and a line feed. A node that is not there is made, with its folders.
void stage_nodes(const Staging &staging);

// Puts the delay before the tools. Boot hooks run before, and know nothing of it.
void stage_tools(const Staging &staging);
