// Requests and responses on the wire, little-endian:
//   0     command code     copied from the request into the response
//   1     subsystem, 250   copied
//   2-3   subsystem command code, u16, copied
//   4     selector, u8     copied
//   5-6   data length, u16
//   7..   data
// A station ends its texts with a zero byte of their own, within the packet. The workstation's router keeps
// 65,535 + 1,024 bytes for a request and zeroes behind the packet, so that a text without that byte still
// ends; a phone's router promises neither.
#pragma once

#include <stddef.h>
#include <stdint.h>

constexpr uint16_t DIAG_SUBSYSTEM = 250;

constexpr size_t PACKET_DATA = 7; // where the data begins
constexpr size_t TEXT_CAPACITY = 256;
constexpr size_t LONG_CAPACITY = 768;
constexpr size_t TEXT_RESPONSE = PACKET_DATA + TEXT_CAPACITY; // what most commands answer
constexpr size_t LONG_RESPONSE = PACKET_DATA + LONG_CAPACITY; // what the generic commands answer
constexpr size_t ECHO_RESPONSE = 5;                           // head and selector alone

uint16_t packet_code(const void *packet);
uint8_t packet_selector(const void *packet);
uint16_t packet_length(const void *packet); // as sent: 0..65535, not checked against anything
const uint8_t *packet_data(const void *packet);
const char *packet_text(const void *packet); // the data as a zero-terminated text

// Where the data of a response begins.
char *response_data(uint8_t *response);

// These fill in length and data and return the response, so that a handler ends with `return answer_...`.
void *answer_ok(uint8_t *response);
void *answer_error(uint8_t *response);
void *answer_text(uint8_t *response, const char *text);
// At most `capacity` bytes are taken.
void *answer_bytes(uint8_t *response, const void *data, size_t length, size_t capacity = TEXT_CAPACITY);
// The length alone, for data that is in place already.
void *answer_length(uint8_t *response, size_t length);

// Whether the data length is 1..limit; if not, logs the format error under the handler's name.
[[nodiscard]] bool length_is_valid(const char *handler, const void *request, uint16_t limit = 512);

// Logs that a request's data is of a length that the command does not take.
void log_format_error(const char *handler, uint16_t length);
