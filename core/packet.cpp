#include "core/packet.h"

#include <string.h>

#include "core/log.h"

static uint16_t read_u16(const void *packet, size_t offset)
{
    const uint8_t *bytes = static_cast<const uint8_t *>(packet) + offset;
    return static_cast<uint16_t>(bytes[0] | bytes[1] << 8);
}

uint16_t packet_code(const void *packet) { return read_u16(packet, 2); }

uint8_t packet_selector(const void *packet) { return static_cast<const uint8_t *>(packet)[4]; }

uint16_t packet_length(const void *packet) { return read_u16(packet, 5); }

const uint8_t *packet_data(const void *packet) { return static_cast<const uint8_t *>(packet) + PACKET_DATA; }

const char *packet_text(const void *packet) { return static_cast<const char *>(packet) + PACKET_DATA; }

char *response_data(uint8_t *response) { return reinterpret_cast<char *>(response + PACKET_DATA); }

void *answer_length(uint8_t *response, size_t length)
{
    response[5] = static_cast<uint8_t>(length);
    response[6] = static_cast<uint8_t>(length >> 8);
    return response;
}

void *answer_bytes(uint8_t *response, const void *data, size_t length, size_t capacity)
{
    if (length > capacity)
        length = capacity;
    memcpy(response + PACKET_DATA, data, length);
    return answer_length(response, length);
}

void *answer_text(uint8_t *response, const char *text) { return answer_bytes(response, text, strlen(text)); }

void *answer_ok(uint8_t *response) { return answer_text(response, "OK"); }

void *answer_error(uint8_t *response) { return answer_text(response, "ERROR"); }

bool length_is_valid(const char *handler, const void *request, uint16_t limit)
{
    uint16_t length = packet_length(request);
    if (length >= 1 && length <= limit)
        return true;
    log_format_error(handler, length);
    return false;
}

void log_format_error(const char *handler, uint16_t length)
{
    diag_log(handler, "Command format error or data len[%d] is too long.\n", length);
}
