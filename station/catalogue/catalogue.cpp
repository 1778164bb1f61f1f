#include "station/catalogue/catalogue.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <stdexcept>

namespace station
{
namespace
{

// The order in which the service registers its entries, by their low codes.
const uint16_t table_order[] = {
    0x001E, 0x0028, 0x0029, 0x0100, 0x0101, 0x010B, 0x0116, 0x0117, 0x0128, 0x0129, 0x012A, 0x012C, 0x012D,
    0x0132, 0x0133, 0x013C, 0x013D, 0x013E, 0x013F, 0x0141, 0x0142, 0x0143, 0x0A00, 0x0B00, 0x0B01, 0x0B0A,
    0x0B15, 0x0B1E, 0x0140, 0x1300, 0x1301, 0x1302, 0x0C00, 0x0C01, 0x0C1E, 0x0C0A, 0x0C0B, 0x0C0C, 0x0F00,
    0x0F01, 0x0F02, 0x0B14, 0x1400, 0x1500, 0x1501, 0x1502, 0x1E00, 0x1E01, 0x2000, 0x2001, 0x2003, 0x2004,
    0x2100, 0x2101, 0x2102, 0x2103, 0x2400, 0x2401, 0x2402, 0x2403, 0x2600, 0x3600, 0x3601, 0x3602, 0x3800,
    0x3801, 0x3802, 0x3803, 0x3807, 0x3808, 0x3809, 0x3201, 0x3202, 0x3203, 0x3204, 0x3205, 0x3206, 0x3207,
    0x3208, 0x3209, 0x320A, 0x320B, 0x320C, 0x320D, 0x320E, 0x320F, 0x5000, 0xC800, 0xC801, 0xC802, 0xCA00,
    0xD200, 0xD201, 0xD20A, 0xD20B, 0xD214, 0xD215, 0xD21E, 0xD228, 0xD232, 0xD23C, 0xE600, 0xE601, 0xE602,
    0xE603, 0xE604, 0xE605, 0xE606, 0xE607,
};

struct FamilyTable {
    Family family;
    const char *name;
    const char *title;
    std::vector<Command> (*commands)();
};

const FamilyTable families[] = {
    {Family::access, "access", "Nodes, properties and shell lines", access_commands},
    {Family::boot_power, "boot-power", "Boot mode, power, clock and screen", boot_power_commands},
    {Family::identity_storage, "identity-storage", "Identity, versions, memory and storage",
     identity_storage_commands},
    {Family::detection, "detection", "Component detection", detection_commands},
    {Family::battery, "battery", "Battery, charging and thermal", battery_commands},
    {Family::status_checks, "status-checks", "Factory status checks", status_check_commands},
    {Family::connectivity, "connectivity", "Bluetooth, WLAN, NFC and SIM", connectivity_commands},
    {Family::display_camera, "display-camera", "Panel, display processor, RGB light and camera",
     display_camera_commands},
    {Family::security_keys, "security-keys", "Security state and keys", security_key_commands},
};

std::vector<Command> collect()
{
    std::vector<Command> all;
    for (const FamilyTable &table : families)
        for (Command &command : table.commands()) {
            command.family = table.family;
            all.push_back(std::move(command));
        }
    auto place = [](const Command &command) {
        return std::find(std::begin(table_order), std::end(table_order), command.low);
    };
    std::sort(all.begin(), all.end(),
              [&](const Command &a, const Command &b) { return place(a) < place(b); });
    return all;
}

} // namespace

const char *family_name(Family family) { return families[static_cast<size_t>(family)].name; }
const char *family_title(Family family) { return families[static_cast<size_t>(family)].title; }

const std::vector<Command> &catalogue()
{
    static const std::vector<Command> all = collect();
    return all;
}

const Command *find_command(uint16_t code)
{
    for (const Command &command : catalogue())
        if (command.low <= code && code <= command.high)
            return &command;
    return nullptr;
}

const Command *find_command(const std::string &name, uint16_t &code)
{
    for (const Command &command : catalogue())
        for (const Name &known : command.names)
            if (name == known.name) {
                code = known.code;
                return &command;
            }
    return nullptr;
}

std::string Parameter::key() const
{
    std::string key(form);
    key = key.substr(0, key.find(' '));
    return takes_all() ? key.substr(0, key.size() - 3) : key;
}

bool Parameter::takes_all() const
{
    const size_t length = std::strlen(form);
    return length > 3 && std::strcmp(form + length - 3, "...") == 0;
}

bool Answer::fits(const std::string &data) const
{
    switch (fit) {
    case Fit::word:
        return data == text;
    case Fit::empty:
        return data.empty();
    case Fit::anything:
        return true;
    }
    return false;
}

Command &Command::does(const char *text)
{
    summary = text;
    return *this;
}

Command &Command::takes(Parameter parameter)
{
    parameters.push_back(std::move(parameter));
    return *this;
}

Command &Command::encoded(Encoder how)
{
    encoder = std::move(how);
    return *this;
}

Command &Command::field(const char *bytes, const char *type, const char *meaning)
{
    fields.push_back({bytes, type, meaning});
    return *this;
}

Command &Command::ok(const char *meaning) { return good("OK", meaning); }

Command &Command::error(const char *meaning) { return bad("ERROR", meaning); }

Command &Command::good(const char *word, const char *meaning)
{
    answers.push_back({Answer::Fit::word, word, true, meaning});
    return *this;
}

Command &Command::bad(const char *word, const char *meaning)
{
    answers.push_back({Answer::Fit::word, word, false, meaning});
    return *this;
}

Command &Command::value(const char *what, const char *meaning, Decoder decode)
{
    answers.push_back({Answer::Fit::anything, what, true, meaning, decode});
    return *this;
}

Command &Command::bad_value(const char *what, const char *meaning, Decoder decode)
{
    answers.push_back({Answer::Fit::anything, what, false, meaning, decode});
    return *this;
}

Command &Command::empty(bool success, const char *meaning)
{
    answers.push_back({Answer::Fit::empty, "", success, meaning});
    return *this;
}

Command &Command::leaves(const char *text)
{
    aftermath = text;
    return *this;
}

Command &Command::response(unsigned size)
{
    response_size = size;
    return *this;
}

Command &Command::repeatable()
{
    safe_to_repeat = true;
    return *this;
}

Command &Command::lasts(const char *text)
{
    duration = text;
    return *this;
}

Command &Command::takes_phone_down(bool only_with_zero_selector)
{
    phone_goes_down = true;
    down_only_with_zero_selector = only_with_zero_selector;
    return *this;
}

const Name &Command::name_of(uint16_t code) const
{
    for (const Name &name : names)
        if (name.code == code)
            return name;
    throw std::out_of_range("the entry does not hold this code");
}

} // namespace station
