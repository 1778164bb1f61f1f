#include "commands/security_keys/secret.h"

#include <string.h>

#include "core/command.h"
#include "core/files.h"
#include "core/packet.h"

void clear_secret(void *data, size_t length)
{
    memset(data, 0, length);
    __asm__ __volatile__("" : : "r"(data) : "memory"); // as far as the compiler knows, someone looks at it
}

bool write_secret(const char *path, const uint8_t *key, uint16_t length, uint16_t limit)
{
    // A copy of its own ends the key where its length does: in the request the next one may follow at once.
    secret<SECRET_FILE_LIMIT + 1> copy;
    memcpy(copy.bytes, key, length < limit ? length : limit);
    return diag_cmd_write_file(path, length, limit, copy.bytes);
}

bool answer_identity(uint8_t *response, const char *line, const char *marker)
{
    const char *found = strstr(line, marker);
    if (!found)
        return false;
    found += strlen(marker);
    size_t length = strnlen(found, IDENTITY_LIMIT);
    answer_bytes(response, found, length);
    if (length > 0 && found[length - 1] == '\n')
        answer_length(response, length - 1);
    return true;
}
