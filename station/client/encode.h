// Requests that are more than one byte: texts, addresses, times, tables and keys put into a packet.
//
// Every encoder gets a packet of head, byte 4 and an empty data field, and leaves it with its length filled
// in.
#pragma once

#include "station/client/bytes.h"

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace station
{

// A parameter's words on the command line: none when it was left out.
using Arguments = std::map<std::string, std::vector<std::string>>;

// Puts arguments into a packet that holds the head, byte 4 and an empty data field. Throws UsageError.
using Encoder = std::function<void(const Arguments &, Bytes &packet)>;

constexpr size_t SELECTOR_OFFSET = 4;
constexpr size_t LENGTH_OFFSET = 5;
constexpr size_t DATA_OFFSET = 7;
constexpr size_t DATA_MAX = 65535 - DATA_OFFSET - 1;

// Head, byte 4 and a length of 0.
Bytes empty_request(uint16_t code);
// Low byte first, in a packet that reaches so far.
unsigned get_u16(const Bytes &packet, size_t offset);
void put_u16(Bytes &packet, size_t offset, unsigned value);
void put_data(Bytes &packet, const Bytes &data);
// The length counts the text; the zero byte that ends it follows uncounted.
void put_text(Bytes &packet, const std::string &text);

// The text of one parameter.
Encoder text_of(const char *key);
// Two texts around a '+', which neither may hold.
Encoder joined(const char *first, const char *second);
// Like joined; the second text is optional and sets byte 4.
Encoder joined_to_compare(const char *first, const char *second);
// Bytes as they are, from one of --file, --hex and --text.
Encoder bytes_from_options();
Encoder wlan_mac();
Encoder bluetooth_mac();
Encoder clock_time();
Encoder screen_timeout();
Encoder picture_colour();
// Curve records of A, B, K and D.
Encoder curve_records(unsigned count);
Encoder hdcp_keys();

} // namespace station
