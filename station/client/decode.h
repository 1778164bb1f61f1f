// Answers whose data is more than a text: sizes, addresses, detection results.
#pragma once

#include "station/client/bytes.h"
#include "station/text/json.h"

#include <optional>
#include <string>

namespace station
{

struct Meaning {
    std::string text;           // for a person
    std::optional<Json> fields; // for a program: an object
};

// Tells what an answer's data means; `packet` is the whole response.
using Decoder = Meaning (*)(const Bytes &data, const Bytes &packet);

Meaning gib_byte(const Bytes &data, const Bytes &packet);    // one byte
Meaning gib_base255(const Bytes &data, const Bytes &packet); // two digits to the base of 255, low one first
Meaning missing_components(const Bytes &data, const Bytes &packet);
Meaning bluetooth_address(const Bytes &data, const Bytes &packet);
Meaning cplc_and_mac(const Bytes &data, const Bytes &packet);

} // namespace station
