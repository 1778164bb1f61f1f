// From words, as typed or as a script line holds them, to a request.
#pragma once

#include "station/catalogue/catalogue.h"
#include "station/catalogue/command_line.h"
#include "station/client/client.h"

#include <string>
#include <vector>

namespace station
{

struct Request : Question {
    uint16_t code = 0;
    const Command *command = nullptr; // null for a code that the catalogue does not hold
    std::string name;                 // as the command line has it; the code for an unknown one
    std::string words;                // its arguments as one would type them, the station's options left out
    bool takes_phone_down = false;
};

// How requests are sent and answers shown.
struct Settings {
    Client::Settings client;
    bool json = false;
    bool raw_hex = false;
    bool plain = false;
};

// In a script's line only the options that can still take effect are allowed: --timeout and --retries.
enum class Place { command_line, script };

// "send CODE ..." or "NAME ...". Throws UsageError; HelpAsked when the words ask for help.
Request parse_request(const std::vector<std::string> &words, Settings &settings,
                      Place place = Place::command_line);

// A word of a line: blanks part, quotes and backslash keep.
struct Word {
    std::string text;
    bool quoted = false;         // any of it stood in quotes or behind a backslash
    std::vector<size_t> dollars; // where a '$' stands that neither a single quote nor a backslash keeps
};

// Throws UsageError on an open quote.
std::vector<Word> split_line(const std::string &line);
std::vector<std::string> split_words(const std::string &line); // their texts

} // namespace station
