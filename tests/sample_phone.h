// A phone on which every command succeeds, and requests that take each command through its success and its
// main branches.
#pragma once

#include "tests/fake_platform.h"

// A node of another content than on a healthy phone; null: it is not there.
struct changed_node {
    const char *path;
    const char *content;
};

struct sample {
    uint16_t code;
    uint8_t selector;
    std::string data;
    std::string answer;
    std::vector<changed_node> changed = {};
    int left_open = 0; // streams and nodes that the command leaves open on its way
    int length = -1;   // as bytes 5-6 tell it; the number of data bytes when -1

    bool starts_power_action() const
    {
        return code == 0x012C || code == 0x012D || code == 0x0132 || code == 0x0133 ||
               (code == 0xCA00 && selector == 0);
    }
};

class SamplePhone : public Phone
{
  protected:
    void SetUp() override;
    // Makes the phone healthy, but for what the request demands, and the detection forget what it has found.
    static void prepare_for(const sample &request);

    static const std::vector<sample> &samples();
    static unsigned int response_of(uint16_t code); // its size on the wire
};
