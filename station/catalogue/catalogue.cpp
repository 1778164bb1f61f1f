#include "station/catalogue/catalogue.h"

#include <cstring>

namespace station
{
namespace
{

struct FamilyTable {
    Family family;
    const char *name;
    const char *title;
    std::vector<Command> (*commands)();
};

} // namespace

static constexpr FamilyTable FAMILIES[] = {
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

static std::vector<Command> collect()
{
    std::vector<Command> all;
    for (const FamilyTable &table : FAMILIES)
        for (Command &command : table.commands()) {
            command.family = table.family;
            all.push_back(std::move(command));
        }
    return all;
}

const char *family_name(Family family) { return FAMILIES[static_cast<size_t>(family)].name; }
const char *family_title(Family family) { return FAMILIES[static_cast<size_t>(family)].title; }

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

std::string Parameter::key() const { return {form, std::strcspn(form, " .")}; }

bool Answer::fits(const std::string &data) const
{
    switch (fit) {
    case Fit::word:
        return data == text;
    case Fit::empty:
        return data.empty();
    case Fit::anything:
        break;
    }
    return true;
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

Command &Command::encoded(Encoder how, const char *parameter, const char *is)
{
    encoder = std::move(how);
    when_sent_if = parameter;
    when_sent_word = is;
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

const Name &Command::name_of(uint16_t code) const { return names.at(code - low); }

} // namespace station
