// What the station knows of the service's commands: the one place for it outside the handlers.
//
// A command is described once; the command line, the encoding of requests, the judgement of answers, `station
// list` and the reference are made from the description. The tables lie beside this file, one file per
// family.
#pragma once

#include "station/client/decode.h"
#include "station/client/encode.h"

#include <optional>
#include <string>
#include <vector>

namespace station
{

enum class Family {
    access,
    boot_power,
    identity_storage,
    detection,
    battery,
    status_checks,
    connectivity,
    display_camera,
    security_keys,
};

const char *family_name(Family family);  // as a word, "boot-power"
const char *family_title(Family family); // as a heading

// A word that the command line takes for a byte.
struct Choice {
    const char *word;
    uint8_t value;
    const char *meaning;
};

// "PATH" is positional, "--expect TEXT" an option, "NUMBER..." takes all that is left.
struct Parameter {
    Parameter(const char *written, const char *means) : form(written), meaning(means) {}

    Parameter &optional(const char *fallback = nullptr)
    {
        required = false;
        standard = fallback;
        return *this;
    }
    // The parameter is the byte at this offset of the packet: one of the words, or a number.
    Parameter &byte(size_t at, std::vector<Choice> words = {})
    {
        offset = at;
        choices = std::move(words);
        return *this;
    }

    [[nodiscard]] std::string key() const; // "PATH", "--expect", "NUMBER"
    [[nodiscard]] bool is_option() const { return form[0] == '-'; }

    const char *form;
    const char *meaning;
    bool required = true;
    const char *standard = nullptr; // taken when the parameter is left out
    std::optional<size_t> offset;
    std::vector<Choice> choices;
};

// Request bytes, as the reference lists them.
struct Field {
    const char *bytes;
    const char *type;
    const char *meaning;
};

// One answer a command can give. The first that fits decides.
struct Answer {
    enum class Fit { word, empty, anything };

    [[nodiscard]] bool fits(const std::string &data) const;

    Fit fit;
    const char *text; // the word; for a value, what it is
    bool success;
    const char *meaning;
    Decoder decode = nullptr;
};

struct Name {
    uint16_t code;
    const char *name;
    const char *summary; // only in entries of several codes
};

struct Command {
    Command(uint16_t code, const char *name, const char *function)
        : low(code), high(code), handler(function), names{{code, name, nullptr}}
    {
    }
    Command(const char *function, std::vector<Name> codes)
        : low(codes.front().code), high(codes.back().code), handler(function), names(std::move(codes))
    {
    }

    // Writing of the tables.
    Command &does(const char *text);
    Command &takes(Parameter parameter);
    // The encoder runs once more when the request is sent, if that parameter is this word.
    Command &encoded(Encoder encoder, const char *when_sent_if = nullptr, const char *is = nullptr);
    Command &field(const char *bytes, const char *type, const char *meaning);
    Command &ok(const char *meaning);
    Command &error(const char *meaning);
    Command &good(const char *word, const char *meaning);
    Command &bad(const char *word, const char *meaning);
    Command &value(const char *what, const char *meaning, Decoder decode = nullptr);
    Command &bad_value(const char *what, const char *meaning, Decoder decode = nullptr);
    Command &empty(bool success, const char *meaning);
    Command &leaves(const char *text);
    Command &response(unsigned size);
    Command &repeatable();
    Command &lasts(const char *text);
    Command &takes_phone_down(bool only_with_zero_selector = false);

    [[nodiscard]] const Name &name_of(uint16_t code) const;
    [[nodiscard]] bool is_range() const { return low != high; }

    uint16_t low, high;
    const char *handler;
    std::vector<Name> names; // one for each code
    Family family{};
    const char *summary = "";
    std::vector<Parameter> parameters;
    Encoder encoder;
    const char *when_sent_if = nullptr;
    const char *when_sent_word = nullptr;
    std::vector<Field> fields;
    std::vector<Answer> answers;
    const char *aftermath = "";
    const char *duration = "milliseconds";
    unsigned response_size = 263;
    bool safe_to_repeat = false;
    bool phone_goes_down = false;
    bool down_only_with_zero_selector = false;
};

// All commands: by family, and in a family as its file has them.
const std::vector<Command> &catalogue();

// Null when there is none.
const Command *find_command(uint16_t code);
const Command *find_command(const std::string &name, uint16_t &code);

// The families' tables.
std::vector<Command> access_commands();
std::vector<Command> boot_power_commands();
std::vector<Command> identity_storage_commands();
std::vector<Command> detection_commands();
std::vector<Command> battery_commands();
std::vector<Command> status_check_commands();
std::vector<Command> connectivity_commands();
std::vector<Command> display_camera_commands();
std::vector<Command> security_key_commands();

} // namespace station
